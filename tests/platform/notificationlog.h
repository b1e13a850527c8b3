// An IMMNotificationClient that writes down what it hears.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mmdeviceapi.h>
#include <mutex>
#include <QStringList>
#include <thread>
#include <vector>

/// Lines like "added a", "removed a", "state a 4", "default render console a", "name a". Counts
/// its references; the test that made it holds one. Thread-safe.
class NotificationLog final : public IMMNotificationClient {
public:
    QStringList lines() const;
    void clear();

    /// Waits until the lines hold all of these in this order, others between them allowed.
    bool waitFor(const QStringList &expected, int milliseconds = 10000) const;

    /// Called within each notification, after it was written down.
    void setAction(std::function<void()> action);

    long references() const { return m_references; }

    /// Whether there were notifications, all of them on other threads.
    bool heardOnOtherThreads() const;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void **object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR id, DWORD state) override;
    HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR id) override;
    HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR id) override;
    HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow flow, ERole role,
                                                     LPCWSTR id) override;
    HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR id, const PROPERTYKEY key) override;

    /// The three lines of a changed default output.
    static QStringList defaultLines(const QString &id);

private:
    HRESULT write(const QString &line);

    mutable std::mutex m_mutex; // guards what follows up to m_changed
    QStringList m_lines;
    std::vector<std::thread::id> m_threads;
    std::function<void()> m_action;
    mutable std::condition_variable m_changed;
    std::atomic<long> m_references {1};
};
