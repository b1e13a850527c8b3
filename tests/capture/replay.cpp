#include "tests/capture/replay.h"

#include "tests/capture/timelinecursor.h"

#include <objbase.h>
#include <QHash>
#include <QSet>

namespace {

HRESULT resultOf(const FakeCallRecord &record)
{
    return record.nullOut ? E_POINTER : record.result;
}

// --- a start -----------------------------------------------------------------------------------

class StartReplay {
public:
    StartReplay(Cursor &cursor, Replay &replay, const QHash<QString, QString> &endpoints)
        : m_cursor(cursor)
        , m_replay(replay)
        , m_endpoints(endpoints)
    {
    }

    void run()
    {
        ++m_replay.starts;
        const qint64 pauseMs = m_cursor.msSince(FakeCall::Stop);
        if (pauseMs >= 0 && pauseMs < least(500))
            m_replay.complaints.append(
                QStringLiteral("a start %1 ms after the old client's stop").arg(pauseMs));
        const HRESULT result = steps();
        if (m_cursor.isBroken())
            return;
        m_replay.lastStartSucceeded = SUCCEEDED(result);
        if (FAILED(result)) {
            ++m_replay.startsFailed;
            ++m_replay.failures;
            m_cursor.message(text("引擎启动失败，错误代码 ") + hex(result));
        } else {
            m_replay.lastDevice = m_device;
            m_replay.lastRecovered = m_recovered;
        }
    }

private:
    HRESULT steps()
    {
        HRESULT hr = chooseDevice();
        if (FAILED(hr))
            return hr;
        hr = activate();
        if (FAILED(hr))
            return hr;
        hr = mixFormat();
        if (FAILED(hr))
            return hr;
        hr = initialize();
        if (FAILED(hr))
            return hr;
        m_cursor.message(text("[Step 4f] Initialize成功，已通知下游16bit PCM"));
        ++m_replay.announced;
        m_cursor.message(text("[Step 5] GetBufferSize"));
        hr = m_cursor.call(FakeCall::GetBufferSize).result;
        if (FAILED(hr)) {
            m_cursor.message(text("GetBufferSize 失败 ") + hex(hr));
            return hr;
        }
        m_cursor.message(text("[Step 5a] Buffer 大小: "));
        m_cursor.message(text("[Step 6] 调用 CaptureAudioThread::start"));
        return S_OK;
    }

    HRESULT defaultDevice()
    {
        HRESULT hr = resultOf(m_cursor.call(FakeCall::CreateEnumerator));
        if (FAILED(hr))
            return hr;
        for (const ERole role : {eConsole, eMultimedia}) {
            const FakeCallRecord call = m_cursor.call(FakeCall::GetDefaultAudioEndpoint);
            hr = resultOf(call);
            if (call.argument != role)
                m_cursor.complain(QStringLiteral("wrong role"));
            if (SUCCEEDED(hr))
                return hr;
        }
        return hr;
    }

    /// Takes the next message if it begins like this, and returns the rest of it. Else returns an
    /// empty text and takes nothing.
    QString takeMessage(const QString &start)
    {
        return m_cursor.nextIsMessage(start) ? m_cursor.take().text.mid(start.size()).trimmed()
                                             : QString();
    }

    /// An empty id means that the id is unknown.
    HRESULT openDevice(const QString &id)
    {
        const FakeCallRecord call = m_cursor.call(FakeCall::GetDevice);
        if (!id.isEmpty() && call.device != id)
            m_cursor.complain(QStringLiteral("GetDevice of %1, not %2").arg(call.device, id));
        return resultOf(call);
    }

    HRESULT chooseDevice()
    {
        const QString pendingId = takeMessage(text("[Step 1] 使用回调指定的设备ID:"));
        HRESULT hr = S_OK;
        const QString chosen = text("[Step 1] 使用指定输出设备:");
        if (m_cursor.nextIsMessage(chosen)) {
            const QString name = takeMessage(chosen).section(QStringLiteral(" ("), 0, 0);
            hr = openDevice(m_endpoints.value(name));
            if (FAILED(hr))
                m_cursor.message(text("GetDevice 失败 ") + hex(hr));
            return hr;
        }
        if (m_cursor.nextIsMessage(text("[Step 1] 根据回调ID获取设备"))) {
            m_cursor.take();
            if (pendingId.isEmpty())
                m_cursor.complain(QStringLiteral("no id was handed over"));
            hr = openDevice(pendingId);
            if (SUCCEEDED(hr))
                return hr;
            m_cursor.message(text("GetDevice(回调ID) 失败，回退到默认设备"));
        } else {
            m_cursor.message(text("[Step 1] 使用默认输出设备"));
        }
        hr = defaultDevice();
        if (FAILED(hr))
            m_cursor.message(text("获取默认设备失败 ") + hex(hr));
        return hr;
    }

    HRESULT tryActivate(DWORD context)
    {
        const FakeCallRecord call = m_cursor.call(FakeCall::Activate);
        if (call.argument != context)
            m_cursor.complain(QStringLiteral("wrong class context"));
        m_device = call.device;
        return resultOf(call);
    }

    HRESULT activate()
    {
        m_cursor.message(text("[Step 2] Activate IAudioClient"));
        if (SUCCEEDED(m_cursor.call(FakeCall::GetState).result)) {
            DWORD state = DEVICE_STATE_ACTIVE;
            const QString line = text("[Step 2a] 设备状态 = ");
            if (m_cursor.nextIsMessage(line))
                state =
                    m_cursor.peek().text.mid(line.size()).section(QLatin1Char(' '), 0, 0).toUInt();
            m_cursor.message(line);
            if (state != DEVICE_STATE_ACTIVE)
                m_cursor.message(text("[Step 2a] 警告: 设备未激活，状态 = ")
                                 + QString::number(state));
            if (state == DEVICE_STATE_NOTPRESENT || state == DEVICE_STATE_UNPLUGGED) {
                m_cursor.message(text(state == DEVICE_STATE_NOTPRESENT
                                          ? "[Step 2a] 错误: 设备不存在"
                                          : "[Step 2a] 错误: 设备已拔出"));
                return AUDCLNT_E_DEVICE_INVALIDATED;
            }
        }
        m_cursor.message(text("[Step 2b] IID_IAudioClient = 1cb9ad4c"));
        HRESULT hr = tryActivate(CLSCTX_INPROC_SERVER);
        if (FAILED(hr)) {
            m_cursor.message(text("CLSCTX_INPROC_SERVER 失败，再试 CLSCTX_ALL"));
            hr = tryActivate(CLSCTX_ALL);
        }
        if (FAILED(hr)) {
            m_cursor.message(text("Activate 失败 ") + hex(hr));
            if (hr == E_NOINTERFACE)
                m_cursor.message(text("错误: 不支持此接口，可能是驱动不支持 WASAPI"));
            else if (hr == AUDCLNT_E_DEVICE_INVALIDATED)
                m_cursor.message(text("错误: 设备无效"));
            else if (hr == CO_E_NOTINITIALIZED)
                m_cursor.message(text("错误: COM 未初始化"));
        }
        return hr;
    }

    HRESULT mixFormat()
    {
        m_cursor.message(text("[Step 3] GetMixFormat"));
        const HRESULT hr = resultOf(m_cursor.call(FakeCall::GetMixFormat));
        if (FAILED(hr)) {
            m_cursor.message(text("GetMixFormat 失败 ") + hex(hr));
            return hr;
        }
        m_cursor.message(text("[Step 3a] 原始格式: 通道="));
        m_cursor.message(text("------运行状态:------"));
        m_cursor.message(text("音频设备——（"));
        m_cursor.message(text("通道数 : "));
        m_cursor.message(text("采样率 : "));
        m_cursor.message(text("位深  : "));
        return hr;
    }

    FakeCallRecord initializeCall()
    {
        FakeCallRecord call = m_cursor.call(FakeCall::Initialize);
        if (!call.argumentsRight)
            m_cursor.complain(QStringLiteral("wrong arguments of Initialize"));
        return call;
    }

    HRESULT initialize()
    {
        m_cursor.message(text("[Step 4] Initialize (使用原始混音格式)"));
        m_cursor.message(text("[Step 4a] 原始格式（通道="));
        HRESULT hr = S_OK;
        qint64 lastMs = 0;
        for (int retry = 1;; ++retry) {
            FakeCallRecord call = initializeCall();
            if (retry > 1 && !lasted(200, call.atMs - lastMs))
                m_cursor.complain(QStringLiteral("a retry came at the wrong time"));
            hr = call.result;
            if (hr == AUDCLNT_E_BUFFER_SIZE_NOT_ALIGNED) {
                m_cursor.message(text("[Step 4c] Buffer 对齐问题，尝试调整..."));
                call = m_cursor.call(FakeCall::GetBufferSize);
                hr = call.result;
                if (SUCCEEDED(hr)) {
                    call = initializeCall();
                    hr = call.result;
                }
            }
            lastMs = call.atMs;
            if (SUCCEEDED(hr))
                return hr;
            if (m_cursor.isBroken())
                return hr;
            if (hr != AUDCLNT_E_EVENTHANDLE_NOT_SET && hr != AUDCLNT_E_BUFFER_OPERATION_PENDING) {
                m_cursor.message(text("[Step 4d] 非瞬态错误: 0x") + hex(hr));
                break;
            }
            if (retry > 3)
                break;
            m_cursor.message(
                text("[Step 4d] 瞬态错误 0x%1，第%2次重试...").arg(hex(hr)).arg(retry));
        }
        m_cursor.message(text("Initialize 失败 ") + hex(hr));
        for (int attempt = 0; attempt < 2 && FAILED(hr); ++attempt) {
            if (!m_cursor.atEnd() && !lasted(500, m_cursor.peek().atMs - lastMs))
                m_cursor.complain(QStringLiteral("a recovery came at the wrong time"));
            hr = recover(&lastMs);
            m_recovered = true;
        }
        return hr;
    }

    HRESULT recover(qint64 *lastMs)
    {
        if (!m_cursor.atEnd())
            *lastMs = m_cursor.peek().atMs;
        HRESULT hr = defaultDevice();
        if (FAILED(hr))
            return hr;
        hr = tryActivate(CLSCTX_INPROC_SERVER);
        if (FAILED(hr))
            return hr;
        hr = resultOf(m_cursor.call(FakeCall::GetMixFormat));
        if (FAILED(hr))
            return hr;
        const FakeCallRecord call = initializeCall();
        *lastMs = call.atMs;
        return call.result;
    }

    Cursor &m_cursor;
    Replay &m_replay;
    const QHash<QString, QString> &m_endpoints;
    QString m_device;
    bool m_recovered = false;
};

// --- a session ---------------------------------------------------------------------------------

class SessionReplay {
public:
    SessionReplay(Cursor &cursor, Replay &replay)
        : m_cursor(cursor)
        , m_replay(replay)
    {
    }

    void run()
    {
        const HRESULT service = m_cursor.peek().result;
        const bool nullService = m_cursor.peek().nullOut;
        m_cursor.call(FakeCall::GetService);
        m_cursor.message(text("[Thread 4] GetService hr = ") + hex(service));
        if (FAILED(service) || nullService) {
            m_cursor.message(text("GetService 失败，无法获取 IAudioCaptureClient"));
            end(service);
            return;
        }
        m_cursor.message(text("[Thread 5] 调用 Start"));
        const HRESULT start = m_cursor.call(FakeCall::Start).result;
        m_cursor.message(text("[Thread 6] Start hr = ") + hex(start));
        if (FAILED(start)) {
            m_cursor.message(text("Start 失败, hr = ") + hex(start));
            end(start);
            return;
        }
        m_cursor.message(text("频谱引擎已启动"));
        if (m_cursor.nextIsCall(FakeCall::GetMixFormat)) {
            m_cursor.take();
            m_cursor.message(text("[Thread] 需要格式转换: "));
        }
        drain();
        m_cursor.message(text("[Thread] 退出采集循环，准备停止"));
        m_cursor.call(FakeCall::Stop);
        m_cursor.message(text("频谱引擎已停止采集！"));
        if (m_cursor.isCutOff())
            ++m_replay.sessionsOpen;
        else
            ++m_replay.sessionsEnded;
    }

private:
    void end(HRESULT code)
    {
        if (m_cursor.isCutOff()) {
            ++m_replay.sessionsOpen;
            return;
        }
        ++m_replay.sessionsEnded;
        m_replay.sessionErrors += FAILED(code) ? 1 : 0;
    }

    void drain()
    {
        int empty = 0;
        while (m_cursor.nextIsCall(FakeCall::GetNextPacketSize)) {
            if (!lasted(5, m_cursor.msSinceLast()))
                m_cursor.complain(QStringLiteral("a poll came at the wrong time"));
            const FakeCallRecord size = m_cursor.take();
            if (FAILED(size.result)) {
                m_cursor.message(text("[Thread Error] GetNextPacketSize 失败, hr = ")
                                 + hex(size.result));
                if (size.result == AUDCLNT_E_DEVICE_INVALIDATED) {
                    m_cursor.message(text("[Thread Error] 设备已失效，停止采集"));
                    return;
                }
            } else if (size.argument == 0) {
                if (++empty <= 400)
                    continue;
                m_cursor.message(text("[Thread] 2秒无数据(2秒)，尝试 Stop/Start 恢复"));
                const FakeCallRecord stop = m_cursor.call(FakeCall::Stop);
                const FakeCallRecord start = m_cursor.call(FakeCall::Start);
                if (!lasted(20, start.atMs - stop.atMs))
                    m_cursor.complain(QStringLiteral("Start came at the wrong time"));
                if (FAILED(start.result))
                    return;
                empty = 0;
                m_cursor.message(text("[Thread] Stop/Start 恢复成功"));
            } else {
                empty = 0;
                const FakeCallRecord buffer = m_cursor.call(FakeCall::GetBuffer);
                if (buffer.result == AUDCLNT_E_DEVICE_INVALIDATED) {
                    m_cursor.message(text("[Thread Error] GetBuffer 设备失效，停止采集"));
                    return;
                }
                if (FAILED(buffer.result))
                    m_cursor.message(text("[Thread Error] GetBuffer 瞬态错误, hr =%1，跳过")
                                         .arg(hex(buffer.result)));
                else
                    m_cursor.call(FakeCall::ReleaseBuffer);
            }
        }
    }

    Cursor &m_cursor;
    Replay &m_replay;
};

// --- the controller ----------------------------------------------------------------------------

/// What comes between the starts: restarts, waits and falls back, over all threads.
class ControllerReplay {
public:
    explicit ControllerReplay(Replay &replay)
        : m_replay(replay)
    {
    }

    void take(const FakeCallRecord &entry)
    {
        const bool begins = entry.call == FakeCall::GetService || entry.call == FakeCall::Start;
        if (begins && entry.result == AUDCLNT_E_DEVICE_INVALIDATED)
            m_errorOnItsWay = true;
        if (entry.call != FakeCall::Message)
            return;
        const auto is = [&](const char *start) { return entry.text.startsWith(text(start)); };
        if (is("[handleThreadStopped] 检测到线程停止，需要自动重启")) {
            ++m_replay.stopsAnswered;
            m_armedByStop.append(entry.atMs);
        } else if (is("[handleThreadStopped] 线程停止（不需要自动重启）")) {
            ++m_replay.stopsPassedOver;
        } else if (is("[handleThreadStopped] 正在执行自动重启")) {
            ++m_replay.restarts;
            fire(m_armedByStop, entry);
        } else if (is("[handleThreadStopped] 自动重启已取消")) {
            fire(m_armedByStop, entry);
        } else if (is("[设备状态] 设备恢复活动状态")) {
            m_armedByReturn.append(entry.atMs);
        } else if (is("[设备状态] 正在重启采集") || is("[设备状态] 当前设备已变更")) {
            fire(m_armedByReturn, entry);
        } else if (is("[startCapture] 等待旧线程停止")) {
            m_waits[entry.thread] = entry.atMs;
        } else if (is("[startCapture] 线程停止超时")) {
            atLeast(least(3000, true), m_waits.value(entry.thread), entry);
        } else if (is("[startCapture] 旧线程已停止")) {
            m_waits.remove(entry.thread);
        } else if (is("[Step 1] ")) {
            m_errorOnItsWay = false; // this start has taken that session over
            m_inSteps.insert(entry.thread);
        } else if (is("[Step 6] ")) {
            m_inSteps.remove(entry.thread);
        } else if (is("引擎启动失败") && !m_inSteps.remove(entry.thread)) {
            // The worker's error; while a start waits on this thread, it is only reported.
            if (m_errorOnItsWay && !m_waits.contains(entry.thread)
                && entry.text.endsWith(hex(AUDCLNT_E_DEVICE_INVALIDATED)))
                ++m_replay.fallbacks;
            m_errorOnItsWay = false;
        }
    }

private:
    void atLeast(qint64 ms, qint64 sinceMs, const FakeCallRecord &entry)
    {
        if (entry.atMs - sinceMs < ms)
            m_replay.complaints.append(
                QStringLiteral("\"%1\" after %2 ms").arg(entry.text).arg(entry.atMs - sinceMs));
    }
    /// Timers of one length fire in the order in which they were armed.
    void fire(QList<qint64> &armed, const FakeCallRecord &entry)
    {
        if (armed.isEmpty())
            m_replay.complaints.append(QStringLiteral("\"%1\" was not armed").arg(entry.text));
        else
            atLeast(least(500), armed.takeFirst(), entry);
    }

    Replay &m_replay;
    QList<qint64> m_armedByStop;
    QList<qint64> m_armedByReturn;
    QHash<Qt::HANDLE, qint64> m_waits; ///< by thread: since when it waits for an old session
    QSet<Qt::HANDLE> m_inSteps; ///< threads that are in Steps 1 to 6
    bool m_errorOnItsWay = false; ///< a worker found its device invalidated when it began
};

} // namespace

Replay replay(const QList<FakeCallRecord> &timeline, const QHash<QString, QString> &endpoints)
{
    Replay result;
    QHash<Qt::HANDLE, QList<FakeCallRecord>> threads;
    ControllerReplay controller(result);
    int position = 0;
    for (const FakeCallRecord &entry : timeline) {
        QList<FakeCallRecord> &entries = threads[entry.thread];
        entries.append(entry);
        entries.last().position = position++;
        controller.take(entry);
    }

    int lastStart = -1;
    for (const QList<FakeCallRecord> &entries : std::as_const(threads)) {
        Cursor cursor(entries, result.complaints);
        while (!cursor.atEnd() && !cursor.isBroken()) {
            if (cursor.nextIsMessage(text("[Step 1] "))) {
                // Starts may be spread over threads: the last one counts.
                const Replay before = result;
                const int start = cursor.peek().position;
                StartReplay(cursor, result, endpoints).run();
                if (start < lastStart) {
                    result.lastStartSucceeded = before.lastStartSucceeded;
                    result.lastDevice = before.lastDevice;
                    result.lastRecovered = before.lastRecovered;
                } else {
                    lastStart = start;
                }
            } else if (cursor.nextIsCall(FakeCall::GetService)) {
                cursor.mayEnd(); // the worker's thread goes on
                SessionReplay(cursor, result).run();
            } else if (cursor.nextIsMessage(text("[Step "))) {
                cursor.complain(QStringLiteral("a step outside of a start"));
            } else {
                result.failures += cursor.nextIsMessage(text("引擎启动失败")) ? 1 : 0;
                cursor.take();
            }
        }
    }
    return result;
}
