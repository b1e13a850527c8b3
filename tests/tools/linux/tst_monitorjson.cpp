// tonewell-monitor --json as a process: what other programs read from its standard output.
#include "remote/commoninterface.h"
#include "remote/spectrummessage.h"
#include "tests/support/privatefolder.h"

#include <memory>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRemoteObjectHost>
#include <QTest>
#include <QTimer>
#include <utility>
#include <vector>

namespace {

constexpr int kPatienceMs = 20000;

constexpr int kFullScale = 400;

QString message(double rms)
{
    std::vector<float> bars(100, 0.0F);
    bars[42] = 0.5F;
    return spectrumMessage(rms, 0.5, 0.125, bars.data(), static_cast<int>(bars.size()));
}

} // namespace

class MonitorJsonTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void nothingElseIsOnStandardOutput_data();
    void nothingElseIsOnStandardOutput();
    void eachMessageIsThereAtOnce();
    void endsQuietlyWhenTheReaderGoes();
    void endsWithTheReaderAlsoWhileItWaits();
    void aFullDeviceIsAnExitCode();
    void optionsThatContradictAreRefused_data();
    void optionsThatContradictAreRefused();

private:
    void publish();
    std::unique_ptr<QProcess> monitor(const QStringList &arguments) const;

    std::unique_ptr<PrivateFolder> m_folder;
    std::unique_ptr<CommonInterface> m_source;
    std::unique_ptr<QRemoteObjectHost> m_node;
};

void MonitorJsonTest::init()
{
    m_folder = std::make_unique<PrivateFolder>();
}

void MonitorJsonTest::cleanup()
{
    m_node.reset();
    m_source.reset();
    m_folder.reset();
}

void MonitorJsonTest::publish()
{
    m_source = std::make_unique<CommonInterface>();
    m_node = std::make_unique<QRemoteObjectHost>(QUrl(QStringLiteral("local:tonewell")));
    QVERIFY(m_node->enableRemoting(m_source.get(), QStringLiteral("Tonewell")));
}

std::unique_ptr<QProcess> MonitorJsonTest::monitor(const QStringList &arguments) const
{
    auto process = std::make_unique<QProcess>();
    process->start(QStringLiteral(TONEWELL_MONITOR), arguments);
    return process;
}

void MonitorJsonTest::nothingElseIsOnStandardOutput_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("json") << QStringList {QStringLiteral("--json")};
    QTest::newRow("record -") << QStringList {QStringLiteral("--record"), QStringLiteral("-")};
}

void MonitorJsonTest::nothingElseIsOnStandardOutput()
{
    QFETCH(QStringList, arguments);
    publish();
    QTimer timer;
    connect(&timer, &QTimer::timeout, m_source.get(), [this] {
        m_source->sendMessage(QStringLiteral("noise"));
        m_source->sendMessage(message(0.25));
    });
    timer.start(20);
    const auto process =
        monitor(arguments
                + QStringList {QStringLiteral("--stats"), QStringLiteral("--seconds"),
                               QStringLiteral("1.5")});
    QTRY_COMPARE_WITH_TIMEOUT(process->state(), QProcess::NotRunning, kPatienceMs);
    QCOMPARE(process->exitCode(), 0);
    QVERIFY(process->readAllStandardError().contains("messages"));
    QList<QByteArray> lines = process->readAllStandardOutput().split('\n');
    QVERIFY(lines.takeLast().isEmpty());
    QVERIFY(!lines.isEmpty());
    double time = 0;
    for (const QByteArray &line : std::as_const(lines)) {
        const QJsonObject object = QJsonDocument::fromJson(line).object();
        QCOMPARE(
            object.keys(),
            (QStringList {QStringLiteral("bars"), QStringLiteral("dynamics"),
                          QStringLiteral("peak"), QStringLiteral("rms"), QStringLiteral("time")}));
        QVERIFY(object.value(QStringLiteral("time")).toDouble() >= time);
        time = object.value(QStringLiteral("time")).toDouble();
        QCOMPARE(object.value(QStringLiteral("rms")).toDouble(), 100.0);
        QCOMPARE(object.value(QStringLiteral("peak")).toDouble(), 200.0);
        QCOMPARE(object.value(QStringLiteral("dynamics")).toDouble(), 50.0);
        const QJsonArray bars = object.value(QStringLiteral("bars")).toArray();
        QCOMPARE(bars.size(), 100);
        QCOMPARE(bars.at(41).toInt(-1), 0);
        QCOMPARE(bars.at(42).toInt(-1), 200);
    }
}

void MonitorJsonTest::eachMessageIsThereAtOnce()
{
    publish();
    const auto process = monitor({QStringLiteral("--json")});
    QByteArray output;
    const auto isWritten = [&](double level) {
        output += process->readAllStandardOutput();
        return output.contains("\"rms\":" + QByteArray::number(kFullScale * level) + ',')
            && output.endsWith('\n');
    };
    const auto isFound = [&] {
        m_source->sendMessage(message(0.5));
        return isWritten(0.5);
    };
    QTRY_VERIFY_WITH_TIMEOUT(isFound(), kPatienceMs);
    for (const double level : {0.25, 0.125, 0.0625}) { // nothing is sent behind it
        m_source->sendMessage(message(level));
        QTRY_VERIFY_WITH_TIMEOUT(isWritten(level), kPatienceMs);
    }
    QCOMPARE(process->state(), QProcess::Running);
    process->terminate();
    QVERIFY(process->waitForFinished(kPatienceMs));
    QCOMPARE(process->exitCode(), 0);
}

void MonitorJsonTest::endsQuietlyWhenTheReaderGoes()
{
    publish();
    QTimer timer;
    connect(&timer, &QTimer::timeout, m_source.get(),
            [this] { m_source->sendMessage(message(0.25)); });
    timer.start(20);
    QProcess process;
    QProcess reader;
    process.setStandardOutputProcess(&reader);
    process.start(QStringLiteral(TONEWELL_MONITOR), {QStringLiteral("--json")});
    reader.start(QStringLiteral("head"), {QStringLiteral("-n"), QStringLiteral("1")});
    QTRY_COMPARE_WITH_TIMEOUT(process.state(), QProcess::NotRunning, kPatienceMs);
    QTRY_COMPARE_WITH_TIMEOUT(reader.state(), QProcess::NotRunning, kPatienceMs);
    QCOMPARE(reader.readAllStandardOutput().count('\n'), 1);
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 0);
    QCOMPARE(process.readAllStandardError(), QByteArray());
}

void MonitorJsonTest::endsWithTheReaderAlsoWhileItWaits()
{
    QProcess process;
    QProcess reader;
    process.setStandardOutputProcess(&reader);
    process.start(QStringLiteral(TONEWELL_MONITOR), {QStringLiteral("--json")});
    reader.start(QStringLiteral("true"), QStringList());
    QTRY_COMPARE_WITH_TIMEOUT(process.state(), QProcess::NotRunning, kPatienceMs);
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 2);
    QVERIFY(!process.readAllStandardError().contains("no message came"));
}

void MonitorJsonTest::aFullDeviceIsAnExitCode()
{
    publish();
    QTimer timer;
    connect(&timer, &QTimer::timeout, m_source.get(),
            [this] { m_source->sendMessage(message(0.25)); });
    timer.start(20);
    QProcess process;
    process.setStandardOutputFile(QStringLiteral("/dev/full"));
    process.start(QStringLiteral(TONEWELL_MONITOR), {QStringLiteral("--json")});
    QTRY_COMPARE_WITH_TIMEOUT(process.state(), QProcess::NotRunning, kPatienceMs);
    QCOMPARE(process.exitCode(), 3);
    QVERIFY(process.readAllStandardError().contains("standard output"));
}

void MonitorJsonTest::optionsThatContradictAreRefused_data()
{
    QTest::addColumn<QStringList>("arguments");
    const QString json = QStringLiteral("--json");
    QTest::newRow("record") << QStringList {json, QStringLiteral("--record=a.json")};
    QTest::newRow("text") << QStringList {json, QStringLiteral("--text")};
    QTest::newRow("png") << QStringList {json, QStringLiteral("--png=a.png")};
    QTest::newRow("record - and text")
        << QStringList {QStringLiteral("--record=-"), QStringLiteral("--text")};
}

void MonitorJsonTest::optionsThatContradictAreRefused()
{
    QFETCH(QStringList, arguments);
    const auto process = monitor(arguments);
    QVERIFY(process->waitForFinished(kPatienceMs));
    QCOMPARE(process->exitCode(), 2);
    QCOMPARE(process->readAllStandardOutput(), QByteArray());
    QVERIFY(process->readAllStandardError().contains("not together"));
}

QTEST_GUILESS_MAIN(MonitorJsonTest)
#include "tst_monitorjson.moc"
