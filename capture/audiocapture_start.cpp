// Steps 1 to 6 of a start. All of this runs with m_mutex held, on the thread that starts.
#include "capture/audiocapture.h"

#include "capture/diagnosticlog.h"
#include "capture/wasapierrortext.h"
#include "platform/deviceenumerator.h"

#include <initializer_list>
#include <QDebug>
#include <QThread>
#include <utility>

namespace {

constexpr REFERENCE_TIME kBufferDuration = 10'000'000; // one second
constexpr int kTransientRetries = 3;
constexpr int kTransientPauseMs = 200;
constexpr int kRecoveryAttempts = 2;
constexpr int kRecoveryPauseMs = 500;

bool isTransient(HRESULT hr)
{
    return hr == AUDCLNT_E_EVENTHANDLE_NOT_SET || hr == AUDCLNT_E_BUFFER_OPERATION_PENDING;
}

/// What a call that may "succeed" without its object comes to.
HRESULT resultWithObject(HRESULT hr, const void *object)
{
    return SUCCEEDED(hr) && !object ? E_POINTER : hr;
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

} // namespace

/// Brings the session up and queues it to the worker. Returns the code of the call that failed;
/// what was acquired until then stays in the members.
HRESULT AudioCapture::bringUpSession()
{
    HRESULT hr = chooseDevice();
    if (FAILED(hr))
        return hr;
    hr = activateClient();
    if (FAILED(hr))
        return hr;
    int blockAlign = 0;
    hr = readMixFormat(&blockAlign);
    if (FAILED(hr))
        return hr;
    hr = initializeClient(&blockAlign);
    if (FAILED(hr))
        return hr;
    announceFormat();

    qDebug() << "[Step 5] GetBufferSize";
    UINT32 frames = 0;
    hr = pAudioClient->GetBufferSize(&frames);
    if (FAILED(hr)) {
        qDebug() << "GetBufferSize 失败" << hexCode(hr);
        return hr;
    }
    qDebug() << "[Step 5a] Buffer 大小:" << frames << "帧";

    startWorker(blockAlign);
    return hr;
}

HRESULT AudioCapture::getDefaultRenderDevice(IMMDevice **out)
{
    *out = nullptr;
    IMMDeviceEnumerator *enumerator = nullptr;
    HRESULT hr = createDeviceEnumerator(&enumerator);
    hr = resultWithObject(hr, enumerator);
    if (FAILED(hr))
        return hr;
    for (const ERole role : {eConsole, eMultimedia}) {
        IMMDevice *device = nullptr;
        hr = enumerator->GetDefaultAudioEndpoint(eRender, role, &device);
        hr = resultWithObject(hr, device);
        if (SUCCEEDED(hr)) {
            *out = device;
            break;
        }
    }
    enumerator->Release();
    return hr;
}

HRESULT AudioCapture::openDevice(const QString &id)
{
    if (!pOutputEnumerator)
        return E_POINTER;
    IMMDevice *device = nullptr;
    HRESULT hr = pOutputEnumerator->GetDevice(id.toStdWString().c_str(), &device);
    hr = resultWithObject(hr, device);
    if (SUCCEEDED(hr))
        pDevice = device;
    return hr;
}

QString AudioCapture::takePendingDeviceId()
{
    const QMutexLocker lock(&m_pendingMutex);
    return std::exchange(m_pendingDeviceId, QString());
}

HRESULT AudioCapture::chooseDevice()
{
    const DeviceEntry *entry = findDevice(m_currentDevice);
    const QString pendingId = takePendingDeviceId();
    if (!pendingId.isEmpty())
        qDebug() << "[Step 1] 使用回调指定的设备ID:" << pendingId;

    if (entry && entry->name != followDefaultName() && !entry->id.isEmpty()) {
        qDebug() << "[Step 1] 使用指定输出设备:" << entry->name;
        const HRESULT hr = openDevice(entry->id);
        if (FAILED(hr))
            qDebug() << "GetDevice 失败" << hexCode(hr);
        return hr;
    }

    if (!pendingId.isEmpty()) {
        qDebug() << "[Step 1] 根据回调ID获取设备";
        if (SUCCEEDED(openDevice(pendingId)))
            return S_OK;
        qDebug() << "GetDevice(回调ID) 失败，回退到默认设备";
    } else {
        qDebug() << "[Step 1] 使用默认输出设备";
    }
    const HRESULT hr = getDefaultRenderDevice(&pDevice);
    if (FAILED(hr))
        qDebug() << "获取默认设备失败" << hexCode(hr);
    return hr;
}

/// Logs the endpoint's state; only an endpoint that is known to be absent fails here.
HRESULT AudioCapture::checkDeviceState()
{
    DWORD state = 0;
    if (FAILED(pDevice->GetState(&state)))
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

HRESULT AudioCapture::tryActivate(DWORD context)
{
    void *client = nullptr;
    HRESULT hr = pDevice->Activate(IID_IAudioClient, context, nullptr, &client);
    hr = resultWithObject(hr, client);
    if (SUCCEEDED(hr))
        pAudioClient = static_cast<IAudioClient *>(client);
    return hr;
}

HRESULT AudioCapture::activateClient()
{
    qDebug() << "[Step 2] Activate IAudioClient";
    HRESULT hr = checkDeviceState();
    if (FAILED(hr))
        return hr;
    qDebug() << "[Step 2b] IID_IAudioClient =" << QString::number(IID_IAudioClient.Data1, 16);

    hr = tryActivate(CLSCTX_INPROC_SERVER);
    if (FAILED(hr)) {
        qDebug() << "CLSCTX_INPROC_SERVER 失败，再试 CLSCTX_ALL";
        hr = tryActivate(CLSCTX_ALL);
    }
    if (FAILED(hr)) {
        qDebug() << "Activate 失败" << hexCode(hr);
        writeDiagnosticLog(QStringLiteral("Activate 失败, hr=0x") + hexCode(hr));
        if (hr == E_NOINTERFACE)
            qDebug() << "错误: 不支持此接口，可能是驱动不支持 WASAPI";
        else if (hr == AUDCLNT_E_DEVICE_INVALIDATED)
            qDebug() << "错误: 设备无效";
        else if (hr == CO_E_NOTINITIALIZED)
            qDebug() << "错误: COM 未初始化";
    }
    return hr;
}

/// Takes the client's mix format into pwfx, which is null before.
HRESULT AudioCapture::fetchMixFormat()
{
    WAVEFORMATEX *format = nullptr;
    HRESULT hr = pAudioClient->GetMixFormat(&format);
    hr = resultWithObject(hr, format);
    if (SUCCEEDED(hr))
        pwfx = format;
    return hr;
}

HRESULT AudioCapture::readMixFormat(int *blockAlign)
{
    qDebug() << "[Step 3] GetMixFormat";
    const HRESULT hr = fetchMixFormat();
    if (FAILED(hr)) {
        qDebug() << "GetMixFormat 失败" << hexCode(hr);
        writeDiagnosticLog(QStringLiteral("GetMixFormat 失败, hr=0x") + hexCode(hr));
        return hr;
    }
    const WAVEFORMATEX &mix = *pwfx;
    qDebug().nospace() << "[Step 3a] 原始格式: 通道=" << mix.nChannels
                       << " 采样率=" << mix.nSamplesPerSec << " 位深=" << mix.wBitsPerSample
                       << " 格式标签=" << mix.wFormatTag;
    qDebug() << "------运行状态:------";
    qDebug().noquote() << QStringLiteral("音频设备——（") + m_currentDevice
            + QStringLiteral("）已就绪！");
    qDebug().nospace() << "通道数 : " << mix.nChannels;
    qDebug().nospace() << "采样率 : " << mix.nSamplesPerSec;
    qDebug().nospace() << "位深  : " << mix.wBitsPerSample;
    writeDiagnosticLog(QStringLiteral("当前设备: %1 | %2ch %3bit %4Hz blockAlign=%5")
                           .arg(m_currentDevice, QString::number(mix.nChannels),
                                QString::number(mix.wBitsPerSample),
                                QString::number(mix.nSamplesPerSec),
                                QString::number(mix.nBlockAlign))
                       + formatSuffix(mix.wFormatTag));
    *blockAlign = mix.nBlockAlign;
    return hr;
}

HRESULT AudioCapture::tryInitialize(REFERENCE_TIME duration)
{
    return pAudioClient->Initialize(AUDCLNT_SHAREMODE_SHARED, AUDCLNT_STREAMFLAGS_LOOPBACK,
                                    duration, 0, pwfx, nullptr);
}

/// Initialises once more with the duration of a whole number of frames. Without a buffer size, or
/// a rate to divide by, nothing is tried and AUDCLNT_E_BUFFER_SIZE_NOT_ALIGNED or the code of
/// GetBufferSize stands.
HRESULT AudioCapture::initializeAligned()
{
    qDebug() << "[Step 4c] Buffer 对齐问题，尝试调整...";
    UINT32 frames = 0;
    const HRESULT hr = pAudioClient->GetBufferSize(&frames);
    if (FAILED(hr))
        return hr;
    if (pwfx->nSamplesPerSec == 0)
        return AUDCLNT_E_BUFFER_SIZE_NOT_ALIGNED;
    // NOLINTNEXTLINE(bugprone-incorrect-roundings): neither number is below 0
    return tryInitialize(static_cast<REFERENCE_TIME>(
        static_cast<double>(kBufferDuration) * frames / pwfx->nSamplesPerSec + 0.5));
}

HRESULT AudioCapture::initializeWithRetries()
{
    for (int retry = 1;; ++retry) {
        HRESULT hr = tryInitialize(kBufferDuration);
        if (hr == AUDCLNT_E_BUFFER_SIZE_NOT_ALIGNED)
            hr = initializeAligned();
        if (SUCCEEDED(hr))
            return hr;
        if (!isTransient(hr)) {
            qDebug().noquote() << QStringLiteral("[Step 4d] 非瞬态错误: 0x") + hexCode(hr);
            return hr;
        }
        if (retry > kTransientRetries)
            return hr;
        qDebug().noquote() << QStringLiteral("[Step 4d] 瞬态错误 0x%1，第%2次重试...")
                                  .arg(hexCode(hr), QString::number(retry));
        QThread::msleep(kTransientPauseMs);
    }
}

/// One attempt to come up on the default endpoint, whatever device is wanted. Every step that fails
/// ends the attempt with its code.
HRESULT AudioCapture::recoverOnDefaultDevice(int *blockAlign)
{
    releaseClient();
    releaseDevice();
    HRESULT hr = getDefaultRenderDevice(&pDevice);
    if (FAILED(hr))
        return hr;
    hr = tryActivate(CLSCTX_INPROC_SERVER);
    if (FAILED(hr))
        return hr;
    freeFormat();
    hr = fetchMixFormat();
    if (FAILED(hr))
        return hr;
    *blockAlign = pwfx->nBlockAlign;
    return tryInitialize(kBufferDuration);
}

HRESULT AudioCapture::initializeClient(int *blockAlign)
{
    qDebug() << "[Step 4] Initialize (使用原始混音格式)";
    qDebug().nospace() << "[Step 4a] 原始格式（通道=" << pwfx->nChannels
                       << " 位深=" << pwfx->wBitsPerSample << " 采样率=" << pwfx->nSamplesPerSec
                       << "）";
    HRESULT hr = initializeWithRetries();
    if (SUCCEEDED(hr))
        return hr;

    qDebug() << "Initialize 失败" << hexCode(hr);
    writeDiagnosticLog(QStringLiteral("Initialize 失败, hr=0x") + hexCode(hr));
    for (int attempt = 1; attempt <= kRecoveryAttempts && FAILED(hr); ++attempt) {
        QThread::msleep(kRecoveryPauseMs);
        writeDiagnosticLog(QStringLiteral("Initialize 重试 #%1").arg(attempt));
        hr = recoverOnDefaultDevice(blockAlign);
    }
    if (SUCCEEDED(hr))
        writeDiagnosticLog(QStringLiteral("Initialize 重试成功"));
    return hr;
}

/// Rewrites pwfx to the format of the converted data and tells it.
void AudioCapture::announceFormat()
{
    pwfx->wFormatTag = WAVE_FORMAT_PCM;
    pwfx->nChannels = 2;
    pwfx->nBlockAlign = 4;
    pwfx->wBitsPerSample = 16;
    pwfx->nAvgBytesPerSec = pwfx->nSamplesPerSec * 4;
    pwfx->cbSize = 0;
    Q_EMIT formatChanged(*pwfx);
    qDebug() << "[Step 4f] Initialize成功，已通知下游16bit PCM";
}

/// Queues the session. blockAlign is the device's: the worker walks raw packets by it.
void AudioCapture::startWorker(int blockAlign)
{
    qDebug() << "[Step 6] 调用 CaptureAudioThread::start";
    writeDiagnosticLog(
        QStringLiteral("Initialize成功, 启动采集线程 blockAlign=%1").arg(blockAlign));
    m_captureThread.sessions().queue(pAudioClient);
    QMetaObject::invokeMethod(&m_captureThread, "start", Qt::AutoConnection,
                              Q_ARG(IAudioClient *, pAudioClient), Q_ARG(int, blockAlign));
}
