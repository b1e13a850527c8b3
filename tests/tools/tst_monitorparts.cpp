// The monitor's parts: messages taken apart, statistics, the picture.
#include "tools/monitor/messagestatistics.h"
#include "tools/monitor/spectrumreading.h"
#include "tools/monitor/terminalview.h"

#include <QTest>

namespace {

QString message(const QStringList &levels, int bars, const QString &bar)
{
    QStringList fields {QStringLiteral("SoundSpectrum")};
    fields += levels;
    for (int i = 0; i < bars; ++i)
        fields.append(bar);
    return fields.join(QStringLiteral("/&+&/"));
}

QStringList levels(const char *rms, const char *peak, const char *dynamic)
{
    return {QLatin1String(rms), QLatin1String(peak), QLatin1String(dynamic)};
}

TerminalFrame frameOf(const SpectrumReading &reading, const Levels &held = {},
                      const QString &status = QStringLiteral("s"))
{
    TerminalFrame frame;
    frame.reading = reading;
    frame.held = held;
    frame.status = status;
    return frame;
}

SpectrumReading fullAt(int index)
{
    SpectrumReading reading;
    reading.bars.resize(kBarCount);
    reading.bars[index] = kFullScale;
    return reading;
}

} // namespace

class MonitorPartsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void readsAMessage();
    void refusesWhatDoesNotFit_data();
    void refusesWhatDoesNotFit();
    void countsRateAndGaps();
    void aPauseOfTheServiceIsNoGap();
    void noMessagesNoDivisionByNothing();
    void pictureFitsTheTerminal_data();
    void pictureFitsTheTerminal();
    void barsStandWhereTheyBelong();
    void everyColumnIsUsed_data();
    void everyColumnIsUsed();
    void theScaleReachesTheTop();
    void channelsAndScaleAreNamed_data();
    void channelsAndScaleAreNamed();
    void aNoticeStandsInTheMiddle();
    void aNoticeIsAllThatASmallTerminalShows();
    void plainIsAsciiOnly();
    void valuesBeyondTheScaleStayInside();
    void axisSaysTrueFrequencies();
    void heldLevelsAreMarked();
    void noMinusBeforeZero();
};

void MonitorPartsTest::readsAMessage()
{
    SpectrumReading reading;
    QVERIFY(readSpectrumMessage(
        message(levels("49.3824", "112.5", "4e-05"), 100, QStringLiteral("-123")), &reading));
    QCOMPARE(reading.rms, 49.3824);
    QCOMPARE(reading.peak, 112.5);
    QCOMPARE(reading.dynamic, 4e-05);
    QCOMPARE(reading.bars, QVector<int>(100, -123));
}

void MonitorPartsTest::refusesWhatDoesNotFit_data()
{
    const QString bar = QStringLiteral("1");
    QTest::addColumn<QString>("text");
    QTest::newRow("empty") << QString();
    QTest::newRow("no bars") << message(levels("1", "2", "3"), 0, bar);
    QTest::newRow("99 bars") << message(levels("1", "2", "3"), 99, bar);
    QTest::newRow("101 bars") << message(levels("1", "2", "3"), 101, bar);
    QTest::newRow("other kind")
        << message(levels("1", "2", "3"), 100, bar).replace(0, 5, QStringLiteral("Light"));
    QTest::newRow("level no number") << message(levels("1", "x", "3"), 100, bar);
    QTest::newRow("level empty") << message(levels("", "2", "3"), 100, bar);
    QTest::newRow("level nan") << message(levels("1", "2", "nan"), 100, bar);
    QTest::newRow("level inf") << message(levels("inf", "2", "3"), 100, bar);
    QTest::newRow("level with a comma") << message(levels("1,5", "2", "3"), 100, bar);
    QTest::newRow("bar no integer") << message(levels("1", "2", "3"), 100, QStringLiteral("1.5"));
    QTest::newRow("bar empty") << message(levels("1", "2", "3"), 100, QString());
    QTest::newRow("separator at the end")
        << message(levels("1", "2", "3"), 100, bar) + QStringLiteral("/&+&/");
}

void MonitorPartsTest::refusesWhatDoesNotFit()
{
    QFETCH(QString, text);
    SpectrumReading reading;
    reading.rms = 7;
    QVERIFY(!readSpectrumMessage(text, &reading));
    QCOMPARE(reading.rms, 7.0);
}

void MonitorPartsTest::countsRateAndGaps()
{
    MessageStatistics statistics;
    double time = 1000;
    statistics.addMessage(time);
    for (int i = 0; i < 98; ++i)
        statistics.addMessage(time += 20);
    statistics.addMessage(time += 40);
    statistics.addMessage(time += 250);
    statistics.addBadMessage();
    QCOMPARE(statistics.messages(), 101);
    QCOMPARE(statistics.badMessages(), 1);
    QCOMPARE(statistics.rate(), 100 * 1000.0 / (98 * 20 + 40 + 250));
    QVERIFY(qAbs(statistics.gapPercentile(0.5) - 20) < 0.11);
    QVERIFY(qAbs(statistics.gapPercentile(0.98) - 20) < 0.11);
    QVERIFY(qAbs(statistics.gapPercentile(0.99) - 40) < 0.11);
    QCOMPARE(statistics.gapPercentile(1), 250.0);
    QCOMPARE(statistics.longestGap(), 250.0);
    QVERIFY(
        statistics.report().startsWith(QStringLiteral("messages  101, bad 1\nrate      44.44")));
}

void MonitorPartsTest::aPauseOfTheServiceIsNoGap()
{
    MessageStatistics statistics;
    statistics.addMessage(0);
    statistics.addMessage(20);
    statistics.interrupt();
    statistics.addMessage(60000);
    statistics.addMessage(60020);
    QCOMPARE(statistics.longestGap(), 20.0);
    QCOMPARE(statistics.rate(), 50.0);
    statistics.addMessage(80020); // beyond the last step
    QCOMPARE(statistics.gapPercentile(1), 20000.0);
}

void MonitorPartsTest::noMessagesNoDivisionByNothing()
{
    MessageStatistics statistics;
    QCOMPARE(statistics.rate(), 0.0);
    QCOMPARE(statistics.gapPercentile(0.99), 0.0);
    QCOMPARE(statistics.report(), QStringLiteral("messages  0, bad 0\n"));
    statistics.addMessage(5);
    statistics.addMessage(5);
    QCOMPARE(statistics.rate(), 0.0);
}

void MonitorPartsTest::pictureFitsTheTerminal_data()
{
    QTest::addColumn<int>("columns");
    QTest::addColumn<int>("rows");
    QTest::newRow("80 × 24") << 80 << 24;
    QTest::newRow("wide") << 317 << 60;
    QTest::newRow("exact") << 100 << 24;
    QTest::newRow("narrow") << 20 << 10;
    QTest::newRow("flat") << 80 << 4;
    QTest::newRow("tiny") << 1 << 1;
}

void MonitorPartsTest::pictureFitsTheTerminal()
{
    QFETCH(int, columns);
    QFETCH(int, rows);
    const TerminalView view(false, TerminalView::Unicode);
    const QStringList picture =
        view.picture(frameOf(fullAt(35), {}, QString(200, QLatin1Char('s'))), columns, rows);
    QVERIFY(picture.size() <= qMax(rows, 4));
    for (const QString &row : picture)
        QCOMPARE(row.size(), columns);
}

void MonitorPartsTest::barsStandWhereTheyBelong()
{
    const TerminalView view(false, TerminalView::Plain);
    const QStringList picture = view.picture(frameOf(fullAt(35)), 100, 24);
    QCOMPARE(picture.size(), 24);
    for (int row = 5; row < 23; ++row)
        QCOMPARE(picture.at(row),
                 QString(35, QLatin1Char(' ')) + QLatin1Char('@') + QString(64, QLatin1Char(' ')));
    QVERIFY(picture.last().startsWith(QStringLiteral("3500 Hz")));
    QCOMPARE(picture.last().at(50), QLatin1Char('0'));

    SpectrumReading half = fullAt(0);
    half.bars.fill(kFullScale / 2);
    half.peak = kFullScale;
    const QString line = view.line(frameOf(half), 50);
    QVERIFY2(line.endsWith(QLatin1Char('|') + QString(50, QLatin1Char('=')) + QLatin1Char('|')),
             qPrintable(line));
    QVERIFY(line.contains(QStringLiteral("peak 1.000")));
}

void MonitorPartsTest::everyColumnIsUsed_data()
{
    QTest::addColumn<int>("columns");
    for (const int columns : {20, 50, 79, 80, 99, 100, 101, 150, 237})
        QTest::addRow("%d", columns) << columns;
}

void MonitorPartsTest::everyColumnIsUsed()
{
    QFETCH(int, columns);
    const TerminalView view(false, TerminalView::Plain);
    SpectrumReading reading = fullAt(0);
    reading.bars.fill(kFullScale);
    QCOMPARE(view.picture(frameOf(reading), columns, 24).at(6), QString(columns, QLatin1Char('@')));
    // Each channel in its half.
    for (int i = 0; i < kBarCount; ++i)
        reading.bars[i] = i < kBarCount / 2 ? kFullScale : 0;
    QCOMPARE(view.picture(frameOf(reading), columns, 24).at(6),
             QString(columns / 2, QLatin1Char('@'))
                 + QString(columns - columns / 2, QLatin1Char(' ')));
}

void MonitorPartsTest::theScaleReachesTheTop()
{
    const TerminalView view(false, TerminalView::Plain);
    SpectrumReading reading = fullAt(0);
    reading.bars.fill(100);
    TerminalFrame frame = frameOf(reading);
    QCOMPARE(view.picture(frame, 100, 24).at(5), QString(100, QLatin1Char(' ')));
    frame.top = 100;
    QCOMPARE(view.picture(frame, 100, 24).at(5), QString(100, QLatin1Char('@')));
}

void MonitorPartsTest::channelsAndScaleAreNamed_data()
{
    QTest::addColumn<int>("columns");
    QTest::addColumn<QStringList>("texts");
    const QString left = QStringLiteral("left channel");
    const QString right = QStringLiteral("right channel");
    QTest::newRow("wide") << 100 << QStringList {QStringLiteral("fits music: 400"), left, right};
    QTest::newRow("80") << 80 << QStringList {QStringLiteral("fit 400"), left, right};
    QTest::newRow("20") << 20 << QStringList {QStringLiteral("L"), QStringLiteral("R")};
    QTest::newRow("2") << 2 << QStringList {};
}

void MonitorPartsTest::channelsAndScaleAreNamed()
{
    QFETCH(int, columns);
    QFETCH(QStringList, texts);
    const TerminalView view(false, TerminalView::Plain);
    const QString row = view.picture(frameOf(fullAt(0)), columns, 24).at(4);
    QCOMPARE(row.simplified(), texts.join(QLatin1Char(' ')));
    if (texts.isEmpty())
        return;
    // Over the middle of its half.
    const int start = row.indexOf(texts.last());
    QVERIFY(qAbs(start + texts.last().size() / 2 - columns * 3 / 4) <= 1);
}

void MonitorPartsTest::aNoticeStandsInTheMiddle()
{
    const TerminalView view(false, TerminalView::Unicode);
    TerminalFrame frame = frameOf(fullAt(0));
    frame.notice = QStringLiteral("waiting for the service: it is not running");
    const QStringList picture = view.picture(frame, 30, 24);
    const int first = picture.indexOf(QStringLiteral("   waiting for the service:   "));
    QVERIFY2(first > 8 && first < 18, qPrintable(picture.join(QLatin1Char('\n'))));
    QCOMPARE(picture.at(first + 1).trimmed(), QStringLiteral("it is not running"));
}

void MonitorPartsTest::aNoticeIsAllThatASmallTerminalShows()
{
    const TerminalView view(false, TerminalView::Unicode);
    TerminalFrame frame = frameOf(SpectrumReading());
    frame.reading.bars.fill(0, kBarCount);
    frame.notice = QStringLiteral("waiting for the service: it is not running");
    QCOMPARE(view.picture(frame, 20, 5),
             (QStringList {QStringLiteral("waiting for the     "),
                           QStringLiteral("service: it is not  "),
                           QStringLiteral("running             ")}));
    QCOMPARE(view.picture(frame, 20, 2),
             (QStringList {QStringLiteral("waiting for the     "),
                           QStringLiteral("service: it is no...")}));
    for (int columns = 1; columns < 30; ++columns) {
        for (int rows = 1; rows < 10; ++rows) {
            for (const QString &row : view.picture(frame, columns, rows))
                QCOMPARE(row.size(), columns);
        }
    }
}

void MonitorPartsTest::plainIsAsciiOnly()
{
    const TerminalView view(false, TerminalView::Plain);
    TerminalFrame frame = frameOf(fullAt(35), {}, QString::fromUtf8("nothing on 扬声器"));
    frame.notice = frame.status;
    QString all = view.picture(frame, 100, 24).join(QString()) + view.line(frame, 50);
    QVERIFY(all.contains(QStringLiteral("nothing on ???")));
    QCOMPARE(QString::fromLatin1(all.toLatin1()), all);
    for (const QChar character : all)
        QVERIFY(character.unicode() < 0x7f);
}

void MonitorPartsTest::valuesBeyondTheScaleStayInside()
{
    const TerminalView view(false, TerminalView::Plain);
    SpectrumReading reading = fullAt(0);
    reading.bars.fill(9999);
    reading.bars[0] = -999;
    reading.rms = -1e300;
    reading.peak = 1e300;
    const QStringList picture = view.picture(frameOf(reading), 100, 8);
    QCOMPARE(picture.at(4), QLatin1Char(' ') + QString(99, QLatin1Char('@')));
    const QString line = view.line(frameOf(reading, {}, QString()), 100);
    QVERIFY(line.contains(QString(99, QLatin1Char('@'))));
    QVERIFY2(line.contains(QStringLiteral("RMS -99.000  peak 99.000  ")), qPrintable(line));
}

void MonitorPartsTest::axisSaysTrueFrequencies()
{
    const TerminalView view(false, TerminalView::Plain);
    const QString axis = view.picture(frameOf(fullAt(0)), 100, 24).last();
    // 100 columns of 70 Hz: 1000 Hz are 14 columns from the middle on either side.
    for (const int column : {50 - 15, 50 + 14}) {
        const int start = axis.indexOf(QStringLiteral("1000"), column - 4);
        QVERIFY2(start <= column && column < start + 4, qPrintable(axis));
    }
    QVERIFY2(axis.endsWith(QStringLiteral("3500 Hz")), qPrintable(axis));
    QVERIFY2(!axis.contains(QStringLiteral("7000")), qPrintable(axis));
}

void MonitorPartsTest::heldLevelsAreMarked()
{
    const TerminalView view(false, TerminalView::Plain);
    SpectrumReading reading = fullAt(0);
    reading.peak = 40; // -20 dB
    Levels held;
    held.peak = 200; // -6 dB
    const QString row = view.picture(frameOf(reading, held), 115, 24).at(2);
    const int width = 115 - 15; // behind the name and the number
    QCOMPARE(row.left(15), QStringLiteral("peak     0.100 "));
    QCOMPARE(row.count(QLatin1Char('@')), static_cast<int>(width * (1 - 20 / 60.0)));
    QCOMPARE(row.indexOf(QLatin1Char('|')), 15 + static_cast<int>(width * (1 - 6.0206 / 60)));
    held.peak = 40;
    QVERIFY(view.picture(frameOf(reading, held), 115, 24).at(2).size() <= 115);
    QVERIFY(!view.picture(frameOf(reading), 115, 24).at(1).contains(QLatin1Char('|')));
}

void MonitorPartsTest::noMinusBeforeZero()
{
    const TerminalView view(false, TerminalView::Plain);
    SpectrumReading reading = fullAt(0);
    reading.dynamic = -1e-14;
    const QString line = view.line(frameOf(reading, {}, QString()), 50);
    QVERIFY2(line.contains(QStringLiteral("dynamic 0.000 ")), qPrintable(line));
}

QTEST_APPLESS_MAIN(MonitorPartsTest)
#include "tst_monitorparts.moc"
