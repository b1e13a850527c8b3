// What the monitor knows and writes down: state, rate, age, held levels, options, the recording.
#include "tools/monitor/messagerecorder.h"
#include "tools/monitor/meterscale.h"
#include "tools/monitor/monitormodel.h"
#include "tools/monitor/monitoroptions.h"
#include "tools/monitor/peakhold.h"

#include <cmath>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

namespace {

QString message(double level = 100, int bar = 7)
{
    QString text = QStringLiteral("SoundSpectrum");
    for (int i = 0; i < 3; ++i)
        text += QStringLiteral("/&+&/") + QString::number(level);
    for (int i = 0; i < kBarCount; ++i)
        text += QStringLiteral("/&+&/") + QString::number(bar);
    return text;
}

QStringList split(const char *arguments)
{
    return QString::fromLatin1(arguments).split(QLatin1Char(' '));
}

} // namespace

class MonitorModelTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void beginsWithNothing();
    void rateIsThatOfTheLastSecond();
    void aFloodCostsNoMoreMemory();
    void ageGrowsAndAPauseIsSaid();
    void badMessagesAreCountedAndChangeNothing();
    void withoutTheServiceNothingIsLeft();
    void sourcesOfAnotherTypeAreCountedOnce();
    void whyItWaitsIsSaid();
    void silenceIsExplained_data();
    void silenceIsExplained();
    void soundEndsSilence();
    void heldLevelStaysThenFalls();
    void heldLevelIsNeverBelowTheLevel();
    void meterScaleIsInDecibels_data();
    void meterScaleIsInDecibels();
    void optionsAreUnderstood();
    void wrongOptionsAreSaid_data();
    void wrongOptionsAreSaid();
    void helpWinsOverWrongValues();
    void recordIsOneObjectALine();
    void recordHoldsTheNumbersOfTheMessage();
    void aRecordThatCannotBeWrittenIsSaid();
};

void MonitorModelTest::beginsWithNothing()
{
    MonitorModel model;
    QVERIFY(model.state() == ServiceState::Missing);
    QCOMPARE(model.reading().bars, QVector<int>(kBarCount, 0));
    QCOMPARE(model.rate(1000), 0.0);
    QCOMPARE(model.age(1000), 0.0);
    QCOMPARE(model.status(1000), QStringLiteral("waiting for the service"));
    model.setState(ServiceState::Connected);
    QCOMPARE(model.status(1000), QStringLiteral("connected, no message yet"));
}

void MonitorModelTest::rateIsThatOfTheLastSecond()
{
    MonitorModel model;
    model.setState(ServiceState::Connected);
    double now = 5000;
    for (int i = 0; i < 200; ++i)
        QVERIFY(model.addMessage(message(), now += 10));
    QVERIFY(qAbs(model.rate(now) - 100) < 1e-6);
    for (int i = 0; i < 51; ++i)
        QVERIFY(model.addMessage(message(), now += 20));
    QVERIFY(qAbs(model.rate(now) - 50) < 1e-6);
    QCOMPARE(model.status(now + 12), QStringLiteral("50.0 a second, newest 12 ms old"));
    QCOMPARE(model.rate(now + 1001), 0.0);
}

void MonitorModelTest::aFloodCostsNoMoreMemory()
{
    MonitorModel model;
    model.setState(ServiceState::Connected);
    const QString text = message();
    for (int i = 0; i < 30000; ++i)
        model.addMessage(text, i * 1e-3);
    QCOMPARE(model.statistics().messages(), 30000);
    QVERIFY(qAbs(model.rate(30) - 1e6) < 1e3);
}

void MonitorModelTest::ageGrowsAndAPauseIsSaid()
{
    MonitorModel model;
    model.setState(ServiceState::Connected);
    model.addMessage(message(), 1000);
    QCOMPARE(model.age(1250), 250.0);
    QVERIFY(model.notice(2000).isEmpty());
    QCOMPARE(model.notice(3500), QStringLiteral("no message for 2.5 s"));
    QCOMPARE(model.status(3500), QStringLiteral("no message for 2.5 s"));
    model.addMessage(message(), 3600);
    QVERIFY(model.notice(3610).isEmpty());
}

void MonitorModelTest::badMessagesAreCountedAndChangeNothing()
{
    MonitorModel model;
    model.setState(ServiceState::Connected);
    model.addMessage(message(100, 7), 1000);
    QVERIFY(!model.addMessage(QStringLiteral("SoundSpectrum/&+&/1/&+&/loud"), 1010));
    QVERIFY(!model.addMessage(QString(), 1010));
    QCOMPARE(model.statistics().badMessages(), 2);
    QCOMPARE(model.statistics().messages(), 1);
    QCOMPARE(model.reading().bars, QVector<int>(kBarCount, 7));
    QCOMPARE(model.age(1020), 20.0);
    QVERIFY(model.status(1020).endsWith(QStringLiteral("  bad messages: 2")));
}

void MonitorModelTest::withoutTheServiceNothingIsLeft()
{
    MonitorModel model;
    model.setState(ServiceState::Connected);
    model.addMessage(message(), 1000);
    model.addMessage(message(), 1020);
    model.setState(ServiceState::Missing);
    QCOMPARE(model.reading().bars, QVector<int>(kBarCount, 0));
    QCOMPARE(model.reading().rms, 0.0);
    QCOMPARE(model.notice(1030), QStringLiteral("waiting for the service"));
    QCOMPARE(model.rate(1030), 0.0);
    model.setState(ServiceState::Connected);
    QCOMPARE(model.notice(9000), QStringLiteral("connected, no message yet"));
    model.addMessage(message(), 9010);
    QVERIFY(model.notice(9010).isEmpty());
    QCOMPARE(model.statistics().longestGap(), 20.0); // the absence is no gap between messages
}

void MonitorModelTest::sourcesOfAnotherTypeAreCountedOnce()
{
    MonitorModel model;
    model.setState(ServiceState::OtherType);
    model.setState(ServiceState::OtherType);
    QCOMPARE(model.statistics().refusedSources(), 1);
    QVERIFY(model.status(0).contains(QStringLiteral("what answers is of another type")));
    model.setState(ServiceState::Connected);
    model.setState(ServiceState::OtherType);
    QCOMPARE(model.statistics().refusedSources(), 2);
    QVERIFY(model.statistics().report().contains(QStringLiteral("2 of another type")));
}

void MonitorModelTest::whyItWaitsIsSaid()
{
    MonitorModel model;
    model.setWaitReason(WaitReason::explain({}, {}));
    const QString text = QStringLiteral("waiting for the service: it is not installed");
    QCOMPARE(model.notice(1000), text);
    QCOMPARE(model.status(1000), text);
    model.setState(ServiceState::Connected);
    QCOMPARE(model.notice(1000), QStringLiteral("connected, no message yet"));
    // An answer that comes late is about the past.
    model.setWaitReason(WaitReason::explain({}, {}));
    model.setState(ServiceState::Missing);
    QCOMPARE(model.notice(1000), QStringLiteral("waiting for the service"));
}

void MonitorModelTest::silenceIsExplained_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("text");
    QTest::newRow("unknown") << int {SoundOutputState::Unknown}
                             << QStringLiteral("nothing is playing");
    QTest::newRow("no server") << int {SoundOutputState::NoServer}
                               << QStringLiteral("no sound server");
    QTest::newRow("no device") << int {SoundOutputState::NoDevice}
                               << QStringLiteral("no output device");
    QTest::newRow("idle") << int {SoundOutputState::Idle}
                          << QStringLiteral("nothing is playing on The 100%1 Box");
    QTest::newRow("playing") << int {SoundOutputState::Playing}
                             << QStringLiteral(
                                    "a program plays on The 100%1 Box, but only silence arrives");
}

void MonitorModelTest::silenceIsExplained()
{
    QFETCH(int, kind);
    QFETCH(QString, text);
    MonitorModel model;
    model.setState(ServiceState::Connected);
    model.setSoundOutput(
        {static_cast<SoundOutputState::Kind>(kind), QStringLiteral("The 100%1 Box")});
    for (int time = 1000; time <= 4000; time += 20) {
        model.addMessage(message(0, 0), time);
        QCOMPARE(model.isSilent(time), time >= 4000);
    }
    QCOMPARE(model.notice(4000), text);
    // Of another sound server than the service's all that is not known.
    model.setServiceHearsElsewhere(true);
    QCOMPARE(
        model.notice(4000),
        QStringLiteral(
            "nothing is playing on the service's sound server, which is another one than here"));
    model.setServiceHearsElsewhere(false);
    // The rate stays to be seen.
    QCOMPARE(model.status(4000), QStringLiteral("50.0 a second, newest 0 ms old  ") + text);
    model.setState(ServiceState::Missing);
    QVERIFY(!model.isSilent(4001));
}

void MonitorModelTest::soundEndsSilence()
{
    MonitorModel model;
    model.setState(ServiceState::Connected);
    double now = 0;
    const auto send = [&](const QString &text, int count) {
        for (int i = 0; i < count; ++i)
            model.addMessage(text, now += 20);
    };
    send(message(0, 0), 200);
    QVERIFY(model.isSilent(now));
    send(message(0, 1), 1); // one bar is enough
    QVERIFY(!model.isSilent(now));
    send(message(0, 0), 149);
    QVERIFY(!model.isSilent(now));
    send(message(0, 0), 1);
    QVERIFY(model.isSilent(now));
    send(message(0.2, 0), 1); // a level that is shown
    QVERIFY(!model.isSilent(now));
    send(message(0.19, -3), 150); // what is shown as 0
    QVERIFY(model.isSilent(now));
}

void MonitorModelTest::heldLevelStaysThenFalls()
{
    PeakHold hold;
    QCOMPARE(hold.update(300, 1000), 300.0);
    QCOMPARE(hold.update(10, 2499), 300.0);
    QCOMPARE(hold.update(10, 2500), 300.0);
    QVERIFY(qAbs(hold.update(10, 3500) - 30) < 1e-9); // 20 dB in the second after
    QVERIFY(qAbs(hold.update(10, 3750) - 30 * std::pow(10.0, -0.25)) < 1e-9);
    QCOMPARE(hold.update(10, 9000), 10.0);
}

void MonitorModelTest::heldLevelIsNeverBelowTheLevel()
{
    PeakHold hold;
    for (int i = 0; i < 1000; ++i) {
        const double level = (i * 7919 % 400);
        QVERIFY(hold.update(level, i * 20.0) >= level);
    }
    MonitorModel model;
    model.setState(ServiceState::Connected);
    model.addMessage(message(200), 1000);
    model.addMessage(message(10), 1020);
    QCOMPARE(model.heldLevels(1030).rms, 200.0);
    QCOMPARE(model.heldLevels(1030).peak, 200.0);
    QCOMPARE(model.heldLevels(1030).dynamic, 200.0);
}

void MonitorModelTest::meterScaleIsInDecibels_data()
{
    QTest::addColumn<double>("level");
    QTest::addColumn<double>("position");
    QTest::newRow("full scale") << 400.0 << 1.0;
    QTest::newRow("-20 dB") << 40.0 << 2.0 / 3;
    QTest::newRow("-40 dB") << 4.0 << 1.0 / 3;
    QTest::newRow("the floor") << 0.4 << 0.0;
    QTest::newRow("below") << 0.001 << 0.0;
    QTest::newRow("silence") << 0.0 << 0.0;
    QTest::newRow("negative") << -400.0 << 0.0;
    QTest::newRow("nan") << qQNaN() << 0.0;
    QTest::newRow("above") << 1e300 << 1.0;
    QTest::newRow("inf") << qInf() << 1.0;
}

void MonitorModelTest::meterScaleIsInDecibels()
{
    QFETCH(double, level);
    QFETCH(double, position);
    QVERIFY(qAbs(meterPosition(level) - position) < 1e-9);
}

void MonitorModelTest::optionsAreUnderstood()
{
    MonitorOptions options = MonitorOptions::read({QStringLiteral("monitor")});
    QCOMPARE(options.request, MonitorOptions::Run);
    QVERIFY(!options.text && !options.stats && options.seconds == 0);
    QVERIFY(options.recordFile.isEmpty() && options.pngFile.isEmpty());
    options = MonitorOptions::read(split("monitor --text --stats --seconds 2.5 --record a.json"));
    QCOMPARE(options.request, MonitorOptions::Run);
    QVERIFY(options.text && options.stats);
    QCOMPARE(options.seconds, 2.5);
    QCOMPARE(options.recordFile, QStringLiteral("a.json"));
    QCOMPARE(MonitorOptions::read(split("monitor --png=b.png")).pngFile, QStringLiteral("b.png"));
    QCOMPARE(MonitorOptions::read(split("monitor -v")).request, MonitorOptions::Version);
}

void MonitorModelTest::wrongOptionsAreSaid_data()
{
    QTest::addColumn<QStringList>("arguments");
    for (const char *const arguments :
         {"--louder", "--seconds", "--seconds soon", "--seconds 0", "--seconds=-1", "--seconds=nan",
          "--seconds=inf", "--seconds=1e9", "more", "--record=", "--png=", "--text --png a.png"})
        QTest::newRow(arguments) << QStringList(QStringLiteral("monitor")) + split(arguments);
}

void MonitorModelTest::wrongOptionsAreSaid()
{
    QFETCH(QStringList, arguments);
    const MonitorOptions options = MonitorOptions::read(arguments);
    QCOMPARE(options.request, MonitorOptions::Wrong);
    QVERIFY(!options.error.isEmpty());
}

void MonitorModelTest::helpWinsOverWrongValues()
{
    QCOMPARE(MonitorOptions::read(split("monitor --seconds soon --help")).request,
             MonitorOptions::Help);
}

void MonitorModelTest::recordIsOneObjectALine()
{
    const QTemporaryDir folder;
    const QString name = folder.filePath(QStringLiteral("record.json"));
    SpectrumReading reading;
    reading.bars.fill(3, kBarCount);
    {
        MessageRecorder recorder;
        QVERIFY(recorder.open(name));
        for (int i = 0; i < 3; ++i)
            QVERIFY(recorder.write(reading, 1000 + 20 * i));
        // Readers need not wait for the end.
        QFile file(name);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll().count('\n'), 3);
    }
    QFile file(name);
    QVERIFY(file.open(QIODevice::ReadOnly));
    double before = 0;
    while (!file.atEnd()) {
        QJsonParseError error {};
        const QJsonObject object = QJsonDocument::fromJson(file.readLine(), &error).object();
        QCOMPARE(error.error, QJsonParseError::NoError);
        QCOMPARE(object.keys(), split("bars dynamics peak rms time"));
        QVERIFY(object.value(QLatin1String("time")).toDouble() > before);
        before = object.value(QLatin1String("time")).toDouble();
        QCOMPARE(object.value(QLatin1String("bars")).toArray().size(), kBarCount);
    }
    QCOMPARE(before, 1.04);
}

void MonitorModelTest::recordHoldsTheNumbersOfTheMessage()
{
    SpectrumReading reading;
    reading.rms = 49.3824;
    reading.peak = 112.5;
    reading.dynamic = 4e-05;
    reading.bars = {0, -123, 1234};
    QCOMPARE(MessageRecorder::line(reading, 12345.678),
             QByteArray("{\"time\":12.345678,\"rms\":49.3824,\"peak\":112.5,\"dynamics\":4e-05,"
                        "\"bars\":[0,-123,1234]}\n"));
    reading.bars.clear();
    QVERIFY(MessageRecorder::line(reading, 0).endsWith("\"bars\":[]}\n"));
}

void MonitorModelTest::aRecordThatCannotBeWrittenIsSaid()
{
    const QTemporaryDir folder;
    MessageRecorder recorder;
    QVERIFY(!recorder.open(folder.filePath(QStringLiteral("no/such/folder"))));
    QVERIFY(!recorder.isOpen());
    QVERIFY(!recorder.errorText().isEmpty());
}

QTEST_APPLESS_MAIN(MonitorModelTest)
#include "tst_monitormodel.moc"
