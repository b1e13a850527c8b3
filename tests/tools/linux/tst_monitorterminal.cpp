// tonewell-monitor in a terminal of this test: fills it, follows its size, gives it back.
#include "platform/qtgeneration.h"
#include "remote/commoninterface.h"
#include "remote/spectrummessage.h"
#include "tests/support/privatefolder.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <memory>
#include <pty.h>
#include <QFile>
#include <QProcess>
#include <QRemoteObjectHost>
#include <QTest>
#include <QTimer>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int kPatienceMs = 20000;

constexpr char kEnter[] = "\x1b[?1049h\x1b[?25l";
constexpr char kLeave[] = "\x1b[?25h\x1b[?1049l";

/// A process in a group of its own, as a shell starts it: one without a parent in another group of
/// its session could not be stopped.
class Job : public PreparedProcess {
protected:
    void prepare() override { setpgid(0, 0); }
};

/// A pseudo-terminal with the monitor in it and what it has written.
class Terminal {
public:
    Terminal(unsigned short columns, unsigned short rows)
    {
        winsize size {rows, columns, 0, 0};
        if (openpty(&m_leader, &m_follower, nullptr, nullptr, &size) != 0)
            qFatal("openpty failed");
        fcntl(m_leader, F_SETFL, O_NONBLOCK);
        tcgetattr(m_follower, &m_before);
    }
    ~Terminal()
    {
        m_process.kill();
        m_process.waitForFinished();
        close(m_leader);
        close(m_follower);
    }

    void start(const QStringList &arguments)
    {
        // Standard output is the terminal; QProcess opens it by its name.
        m_process.setStandardOutputFile(QFile::decodeName(ttyname(m_follower)));
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("TERM"), QStringLiteral("xterm"));
        m_process.setProcessEnvironment(environment);
        m_process.start(QStringLiteral(TONEWELL_MONITOR), arguments);
    }

    /// The same, with this as its own terminal: keys are for it.
    void startOnItself(const QStringList &arguments)
    {
        const QString name = QFile::decodeName(ttyname(m_follower));
        m_process.setStandardInputFile(name);
        m_process.setStandardOutputFile(name);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("TERM"), QStringLiteral("xterm"));
        m_process.setProcessEnvironment(environment);
        m_process.start(QStringLiteral("setsid"),
                        QStringList {QStringLiteral("--ctty"), QStringLiteral("--wait"),
                                     QStringLiteral(TONEWELL_MONITOR)}
                            + arguments);
    }

    /// A shell with job control, whose terminal this is.
    void startShell()
    {
        const QString name = QFile::decodeName(ttyname(m_follower));
        m_process.setStandardInputFile(name);
        m_process.setStandardOutputFile(name);
        m_process.start(QStringLiteral("setsid"),
                        {QStringLiteral("--ctty"), QStringLiteral("--wait"), QStringLiteral("bash"),
                         QStringLiteral("--norc"), QStringLiteral("--noediting"),
                         QStringLiteral("-i")});
    }
    bool type(const QByteArray &keys) const
    {
        return write(m_leader, keys.constData(), static_cast<size_t>(keys.size())) == keys.size();
    }

    void resize(unsigned short columns, unsigned short rows) const
    {
        const winsize size {rows, columns, 0, 0};
        ioctl(m_leader, TIOCSWINSZ, &size);
    }

    const QByteArray &output()
    {
        char bytes[65536];
        for (ssize_t count; (count = read(m_leader, bytes, sizeof bytes)) > 0;)
            m_output.append(bytes, static_cast<int>(count));
        return m_output;
    }

    /// Reads on meanwhile: a full terminal stops whoever writes to it.
    bool hasEnded()
    {
        output();
        return m_process.state() == QProcess::NotRunning;
    }

    bool isAsBefore() const { return isAsBefore(0); }
    bool isAsBeforeForKeys() const { return isAsBefore(ECHO | ICANON); }

    bool isStopped() const
    {
        QFile status(QStringLiteral("/proc/%1/stat").arg(m_process.processId()));
        return status.open(QIODevice::ReadOnly) && status.readAll().contains(") T ");
    }
    bool send(int signal) const
    {
        return kill(static_cast<pid_t>(m_process.processId()), signal) == 0;
    }

    QProcess &process() { return m_process; }

    /// The newest whole picture's rows, without colours.
    QStringList picture()
    {
        const QList<QByteArray> pictures = split(output(), "\x1b[H");
        if (pictures.size() < 3)
            return {};
        QByteArray text = pictures.at(pictures.size() - 2); // the last one may be half written
        for (int start; (start = text.indexOf("\x1b[")) >= 0;)
            text.remove(start, text.indexOf('m', start) - start + 1);
        text.replace('\r', ""); // the terminal adds one
        return QString::fromUtf8(text).split(QLatin1Char('\n'));
    }

private:
    bool isAsBefore(tcflag_t withoutLocal) const
    {
        termios now {};
        tcgetattr(m_follower, &now);
        return now.c_iflag == m_before.c_iflag && now.c_oflag == m_before.c_oflag
            && now.c_lflag == (m_before.c_lflag & ~withoutLocal) && now.c_cflag == m_before.c_cflag;
    }

    static QList<QByteArray> split(const QByteArray &text, const QByteArray &separator)
    {
        QList<QByteArray> result;
        int start = 0;
        for (int end; (end = text.indexOf(separator, start)) >= 0; start = end + separator.size())
            result.append(text.mid(start, end - start));
        return result << text.mid(start);
    }

    int m_leader = -1;
    int m_follower = -1;
    termios m_before {};
    Job m_process;
    QByteArray m_output;
};

} // namespace

class MonitorTerminalTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void isGivenBack_data();
    void isGivenBack();
    void isGivenBackBySigquit();
    void isGivenBackByASecondInterrupt();
    void isGivenBackWhileStopped();
    void nothingIsDrawnInTheBackground();
    void standardOutputThatIsFullIsAnExitCode();
    void pictureHasTheTerminalsSize();
    void coloursCanBeDeclined();
    void keysEndIt_data();
    void keysEndIt();
    void keysChangeTheHeight();

private:
    std::unique_ptr<PrivateFolder> m_folder;
};

void MonitorTerminalTest::init()
{
    m_folder = std::make_unique<PrivateFolder>();
}

void MonitorTerminalTest::cleanup()
{
    m_folder.reset();
}

void MonitorTerminalTest::isGivenBack_data()
{
    QTest::addColumn<int>("signal");
    QTest::newRow("--seconds") << 0;
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGHUP") << SIGHUP;
}

void MonitorTerminalTest::isGivenBack()
{
    QFETCH(int, signal);
    Terminal terminal(80, 24);
    QStringList arguments {QStringLiteral("--text"), QStringLiteral("--stats")};
    if (signal == 0)
        arguments << QStringLiteral("--seconds") << QStringLiteral("0.5");
    terminal.start(arguments);
    QTRY_VERIFY_WITH_TIMEOUT(terminal.output().contains("waiting for the service"), kPatienceMs);
    QVERIFY(terminal.output().startsWith(kEnter));
    QVERIFY(!terminal.output().contains(kLeave));
    QVERIFY(terminal.isAsBeforeForKeys());
    if (signal != 0)
        QCOMPARE(kill(static_cast<pid_t>(terminal.process().processId()), signal), 0);
    QTRY_VERIFY_WITH_TIMEOUT(terminal.hasEnded(), kPatienceMs);
    QCOMPARE(terminal.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(terminal.process().exitCode(), 2); // no message had come
    QCOMPARE(terminal.output().count(kEnter), 1);
    QCOMPARE(terminal.output().count(kLeave), 1);
    // The statistics are on the first screen, where they stay.
    const QByteArray behind = terminal.output().mid(terminal.output().indexOf(kLeave));
    QVERIFY2(behind.contains("messages  0, bad 0"), behind.constData());
    QVERIFY(!behind.mid(static_cast<int>(sizeof kLeave) - 1).contains('\x1b'));
    QVERIFY(terminal.isAsBefore());
}

void MonitorTerminalTest::isGivenBackBySigquit()
{
    Terminal terminal(80, 24);
    terminal.start({QStringLiteral("--text")});
    QTRY_VERIFY_WITH_TIMEOUT(terminal.picture().size() == 24, kPatienceMs);
    QVERIFY(terminal.send(SIGQUIT));
    QTRY_VERIFY_WITH_TIMEOUT(terminal.hasEnded(), kPatienceMs);
    QCOMPARE(terminal.process().exitStatus(), QProcess::CrashExit);
    QCOMPARE(terminal.process().exitCode(), SIGQUIT);
    QVERIFY(terminal.output().endsWith(kLeave));
    QVERIFY(terminal.isAsBefore());
}

void MonitorTerminalTest::isGivenBackByASecondInterrupt()
{
    CommonInterface source;
    QRemoteObjectHost node(QUrl(QStringLiteral("local:tonewell")));
    QVERIFY(node.enableRemoting(&source, QStringLiteral("Tonewell")));
    const std::vector<float> bars(100, 0.5F);
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &source, [&] {
        source.sendMessage(
            spectrumMessage(0.25, 0.5, 0.125, bars.data(), static_cast<int>(bars.size())));
    });
    timer.start(20);
    // Nobody reads the record: the monitor waits there, and cannot answer the first signal.
    const QByteArray pipe = QFile::encodeName(m_folder->filePath(QStringLiteral("pipe")));
    QCOMPARE(mkfifo(pipe.constData(), 0600), 0);
    const int reader = open(pipe.constData(), O_RDONLY | O_NONBLOCK);
    QVERIFY(reader >= 0);
    const int room = fcntl(reader, F_SETPIPE_SZ, 4096);
    QVERIFY(room > 0);
    Terminal terminal(80, 24);
    terminal.start({QStringLiteral("--text"), QStringLiteral("--record"), QFile::decodeName(pipe)});
    const auto isHeldUp = [&] {
        int waiting = 0;
        ioctl(reader, FIONREAD, &waiting);
        const int before = terminal.output().size();
        QTest::qWait(500);
        return waiting > room - 1000 && terminal.output().size() == before;
    };
    QTRY_VERIFY_WITH_TIMEOUT(isHeldUp(), kPatienceMs);
    QVERIFY(terminal.send(SIGINT));
    QTest::qWait(500);
    QVERIFY(!terminal.hasEnded());
    QVERIFY(terminal.isAsBeforeForKeys());
    QVERIFY(terminal.send(SIGINT));
    QTRY_VERIFY_WITH_TIMEOUT(terminal.hasEnded(), kPatienceMs);
    QCOMPARE(terminal.process().exitStatus(), QProcess::CrashExit);
    QCOMPARE(terminal.process().exitCode(), SIGINT);
    QVERIFY(terminal.output().endsWith(kLeave));
    QVERIFY(terminal.isAsBefore());
    close(reader);
}

void MonitorTerminalTest::isGivenBackWhileStopped()
{
    Terminal terminal(80, 24);
    terminal.start({QStringLiteral("--text")});
    for (int stops = 1; stops <= 3; ++stops) {
        QTRY_COMPARE_WITH_TIMEOUT(terminal.output().count(kEnter), stops, kPatienceMs);
        const int begin = terminal.output().lastIndexOf(kEnter);
        // It is drawn again, in the whole.
        QTRY_VERIFY_WITH_TIMEOUT(terminal.output().mid(begin).count("\x1b[H") > 2, kPatienceMs);
        QVERIFY(terminal.isAsBeforeForKeys());
        QVERIFY(terminal.send(SIGTSTP));
        QTRY_VERIFY_WITH_TIMEOUT(terminal.isStopped(), kPatienceMs);
        QVERIFY(terminal.output().endsWith(kLeave));
        QCOMPARE(terminal.output().count(kLeave), stops);
        QVERIFY(terminal.isAsBefore());
        QVERIFY(terminal.send(SIGCONT));
    }
    QTRY_COMPARE_WITH_TIMEOUT(terminal.output().count(kEnter), 4, kPatienceMs);
    QVERIFY(terminal.send(SIGINT));
    QTRY_VERIFY_WITH_TIMEOUT(terminal.hasEnded(), kPatienceMs);
    QCOMPARE(terminal.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(terminal.process().exitCode(), 2);
    QVERIFY(terminal.output().endsWith(kLeave));
    QVERIFY(terminal.isAsBefore());
}

void MonitorTerminalTest::nothingIsDrawnInTheBackground()
{
    Terminal terminal(80, 24);
    terminal.startShell();
    QVERIFY(terminal.type("unset NO_COLOR; TERM=xterm " TONEWELL_MONITOR " --text &\n"));
    QVERIFY(terminal.type("sleep 1; echo said=$((40 + 2))\n"));
    QTRY_VERIFY_WITH_TIMEOUT(terminal.output().contains("said=42"), kPatienceMs);
    QCOMPARE(terminal.output().count(kEnter), 0);
    QVERIFY(terminal.type("fg\n"));
    QTRY_VERIFY_WITH_TIMEOUT(terminal.picture().size() == 24, kPatienceMs);
    QCOMPARE(terminal.output().count(kEnter), 1);
    QVERIFY(terminal.type("\x1a"));
    QTRY_COMPARE_WITH_TIMEOUT(terminal.output().count(kLeave), 1, kPatienceMs);
    QVERIFY(terminal.type("bg\n"));
    QVERIFY(terminal.type("sleep 1; echo said=$((40 + 3))\n"));
    QTRY_VERIFY_WITH_TIMEOUT(terminal.output().contains("said=43"), kPatienceMs);
    QCOMPARE(terminal.output().count(kEnter), 1);
    QVERIFY(terminal.type("fg\n"));
    QTRY_COMPARE_WITH_TIMEOUT(terminal.output().count(kEnter), 2, kPatienceMs);
    QVERIFY(terminal.type("\x03"));
    QTRY_COMPARE_WITH_TIMEOUT(terminal.output().count(kLeave), 2, kPatienceMs);
    QVERIFY(terminal.type("exit $?\n"));
    QTRY_VERIFY_WITH_TIMEOUT(terminal.hasEnded(), kPatienceMs);
    QCOMPARE(terminal.process().exitCode(), 2);
}

void MonitorTerminalTest::standardOutputThatIsFullIsAnExitCode()
{
    for (const char *const last : {"--text", "--help", "--version"}) {
        QProcess process;
        process.setStandardOutputFile(QStringLiteral("/dev/full"));
        process.start(QStringLiteral(TONEWELL_MONITOR), {QString::fromLatin1(last)});
        QVERIFY2(process.waitForFinished(kPatienceMs), last);
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(process.exitCode(), 3);
        QVERIFY2(process.readAllStandardError().contains("standard output"), last);
    }
}

void MonitorTerminalTest::pictureHasTheTerminalsSize()
{
    Terminal terminal(80, 24);
    terminal.start({QStringLiteral("--text")});
    const auto hasSize = [&](int columns, int rows) {
        const QStringList picture = terminal.picture();
        return picture.size() == rows
            && std::all_of(picture.begin(), picture.end(),
                           [&](const QString &row) { return row.size() == columns; });
    };
    QTRY_VERIFY_WITH_TIMEOUT(hasSize(80, 24), kPatienceMs);
    terminal.resize(132, 50);
    QTRY_VERIFY_WITH_TIMEOUT(hasSize(132, 50), kPatienceMs);
    terminal.resize(20, 3);
    QTRY_VERIFY_WITH_TIMEOUT(hasSize(20, 3), kPatienceMs);
}

void MonitorTerminalTest::coloursCanBeDeclined()
{
    Terminal coloured(80, 24);
    coloured.start({QStringLiteral("--text")});
    QTRY_VERIFY_WITH_TIMEOUT(coloured.picture().size() == 24, kPatienceMs);
    QVERIFY(coloured.output().contains("\x1b[36m"));

    qputenv("NO_COLOR", "1");
    Terminal plain(80, 24);
    plain.start({QStringLiteral("--text")});
    qunsetenv("NO_COLOR");
    QTRY_VERIFY_WITH_TIMEOUT(plain.picture().size() == 24, kPatienceMs);
    QVERIFY(!plain.output().contains("\x1b[36m"));
}

void MonitorTerminalTest::keysEndIt_data()
{
    QTest::addColumn<QByteArray>("keys");
    QTest::newRow("q") << QByteArray("q");
    QTest::newRow("Esc") << QByteArray("\x1b");
    QTest::newRow("q after an arrow") << QByteArray("\x1b[Aq");
}

void MonitorTerminalTest::keysEndIt()
{
    QFETCH(QByteArray, keys);
    Terminal terminal(80, 24);
    terminal.startOnItself({QStringLiteral("--text")});
    QTRY_VERIFY_WITH_TIMEOUT(terminal.picture().size() == 24, kPatienceMs);
    QVERIFY(terminal.type("\x1b[B")); // an arrow is no Esc
    QTest::qWait(300);
    QVERIFY(!terminal.hasEnded());
    QVERIFY(terminal.type(keys));
    QTRY_VERIFY_WITH_TIMEOUT(terminal.hasEnded(), kPatienceMs);
    QCOMPARE(terminal.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(terminal.process().exitCode(), 2);
    QCOMPARE(terminal.output().count(kLeave), 1);
    QVERIFY(terminal.isAsBefore());
}

void MonitorTerminalTest::keysChangeTheHeight()
{
    Terminal terminal(80, 24);
    terminal.startOnItself({QStringLiteral("--text")});
    const auto says = [&](const char *text) {
        return terminal.picture().join(QString()).contains(QLatin1String(text));
    };
    QTRY_VERIFY_WITH_TIMEOUT(says("fit 400"), kPatienceMs);
    QVERIFY(terminal.type("0"));
    QTRY_VERIFY_WITH_TIMEOUT(says("as sent: 400"), kPatienceMs);
    QVERIFY(terminal.type("++"));
    QTRY_VERIFY_WITH_TIMEOUT(says("by hand: 250"), kPatienceMs);
    QVERIFY(terminal.type("-"));
    QTRY_VERIFY_WITH_TIMEOUT(says("by hand: 300"), kPatienceMs);
    QVERIFY(terminal.type("0"));
    QTRY_VERIFY_WITH_TIMEOUT(says("fit 400"), kPatienceMs);
    QVERIFY(says("left channel") && says("right channel"));
}

QTEST_GUILESS_MAIN(MonitorTerminalTest)
#include "tst_monitorterminal.moc"
