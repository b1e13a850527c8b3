// What becomes of a start that failed.
#include "capture/audiocapture.h"

#include "capture/wasapierrortext.h"
#include "report/audioservicediagnostics.h"
#include "report/deliverreport.h"
#include "report/errorreport.h"
#include "report/hextext.h"

#include <atomic>
#include <QDebug>

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

QString AudioCapture::deviceFormatDebugInfo() const
{
    const QMutexLocker lock(&m_mutex);
    QString pendingId;
    {
        const QMutexLocker pendingLock(&m_pendingMutex);
        pendingId = m_pendingDeviceId;
    }
    QString text = QStringLiteral("\n[Device Format Debug Info]\n");
    text += QStringLiteral("  Current Device: %1\n").arg(m_currentDevice);
    text += QStringLiteral("  pOutputEnumerator: %1\n")
                .arg(pOutputEnumerator ? QStringLiteral("valid") : QStringLiteral("NULL!"));
    text += QStringLiteral("  m_pendingDeviceId: '%1'\n").arg(pendingId);
    text += QStringLiteral("  m_ready: %1\n")
                .arg(m_ready ? QStringLiteral("true") : QStringLiteral("false"));
    text += QStringLiteral("  pDevice: %1\n").arg(validOrNull(pDevice));
    text += QStringLiteral("  pAudioClient: %1\n").arg(validOrNull(pAudioClient));
    if (pwfx)
        text += formatLines(*pwfx);
    else
        text += QStringLiteral("  pwfx = null (device not initialized)\n");
    return text;
}

void AudioCapture::handleStartError(HRESULT hr)
{
    if (hr >= 0)
        return;
    qDebug() << "引擎启动失败，错误代码" << hexCode(hr);

    const QString message = QStringLiteral("WASAPI Error: %1\nError Code: 0x%2")
                                .arg(wasapiErrorText(hr), hexText(hr, 8));
    QString report = buildErrorReport(QStringLiteral("Audio Service Error"), message);
    report += QLatin1Char('\n') + audioServiceDiagnostics();
    report += deviceFormatDebugInfo();

    int notYet = 0;
    if (s_reported.compare_exchange_strong(notYet, 1))
        QMetaObject::invokeMethod(this,
                                  [report] { deliverReport(report); }); // shown by a GUI thread

    if (hr == AUDCLNT_E_DEVICE_INVALIDATED && fallsBackAfterError())
        setCurrentDevice(followDefaultName());
}
