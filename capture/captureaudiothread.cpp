#include "capture/captureaudiothread.h"

#include "capture/diagnosticlog.h"
#include "capture/sampleconversion.h"
#include "capture/workerthread.h"
#include "platform/lastreport.h"
#include "platform/timesource.h"
#include "report/hextext.h"

#include <objbase.h>
#include <QDebug>
#include <QThread>

namespace {

constexpr int kPollMs = 5;
constexpr int kEmptyPollsBeforeRecovery = 400;
constexpr int kRecoveryPauseMs = 20;
constexpr int kPassThroughBlockAlign = 4;
constexpr int kQuitWaitMs = 1000; // for the thread to end after quit()
constexpr int kTerminateWaitMs = 500; // for it to end after terminate()

void terminate(QThread *thread)
{
    static_cast<WorkerThread *>(thread)->terminateAtAPoint();
}

/// The client's mix format, to be freed; null when it cannot be had.
WAVEFORMATEX *mixFormatOf(IAudioClient *client)
{
    WAVEFORMATEX *mix = nullptr;
    return SUCCEEDED(WorkerThread::terminable([&] { return client->GetMixFormat(&mix); }))
        ? mix
        : nullptr;
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

/// Whether COM can be used on this thread; else *hr is the code.
bool enterApartment(HRESULT *hr)
{
    *hr = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    if (FAILED(*hr)) {
        qDebug() << "[Thread Error] CoInitializeEx 失败, hr =" << hexText(*hr);
        if (*hr != RPC_E_CHANGED_MODE)
            return false;
    }
    qDebug() << "[Thread 2] CoInitialize 完成";
    return true;
}

/// Starts the client and returns its capture service, to be released; null when that fails. *hr is
/// the code of the call that failed, a success code when only its object is missing.
IAudioCaptureClient *startClient(IAudioClient *client, HRESULT *hr)
{
    if (!enterApartment(hr))
        return nullptr;
    if (!client) {
        qDebug() << "[Thread Error] pAudioClient 为空指针";
        *hr = E_POINTER;
        return nullptr;
    }
    qDebug() << "[Thread 3] 调用 GetService";
    qDebug() << "[Thread 3a] IID_IAudioCaptureClient =" << hexText(IID_IAudioCaptureClient.Data1);
    void *service = nullptr;
    *hr = WorkerThread::terminable(
        [&] { return client->GetService(IID_IAudioCaptureClient, &service); });
    qDebug() << "[Thread 4] GetService hr =" << hexText(*hr);
    if (FAILED(*hr) || !service) {
        qDebug() << "GetService 失败，无法获取 IAudioCaptureClient";
        return nullptr;
    }
    auto *capture = static_cast<IAudioCaptureClient *>(service);

    qDebug() << "[Thread 5] 调用 Start";
    *hr = WorkerThread::terminable([&] { return client->Start(); });
    qDebug() << "[Thread 6] Start hr =" << hexText(*hr);
    if (FAILED(*hr)) {
        qDebug() << "Start 失败, hr =" << hexText(*hr);
        capture->Release();
        return nullptr;
    }
    return capture;
}

/// Restarts a client that has had no packet for so many polls. False when it cannot be started.
bool restartClient(IAudioClient *client, int emptyPolls)
{
    qDebug().nospace() << "[Thread] 2秒无数据(" << emptyPolls * kPollMs / 1000
                       << "秒)，尝试 Stop/Start 恢复";
    WorkerThread::terminable([&] { return client->Stop(); });
    sleepMs(kRecoveryPauseMs);
    if (FAILED(WorkerThread::terminable([&] { return client->Start(); })))
        return false;
    qDebug() << "[Thread] Stop/Start 恢复成功";
    return true;
}

} // namespace

CaptureAudioThread::CaptureAudioThread()
    : m_thread(new WorkerThread)
{
    connect(m_thread, &QThread::started, this, &reserveCrashStack, Qt::DirectConnection);
    moveToThread(m_thread);
    startThread(*m_thread);
}

CaptureAudioThread::~CaptureAudioThread()
{
    m_thread->quit();
    if (!waitForThread(*m_thread, kQuitWaitMs)) {
        terminate(m_thread);
        waitForThread(*m_thread, kTerminateWaitMs);
    }
    if (waitForThread(*m_thread, 0))
        delete m_thread;
    else
        m_sessions.leaveBehind(); // with the thread: one that runs must not be deleted
}

void CaptureAudioThread::start(IAudioClient *pAudioClient, int blockAlign)
{
    qDebug().nospace() << "[Thread 1] start() 被调用, pAudioClient =" << pAudioClient
                       << " blockAlign =" << blockAlign;
    IAudioCaptureClient *capture = nullptr;
    WorkerThread::endIfTerminated();
    if (m_sessions.begin()) {
        HRESULT hr = S_OK;
        capture = startClient(pAudioClient, &hr);
        WorkerThread::endIfTerminated();
        if (capture)
            run(pAudioClient, capture, blockAlign);
        else if (!m_sessions.isRetired())
            Q_EMIT error(hr);
    }
    m_sessions.end();
    Q_EMIT stoped();
    if (capture)
        qDebug() << "频谱引擎已停止采集！";
}

/// A session whose client runs, to its end. Releases capture.
void CaptureAudioThread::run(IAudioClient *pAudioClient, IAudioCaptureClient *capture,
                             int blockAlign)
{
    m_sessions.setRunning();
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

    WorkerThread::endIfTerminated();
    m_sessions.leaveLoop();
    CoTaskMemFree(mix);
    writeDiagnosticLog(QStringLiteral("采集线程退出循环"));
    qDebug() << "[Thread] 退出采集循环，准备停止";
    WorkerThread::terminable([&] { return pAudioClient->Stop(); });
    capture->Release();
    WorkerThread::endIfTerminated();
}

/// The read loop; returns when the session is to end.
void CaptureAudioThread::drain(IAudioClient *pAudioClient, IAudioCaptureClient *capture,
                               int blockAlign, const SourceFormat &format)
{
    QByteArray raw;
    int emptyPolls = 0;
    while (m_sessions.mayRun()) {
        sleepMs(kPollMs);

        UINT32 waiting = 0;
        const HRESULT hr =
            WorkerThread::terminable([&] { return capture->GetNextPacketSize(&waiting); });
        if (FAILED(hr)) {
            qDebug() << "[Thread Error] GetNextPacketSize 失败, hr =" << hexText(hr);
            if (hr == AUDCLNT_E_DEVICE_INVALIDATED) {
                qDebug() << "[Thread Error] 设备已失效，停止采集";
                writeDiagnosticLog(
                    QStringLiteral("采集线程: GetNextPacketSize DEVICE_INVALIDATED"));
                return;
            }
        } else if (waiting > 0) {
            emptyPolls = 0;
            if (takePacket(capture, raw, blockAlign, format) == AUDCLNT_E_DEVICE_INVALIDATED)
                return;
        } else if (++emptyPolls > kEmptyPollsBeforeRecovery) {
            if (!restartClient(pAudioClient, emptyPolls))
                return;
            emptyPolls = 0;
        }
    }
}

/// Reads, converts and emits the packet that waits; raw is the memory that it is copied to. A
/// failure other than AUDCLNT_E_DEVICE_INVALIDATED is passed over.
HRESULT CaptureAudioThread::takePacket(IAudioCaptureClient *capture, QByteArray &raw,
                                       int blockAlign, const SourceFormat &format)
{
    BYTE *data = nullptr;
    UINT32 frames = 0;
    DWORD flags = 0; // never examined: a silent packet is copied as it stands
    const HRESULT hr = WorkerThread::terminable(
        [&] { return capture->GetBuffer(&data, &frames, &flags, nullptr, nullptr); });
    if (hr == AUDCLNT_E_DEVICE_INVALIDATED) {
        qDebug() << "[Thread Error] GetBuffer 设备失效，停止采集";
        writeDiagnosticLog(QStringLiteral("采集线程: GetBuffer DEVICE_INVALIDATED"));
        return hr;
    }
    if (FAILED(hr)) {
        qDebug().nospace() << "[Thread Error] GetBuffer 瞬态错误, hr =" << hexText(hr) << "，跳过";
        return hr;
    }
    copyPacket(raw, data, frames, blockAlign);
    if (blockAlign == kPassThroughBlockAlign || frames == 0)
        Q_EMIT notifyData(raw);
    else
        Q_EMIT notifyData(toStereo16(raw, frames, format));
    WorkerThread::terminable([&] { return capture->ReleaseBuffer(frames); });
    return hr;
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
    if (!waitForThread(*m_thread, kQuitWaitMs)) {
        qDebug() << "[Thread] forceStop 等待超时";
        terminate(m_thread);
        waitForThread(*m_thread, kTerminateWaitMs);
    }
}
