#include "tests/platform/notificationlog.h"

#include "platform/timesource.h"

#include <algorithm>
#include <chrono>
#include <functiondiscoverykeys_devpkey.h>

namespace {

QString text(LPCWSTR id)
{
    return id ? QString::fromWCharArray(id) : QStringLiteral("(null)");
}

bool containsInOrder(const QStringList &lines, const QStringList &expected)
{
    int next = 0;
    for (const QString &line : lines) {
        if (next < expected.size() && line == expected[next])
            ++next;
    }
    return next == expected.size();
}

} // namespace

QStringList NotificationLog::lines() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

void NotificationLog::clear()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
}

bool NotificationLog::waitFor(const QStringList &expected, int milliseconds) const
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return waitUntil(m_changed, &lock, steadyNow() + std::chrono::milliseconds(milliseconds),
                     [&] { return containsInOrder(m_lines, expected); });
}

void NotificationLog::setAction(std::function<void()> action)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_action = std::move(action);
}

bool NotificationLog::heardOnOtherThreads() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return !m_threads.empty()
        && std::all_of(m_threads.begin(), m_threads.end(),
                       [&](std::thread::id id) { return id != std::this_thread::get_id(); });
}

HRESULT NotificationLog::QueryInterface(REFIID riid, void **object)
{
    if (riid != IID_IUnknown && riid != IID_IMMNotificationClient) {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    *object = static_cast<IMMNotificationClient *>(this);
    AddRef();
    return S_OK;
}

ULONG NotificationLog::AddRef()
{
    return static_cast<ULONG>(++m_references);
}

ULONG NotificationLog::Release()
{
    return static_cast<ULONG>(--m_references);
}

HRESULT NotificationLog::OnDeviceStateChanged(LPCWSTR id, DWORD state)
{
    return write(QStringLiteral("state %1 %2").arg(text(id)).arg(state));
}

HRESULT NotificationLog::OnDeviceAdded(LPCWSTR id)
{
    return write(QStringLiteral("added ") + text(id));
}

HRESULT NotificationLog::OnDeviceRemoved(LPCWSTR id)
{
    return write(QStringLiteral("removed ") + text(id));
}

HRESULT NotificationLog::OnDefaultDeviceChanged(EDataFlow flow, ERole role, LPCWSTR id)
{
    const QString roles[] {QStringLiteral("console"), QStringLiteral("multimedia"),
                           QStringLiteral("communications")};
    return write(QStringLiteral("default %1 %2 %3")
                     .arg(flow == eRender ? QStringLiteral("render") : QStringLiteral("capture"),
                          roles[role], text(id)));
}

HRESULT NotificationLog::OnPropertyValueChanged(LPCWSTR id, const PROPERTYKEY key)
{
    return write(
        (key == PKEY_Device_FriendlyName ? QStringLiteral("name ") : QStringLiteral("property "))
        + text(id));
}

QStringList NotificationLog::defaultLines(const QString &id)
{
    return {QStringLiteral("default render console ") + id,
            QStringLiteral("default render multimedia ") + id,
            QStringLiteral("default render communications ") + id};
}

HRESULT NotificationLog::write(const QString &line)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_lines << line;
    m_threads.push_back(std::this_thread::get_id());
    const std::function<void()> action = m_action;
    m_changed.notify_all();
    lock.unlock();
    if (action)
        action();
    return S_OK;
}
