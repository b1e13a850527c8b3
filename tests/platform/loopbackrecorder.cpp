#include "tests/platform/loopbackrecorder.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <objbase.h>
#include <QDeadlineTimer>
#include <QThread>

HRESULT LoopbackRecorder::open(IMMDeviceEnumerator *enumerator, const QString &id)
{
    close();
    IMMDevice *device = nullptr;
    HRESULT hr = enumerator->GetDevice(id.toStdWString().c_str(), &device);
    if (FAILED(hr))
        return hr;
    hr = device->Activate(IID_IAudioClient, CLSCTX_INPROC_SERVER, nullptr,
                          reinterpret_cast<void **>(&m_client));
    device->Release();
    if (FAILED(hr))
        return hr;
    WAVEFORMATEX *format = nullptr;
    hr = m_client->GetMixFormat(&format);
    if (FAILED(hr))
        return hr;
    std::memcpy(&m_format, format, sizeof m_format);
    CoTaskMemFree(format);
    hr = m_client->Initialize(AUDCLNT_SHAREMODE_SHARED, AUDCLNT_STREAMFLAGS_LOOPBACK, 10000000, 0,
                              &m_format.Format, nullptr);
    if (FAILED(hr))
        return hr;
    return m_client->GetService(IID_IAudioCaptureClient, reinterpret_cast<void **>(&m_capture));
}

void LoopbackRecorder::close()
{
    if (m_capture)
        m_capture->Release();
    m_capture = nullptr;
    if (m_client)
        m_client->Release();
    m_client = nullptr;
    m_samples.clear();
    m_discontinuities = 0;
}

HRESULT LoopbackRecorder::record(int milliseconds)
{
    for (const QDeadlineTimer deadline(milliseconds); !deadline.hasExpired();) {
        UINT32 waiting = 0;
        HRESULT hr = m_capture->GetNextPacketSize(&waiting);
        if (FAILED(hr))
            return hr;
        if (!waiting) {
            QThread::msleep(2);
            continue;
        }
        BYTE *data = nullptr;
        UINT32 frames = 0;
        DWORD flags = 0;
        hr = m_capture->GetBuffer(&data, &frames, &flags, nullptr, nullptr);
        if (FAILED(hr))
            return hr;
        const auto *const samples = reinterpret_cast<const float *>(data);
        m_samples.insert(m_samples.end(), samples,
                         samples + static_cast<std::size_t>(frames) * channels());
        m_discontinuities += (flags & AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY) != 0;
        hr = m_capture->ReleaseBuffer(frames);
        if (FAILED(hr))
            return hr;
    }
    return S_OK;
}

HRESULT LoopbackRecorder::waitForSound()
{
    HRESULT hr = S_OK;
    for (const QDeadlineTimer deadline(10000); SUCCEEDED(hr) && !frames();) {
        if (deadline.hasExpired())
            return E_FAIL;
        hr = record(10);
    }
    forget();
    return hr;
}

double LoopbackRecorder::amplitude(int channel, double frequency) const
{
    // One bin of the Fourier transform under a Hann window, which lets any frequency pass whole
    // and keeps others out.
    const int count = frames();
    double real = 0;
    double imaginary = 0;
    double sum = 0;
    for (int i = 0; i < count; ++i) {
        const double window = 0.5 - 0.5 * std::cos(2 * M_PI * (i + 0.5) / count);
        const double sample = static_cast<double>(
            m_samples[static_cast<std::size_t>(i) * static_cast<std::size_t>(channels())
                      + static_cast<std::size_t>(channel)]);
        const double angle = 2 * M_PI * frequency * i / rate();
        real += window * sample * std::cos(angle);
        imaginary -= window * sample * std::sin(angle);
        sum += window;
    }
    return count ? 2 * std::hypot(real, imaginary) / sum : 0;
}

double LoopbackRecorder::peak(int channel) const
{
    double result = 0;
    for (std::size_t i = static_cast<std::size_t>(channel); i < m_samples.size();
         i += static_cast<std::size_t>(channels()))
        result = std::max(result, std::fabs(static_cast<double>(m_samples[i])));
    return result;
}
