// Which height reaches the top: fitted to the music, as sent, by hand. Time is an argument.
#include "tools/monitor/heightscale.h"

#include <cmath>
#include <QTest>

namespace {

constexpr double kFrameMs = 20;

/// Feeds the same highest bar for some seconds; returns the time after it.
double feed(HeightScale *scale, int highest, double now, double seconds)
{
    const double end = now + seconds * 1000;
    for (; now < end; now += kFrameMs)
        scale->addHighest(highest, now);
    return now;
}

} // namespace

class HeightScaleTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void beginsWithWhatIsSent();
    void fitsDenseMusic();
    void theFirstSoundIsFittedSoon();
    void risesAtOnce();
    void fallsOnlyAfterACalmWhile();
    void oneBeatAWhileKeepsItUp();
    void silenceChangesNothing();
    void overshootStopsAtFullScale();
    void heightsAtAStepDoNotPump();
    void glidesFromOneToTheNext();
    void asSentIsOneKeyAway();
    void byHandStaysWhereItIsPut();
    void labelsSayWhichItIs();
};

void HeightScaleTest::beginsWithWhatIsSent()
{
    const HeightScale scale;
    QCOMPARE(scale.top(0), 400.0);
    QCOMPARE(scale.mode(), HeightScale::Fitting);
}

void HeightScaleTest::fitsDenseMusic()
{
    HeightScale scale;
    const double now = feed(&scale, 186, 0, 12);
    QCOMPARE(scale.top(now), 200.0);
}

void HeightScaleTest::theFirstSoundIsFittedSoon()
{
    HeightScale scale;
    double now = feed(&scale, 0, 0, 60); // silence is no sound to fit
    QCOMPARE(scale.top(now), 400.0);
    now = feed(&scale, 90, now, 1.9);
    QCOMPARE(scale.top(now), 400.0);
    now = feed(&scale, 90, now, 1);
    QCOMPARE(scale.top(now), 100.0);
}

void HeightScaleTest::risesAtOnce()
{
    HeightScale scale;
    const double now = feed(&scale, 90, 0, 12);
    QCOMPARE(scale.top(now), 100.0);
    scale.addHighest(101, now);
    QCOMPARE(scale.top(now + HeightScale::kRiseMs), 150.0);
    scale.addHighest(380, now + 1000);
    QCOMPARE(scale.top(now + 1000 + HeightScale::kRiseMs), 400.0);
}

void HeightScaleTest::fallsOnlyAfterACalmWhile()
{
    HeightScale scale;
    double now = feed(&scale, 390, 0, 12);
    now = feed(&scale, 90, now, HeightScale::kCalmMs / 1000 - 0.1);
    QCOMPARE(scale.top(now), 400.0);
    now = feed(&scale, 90, now, 1);
    QCOMPARE(scale.top(now), 100.0);
}

void HeightScaleTest::oneBeatAWhileKeepsItUp()
{
    HeightScale scale;
    double now = feed(&scale, 90, 0, 4);
    for (int beat = 0; beat < 20; ++beat) {
        scale.addHighest(300, now);
        now = feed(&scale, 60, now + kFrameMs, 6);
        QCOMPARE(scale.top(now), 300.0);
    }
}

void HeightScaleTest::silenceChangesNothing()
{
    HeightScale scale;
    double now = feed(&scale, 186, 0, 12);
    now = feed(&scale, 0, now, 600);
    QCOMPARE(scale.top(now), 200.0);
    now = feed(&scale, 186, now, 1);
    QCOMPARE(scale.top(now), 200.0);
}

void HeightScaleTest::overshootStopsAtFullScale()
{
    HeightScale scale;
    scale.addHighest(1000, 0);
    QCOMPARE(scale.top(5000), 400.0);
    scale.addHighest(9999, 5000);
    QCOMPARE(scale.top(9000), 400.0);
}

void HeightScaleTest::heightsAtAStepDoNotPump()
{
    HeightScale scale;
    double now = feed(&scale, 205, 0, 12);
    QCOMPARE(scale.top(now), 250.0);
    // Under the lower step, but not by enough to stay there.
    int changes = 0;
    double before = scale.top(now);
    for (int i = 0; i < 50 * 120; ++i, now += kFrameMs) {
        scale.addHighest(i % 1000 == 0 ? 203 : 196, now);
        changes += scale.top(now) == before ? 0 : 1;
        before = scale.top(now);
    }
    QCOMPARE(changes, 0);
}

void HeightScaleTest::glidesFromOneToTheNext()
{
    HeightScale scale;
    scale.setMode(HeightScale::AsSent, 0);
    scale.higher(1000);
    double before = 400;
    QCOMPARE(scale.top(1000), before);
    for (double time = 1000; time <= 1000 + HeightScale::kFallMs; time += kFrameMs) {
        QVERIFY(scale.top(time) <= before);
        QVERIFY(scale.top(time) > before * 0.95); // no jump
        before = scale.top(time);
    }
    QCOMPARE(scale.top(1000 + HeightScale::kFallMs), 300.0);
    // One that begins amid another starts where that is.
    scale.higher(5000);
    const double amid = scale.top(5300);
    QVERIFY(amid < 300 && amid > 250);
    scale.lower(5300);
    QCOMPARE(scale.top(5300), amid);
    QCOMPARE(scale.top(9000), 300.0);
}

void HeightScaleTest::asSentIsOneKeyAway()
{
    HeightScale scale;
    double now = feed(&scale, 90, 0, 12);
    scale.toggle(now);
    QCOMPARE(scale.mode(), HeightScale::AsSent);
    now = feed(&scale, 90, now, 12);
    QCOMPARE(scale.top(now), 400.0);
    scale.toggle(now);
    QCOMPARE(scale.mode(), HeightScale::Fitting);
    QCOMPARE(scale.top(now + 1000), 100.0); // it has gone on fitting meanwhile
}

void HeightScaleTest::byHandStaysWhereItIsPut()
{
    HeightScale scale;
    double now = feed(&scale, 90, 0, 12);
    scale.higher(now);
    QCOMPARE(scale.mode(), HeightScale::ByHand);
    now = feed(&scale, 390, now, 12);
    QCOMPARE(scale.top(now), 75.0);
    for (int i = 0; i < 20; ++i)
        scale.higher(now);
    QCOMPARE(scale.top(now + 1000), 50.0);
    for (int i = 0; i < 20; ++i)
        scale.lower(now);
    QCOMPARE(scale.top(now + 1000), 800.0); // room for what automatic gain overshoots
    scale.toggle(now);
    QCOMPARE(scale.mode(), HeightScale::Fitting);
    QCOMPARE(scale.top(now + 2000), 400.0);
}

void HeightScaleTest::labelsSayWhichItIs()
{
    HeightScale scale;
    QCOMPARE(scale.label(), QStringLiteral("fits music: 400"));
    QCOMPARE(scale.shortLabel(), QStringLiteral("fit 400"));
    scale.toggle(0);
    QCOMPARE(scale.label(), QStringLiteral("as sent: 400"));
    QCOMPARE(scale.shortLabel(), QStringLiteral("sent 400"));
    scale.higher(0);
    QCOMPARE(scale.label(), QStringLiteral("by hand: 300"));
    QCOMPARE(scale.shortLabel(), QStringLiteral("set 300"));
}

QTEST_APPLESS_MAIN(HeightScaleTest)
#include "tst_heightscale.moc"
