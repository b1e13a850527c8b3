// What the monitor's window paints, looked at pixel by pixel. A widget's pixel is several of its
// picture where QT_SCALE_FACTOR says so.
#include "tools/monitor/levelmeters.h"
#include "tools/monitor/spectrumplot.h"

#include <cmath>
#include <QImage>
#include <QPaintEvent>
#include <QTest>

namespace {

constexpr int kWidth = 901;
constexpr int kHeight = 399;

QPalette dark()
{
    QPalette palette;
    palette.setColor(QPalette::Window, QColor(0x202224));
    palette.setColor(QPalette::Base, QColor(0x101112));
    palette.setColor(QPalette::WindowText, Qt::white);
    palette.setColor(QPalette::Text, Qt::white);
    return palette;
}

QPalette light()
{
    QPalette palette;
    palette.setColor(QPalette::Window, QColor(0xeeeeee));
    palette.setColor(QPalette::Base, Qt::white);
    palette.setColor(QPalette::WindowText, Qt::black);
    palette.setColor(QPalette::Text, Qt::black);
    return palette;
}

int ratioOf(const QImage &image)
{
    return qRound(image.devicePixelRatio());
}

/// Where a place of the widget is in its picture.
QRect inPicture(const QRect &area, const QImage &image)
{
    return {area.topLeft() * ratioOf(image), area.size() * ratioOf(image)};
}

/// Saturated, as only bars and meters are: axes, texts and grounds are grey.
bool isColoured(const QImage &image, int x, int y)
{
    return image.pixelColor(x, y).hsvSaturation() > 60;
}

/// How many pixels of a column are coloured.
int colouredIn(const QImage &image, int x)
{
    int count = 0;
    for (int y = 0; y < image.height(); ++y)
        count += isColoured(image, x, y) ? 1 : 0;
    return count;
}

int colouredInRow(const QImage &image, int y)
{
    int count = 0;
    for (int x = 0; x < image.width(); ++x)
        count += isColoured(image, x, y) ? 1 : 0;
    return count;
}

QVector<int> onlyBar(int index, int value)
{
    QVector<int> bars(kBarCount, 0);
    bars[index] = value;
    return bars;
}

/// Adds up what is painted.
class PaintWatcher : public QObject {
public:
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Paint)
            m_region += static_cast<QPaintEvent *>(event)->region();
        return false;
    }
    QRegion m_region;
};

} // namespace

class MonitorWindowTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aBarStandsInItsPlace_data();
    void aBarStandsInItsPlace();
    void barsBeyondTheScaleStayInside();
    void axisIsTrueFrequency();
    void everySizeCanBePainted_data();
    void everySizeCanBePainted();
    void paletteChangesAreFollowed();
    void onlyWhatChangedIsPainted();
    void whatIsPaintedInPiecesIsTheWhole();
    void musicIsPaintedInFewPieces();
    void aNoticeStandsOverTheBars();
    void metersFillAndHold();
    void metersBeyondTheScaleStayInside();
};

void MonitorWindowTest::aBarStandsInItsPlace_data()
{
    QTest::addColumn<int>("bar");
    for (const int bar : {0, 1, 35, 49, 50, 56, 98, 99})
        QTest::addRow("%d", bar) << bar;
}

void MonitorWindowTest::aBarStandsInItsPlace()
{
    QFETCH(int, bar);
    SpectrumPlot plot;
    plot.setPalette(light());
    plot.resize(kWidth, kHeight);
    plot.grab();
    plot.setBars(onlyBar(bar, 200));
    const QImage image = plot.grab().toImage();
    const QRect area = inPicture(plot.barArea(bar), image);
    const int tall = plot.barArea(bar).height() / 2 * ratioOf(image);
    for (int x = 0; x < image.width(); ++x) {
        if (x >= area.left() && x <= area.right())
            QCOMPARE(colouredIn(image, x), tall);
        else
            QCOMPARE(colouredIn(image, x), 0);
    }
    QVERIFY(isColoured(image, area.center().x(), area.bottom()));
    QVERIFY(!isColoured(image, area.center().x(), area.bottom() - tall - 2));
    // Left of 0 Hz or right of it.
    QCOMPARE(plot.barArea(bar).center().x() > plot.positionOf(0), bar >= kBarCount / 2);
}

void MonitorWindowTest::barsBeyondTheScaleStayInside()
{
    SpectrumPlot plot;
    plot.resize(kWidth, kHeight);
    plot.grab();
    QVector<int> bars(kBarCount, 9999);
    bars[0] = -999;
    plot.setBars(bars);
    const QImage image = plot.grab().toImage();
    QCOMPARE(colouredIn(image, inPicture(plot.barArea(0), image).center().x()), 0);
    QCOMPARE(colouredIn(image, inPicture(plot.barArea(1), image).center().x()),
             inPicture(plot.plotArea(), image).height());
}

void MonitorWindowTest::axisIsTrueFrequency()
{
    SpectrumPlot plot;
    plot.resize(kWidth, kHeight);
    plot.grab();
    QCOMPARE(plot.positionOf(-3500), plot.plotArea().left());
    QCOMPARE(plot.positionOf(3500), plot.plotArea().right() + 1);
    // A tone of 1015 Hz on the left is in bar 35, of 455 Hz on the right in bar 56.
    QVERIFY(plot.barArea(35).contains(plot.positionOf(-1015), plot.plotArea().top()));
    QVERIFY(plot.barArea(56).contains(plot.positionOf(455), plot.plotArea().top()));
}

void MonitorWindowTest::everySizeCanBePainted_data()
{
    QTest::addColumn<QSize>("size");
    QTest::newRow("smaller than its edges") << QSize(1, 1);
    QTest::newRow("narrow") << QSize(60, 300);
    QTest::newRow("flat") << QSize(900, 20);
    QTest::newRow("fewer pixels than bars") << QSize(150, 200);
    QTest::newRow("large") << QSize(3840, 2160);
}

void MonitorWindowTest::everySizeCanBePainted()
{
    QFETCH(QSize, size);
    SpectrumPlot plot;
    plot.setBars(QVector<int>(kBarCount, 400));
    plot.resize(size);
    const QImage image = plot.grab().toImage();
    QCOMPARE(image.size(), size * ratioOf(image));
    if (plot.plotArea().width() >= 3 * kBarCount) {
        for (int bar = 0; bar < kBarCount; ++bar)
            QCOMPARE(colouredIn(image, inPicture(plot.barArea(bar), image).left()),
                     qMax(inPicture(plot.plotArea(), image).height(), 0));
    }
    LevelMeters meters;
    meters.setLevels({400, 400, 400}, {400, 400, 400});
    meters.resize(size);
    QCOMPARE(meters.grab().size(), size * ratioOf(image));
}

void MonitorWindowTest::paletteChangesAreFollowed()
{
    SpectrumPlot plot;
    plot.resize(kWidth, kHeight);
    plot.show(); // a hidden widget arranges itself anew for every picture
    QVERIFY(QTest::qWaitForWindowExposed(&plot));
    for (const QPalette &palette : {light(), dark(), light()}) {
        plot.setPalette(palette);
        const QImage image = plot.grab().toImage();
        QCOMPARE(image.pixelColor(0, 0), palette.color(QPalette::Window));
        QCOMPARE(image.pixelColor(inPicture(plot.barArea(10), image).center()
                                  + QPoint(0, 3) * ratioOf(image)),
                 palette.color(QPalette::Base));
    }
}

void MonitorWindowTest::onlyWhatChangedIsPainted()
{
    SpectrumPlot plot;
    PaintWatcher watcher;
    plot.installEventFilter(&watcher);
    plot.resize(kWidth, kHeight);
    plot.show();
    QVERIFY(QTest::qWaitForWindowExposed(&plot));
    QTRY_VERIFY(!watcher.m_region.isEmpty());
    QCoreApplication::processEvents();

    watcher.m_region = {};
    plot.setBars(onlyBar(35, 100));
    QTRY_VERIFY(!watcher.m_region.isEmpty());
    QRect expected = plot.barArea(35);
    expected.setTop(expected.bottom() + 1 - expected.height() / 4);
    const QRect painted = watcher.m_region.boundingRect();
    QVERIFY(painted.contains(expected));
    QCOMPARE(painted.left(), expected.left());
    QVERIFY(painted.right() <= expected.right() + 1); // the gap
    QVERIFY(painted.height() <= expected.height() + plot.plotArea().height() / 8);

    watcher.m_region = {};
    plot.setBars(onlyBar(35, 100));
    QCoreApplication::processEvents();
    QTest::qWait(50);
    QVERIFY2(watcher.m_region.isEmpty(), "nothing changed");
}

void MonitorWindowTest::whatIsPaintedInPiecesIsTheWhole()
{
    SpectrumPlot pieces;
    pieces.resize(kWidth, kHeight);
    pieces.grab();
    QVector<int> bars(kBarCount, 0);
    QImage collected = pieces.grab().toImage();
    // Every change is painted over what was there, as on the screen.
    for (int step = 0; step < 20; ++step) {
        const QVector<int> before = bars;
        for (int i = 0; i < kBarCount; ++i)
            bars[i] = (i * 37 + step * 53) % 401;
        pieces.setBars(bars);
        for (int i = 0; i < kBarCount; ++i) {
            if (bars.at(i) != before.at(i))
                pieces.render(&collected, pieces.barArea(i).topLeft(), pieces.barArea(i), {});
        }
    }
    QCOMPARE(collected, pieces.grab().toImage());
}

void MonitorWindowTest::musicIsPaintedInFewPieces()
{
    SpectrumPlot plot;
    PaintWatcher watcher;
    plot.installEventFilter(&watcher);
    plot.resize(kWidth, kHeight);
    plot.show();
    QVERIFY(QTest::qWaitForWindowExposed(&plot));
    QTRY_VERIFY(!watcher.m_region.isEmpty());
    // Hills whose bars change a little, each at another height. Each piece costs.
    for (int step = 0; step < 20; ++step) {
        QVector<int> bars(kBarCount, 0);
        for (int i = 0; i < kBarCount; ++i)
            bars[i] = static_cast<int>(150 + 120 * std::sin(i * 0.2)) + (step * 7 + i * 13) % 20;
        QCoreApplication::processEvents();
        watcher.m_region = {};
        plot.setBars(bars);
        QTRY_VERIFY(!watcher.m_region.isEmpty());
        QVERIFY2(watcher.m_region.rectCount() < kBarCount,
                 qPrintable(QString::number(watcher.m_region.rectCount())));
    }
}

void MonitorWindowTest::aNoticeStandsOverTheBars()
{
    SpectrumPlot plot;
    plot.resize(kWidth, kHeight);
    const QImage without = plot.grab().toImage();
    plot.setNotice(QStringLiteral("waiting"));
    QVERIFY(plot.grab().toImage() != without);
    plot.setNotice(QString());
    QCOMPARE(plot.grab().toImage(), without);
}

void MonitorWindowTest::metersFillAndHold()
{
    LevelMeters meters;
    meters.setPalette(light());
    meters.resize(600, meters.sizeHint().height());
    meters.grab();
    const QImage empty = meters.grab().toImage();
    // -20 dB, -40 dB and nothing; held at full scale, -20 dB and nothing.
    meters.setLevels({40, 4, 0}, {400, 40, 0});
    const QImage image = meters.grab().toImage();
    const auto area = [&](int meter) { return inPicture(meters.meterArea(meter), image); };
    const int width = area(0).width();
    for (int i = 0; i < LevelMeters::kCount; ++i)
        QCOMPARE(colouredInRow(empty, area(i).center().y()), 0);
    const auto filled = [&](int meter) { return colouredInRow(image, area(meter).center().y()); };
    QVERIFY(qAbs(filled(0) - width * 2 / 3) <= ratioOf(image));
    QVERIFY(qAbs(filled(1) - width / 3) <= ratioOf(image));
    QCOMPARE(filled(2), 0);
    const QRect first = area(0);
    const QRect second = area(1);
    QCOMPARE(image.pixelColor(first.right(), first.center().y()), QColor(Qt::black));
    QCOMPARE(image.pixelColor(second.left() + width * 2 / 3 - 2, second.center().y()),
             QColor(Qt::black));
    QCOMPARE(image.pixelColor(area(2).right(), area(2).center().y()), QColor(Qt::white));
}

void MonitorWindowTest::metersBeyondTheScaleStayInside()
{
    LevelMeters meters;
    meters.resize(600, meters.sizeHint().height());
    meters.grab();
    meters.setLevels({1e300, -400, 1e-300}, {1e300, -400, 1e-300});
    meters.setNumbers({1e300, -400, 1e-300});
    const QImage image = meters.grab().toImage();
    const int mark = 2 * ratioOf(image);
    const auto area = [&](int meter) { return inPicture(meters.meterArea(meter), image); };
    QCOMPARE(colouredInRow(image, area(0).center().y()), area(0).width() - mark);
    QCOMPARE(colouredInRow(image, area(1).center().y()), 0);
    QCOMPARE(colouredInRow(image, area(2).center().y()), 0);
}

QTEST_MAIN(MonitorWindowTest)
#include "tst_monitorwindow.moc"
