// Records an endpoint through the audio API, as a program would.
#pragma once

#include <audioclient.h>
#include <mmdeviceapi.h>
#include <QString>
#include <vector>

/// For one thread. Releases everything that it holds.
class LoopbackRecorder {
public:
    LoopbackRecorder() = default;
    ~LoopbackRecorder() { close(); }
    LoopbackRecorder(const LoopbackRecorder &) = delete;
    LoopbackRecorder &operator=(const LoopbackRecorder &) = delete;

    /// Activates, initialises with a buffer of a second and gets the service; not started.
    HRESULT open(IMMDeviceEnumerator *enumerator, const QString &id);
    void close();

    /// Reads what comes for that time; ends early with the code of the first call that fails.
    HRESULT record(int milliseconds);

    /// record() until a packet has come or ten seconds have passed; forgets what came.
    HRESULT waitForSound();

    void forget() { m_samples.clear(); }
    int frames() const { return static_cast<int>(m_samples.size()) / channels(); }
    int channels() const { return m_format.Format.nChannels; }
    int rate() const { return static_cast<int>(m_format.Format.nSamplesPerSec); }
    DWORD mask() const { return m_format.dwChannelMask; }

    /// The amplitude of that frequency in what was recorded of a channel.
    double amplitude(int channel, double frequency) const;

    /// The largest absolute sample of a channel.
    double peak(int channel) const;

    IAudioClient *client() const { return m_client; }
    IAudioCaptureClient *capture() const { return m_capture; }
    const WAVEFORMATEX *format() const { return &m_format.Format; }
    int discontinuities() const { return m_discontinuities; }

private:
    IAudioClient *m_client = nullptr;
    IAudioCaptureClient *m_capture = nullptr;
    WAVEFORMATEXTENSIBLE m_format {};
    std::vector<float> m_samples;
    int m_discontinuities = 0;
};
