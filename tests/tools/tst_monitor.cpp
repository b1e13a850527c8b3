// tonewell-monitor as a process against a source of this test.
#include "remote/commoninterface.h"
#include "remote/spectrummessage.h"
#include "tests/support/privatefolder.h"

#include <memory>
#include <QDir>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRemoteObjectHost>
#include <QTest>
#include <QTimer>
#include <vector>

namespace {

constexpr int kPatienceMs = 20000;

/// Something else under the same name.
class Stranger : public QObject {
    Q_OBJECT
    Q_CLASSINFO("RemoteObject Type", "CommonInterface")
    Q_CLASSINFO("RemoteObject Signature", "0000000000000000000000000000000000000000")

public:
    using QObject::QObject;

Q_SIGNALS:
    void sigMessage(QString msg);
};

QString goodMessage()
{
    const std::vector<float> bars(100, 0.5F);
    return spectrumMessage(0.25, 0.5, 0.125, bars.data(), static_cast<int>(bars.size()));
}

} // namespace

class MonitorTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void helpAndVersion();
    void wrongOptions_data();
    void wrongOptions();
    void withoutTheServiceItWaitsAndSaysSo();
    void whyItWaitsIsSaid();
    void aHostWithoutTheObjectIsTold();
    void thePictureIsNotWaitedForForEver();
    void showsLinesAndStatistics();
    void badMessagesAreCounted();
    void sourceOfAnotherTypeIsSaid();
    void theServiceComesBack();
    void theServiceComesInTheStrangersPlace();
    void aStrangerThatLeavesIsForgotten();
    void recordsEveryMessage();
    void aFileThatCannotBeWrittenIsAnExitCode_data();
    void aFileThatCannotBeWrittenIsAnExitCode();
    void savesAPictureWithoutADisplay();
    void thePictureIsTakenByItself();

private:
    std::unique_ptr<QRemoteObjectHost> host(QObject *source) const;
    std::unique_ptr<QProcess> monitor(const QStringList &arguments) const;

    std::unique_ptr<PrivateFolder> m_folder;
};

void MonitorTest::init()
{
    m_folder = std::make_unique<PrivateFolder>();
    // A session of its own, of which Qt has nothing to say, and no processes in which anybody's
    // service is.
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_folder->path()));
    qputenv("TONEWELL_PROCESSES", QFile::encodeName(m_folder->path()));
}

void MonitorTest::cleanup()
{
    m_folder.reset();
}

std::unique_ptr<QRemoteObjectHost> MonitorTest::host(QObject *source) const
{
    auto result = std::make_unique<QRemoteObjectHost>(QUrl(QStringLiteral("local:tonewell")));
    return result->enableRemoting(source, QStringLiteral("Tonewell")) ? std::move(result) : nullptr;
}

std::unique_ptr<QProcess> MonitorTest::monitor(const QStringList &arguments) const
{
    auto process = std::make_unique<QProcess>();
    process->start(QStringLiteral(TONEWELL_MONITOR), arguments);
    return process;
}

void MonitorTest::helpAndVersion()
{
    const auto help = monitor({QStringLiteral("--help")});
    QVERIFY(help->waitForFinished(kPatienceMs));
    QCOMPARE(help->exitCode(), 0);
    const QByteArray text = help->readAllStandardOutput();
    for (const char *option : {"--text", "--seconds", "--record", "--png", "--stats", "--help",
                               "--version", "Exit codes"})
        QVERIFY2(text.contains(option), option);
    const auto version = monitor({QStringLiteral("--version")});
    QVERIFY(version->waitForFinished(kPatienceMs));
    QCOMPARE(version->exitCode(), 0);
    QCOMPARE(version->readAllStandardOutput(),
             QByteArray("tonewell-monitor " TONEWELL_VERSION "\n"));
}

void MonitorTest::wrongOptions_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("unknown") << QStringList {QStringLiteral("--louder")};
    QTest::newRow("no number") << QStringList {QStringLiteral("--seconds"), QStringLiteral("soon")};
    QTest::newRow("0") << QStringList {QStringLiteral("--seconds"), QStringLiteral("0")};
    QTest::newRow("negative") << QStringList {QStringLiteral("--seconds=-1")};
    QTest::newRow("nan") << QStringList {QStringLiteral("--seconds=nan")};
    QTest::newRow("argument") << QStringList {QStringLiteral("more")};
}

void MonitorTest::wrongOptions()
{
    QFETCH(QStringList, arguments);
    const auto process = monitor(arguments);
    QVERIFY(process->waitForFinished(kPatienceMs));
    QCOMPARE(process->exitStatus(), QProcess::NormalExit);
    QCOMPARE(process->exitCode(), 2);
    // One line, so that nothing scrolls it away.
    const QByteArray error = process->readAllStandardError();
    QCOMPARE(error.count('\n'), 1);
    QVERIFY2(error.startsWith("tonewell-monitor: ") && error.endsWith("; see --help\n"),
             error.constData());
    QVERIFY2(!error.contains(".;"), error.constData());
    QVERIFY(process->readAllStandardOutput().isEmpty());
}

void MonitorTest::withoutTheServiceItWaitsAndSaysSo()
{
    const auto process = monitor({QStringLiteral("--seconds"), QStringLiteral("0.6")});
    QVERIFY(process->waitForFinished(kPatienceMs));
    QCOMPARE(process->exitStatus(), QProcess::NormalExit);
    QCOMPARE(process->exitCode(), 2);
    QVERIFY(process->readAllStandardOutput().contains("waiting for the service"));
    // It ends before it would say why, and looks then.
    const QByteArray error = process->readAllStandardError();
    QVERIFY2(error.contains("no message came: waiting for the service: it is not running; "),
             error.constData());
}

void MonitorTest::whyItWaitsIsSaid()
{
    const auto process = monitor({QStringLiteral("--seconds"), QStringLiteral("6")});
    QVERIFY(process->waitForFinished(kPatienceMs));
    QCOMPARE(process->exitCode(), 2);
    const QByteArray output = process->readAllStandardOutput();
    // The first seconds need no explanation; then it is the program beside the monitor that lacks.
    QVERIFY(output.split('\n').first().contains("waiting for the service  RMS"));
    const QByteArray why = "waiting for the service: it is not running; this starts it: ";
    QVERIFY2(output.contains(why), output.constData());
    QVERIFY2(process->readAllStandardError().contains("no message came: " + why), "at the end");
}

void MonitorTest::aHostWithoutTheObjectIsTold()
{
    // What introduces itself in this generation's way, and has nothing of that name.
    QRemoteObjectHost host(QUrl(QStringLiteral("local:tonewell")));
    const auto process = monitor({});
    QByteArray output;
    const auto shows = [&](const char *text) {
        output += process->readAllStandardOutput();
        return output.contains(text);
    };
    QTRY_VERIFY_WITH_TIMEOUT(shows("what answers at its socket publishes nothing named Tonewell"),
                             kPatienceMs);
    process->terminate();
    QTRY_COMPARE_WITH_TIMEOUT(process->state(), QProcess::NotRunning, kPatienceMs);
}

void MonitorTest::thePictureIsNotWaitedForForEver()
{
    const QString name = m_folder->filePath(QStringLiteral("picture.png"));
    const auto process = monitor({QStringLiteral("--png"), name});
    QVERIFY(process->waitForFinished(kPatienceMs));
    QCOMPARE(process->exitStatus(), QProcess::NormalExit);
    QCOMPARE(process->exitCode(), 2);
    QVERIFY(process->readAllStandardError().contains("no message came: waiting for the service: "));
    QVERIFY(!QFile::exists(name));
}

void MonitorTest::showsLinesAndStatistics()
{
    CommonInterface source;
    const auto node = host(&source);
    QVERIFY(node);
    QTimer timer;
    connect(&timer, &QTimer::timeout, &source, [&] { source.sendMessage(goodMessage()); });
    timer.start(20);
    const auto process =
        monitor({QStringLiteral("--seconds"), QStringLiteral("1.5"), QStringLiteral("--stats")});
    QTRY_COMPARE_WITH_TIMEOUT(process->state(), QProcess::NotRunning, kPatienceMs);
    QCOMPARE(process->exitCode(), 0);
    const QString output = QString::fromUtf8(process->readAllStandardOutput());
    QVERIFY2(output.contains(QStringLiteral("RMS 0.250  peak 0.500  dynamic 0.125")),
             qPrintable(output));
    QVERIFY2(output.contains(QLatin1Char('|') + QString(50, QChar(0x2584)) + QLatin1Char('|')),
             qPrintable(output));
    QVERIFY2(output.contains(QStringLiteral("gaps      50 % up to")), qPrintable(output));
    QVERIFY2(!output.contains(QChar(0x1b)), "no control sequences where there is no terminal");
}

void MonitorTest::badMessagesAreCounted()
{
    CommonInterface source;
    const auto node = host(&source);
    QVERIFY(node);
    QTimer timer;
    connect(&timer, &QTimer::timeout, &source, [&] {
        source.sendMessage(QStringLiteral("SoundSpectrum/&+&/1/&+&/loud"));
        source.sendMessage(QString(100000, QChar(0xD800)));
        source.sendMessage(goodMessage());
    });
    timer.start(20);
    const auto process =
        monitor({QStringLiteral("--seconds"), QStringLiteral("1.5"), QStringLiteral("--stats")});
    QTRY_COMPARE_WITH_TIMEOUT(process->state(), QProcess::NotRunning, kPatienceMs);
    QCOMPARE(process->exitStatus(), QProcess::NormalExit);
    QCOMPARE(process->exitCode(), 0);
    const QString output = QString::fromUtf8(process->readAllStandardOutput());
    QVERIFY2(output.contains(QStringLiteral("bad messages: ")), qPrintable(output));
    QVERIFY2(!output.contains(QStringLiteral("bad 0\n")), qPrintable(output));
}

void MonitorTest::sourceOfAnotherTypeIsSaid()
{
    Stranger stranger;
    const auto node = host(&stranger);
    QVERIFY(node);
    const auto process = monitor({QStringLiteral("--seconds"), QStringLiteral("1")});
    QTRY_COMPARE_WITH_TIMEOUT(process->state(), QProcess::NotRunning, kPatienceMs);
    QCOMPARE(process->exitStatus(), QProcess::NormalExit);
    QCOMPARE(process->exitCode(), 2);
    QVERIFY(process->readAllStandardOutput().contains("another type"));
}

void MonitorTest::theServiceComesInTheStrangersPlace()
{
    Stranger stranger;
    auto node = host(&stranger);
    QVERIFY(node);
    const auto process = monitor({});
    QByteArray output;
    const auto shows = [&](const char *text) {
        output += process->readAllStandardOutput();
        return output.contains(text);
    };
    QTRY_VERIFY_WITH_TIMEOUT(shows("another type"), kPatienceMs);
    node.reset();
    CommonInterface source;
    node = host(&source);
    QVERIFY(node);
    QTimer timer;
    connect(&timer, &QTimer::timeout, &source, [&] { source.sendMessage(goodMessage()); });
    timer.start(20);
    QTRY_VERIFY_WITH_TIMEOUT(shows(" a second, newest "), kPatienceMs);
    QVERIFY(output.contains("RMS 0.250"));
    QVERIFY(output.contains("of another type: "));
    process->terminate();
    QTRY_COMPARE_WITH_TIMEOUT(process->state(), QProcess::NotRunning, kPatienceMs);
}

void MonitorTest::aStrangerThatLeavesIsForgotten()
{
    Stranger stranger;
    auto node = host(&stranger);
    QVERIFY(node);
    const auto process = monitor({});
    QByteArray output;
    const auto shows = [&](const char *text) {
        output += process->readAllStandardOutput();
        return output.contains(text);
    };
    QTRY_VERIFY_WITH_TIMEOUT(shows("what answers is of another type"), kPatienceMs);
    node.reset();
    output.clear();
    QTRY_VERIFY_WITH_TIMEOUT(shows("waiting for the service"), kPatienceMs);
    // The monitor tells at each time whether the service is there.
    output.clear();
    QTest::qWait(2500);
    QVERIFY(shows("waiting for the service"));
    QVERIFY2(!shows("what answers is of another type"), output.constData());
    node = host(&stranger);
    QVERIFY(node);
    QTRY_VERIFY_WITH_TIMEOUT(shows("what answers is of another type"), kPatienceMs);
    process->terminate();
    QTRY_COMPARE_WITH_TIMEOUT(process->state(), QProcess::NotRunning, kPatienceMs);
}

void MonitorTest::recordsEveryMessage()
{
    CommonInterface source;
    const auto node = host(&source);
    QVERIFY(node);
    int sent = 0;
    QTimer timer;
    connect(&timer, &QTimer::timeout, &source, [&] {
        std::vector<float> bars(100, 0.0F);
        bars[static_cast<std::size_t>(sent % 100)] = 1.0F;
        source.sendMessage(QStringLiteral("noise"));
        source.sendMessage(
            spectrumMessage(0.25, 0.5, 0.125, bars.data(), static_cast<int>(bars.size())));
        ++sent;
    });
    timer.start(20);
    const QString name = m_folder->filePath(QStringLiteral("record.json"));
    const auto process = monitor({QStringLiteral("--seconds"), QStringLiteral("1.5"),
                                  QStringLiteral("--stats"), QStringLiteral("--record"), name});
    QTRY_COMPARE_WITH_TIMEOUT(process->state(), QProcess::NotRunning, kPatienceMs);
    QCOMPARE(process->exitCode(), 0);
    QFile file(name);
    QVERIFY(file.open(QIODevice::ReadOnly));
    int lines = 0;
    int place = -1;
    double time = 0;
    while (!file.atEnd()) {
        const QJsonObject line = QJsonDocument::fromJson(file.readLine()).object();
        QCOMPARE(line.value(QLatin1String("rms")).toDouble(), 100.0);
        QCOMPARE(line.value(QLatin1String("peak")).toDouble(), 200.0);
        QCOMPARE(line.value(QLatin1String("dynamics")).toDouble(), 50.0);
        QVERIFY(line.value(QLatin1String("time")).toDouble() >= time);
        time = line.value(QLatin1String("time")).toDouble();
        const QJsonArray bars = line.value(QLatin1String("bars")).toArray();
        QCOMPARE(bars.size(), 100);
        if (place < 0)
            while (bars.at(++place).toInt() != 400) { }
        else
            place = (place + 1) % 100;
        QCOMPARE(bars.at(place).toInt(), 400); // nothing is missing, nothing is there twice
        ++lines;
    }
    QVERIFY(lines > 0);
    const QString output = QString::fromUtf8(process->readAllStandardOutput());
    QVERIFY2(output.contains(QStringLiteral("messages  %1, bad ").arg(lines)), qPrintable(output));
}

void MonitorTest::aFileThatCannotBeWrittenIsAnExitCode_data()
{
    QTest::addColumn<QString>("option");
    QTest::addColumn<QString>("file");
    QTest::newRow("record, no folder")
        << QStringLiteral("--record") << QStringLiteral("/no/such/x");
    QTest::newRow("picture, no folder") << QStringLiteral("--png") << QStringLiteral("/no/such/x");
    if (QFile::exists(QStringLiteral("/dev/full")))
        QTest::newRow("record, disk full")
            << QStringLiteral("--record") << QStringLiteral("/dev/full");
}

void MonitorTest::aFileThatCannotBeWrittenIsAnExitCode()
{
    QFETCH(QString, option);
    QFETCH(QString, file);
    CommonInterface source;
    const auto node = host(&source);
    QVERIFY(node);
    QTimer timer;
    connect(&timer, &QTimer::timeout, &source, [&] { source.sendMessage(goodMessage()); });
    timer.start(20);
    const auto process = monitor({option, file, QStringLiteral("--seconds"), QStringLiteral("2")});
    QTRY_COMPARE_WITH_TIMEOUT(process->state(), QProcess::NotRunning, kPatienceMs);
    QCOMPARE(process->exitStatus(), QProcess::NormalExit);
    QCOMPARE(process->exitCode(), 3);
    QVERIFY(process->readAllStandardError().contains(QFile::encodeName(file)));
}

void MonitorTest::savesAPictureWithoutADisplay()
{
    CommonInterface source;
    const auto node = host(&source);
    QVERIFY(node);
    QTimer timer;
    connect(&timer, &QTimer::timeout, &source, [&] { source.sendMessage(goodMessage()); });
    timer.start(20);
    const QString name = m_folder->filePath(QStringLiteral("picture.of.bars"));
    const auto process = monitor(
        {QStringLiteral("--png"), name, QStringLiteral("--seconds"), QStringLiteral("1.5")});
    QTRY_COMPARE_WITH_TIMEOUT(process->state(), QProcess::NotRunning, kPatienceMs);
    QCOMPARE(process->exitCode(), 0);
    const QImage image(name, "PNG");
    QCOMPARE(image.size(), QSize(900, 480));
    // All bars are at half of the scale: many colourful pixels in the lower half, fewer in the
    // upper one, where only the meters are.
    int upper = 0;
    int lower = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            (y < image.height() / 2 ? upper : lower) +=
                image.pixelColor(x, y).hsvSaturation() > 60 ? 1 : 0;
    }
    QVERIFY2(lower > 80000, qPrintable(QString::number(lower)));
    QVERIFY2(upper > 10000 && upper < 60000, qPrintable(QString::number(upper)));
}

void MonitorTest::thePictureIsTakenByItself()
{
    const QString name = m_folder->filePath(QStringLiteral("picture.png"));
    const auto process = monitor({QStringLiteral("--png"), name});
    QTest::qWait(300); // nothing yet: it waits for the service
    QCOMPARE(process->state(), QProcess::Running);
    CommonInterface source;
    const auto node = host(&source);
    QVERIFY(node);
    QTimer timer;
    connect(&timer, &QTimer::timeout, &source, [&] { source.sendMessage(goodMessage()); });
    timer.start(20);
    QTRY_COMPARE_WITH_TIMEOUT(process->state(), QProcess::NotRunning, kPatienceMs);
    QCOMPARE(process->exitCode(), 0);
    QCOMPARE(QImage(name).size(), QSize(900, 480));
}

void MonitorTest::theServiceComesBack()
{
    CommonInterface source;
    auto node = host(&source);
    QVERIFY(node);
    QTimer timer;
    connect(&timer, &QTimer::timeout, &source, [&] { source.sendMessage(goodMessage()); });
    timer.start(20);
    const auto process = monitor({});
    QByteArray output;
    const auto shows = [&](const char *text) {
        output += process->readAllStandardOutput();
        return output.contains(text);
    };
    QTRY_VERIFY_WITH_TIMEOUT(shows("RMS 0.250"), kPatienceMs);
    output.clear();
    node.reset();
    QTRY_VERIFY_WITH_TIMEOUT(shows("waiting for the service"), kPatienceMs);
    output.clear();
    node = host(&source);
    QVERIFY(node);
    QTRY_VERIFY_WITH_TIMEOUT(shows("a second"), kPatienceMs);
    process->terminate();
    QTRY_COMPARE_WITH_TIMEOUT(process->state(), QProcess::NotRunning, kPatienceMs);
    QCOMPARE(process->exitStatus(), QProcess::NormalExit);
    QCOMPARE(process->exitCode(), 0);
}

QTEST_GUILESS_MAIN(MonitorTest)
#include "tst_monitor.moc"
