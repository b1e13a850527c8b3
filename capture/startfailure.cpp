#include "capture/startfailure.h"

#include "capture/wasapierrortext.h"
#include "report/audioservicediagnostics.h"
#include "report/errorreport.h"
#include "report/hextext.h"

#include <atomic>

namespace {

/// 1 once the one report of this process has been handed over.
std::atomic<int> s_reported {0};

QString formatTagName(WORD tag)
{
    switch (tag) {
    case WAVE_FORMAT_EXTENSIBLE:
        return QStringLiteral("WAVEFORMATEXTENSIBLE");
    case WAVE_FORMAT_PCM:
        return QStringLiteral("PCM");
    case WAVE_FORMAT_IEEE_FLOAT:
        return QStringLiteral("IEEE_FLOAT");
    default:
        return QStringLiteral("Other");
    }
}

QString validOrNull(const void *pointer)
{
    return pointer ? QStringLiteral("valid") : QStringLiteral("null");
}

QString formatLines(const WAVEFORMATEX &format)
{
    return QStringLiteral("  Format Tag: 0x%1 (%2)\n")
               .arg(hexText(format.wFormatTag, 4), formatTagName(format.wFormatTag))
        + QStringLiteral("  Channels: %1\n").arg(format.nChannels)
        + QStringLiteral("  Samples Per Sec: %1\n").arg(format.nSamplesPerSec)
        + QStringLiteral("  Bits Per Sample: %1\n").arg(format.wBitsPerSample)
        + QStringLiteral("  Block Align: %1\n").arg(format.nBlockAlign)
        + QStringLiteral("  Avg Bytes Per Sec: %1\n").arg(format.nAvgBytesPerSec)
        + QStringLiteral("  cbSize: %1\n").arg(format.cbSize);
}

} // namespace

QString startFailureReport(HRESULT hr)
{
    const QString message = QStringLiteral("WASAPI Error: %1\nError Code: 0x%2")
                                .arg(wasapiErrorText(hr), hexText(hr, 8));
    QString report = buildErrorReport(QStringLiteral("Audio Service Error"), message);
    report += QLatin1Char('\n') + audioServiceDiagnostics();
    return report;
}

QString deviceFormatDebugInfo(const StartState &state)
{
    QString text = QStringLiteral("\n[Device Format Debug Info]\n");
    text += QStringLiteral("  Current Device: %1\n").arg(state.wantedDevice);
    text += QStringLiteral("  pOutputEnumerator: %1\n")
                .arg(state.enumerator ? QStringLiteral("valid") : QStringLiteral("NULL!"));
    text += QStringLiteral("  m_pendingDeviceId: '%1'\n").arg(state.pendingDeviceId);
    text += QStringLiteral("  m_ready: %1\n")
                .arg(state.ready ? QStringLiteral("true") : QStringLiteral("false"));
    text += QStringLiteral("  pDevice: %1\n").arg(validOrNull(state.device));
    text += QStringLiteral("  pAudioClient: %1\n").arg(validOrNull(state.client));
    if (state.format)
        text += formatLines(*state.format);
    else
        text += QStringLiteral("  pwfx = null (device not initialized)\n");
    return text;
}

bool claimOnlyReport()
{
    int notYet = 0;
    return s_reported.compare_exchange_strong(notYet, 1);
}
