// tonewell-monitor with the locales of this host, and where files cannot grow.
#include "remote/commoninterface.h"
#include "remote/spectrummessage.h"
#include "tests/support/privatefolder.h"

#include <memory>
#include <QDir>
#include <QProcess>
#include <QRemoteObjectHost>
#include <QTest>
#include <QTimer>
#include <vector>

namespace {

constexpr int kPatienceMs = 20000;

QString goodMessage()
{
    const std::vector<float> bars(100, 0.5F);
    return spectrumMessage(0.25, 0.5, 0.125, bars.data(), static_cast<int>(bars.size()));
}

} // namespace

class MonitorHostTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void withoutUtf8ItIsPlain();
    void itSpeaksChinese();
    void linesAreEnglishEverywhere();
    void aFullDeviceHasOneText();
    void aFullDiskLeavesTheOldPicture();
    void aFullDiskIsNamed();

private:
    std::unique_ptr<QProcess> monitor(const QStringList &arguments, const char *locale) const;
    /// With files of at most so many KiB, as on a disk that is nearly full.
    std::unique_ptr<QProcess> monitorWithFileLimit(int limit, const QStringList &arguments) const;

    std::unique_ptr<PrivateFolder> m_folder;
};

void MonitorHostTest::init()
{
    m_folder = std::make_unique<PrivateFolder>();
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_folder->path()));
    qputenv("TONEWELL_PROCESSES", QFile::encodeName(m_folder->path()));
}

void MonitorHostTest::cleanup()
{
    m_folder.reset();
}

std::unique_ptr<QProcess> MonitorHostTest::monitor(const QStringList &arguments,
                                                   const char *locale) const
{
    auto process = std::make_unique<QProcess>();
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("LC_ALL"), QString::fromLatin1(locale));
    process->setProcessEnvironment(environment);
    process->start(QStringLiteral(TONEWELL_MONITOR), arguments);
    return process;
}

std::unique_ptr<QProcess> MonitorHostTest::monitorWithFileLimit(int limit,
                                                                const QStringList &arguments) const
{
    auto process = std::make_unique<QProcess>();
    // The signal that usually comes with it is ignored: the write fails, as on a full disk.
    process->start(
        QStringLiteral("bash"),
        QStringList {QStringLiteral("-c"),
                     QStringLiteral("trap '' XFSZ; ulimit -f %1; exec \"$0\" \"$@\"").arg(limit),
                     QStringLiteral(TONEWELL_MONITOR)}
            + arguments);
    return process;
}

void MonitorHostTest::withoutUtf8ItIsPlain()
{
    CommonInterface source;
    QRemoteObjectHost node(QUrl(QStringLiteral("local:tonewell")));
    QVERIFY(node.enableRemoting(&source, QStringLiteral("Tonewell")));
    QTimer timer;
    connect(&timer, &QTimer::timeout, &source, [&] { source.sendMessage(goodMessage()); });
    timer.start(20);
    for (const char *const locale : {"C", "en_US.ISO-8859-1", "xx_YY.UTF-8"}) {
        const auto process = monitor(
            {QStringLiteral("--text"), QStringLiteral("--seconds"), QStringLiteral("1")}, locale);
        QTRY_COMPARE_WITH_TIMEOUT(process->state(), QProcess::NotRunning, kPatienceMs);
        const QByteArray output = process->readAllStandardOutput();
        QVERIFY2(output.contains('|' + QByteArray(50, '=') + '|'), output.constData());
        for (const char byte : output)
            QVERIFY2(byte > 0, locale);
    }
}

void MonitorHostTest::itSpeaksChinese()
{
    const auto process =
        monitor({QStringLiteral("--json"), QStringLiteral("--seconds"), QStringLiteral("1")},
                "zh_CN.UTF-8");
    QVERIFY(process->waitForFinished(kPatienceMs));
    const QString said = QString::fromUtf8(process->readAllStandardError());
    QVERIFY2(said.contains(QStringLiteral("没有收到消息：正在等待服务")), qPrintable(said));
    // What Qt itself says, too.
    const auto wrong = monitor({QStringLiteral("--louder")}, "zh_CN.UTF-8");
    QVERIFY(wrong->waitForFinished(kPatienceMs));
    const QString error = QString::fromUtf8(wrong->readAllStandardError());
    QVERIFY2(error.contains(QStringLiteral("参见 --help")), qPrintable(error));
    QVERIFY2(!error.contains(QStringLiteral("nknown option")), qPrintable(error));
}

void MonitorHostTest::linesAreEnglishEverywhere()
{
    CommonInterface source;
    auto node = std::make_unique<QRemoteObjectHost>(QUrl(QStringLiteral("local:tonewell")));
    QVERIFY(node->enableRemoting(&source, QStringLiteral("Tonewell")));
    QTimer timer;
    connect(&timer, &QTimer::timeout, &source, [&] { source.sendMessage(goodMessage()); });
    timer.start(20);
    for (const bool there : {true, false}) {
        const auto process = monitor({QStringLiteral("--text"), QStringLiteral("--stats"),
                                      QStringLiteral("--seconds"), QStringLiteral("1.5")},
                                     "zh_CN.UTF-8");
        QTRY_COMPARE_WITH_TIMEOUT(process->state(), QProcess::NotRunning, kPatienceMs);
        const QString output = QString::fromUtf8(process->readAllStandardOutput());
        const char *const status = there ? " a second, newest " : "waiting for the service";
        QVERIFY2(output.contains(QLatin1String(status)), qPrintable(output));
        QVERIFY2(output.contains(QStringLiteral("messages  ")), qPrintable(output));
        const QByteArray error = process->readAllStandardError();
        QVERIFY2(there || error.contains("no message came: waiting for the service: "),
                 error.constData());
        node.reset();
    }
}

void MonitorHostTest::aFullDeviceHasOneText()
{
    CommonInterface source;
    QRemoteObjectHost node(QUrl(QStringLiteral("local:tonewell")));
    QVERIFY(node.enableRemoting(&source, QStringLiteral("Tonewell")));
    QTimer timer;
    connect(&timer, &QTimer::timeout, &source, [&] { source.sendMessage(goodMessage()); });
    timer.start(20);
    for (const char *const option : {"--text", "--json", "--help", "--version"}) {
        QProcess process;
        process.setStandardOutputFile(QStringLiteral("/dev/full"));
        process.start(QStringLiteral(TONEWELL_MONITOR), {QLatin1String(option)});
        QTRY_COMPARE_WITH_TIMEOUT(process.state(), QProcess::NotRunning, kPatienceMs);
        QCOMPARE(process.exitCode(), 3);
        QCOMPARE(process.readAllStandardError(),
                 QByteArray("tonewell-monitor: standard output: No space left on device\n"));
    }
}

void MonitorHostTest::aFullDiskLeavesTheOldPicture()
{
    QFile old(m_folder->filePath(QStringLiteral("picture.png")));
    QVERIFY(old.open(QIODevice::WriteOnly));
    QVERIFY(old.write("old") == 3);
    old.close();
    const auto process = monitorWithFileLimit(1,
                                              {QStringLiteral("--png"), old.fileName(),
                                               QStringLiteral("--seconds"), QStringLiteral("1")});
    QVERIFY(process->waitForFinished(kPatienceMs));
    QCOMPARE(process->exitCode(), 3);
    const QByteArray error = process->readAllStandardError();
    QVERIFY2(error.contains(QFile::encodeName(old.fileName()) + ": File too large"),
             error.constData());
    QVERIFY(old.open(QIODevice::ReadOnly));
    QCOMPARE(old.readAll(), QByteArray("old"));
    QCOMPARE(QDir(m_folder->path()).entryList(QDir::Files),
             QStringList {QStringLiteral("picture.png")});
}

void MonitorHostTest::aFullDiskIsNamed()
{
    CommonInterface source;
    QRemoteObjectHost node(QUrl(QStringLiteral("local:tonewell")));
    QVERIFY(node.enableRemoting(&source, QStringLiteral("Tonewell")));
    QTimer timer;
    connect(&timer, &QTimer::timeout, &source, [&] { source.sendMessage(goodMessage()); });
    timer.start(20);
    // A part of a line fits: what then fails must be named as it is.
    const QString name = m_folder->filePath(QStringLiteral("record.json"));
    const auto process =
        monitorWithFileLimit(1, {QStringLiteral("--text"), QStringLiteral("--record"), name});
    QTRY_COMPARE_WITH_TIMEOUT(process->state(), QProcess::NotRunning, kPatienceMs);
    QCOMPARE(process->exitCode(), 3);
    const QByteArray error = process->readAllStandardError();
    QVERIFY2(error.contains("record.json: File too large"), error.constData());
    QCOMPARE(QFileInfo(name).size(), 1024);
}

QTEST_GUILESS_MAIN(MonitorHostTest)
#include "tst_monitorhost.moc"
