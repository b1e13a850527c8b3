#include "capture/captureaudiothread.h"

#include "capture/diagnosticlog.h"
#include "capture/sampleconversion.h"
#include "capture/wasapierrortext.h"
#include "platform/lastreport.h"

#include <objbase.h>
#include <QDebug>
#include <QThread>

namespace {

constexpr int kPollMs = 5;
constexpr int kEmptyPollsBeforeRecovery = 400;
constexpr int kRecoveryPauseMs = 20;
constexpr int kPassThroughBlockAlign = 4;

/// The client's mix format, to be freed; null when it cannot be had.
WAVEFORMATEX *mixFormatOf(IAudioClient *client)
{
    WAVEFORMATEX *mix = nullptr;
    return SUCCEEDED(client->GetMixFormat(&mix)) ? mix : nullptr;
}

/// What the conversion takes from a mix format; the defaults without one. An extensible format
/// counts as float whatever its sub-format says.
SourceFormat sourceFormat(const WAVEFORMATEX *mix)
{
    SourceFormat format;
    if (mix) {
        format.channels = mix->nChannels;
        format.bitsPerSample = mix->wBitsPerSample;
        format.isFloat =
            mix->wFormatTag == WAVE_FORMAT_IEEE_FLOAT || mix->wFormatTag == WAVE_FORMAT_EXTENSIBLE;
    }
    return format;
}

} // namespace

CaptureAudioThread::CaptureAudioThread()
    : m_thread(new QThread)
{
    connect(m_thread, &QThread::started, this, &reserveCrashStack, Qt::DirectConnection);
    moveToThread(m_thread);
    m_thread->start();
}

CaptureAudioThread::~CaptureAudioThread()
{
    m_thread->quit();
    if (!m_thread->wait(1000)) {
        m_thread->terminate();
        m_thread->wait(500);
    }
    delete m_thread;
}

void CaptureAudioThread::start(IAudioClient *pAudioClient, int blockAlign)
{
    ++m_session;
    qDebug().nospace() << "[Thread 1] start() 被调用, pAudioClient =" << pAudioClient
                       << " blockAlign =" << blockAlign;
    if (isRetired()) {
        Q_EMIT stoped();
        return;
    }

    HRESULT hr = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    if (FAILED(hr)) {
        qDebug() << "[Thread Error] CoInitializeEx 失败, hr =" << hexCode(hr);
        if (hr != RPC_E_CHANGED_MODE) {
            endUnstarted(hr);
            return;
        }
    }
    qDebug() << "[Thread 2] CoInitialize 完成";

    if (!pAudioClient) {
        qDebug() << "[Thread Error] pAudioClient 为空指针";
        endUnstarted(E_POINTER);
        return;
    }

    qDebug() << "[Thread 3] 调用 GetService";
    qDebug() << "[Thread 3a] IID_IAudioCaptureClient ="
             << QString::number(IID_IAudioCaptureClient.Data1, 16);
    void *service = nullptr;
    hr = pAudioClient->GetService(IID_IAudioCaptureClient, &service);
    qDebug() << "[Thread 4] GetService hr =" << hexCode(hr);
    if (FAILED(hr) || !service) {
        qDebug() << "GetService 失败，无法获取 IAudioCaptureClient";
        endUnstarted(hr); // a success code when only the pointer is missing
        return;
    }
    auto *capture = static_cast<IAudioCaptureClient *>(service);

    qDebug() << "[Thread 5] 调用 Start";
    hr = pAudioClient->Start();
    qDebug() << "[Thread 6] Start hr =" << hexCode(hr);
    if (FAILED(hr)) {
        qDebug() << "Start 失败, hr =" << hexCode(hr);
        capture->Release();
        endUnstarted(hr);
        return;
    }

    m_running.store(1);
    if (isRetired()) // between the first look and the set: the clear must win
        m_running.store(0);
    qDebug() << "频谱引擎已启动";

    WAVEFORMATEX *mix = nullptr;
    SourceFormat format;
    if (blockAlign != kPassThroughBlockAlign) {
        mix = mixFormatOf(pAudioClient);
        format = sourceFormat(mix);
        qDebug().nospace() << "[Thread] 需要格式转换: " << format.channels << "ch/"
                           << format.bitsPerSample << "bit/float=" << format.isFloat
                           << " (blockAlign=" << blockAlign << ") → 2ch/16bit";
    }

    drain(pAudioClient, capture, blockAlign, format);

    if (isRetired())
        m_running.store(0);
    CoTaskMemFree(mix);
    writeDiagnosticLog(QStringLiteral("采集线程退出循环"));
    qDebug() << "[Thread] 退出采集循环，准备停止";
    pAudioClient->Stop();
    capture->Release();
    Q_EMIT stoped();
    qDebug() << "频谱引擎已停止采集！";
}

void CaptureAudioThread::endUnstarted(HRESULT hr)
{
    if (!isRetired())
        Q_EMIT error(hr);
    Q_EMIT stoped();
}

/// The read loop; returns when the session is to end.
void CaptureAudioThread::drain(IAudioClient *pAudioClient, IAudioCaptureClient *capture,
                               int blockAlign, const SourceFormat &format)
{
    const bool passThrough = blockAlign == kPassThroughBlockAlign;
    QByteArray raw;
    int emptyPolls = 0;
    while (m_running.load() && !isRetired()) {
        QThread::msleep(kPollMs);

        UINT32 waiting = 0;
        HRESULT hr = capture->GetNextPacketSize(&waiting);
        if (FAILED(hr)) {
            qDebug() << "[Thread Error] GetNextPacketSize 失败, hr =" << hexCode(hr);
            if (hr == AUDCLNT_E_DEVICE_INVALIDATED) {
                qDebug() << "[Thread Error] 设备已失效，停止采集";
                writeDiagnosticLog(
                    QStringLiteral("采集线程: GetNextPacketSize DEVICE_INVALIDATED"));
                return;
            }
            continue;
        }

        if (waiting == 0) {
            if (++emptyPolls <= kEmptyPollsBeforeRecovery)
                continue;
            qDebug().nospace() << "[Thread] 2秒无数据(" << emptyPolls * kPollMs / 1000
                               << "秒)，尝试 Stop/Start 恢复";
            pAudioClient->Stop();
            QThread::msleep(kRecoveryPauseMs);
            if (FAILED(pAudioClient->Start()))
                return;
            emptyPolls = 0;
            qDebug() << "[Thread] Stop/Start 恢复成功";
            continue;
        }

        emptyPolls = 0;
        BYTE *data = nullptr;
        UINT32 frames = 0;
        DWORD flags = 0; // never examined: a silent packet is copied as it stands
        hr = capture->GetBuffer(&data, &frames, &flags, nullptr, nullptr);
        if (FAILED(hr)) {
            if (hr == AUDCLNT_E_DEVICE_INVALIDATED) {
                qDebug() << "[Thread Error] GetBuffer 设备失效，停止采集";
                writeDiagnosticLog(QStringLiteral("采集线程: GetBuffer DEVICE_INVALIDATED"));
                return;
            }
            qDebug().nospace() << "[Thread Error] GetBuffer 瞬态错误, hr =" << hexCode(hr)
                               << "，跳过";
            continue;
        }

        copyPacket(raw, data, frames, blockAlign);
        if (passThrough || frames == 0)
            Q_EMIT notifyData(raw);
        else
            Q_EMIT notifyData(toStereo16(raw, frames, format));
        capture->ReleaseBuffer(frames);
    }
}

void CaptureAudioThread::forceStop()
{
    if (!isRunning())
        return;
    qDebug() << "[Thread] forceStop 被调用";
    clearRunning();
    if (!m_thread || !m_thread->isRunning())
        return;
    m_thread->quit();
    if (!m_thread->wait(1000)) {
        qDebug() << "[Thread] forceStop 等待超时";
        m_thread->terminate();
        m_thread->wait(500);
    }
}
