// Channel orders, snapshots and mix formats.

#include "platform/linux/audio/mixformat.h"

#include <objbase.h>
#include <QtTest>

namespace {

pa_channel_map mapOf(const char *text)
{
    pa_channel_map map;
    if (!pa_channel_map_parse(&map, text))
        qFatal("not a channel map: %s", text);
    return map;
}

QString text(const pa_channel_map &map)
{
    char buffer[PA_CHANNEL_MAP_SNPRINT_MAX];
    return QString::fromLatin1(pa_channel_map_snprint(buffer, sizeof buffer, &map));
}

SoundEndpoint stereo()
{
    SoundEndpoint endpoint;
    endpoint.rate = 44100;
    endpoint.channels = mapOf("front-left,front-right");
    endpoint.channelMask = orderChannels(&endpoint.channels);
    return endpoint;
}

} // namespace

class SoundEndpointTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void channelOrder_data();
    void channelOrder();
    void wideTextOfUtf8();
    void defaultMustBeActiveAndOfTheFlow();
    void mixFormat();
    void plainFloatIsTheMixFormatToo();
    void otherFormatsAreNot_data();
    void otherFormatsAreNot();
};

void SoundEndpointTest::channelOrder_data()
{
    QTest::addColumn<QByteArray>("server");
    QTest::addColumn<QString>("ordered");
    QTest::addColumn<unsigned>("mask");
    QTest::newRow("mono") << QByteArray("mono") << QStringLiteral("mono") << 0x4U;
    QTest::newRow("stereo") << QByteArray("front-left,front-right")
                            << QStringLiteral("front-left,front-right") << 0x3U;
    QTest::newRow("swapped") << QByteArray("front-right,front-left")
                             << QStringLiteral("front-left,front-right") << 0x3U;
    QTest::newRow("5.1")
        << QByteArray("front-left,front-right,rear-left,rear-right,front-center,lfe")
        << QStringLiteral("front-left,front-right,front-center,lfe,rear-left,rear-right") << 0x3FU;
    QTest::newRow("7.1")
        << QByteArray("front-left,front-right,rear-left,rear-right,front-center,lfe,side-left,"
                      "side-right")
        << QStringLiteral("front-left,front-right,front-center,lfe,rear-left,rear-right,side-left,"
                          "side-right")
        << 0x63FU;
    QTest::newRow("no places") << QByteArray("aux1,aux0") << QStringLiteral("aux1,aux0") << 0U;
    QTest::newRow("one place twice") << QByteArray("front-right,front-left,front-left")
                                     << QStringLiteral("front-right,front-left,front-left") << 0U;
}

void SoundEndpointTest::channelOrder()
{
    QFETCH(QByteArray, server);
    QFETCH(QString, ordered);
    QFETCH(unsigned, mask);
    pa_channel_map map = mapOf(server.constData());
    QCOMPARE(orderChannels(&map), static_cast<DWORD>(mask));
    QCOMPARE(text(map), ordered);
}

void SoundEndpointTest::wideTextOfUtf8()
{
    QCOMPARE(wideText(nullptr), std::wstring());
    QCOMPARE(wideText("L\xC3\xA4rm \xE2\x99\xAA \xF0\x9F\x8E\xB5"),
             std::wstring(L"L\u00E4rm \u266A \U0001F3B5"));
}

void SoundEndpointTest::defaultMustBeActiveAndOfTheFlow()
{
    EndpointSnapshot snapshot;
    SoundEndpoint endpoint = stereo();
    endpoint.id = L"a";
    snapshot.present.push_back(endpoint);
    QVERIFY(!snapshot.findDefault(eRender));
    snapshot.defaultId = {L"a", L"a"};
    QVERIFY(snapshot.findDefault(eRender));
    QVERIFY(!snapshot.findDefault(eCapture));
    snapshot.present[0].state = DEVICE_STATE_UNPLUGGED;
    QVERIFY(!snapshot.findDefault(eRender));
}

void SoundEndpointTest::mixFormat()
{
    const WAVEFORMATEXTENSIBLE format = mixFormatOf(stereo());
    QCOMPARE(static_cast<int>(format.Format.wFormatTag), 0xFFFE);
    QCOMPARE(static_cast<int>(format.Format.nChannels), 2);
    QCOMPARE(static_cast<DWORD>(format.Format.nSamplesPerSec), static_cast<DWORD>(44100));
    QCOMPARE(static_cast<DWORD>(format.Format.nAvgBytesPerSec), static_cast<DWORD>(44100 * 8));
    QCOMPARE(static_cast<int>(format.Format.nBlockAlign), 8);
    QCOMPARE(static_cast<int>(format.Format.wBitsPerSample), 32);
    QCOMPARE(static_cast<int>(format.Format.cbSize), 22);
    QCOMPARE(static_cast<int>(format.Samples.wValidBitsPerSample), 32);
    QCOMPARE(static_cast<DWORD>(format.dwChannelMask), static_cast<DWORD>(3));
    QVERIFY(GUID(format.SubFormat) == KSDATAFORMAT_SUBTYPE_IEEE_FLOAT);
    WAVEFORMATEX *const copy = copyFormat(format);
    QVERIFY(isMixFormat(*copy, format));
    CoTaskMemFree(copy);
}

void SoundEndpointTest::plainFloatIsTheMixFormatToo()
{
    const WAVEFORMATEXTENSIBLE mix = mixFormatOf(stereo());
    WAVEFORMATEX plain = mix.Format;
    plain.wFormatTag = WAVE_FORMAT_IEEE_FLOAT;
    plain.cbSize = 0;
    QVERIFY(isMixFormat(plain, mix));
}

void SoundEndpointTest::otherFormatsAreNot_data()
{
    QTest::addColumn<int>("what");
    const char *const names[] {"channels", "rate",    "bits",       "align",      "bytes",
                               "tag",      "cb size", "sub-format", "valid bits", "mask"};
    for (int i = 0; i < 10; ++i)
        QTest::newRow(names[i]) << i;
}

void SoundEndpointTest::otherFormatsAreNot()
{
    QFETCH(int, what);
    const WAVEFORMATEXTENSIBLE mix = mixFormatOf(stereo());
    WAVEFORMATEXTENSIBLE other = mix;
    switch (what) {
    case 0:
        other.Format.nChannels = 1;
        break;
    case 1:
        other.Format.nSamplesPerSec = 48000;
        break;
    case 2:
        other.Format.wBitsPerSample = 16;
        break;
    case 3:
        other.Format.nBlockAlign = 4;
        break;
    case 4:
        other.Format.nAvgBytesPerSec = 1;
        break;
    case 5:
        other.Format.wFormatTag = WAVE_FORMAT_PCM;
        break;
    case 6:
        other.Format.cbSize = 0;
        break;
    case 7:
        other.SubFormat.Data1 = 1;
        break;
    case 8:
        other.Samples.wValidBitsPerSample = 24;
        break;
    default:
        other.dwChannelMask = 0x30;
        break;
    }
    QVERIFY(!isMixFormat(other.Format, mix));
}

QTEST_GUILESS_MAIN(SoundEndpointTest)
#include "tst_soundendpoint.moc"
