// The controller of loopback capture: which device, when, and what happens when it fails.
#pragma once

#include "capture/captureaudiothread.h"
#include "capture/deviceentry.h"
#include "platform/patientmutex.h"

#include <atomic>
#include <audioclient.h>
#include <mmdeviceapi.h>
#include <QByteArray>
#include <QList>
#include <QMutex>
#include <QObject>
#include <QString>

/// Owns the COM objects of one capture session and the worker that drains it, keeps the catalogue
/// of render endpoints, and is itself the audio system's notification client. A session is one run
/// of the worker (capturesessions.h).
///
/// Life: constructed in the thread that becomes "the controller's thread" (the GUI thread);
/// registered for notifications from the end of the constructor to the first step of the
/// destructor. UnregisterEndpointNotificationCallback returns when no callback runs any more.
///
/// Threads: startCapture, stopCapture, setCurrentDevice, flushDevices, devices and isCapturing may
/// be called on any thread; the notification callbacks do so on the audio system's threads.
/// m_mutex, recursive, makes these calls exclusive; it is held during Steps 1 to 6 of a start, so a
/// caller may wait for seconds. handleThreadStopped and the timers of the restarts run in the
/// controller's thread. A start waits for the old session, and handles its own failure
/// (handleStartError), on the thread that starts.
///
/// Overlapping starts. Before Step 1, while the running start waits for the old session or pauses
/// after its end, another start returns at once (m_starting); so does one from within the start
/// itself, on its own thread. From Step 1 on the running start holds m_mutex to its end: a start on
/// another thread waits for it and then starts again. No choice is lost by that: before Step 1 the
/// running start has not looked at the wanted device yet, and after it the later start does.
class AudioCapture : public QObject, public IMMNotificationClient {
    Q_OBJECT

public:
    /// Sets up COM on this thread, the enumerator, the notifications and the catalogue. When there
    /// is no enumerator the object stays without them, and every start fails.
    explicit AudioCapture(QObject *parent = nullptr);
    ~AudioCapture() override;

    /// Brings a capture session up on the wanted device, ending the old one. Blocks for up to some
    /// seconds; a failure is reported (handleStartError), never thrown. Emits formatChanged before
    /// the first notifyData of the session.
    Q_INVOKABLE void startCapture();
    /// Ends the session and calls off the restarts that answer a session's end. The restart that a
    /// returning device has armed comes all the same. Returns at once.
    Q_INVOKABLE void stopCapture();

    /// Chooses the device by display text, "默认输出设备" to follow the default, and restarts.
    void setCurrentDevice(const QString &name);
    /// Display text of the wanted device.
    QString currentDevice() const;
    /// Whether the worker's run flag is set.
    bool isCapturing() const;

    /// Turns a failed start (negative hr) into one error report per process, and an invalidated
    /// device that the worker found into a restart on the default device, unless a newer start has
    /// taken that session over.
    void handleStartError(HRESULT hr);
    /// Answers the end of a session: restarts after 500 ms while capture is wanted.
    void handleThreadStopped();

    /// Rebuilds the catalogue.
    void flushDevices();
    /// The catalogue: "默认输出设备" first, then the active render endpoints in the system's order.
    QList<DeviceEntry> devices() const;
    /// First entry with exactly this display text, or null. The caller holds m_mutex, or knows that
    /// no other thread rebuilds the catalogue while it uses the entry.
    const DeviceEntry *findDevice(const QString &name) const;
    /// endpointName() by the controller's enumerator.
    QString getDeviceName(LPCWSTR id);
    /// openDefaultEndpoint().
    static HRESULT getDefaultRenderDevice(IMMDevice **out);

    /// Switches the capture diagnostic log of the process.
    static void setDiagnosticLogEnabled(bool enabled);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void **ppv) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR id, DWORD newState) override;
    HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR id) override;
    HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR id) override;
    HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow flow, ERole role,
                                                     LPCWSTR id) override;
    HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR id, const PROPERTYKEY key) override;

Q_SIGNALS:
    /// Converted packets, relayed from the worker in the controller's thread.
    void notifyData(const QByteArray &data);
    /// The format of the data that follows: 16-bit stereo PCM at the device's rate. Emitted on the
    /// thread that starts capture.
    void formatChanged(WAVEFORMATEX fromat);
    void deviceChanged(const QString &newDevice);

private:
    /// The wanted device and whether capture runs, looked at together.
    struct InUse {
        QString device; ///< display text
        bool running;
    };
    InUse inUse() const;
    QString followTarget(const QString &newDefault);
    void restartAfterStop();
    void restartAfterDeviceReturn(const QString &armedFor);

    void waitForOldSession();
    void releaseOldSession();
    HRESULT bringUpSession();
    HRESULT chooseDevice();
    HRESULT initializeClient();
    HRESULT recoverOnDefaultDevice();
    void announceFormat();
    void startWorker(int blockAlign);

    LONG m_refCount = 1;
    mutable PatientMutex m_mutex;
    IMMDevice *pDevice = nullptr;
    IMMDeviceEnumerator *pOutputEnumerator = nullptr;
    IAudioClient *pAudioClient = nullptr;
    WAVEFORMATEX *pwfx = nullptr;
    QList<DeviceEntry> m_deviceList;
    QString m_currentDevice;
    CaptureAudioThread m_captureThread;
    bool m_autoRestart = false;
    mutable QMutex m_pendingMutex; ///< guards m_pendingDeviceId alone, never held for long
    QString m_pendingDeviceId;
    std::atomic<bool> m_ready {false};
    bool m_starting = false;
};

Q_DECLARE_METATYPE(WAVEFORMATEX)
