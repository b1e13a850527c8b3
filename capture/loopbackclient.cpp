#include "capture/loopbackclient.h"

#include "capture/comobjects.h"
#include "capture/diagnosticlog.h"
#include "platform/timesource.h"
#include "report/hextext.h"

#include <objbase.h>
#include <QDebug>

namespace {

constexpr REFERENCE_TIME kBufferDuration = 10'000'000; // one second
constexpr int kTransientRetries = 3;
constexpr int kTransientPauseMs = 200;

/// Logs the endpoint's state; only an endpoint that is known to be absent fails here.
HRESULT checkDeviceState(IMMDevice *device)
{
    DWORD state = 0;
    if (FAILED(device->GetState(&state)))
        return S_OK;
    qDebug() << "[Step 2a] 设备状态 =" << state
             << "(1=ACTIVE, 2=DISABLED, 3=NOTPRESENT, 4=UNPLUGGED)";
    if (state != DEVICE_STATE_ACTIVE)
        qDebug() << "[Step 2a] 警告: 设备未激活，状态 =" << state;
    if (state == DEVICE_STATE_NOTPRESENT) {
        qDebug() << "[Step 2a] 错误: 设备不存在";
        return AUDCLNT_E_DEVICE_INVALIDATED;
    }
    if (state == DEVICE_STATE_UNPLUGGED) {
        qDebug() << "[Step 2a] 错误: 设备已拔出";
        return AUDCLNT_E_DEVICE_INVALIDATED;
    }
    return S_OK;
}

void logActivateFailure(HRESULT hr)
{
    qDebug() << "Activate 失败" << hexText(hr);
    writeDiagnosticLog(QStringLiteral("Activate 失败, hr=0x") + hexText(hr));
    if (hr == E_NOINTERFACE)
        qDebug() << "错误: 不支持此接口，可能是驱动不支持 WASAPI";
    else if (hr == AUDCLNT_E_DEVICE_INVALIDATED)
        qDebug() << "错误: 设备无效";
    else if (hr == CO_E_NOTINITIALIZED)
        qDebug() << "错误: COM 未初始化";
}

QString formatSuffix(WORD tag)
{
    switch (tag) {
    case WAVE_FORMAT_EXTENSIBLE:
        return QStringLiteral(" WAVEFORMATEXTENSIBLE");
    case WAVE_FORMAT_PCM:
        return QStringLiteral(" PCM");
    case WAVE_FORMAT_IEEE_FLOAT:
        return QStringLiteral(" IEEE_FLOAT");
    default:
        return {};
    }
}

void logMixFormat(const WAVEFORMATEX &mix, const QString &deviceName)
{
    qDebug().nospace() << "[Step 3a] 原始格式: 通道=" << mix.nChannels
                       << " 采样率=" << mix.nSamplesPerSec << " 位深=" << mix.wBitsPerSample
                       << " 格式标签=" << mix.wFormatTag;
    qDebug() << "------运行状态:------";
    qDebug().noquote() << QStringLiteral("音频设备——（") + deviceName
            + QStringLiteral("）已就绪！");
    qDebug().nospace() << "通道数 : " << mix.nChannels;
    qDebug().nospace() << "采样率 : " << mix.nSamplesPerSec;
    qDebug().nospace() << "位深  : " << mix.wBitsPerSample;
    writeDiagnosticLog(
        QStringLiteral("当前设备: %1 | %2ch %3bit %4Hz blockAlign=%5")
            .arg(deviceName, QString::number(mix.nChannels), QString::number(mix.wBitsPerSample),
                 QString::number(mix.nSamplesPerSec), QString::number(mix.nBlockAlign))
        + formatSuffix(mix.wFormatTag));
}

HRESULT initialize(IAudioClient *client, const WAVEFORMATEX *format, REFERENCE_TIME duration)
{
    return client->Initialize(AUDCLNT_SHAREMODE_SHARED, AUDCLNT_STREAMFLAGS_LOOPBACK, duration, 0,
                              format, nullptr);
}

/// Initialises once more with the duration of a whole number of frames. Without a buffer size, or
/// a rate to divide by, nothing is tried and AUDCLNT_E_BUFFER_SIZE_NOT_ALIGNED or the code of
/// GetBufferSize stands.
HRESULT initializeAligned(IAudioClient *client, const WAVEFORMATEX *format)
{
    qDebug() << "[Step 4c] Buffer 对齐问题，尝试调整...";
    UINT32 frames = 0;
    const HRESULT hr = client->GetBufferSize(&frames);
    if (FAILED(hr))
        return hr;
    if (format->nSamplesPerSec == 0)
        return AUDCLNT_E_BUFFER_SIZE_NOT_ALIGNED;
    const double exact = static_cast<double>(kBufferDuration) * frames / format->nSamplesPerSec;
    // NOLINTNEXTLINE(bugprone-incorrect-roundings): it is not below 0
    const auto duration = static_cast<REFERENCE_TIME>(exact + 0.5);
    return initialize(client, format, duration);
}

bool isTransient(HRESULT hr)
{
    return hr == AUDCLNT_E_EVENTHANDLE_NOT_SET || hr == AUDCLNT_E_BUFFER_OPERATION_PENDING;
}

} // namespace

HRESULT tryActivate(IMMDevice *device, DWORD context, IAudioClient **out)
{
    void *client = nullptr;
    HRESULT hr = device->Activate(IID_IAudioClient, context, nullptr, &client);
    hr = resultWithObject(hr, client);
    if (SUCCEEDED(hr))
        *out = static_cast<IAudioClient *>(client);
    return hr;
}

HRESULT activateClient(IMMDevice *device, IAudioClient **out)
{
    qDebug() << "[Step 2] Activate IAudioClient";
    HRESULT hr = checkDeviceState(device);
    if (FAILED(hr))
        return hr;
    qDebug() << "[Step 2b] IID_IAudioClient =" << hexText(IID_IAudioClient.Data1);

    hr = tryActivate(device, CLSCTX_INPROC_SERVER, out);
    if (FAILED(hr)) {
        qDebug() << "CLSCTX_INPROC_SERVER 失败，再试 CLSCTX_ALL";
        hr = tryActivate(device, CLSCTX_ALL, out);
    }
    if (FAILED(hr))
        logActivateFailure(hr);
    return hr;
}

HRESULT fetchMixFormat(IAudioClient *client, WAVEFORMATEX **out)
{
    WAVEFORMATEX *format = nullptr;
    HRESULT hr = client->GetMixFormat(&format);
    hr = resultWithObject(hr, format);
    if (SUCCEEDED(hr))
        *out = format;
    return hr;
}

HRESULT readMixFormat(IAudioClient *client, const QString &deviceName, WAVEFORMATEX **out)
{
    qDebug() << "[Step 3] GetMixFormat";
    const HRESULT hr = fetchMixFormat(client, out);
    if (FAILED(hr)) {
        qDebug() << "GetMixFormat 失败" << hexText(hr);
        writeDiagnosticLog(QStringLiteral("GetMixFormat 失败, hr=0x") + hexText(hr));
        return hr;
    }
    logMixFormat(**out, deviceName);
    return hr;
}

HRESULT tryInitialize(IAudioClient *client, const WAVEFORMATEX *format)
{
    return initialize(client, format, kBufferDuration);
}

HRESULT initializeWithRetries(IAudioClient *client, const WAVEFORMATEX *format)
{
    qDebug() << "[Step 4] Initialize (使用原始混音格式)";
    qDebug().nospace() << "[Step 4a] 原始格式（通道=" << format->nChannels
                       << " 位深=" << format->wBitsPerSample << " 采样率=" << format->nSamplesPerSec
                       << "）";
    for (int retry = 1;; ++retry) {
        HRESULT hr = tryInitialize(client, format);
        if (hr == AUDCLNT_E_BUFFER_SIZE_NOT_ALIGNED)
            hr = initializeAligned(client, format);
        if (SUCCEEDED(hr))
            return hr;
        if (!isTransient(hr)) {
            qDebug().noquote() << QStringLiteral("[Step 4d] 非瞬态错误: 0x") + hexText(hr);
            return hr;
        }
        if (retry > kTransientRetries)
            return hr;
        qDebug().noquote() << QStringLiteral("[Step 4d] 瞬态错误 0x%1，第%2次重试...")
                                  .arg(hexText(hr), QString::number(retry));
        sleepMs(kTransientPauseMs);
    }
}

HRESULT readBufferSize(IAudioClient *client)
{
    qDebug() << "[Step 5] GetBufferSize";
    UINT32 frames = 0;
    const HRESULT hr = client->GetBufferSize(&frames);
    if (FAILED(hr))
        qDebug() << "GetBufferSize 失败" << hexText(hr);
    else
        qDebug() << "[Step 5a] Buffer 大小:" << frames << "帧";
    return hr;
}

void makeDownstream(WAVEFORMATEX *format)
{
    format->wFormatTag = WAVE_FORMAT_PCM;
    format->nChannels = 2;
    format->nBlockAlign = 4;
    format->wBitsPerSample = 16;
    format->nAvgBytesPerSec = format->nSamplesPerSec * 4;
    format->cbSize = 0;
}
