#include "platform/qtgeneration.h"
#include "spectrum/frequencyspectrum.h"

#include <QtTest>
#include <utility>

class TestFrequencySpectrum : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void countBelowOneIsEmptyAndAllocatesNothing();
    void freshSpectrumIsAllZero();
    void writingOneOwnerLeavesTheOther();
    void readingKeepsStorageShared();
    void iteratesFromFirstToLast();
    void isAMetaType();
};

void TestFrequencySpectrum::countBelowOneIsEmptyAndAllocatesNothing()
{
    const FrequencySpectrum none;
    const FrequencySpectrum zero(0);
    const FrequencySpectrum negative(-3);
    QCOMPARE(zero.count(), 0);
    QCOMPARE(negative.count(), 0);
    // All share the one empty array.
    QCOMPARE(zero.begin(), none.begin());
    QCOMPARE(negative.begin(), none.begin());
    QCOMPARE(zero.begin(), zero.end());
}

void TestFrequencySpectrum::freshSpectrumIsAllZero()
{
    const FrequencySpectrum spectrum(2048);
    QCOMPARE(spectrum.count(), 2048);
    for (int i = 0; i < spectrum.count(); ++i) {
        QCOMPARE(spectrum[i].frequency, 0.0);
        QCOMPARE(spectrum[i].amplitude, 0.0);
        QCOMPARE(spectrum[i].clipped, false);
    }
}

void TestFrequencySpectrum::writingOneOwnerLeavesTheOther()
{
    FrequencySpectrum first(3);
    first[1].amplitude = 0.5;
    const FrequencySpectrum second = first;
    QCOMPARE(std::as_const(first).begin(), second.begin());

    first[1].amplitude = 0.75;
    first[2].clipped = true;
    QCOMPARE(second[1].amplitude, 0.5);
    QCOMPARE(second[2].clipped, false);
    QCOMPARE(std::as_const(first)[1].amplitude, 0.75);
    QVERIFY(std::as_const(first).begin() != second.begin());

    FrequencySpectrum third = second;
    for (FrequencySpectrum::Element &point : third)
        point.frequency = 7.0;
    QCOMPARE(second[0].frequency, 0.0);
}

void TestFrequencySpectrum::readingKeepsStorageShared()
{
    const FrequencySpectrum first(3);
    // The copy is what is tested. NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
    const FrequencySpectrum second = first;
    QCOMPARE(first[2].amplitude + second[2].amplitude, 0.0);
    QCOMPARE(first.begin(), second.begin());
}

void TestFrequencySpectrum::iteratesFromFirstToLast()
{
    FrequencySpectrum spectrum(4);
    int n = 0;
    for (FrequencySpectrum::Element &point : spectrum)
        point.frequency = n++;
    QCOMPARE(n, 4);
    n = 0;
    for (const FrequencySpectrum::Element &point : std::as_const(spectrum))
        QCOMPARE(point.frequency, static_cast<double>(n++));
    QCOMPARE(spectrum[3].frequency, 3.0);
}

void TestFrequencySpectrum::isAMetaType()
{
    const QMetaType type(qRegisterMetaType<FrequencySpectrum>());
    QVERIFY(type.isValid());
    QCOMPARE(metaTypeNamed("FrequencySpectrum"), type.id());
    const FrequencySpectrum spectrum(2);
    void *copy = type.create(&spectrum);
    QCOMPARE(static_cast<FrequencySpectrum *>(copy)->count(), 2);
    type.destroy(copy);
}

QTEST_APPLESS_MAIN(TestFrequencySpectrum)
#include "tst_frequencyspectrum.moc"
