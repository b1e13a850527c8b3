// What the tests of the capture worker start from: a worker on a scripted client.
#pragma once

#include "platform/deviceenumerator.h"
#include "tests/capture/scene.h"
#include "tests/support/comfault.h"

#include <objbase.h>
#include <optional>

/// A worker, what it says, and initialised clients of the endpoint "Speakers".
struct Session {
    Session()
    {
        CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        scene.audio.setEndlessFrames(kIdA, 0);
        QObject::connect(worker.get(), &CaptureAudioThread::notifyData, &receiver,
                         [this](const QByteArray &data) { blocks.append(data); });
        QObject::connect(worker.get(), &CaptureAudioThread::stoped, &receiver, [this] {
            stops.append(true);
            events.append(QStringLiteral("stoped"));
        });
        QObject::connect(worker.get(), &CaptureAudioThread::error, &receiver, [this](HRESULT hr) {
            errors.append(hr);
            events.append(QStringLiteral("error"));
        });
    }
    ~Session()
    {
        worker.reset();
        for (IAudioClient *client : std::as_const(clients))
            client->Release();
    }

    IAudioClient *client()
    {
        IMMDevice *device = nullptr;
        AudioCapture::getDefaultRenderDevice(&device);
        void *made = nullptr;
        device->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr, &made);
        device->Release();
        auto *result = static_cast<IAudioClient *>(made);
        WAVEFORMATEX *mix = nullptr;
        result->GetMixFormat(&mix);
        result->Initialize(AUDCLNT_SHAREMODE_SHARED, AUDCLNT_STREAMFLAGS_LOOPBACK, 10'000'000, 0,
                           mix, nullptr);
        CoTaskMemFree(mix);
        clients.append(result);
        return result;
    }
    /// A session as the controller makes it: told to sessions(), then invoked.
    void start(IAudioClient *client, int blockAlign)
    {
        if (client)
            worker->sessions().queue(client);
        invoke(client, blockAlign);
    }
    void invoke(IAudioClient *client, int blockAlign)
    {
        ++starts;
        QVERIFY(QMetaObject::invokeMethod(worker.get(), "start", Qt::AutoConnection,
                                          Q_ARG(IAudioClient *, client), Q_ARG(int, blockAlign)));
    }
    /// Ends the session by clearing the run flag, once it runs.
    bool end()
    {
        if (!waitUntil([this] { return worker->isRunning() || !stops.isEmpty(); }))
            return false;
        worker->clearRunning();
        return waitUntil([this] { return !stops.isEmpty(); });
    }
    QByteArray block(int index)
    {
        waitUntil([this, index] { return blocks.size() > index; }, 3000);
        return blocks.value(index);
    }
    /// Ends the worker. Whatever a test was about: each start ends with one stop, and an error
    /// comes right before it.
    QStringList leftovers()
    {
        worker.reset();
        QCoreApplication::sendPostedEvents(&receiver); // what it said last
        while (!clients.isEmpty())
            clients.takeFirst()->Release();
        QStringList result = scene.leftovers();
        if (events.count(QStringLiteral("stoped")) != starts
            || events.join(QLatin1Char(' ')).contains(QLatin1String("error error"))
            || events.endsWith(QStringLiteral("error")))
            result.append(QStringLiteral("%1 starts, but: ").arg(starts)
                          + events.join(QLatin1Char(' ')));
        return result;
    }

    Scene scene;
    std::unique_ptr<CaptureAudioThread> worker = std::make_unique<CaptureAudioThread>();
    QList<IAudioClient *> clients;
    // Received in this thread, in the order of their emission.
    QObject receiver;
    QList<QByteArray> blocks;
    QList<bool> stops;
    QList<HRESULT> errors;
    QStringList events; ///< "error" and "stoped"
    int starts = 0;
};

/// Registers what crosses threads, keeps the diagnostic log for each test, and mends what failed.
class WorkerTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        qRegisterMetaType<IAudioClient *>("IAudioClient*");
        qRegisterMetaType<HRESULT>("HRESULT");
    }
    void init() { m_diagnostics.emplace(); }
    void cleanup()
    {
        m_diagnostics.reset();
        failCoInitializeEx(S_OK);
    }

private:
    std::optional<DiagnosticLog> m_diagnostics;
};
