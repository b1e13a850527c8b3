// The conversion of packets, against a reference that looks at single bytes, with every packet
// ending at an unreadable page.
#include "capture/floatkernels.h"
#include "capture/sampleconversion.h"
#include "tests/support/guardedmemory.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <QRandomGenerator>
#include <QtTest>

namespace {

using Bytes = QByteArray;

/// A byte of the packet, 0 outside.
quint32 byteAt(const Bytes &packet, qint64 offset)
{
    return offset >= 0 && offset < packet.size()
        ? static_cast<quint8>(packet.at(static_cast<int>(offset)))
        : 0U;
}

quint32 wordAt(const Bytes &packet, qint64 offset, int bytes)
{
    quint32 value = 0;
    for (int i = 0; i < bytes; ++i)
        value |= byteAt(packet, offset + i) << (8 * i);
    return value;
}

int referenceSample(const Bytes &packet, qint64 frame, int channel, const SourceFormat &format)
{
    const qint64 element = frame * format.channels + channel;
    if (format.isFloat) {
        const quint32 bits = wordAt(packet, element * 4, 4);
        float value = 0;
        std::memcpy(&value, &bits, sizeof(value));
        if (value != value)
            return 0;
        const double clamped = value > 1.0F ? 1.0
            : value < -1.0F                 ? -1.0
                                            : static_cast<double>(value);
        return static_cast<int>(std::trunc(clamped * 32767.0));
    }
    if (format.bitsPerSample == 32)
        return static_cast<int>(static_cast<qint32>(wordAt(packet, element * 4, 4)) >> 16);
    if (format.bitsPerSample == 24) {
        const quint32 bits = wordAt(packet, element * 3, 3);
        const qint32 value = static_cast<qint32>(bits << 8) >> 8;
        return value >> 16;
    }
    return static_cast<int>(static_cast<qint16>(wordAt(packet, element * 2, 2)));
}

Bytes reference(const Bytes &packet, quint32 frames, const SourceFormat &format)
{
    Bytes result;
    for (quint32 i = 0; i < frames; ++i) {
        int left = 0;
        int right = 0;
        if (format.channels > 0) {
            left = referenceSample(packet, i, 0, format);
            right = format.channels > 1 ? referenceSample(packet, i, 1, format) : left;
        }
        for (const int sample : {left, right}) {
            result.append(static_cast<char>(sample & 0xFF));
            result.append(static_cast<char>((sample >> 8) & 0xFF));
        }
    }
    return result;
}

/// The conversion of bytes whose neighbours on both sides cannot be read.
Bytes convertGuarded(const Bytes &packet, quint32 frames, const SourceFormat &format)
{
    const GuardedMemory memory(static_cast<size_t>(packet.size()));
    std::memcpy(memory.data(), packet.constData(), memory.size());
    return toStereo16(memory.data(), static_cast<qint64>(memory.size()), frames, format);
}

Bytes randomPacket(QRandomGenerator &random, int size)
{
    Bytes packet(size, '\0');
    for (char &byte : packet)
        byte = static_cast<char>(random.generate());
    // Values that a random pattern seldom hits.
    const float special[] = {0.0F,
                             -0.0F,
                             1.0F,
                             -1.0F,
                             1.5F,
                             -1.5F,
                             0.99999F,
                             std::numeric_limits<float>::quiet_NaN(),
                             std::numeric_limits<float>::infinity(),
                             -std::numeric_limits<float>::infinity(),
                             std::numeric_limits<float>::denorm_min(),
                             std::numeric_limits<float>::max(),
                             std::numeric_limits<float>::lowest()};
    for (int i = 0; i + 4 <= size; i += 4) {
        const quint32 dice = random.bounded(40U);
        if (dice < std::size(special))
            std::memcpy(packet.data() + i, &special[dice], sizeof(float));
    }
    return packet;
}

template <typename T> Bytes bytesOf(std::initializer_list<T> values)
{
    Bytes bytes;
    for (const T value : values)
        bytes.append(reinterpret_cast<const char *>(&value), sizeof(T));
    return bytes;
}

qint16 left(const Bytes &stereo)
{
    qint16 value = 0;
    std::memcpy(&value, stereo.constData(), sizeof(value));
    return value;
}

} // namespace

class TestSampleConversion : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void floatSamples_data();
    void floatSamples();
    void twentyFourBitSamples_data();
    void twentyFourBitSamples();
    void thirtyTwoBitSamples();
    void sixteenBitSamplesAreCopied();
    void monoIsDoubledAndOthersAreDropped();
    void noChannelsGiveZeros();
    void floatBeatsTheDepth();
    void tableAgainstTheReference();
    void floatKernels_data();
    void floatKernels();
    void stereoPacketsTruncateTheExactProduct();
    void conversionLeavesTheRoundingModeAlone();
    void packetCopies();
    void packetCopyEndsAtThePacket();
};

void TestSampleConversion::floatSamples_data()
{
    QTest::addColumn<float>("input");
    QTest::addColumn<int>("output");
    const float inf = std::numeric_limits<float>::infinity();
    QTest::newRow("1.0") << 1.0F << 32767;
    QTest::newRow("-1.0") << -1.0F << -32767;
    QTest::newRow("1.5") << 1.5F << 32767;
    QTest::newRow("-1.5") << -1.5F << -32767;
    QTest::newRow("0.99999") << 0.99999F << 32766;
    QTest::newRow("-0.00003") << -0.00003F << 0;
    QTest::newRow("0.5") << 0.5F << 16383;
    QTest::newRow("NaN") << std::numeric_limits<float>::quiet_NaN() << 0;
    QTest::newRow("infinity") << inf << 32767;
    QTest::newRow("-infinity") << -inf << -32767;
    QTest::newRow("denormal") << std::numeric_limits<float>::denorm_min() << 0;
    QTest::newRow("largest") << std::numeric_limits<float>::max() << 32767;
    QTest::newRow("lowest") << std::numeric_limits<float>::lowest() << -32767;
}

void TestSampleConversion::floatSamples()
{
    QFETCH(float, input);
    QFETCH(int, output);
    QCOMPARE(static_cast<int>(left(toStereo16(bytesOf({input, 0.0F}), 1, {2, 32, true}))), output);
}

void TestSampleConversion::twentyFourBitSamples_data()
{
    QTest::addColumn<int>("input");
    QTest::addColumn<int>("output");
    QTest::newRow("0x7FFFFF") << 0x7FFFFF << 127;
    QTest::newRow("0x800000") << 0x800000 << -128;
    QTest::newRow("0xFFFFFF") << 0xFFFFFF << -1;
    QTest::newRow("0x00FFFF") << 0x00FFFF << 0;
    QTest::newRow("0x010000") << 0x010000 << 1;
}

void TestSampleConversion::twentyFourBitSamples()
{
    QFETCH(int, input);
    QFETCH(int, output);
    const Bytes packet = bytesOf({input}).left(3) + bytesOf({0x7F0000}).left(3);
    const Bytes stereo = toStereo16(packet, 1, {2, 24, false});
    QCOMPARE(static_cast<int>(left(stereo)), output);
    QCOMPARE(static_cast<int>(left(stereo.mid(2))), 127); // the second channel, three bytes on
}

void TestSampleConversion::thirtyTwoBitSamples()
{
    const Bytes stereo =
        toStereo16(bytesOf({0x12345678, static_cast<int>(0x80000000)}), 1, {2, 32, false});
    QCOMPARE(static_cast<int>(left(stereo)), 0x1234);
    QCOMPARE(static_cast<int>(left(stereo.mid(2))), -32768);
}

void TestSampleConversion::sixteenBitSamplesAreCopied()
{
    const Bytes packet = bytesOf<qint16>({-32768, 32767, 1, -1});
    QCOMPARE(toStereo16(packet, 2, {2, 16, false}), packet);
    QCOMPARE(toStereo16(packet, 2, {2, 12, false}), packet); // other depths are words, too
}

void TestSampleConversion::monoIsDoubledAndOthersAreDropped()
{
    QCOMPARE(toStereo16(bytesOf<qint16>({7, 9}), 2, {1, 16, false}), bytesOf<qint16>({7, 7, 9, 9}));
    QCOMPARE(toStereo16(bytesOf<qint16>({1, 2, 3, 4, 5, 6}), 2, {3, 16, false}),
             bytesOf<qint16>({1, 2, 4, 5}));
}

void TestSampleConversion::noChannelsGiveZeros()
{
    for (const bool isFloat : {false, true})
        QCOMPARE(toStereo16(bytesOf<qint16>({7, 9}), 2, {0, 16, isFloat}), Bytes(8, '\0'));
}

void TestSampleConversion::floatBeatsTheDepth()
{
    for (const int bits : {8, 16, 24, 32, 64})
        QCOMPARE(static_cast<int>(left(toStereo16(bytesOf({1.0F, 1.0F}), 1, {2, bits, true}))),
                 32767);
}

void TestSampleConversion::tableAgainstTheReference()
{
    const quint32 seed = QRandomGenerator::global()->generate();
    qInfo("seed %u", seed);
    QRandomGenerator random(seed);
    int cases = 0;
    for (int channels = 0; channels <= 8; ++channels) {
        for (const int bits : {32, 24, 16, 8, 12, 64}) {
            for (const bool isFloat : {false, true}) {
                const SourceFormat format {channels, bits, isFloat};
                const int right = channels * bits / 8;
                for (const int blockAlign : {right, right + 1, right / 2, 1, 3, 64, 0}) {
                    for (const quint32 frames : {0U, 1U, 2U, 7U, 33U}) {
                        const Bytes packet =
                            randomPacket(random, static_cast<int>(frames) * blockAlign);
                        QCOMPARE(convertGuarded(packet, frames, format),
                                 reference(packet, frames, format));
                        QCOMPARE(toStereo16(packet, frames, format),
                                 reference(packet, frames, format));
                        ++cases;
                    }
                }
            }
        }
    }
    qInfo("%d packets", cases);
    QVERIFY(cases > 3000);
}

void TestSampleConversion::floatKernels_data()
{
    QTest::addColumn<int>("unit");
    QTest::newRow("plain") << static_cast<int>(VectorUnit::None);
    for (const VectorUnit unit : {VectorUnit::Sse2, VectorUnit::Avx2Fma}) {
        if (vectorUnit() >= unit)
            QTest::newRow(unit == VectorUnit::Sse2 ? "SSE2" : "AVX2") << static_cast<int>(unit);
    }
}

/// Odd lengths, alignments, and samples whose product is nearly an integer.
void TestSampleConversion::floatKernels()
{
    QFETCH(int, unit);
    const FloatKernel kernel = floatKernel(static_cast<VectorUnit>(unit));
    const SourceFormat mono {1, 32, true};
    QRandomGenerator random(7);
    for (int count = 0; count <= 70; ++count) {
        for (int offset = 0; offset < 5; ++offset) {
            Bytes floats(4 * count, '\0');
            for (int i = 0; i < count; ++i) {
                float value =
                    static_cast<float>(static_cast<int>(random.bounded(65536)) - 32768) / 32767.0F;
                if (i % 3 == 1)
                    value = std::nextafter(value, random.bounded(2) ? 2.0F : -2.0F);
                else if (i % 3 == 2) {
                    const quint32 bits = random.generate();
                    std::memcpy(&value, &bits, sizeof value);
                }
                std::memcpy(floats.data() + 4 * i, &value, sizeof value);
            }
            const Bytes packet = Bytes(offset, 'x') + floats;
            Bytes samples(2 * count + 2 * offset, 'x');
            {
                const RoundingTowardZero rounding;
                kernel(packet.constData() + offset, samples.data() + offset, count);
            }
            for (int i = 0; i < count; ++i)
                QCOMPARE(static_cast<int>(static_cast<qint16>(wordAt(samples, offset + 2 * i, 2))),
                         referenceSample(floats, i, 0, mono));
            QCOMPARE(samples.left(offset), Bytes(offset, 'x'));
            QCOMPARE(samples.mid(offset + 2 * count), Bytes(offset, 'x'));
        }
    }
}

/// As packets arrive, with whatever kernel this processor gets: the samples around each step.
/// Rounded to the nearest float, the products of many of them would be the step itself.
void TestSampleConversion::stereoPacketsTruncateTheExactProduct()
{
    const SourceFormat stereo {2, 32, true};
    Bytes packet;
    for (int step = 1; step <= 32767; ++step) {
        const float quotient = static_cast<float>(step) / 32767.0F;
        packet += bytesOf({quotient, -quotient, std::nextafter(quotient, 0.0F), 0.0F});
    }
    const auto frames = static_cast<quint32>(packet.size() / 8);
    QCOMPARE(toStereo16(packet, frames, stereo), reference(packet, frames, stereo));
}

/// The kernels change the rounding mode for themselves only; the rest of the program keeps its own.
void TestSampleConversion::conversionLeavesTheRoundingModeAlone()
{
    toStereo16(Bytes(8 * 480, '\x3f'), 480, {2, 32, true});
    volatile float three = 3.0F;
    QCOMPARE(static_cast<double>(2.0F / three), static_cast<double>(0.666666687F)); // rounded up
    QCOMPARE(static_cast<double>(-2.0F / three), static_cast<double>(-0.666666687F));
}

void TestSampleConversion::packetCopies()
{
    Bytes raw("junk");
    copyPacket(raw, "abcdefgh", 2, 3);
    QCOMPARE(raw, Bytes("abcdef"));
    copyPacket(raw, nullptr, 2, 4); // zeros, also where the last packet was
    QCOMPARE(raw, Bytes(8, '\0'));
    copyPacket(raw, "abcdefgh", 0, 4);
    QVERIFY(raw.isEmpty());
    copyPacket(raw, nullptr, 0, 4);
    QVERIFY(raw.isEmpty());
    copyPacket(raw, "abcdefgh", 3, 0);
    QVERIFY(raw.isEmpty());
    copyPacket(raw, "abcdefgh", 3, -8);
    QVERIFY(raw.isEmpty());
}

void TestSampleConversion::packetCopyEndsAtThePacket()
{
    Bytes raw;
    for (const int blockAlign : {1, 3, 6, 8, 48}) {
        for (const quint32 frames : {1U, 7U, 480U, 4801U}) {
            const GuardedMemory memory(static_cast<size_t>(frames)
                                       * static_cast<size_t>(blockAlign));
            std::memset(memory.data(), 0x5A, memory.size());
            copyPacket(raw, memory.data(), frames, blockAlign);
            QCOMPARE(raw, Bytes(static_cast<int>(memory.size()), '\x5A'));
        }
    }
}

QTEST_GUILESS_MAIN(TestSampleConversion)
#include "tst_sampleconversion.moc"
