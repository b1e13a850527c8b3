#include "platform/linux/audio/endpointnotifier.h"

#include "platform/timesource.h"

#include <algorithm>
#include <csignal>
#include <functiondiscoverykeys_devpkey.h>
#include <pthread.h>
#include <system_error>

namespace {

// The notifier that is calling a client on this thread.
thread_local const EndpointNotifier *t_calling = nullptr;

// How long the first role's listener may take before the other roles are told beside it. One that
// only notes the change returns far earlier, and no second call runs beside it. One that answers
// with a long restart still hears the others soon enough to take the three for one change: it may
// count a repeat of the id as a new change after half a second.
constexpr std::chrono::milliseconds kRoleDelay {50};

// Other threads wait for the signals that are sent to the process. The signals of this thread's own
// faults stay unblocked: the crash handlers must see them.
class ProcessSignalsBlocked {
public:
    ProcessSignalsBlocked()
    {
        sigset_t blocked;
        sigfillset(&blocked);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS})
            sigdelset(&blocked, fault);
        pthread_sigmask(SIG_SETMASK, &blocked, &m_before);
    }
    ~ProcessSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    ProcessSignalsBlocked(const ProcessSignalsBlocked &) = delete;
    ProcessSignalsBlocked &operator=(const ProcessSignalsBlocked &) = delete;

private:
    sigset_t m_before;
};

} // namespace

EndpointNotifier::EndpointNotifier(EndpointCatalogue *catalogue)
    : m_catalogue(catalogue)
{
    const ProcessSignalsBlocked blocked;
    m_thread = startThread([this] { run(); });
    pthread_setname_np(m_thread.native_handle(), "endpoint-notify");
}

EndpointNotifier::~EndpointNotifier()
{
    m_stop = true;
    m_catalogue->wakeUp();
    joinThread(m_thread);
    for (const Registration &registration : m_registrations)
        registration.client->Release();
}

void EndpointNotifier::add(const void *owner, IMMNotificationClient *client)
{
    client->AddRef();
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_registrations.push_back({++m_lastNumber, owner, client});
}

bool EndpointNotifier::remove(const void *owner, IMMNotificationClient *client)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    const auto found =
        std::find_if(m_registrations.begin(), m_registrations.end(),
                     [&](const Registration &r) { return r.owner == owner && r.client == client; });
    if (found == m_registrations.end())
        return false;
    const Registration registration = *found;
    m_registrations.erase(found);
    finishRemoval(&lock, registration);
    return true;
}

void EndpointNotifier::removeAll(const void *owner)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        const auto found = std::find_if(m_registrations.begin(), m_registrations.end(),
                                        [&](const Registration &r) { return r.owner == owner; });
        if (found == m_registrations.end())
            return;
        const Registration registration = *found;
        m_registrations.erase(found);
        finishRemoval(&lock, registration);
        lock.lock();
    }
}

void EndpointNotifier::finishRemoval(std::unique_lock<std::mutex> *lock,
                                     const Registration &registration)
{
    if (t_calling != this)
        waitFor(m_called, lock, [&] { return m_calling != registration.number; });
    lock->unlock();
    registration.client->Release();
}

void EndpointNotifier::run()
{
    std::shared_ptr<const EndpointSnapshot> snapshot = m_catalogue->snapshot();
    while (!m_stop) {
        if (const auto announcement = m_announcer.next(*snapshot, steadyNow())) {
            deliver(*announcement);
            snapshot = m_catalogue->snapshot();
            continue;
        }
        if (!m_announcer.holding())
            m_deliveredSerial = snapshot->serial;
        snapshot = m_catalogue->waitForChange(snapshot->serial, m_announcer.deadline());
    }
}

void EndpointNotifier::deliver(const EndpointAnnouncement &announcement)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    const std::vector<Registration> listeners = m_registrations;
    for (const Registration &listener : listeners) {
        const bool registered =
            std::any_of(m_registrations.begin(), m_registrations.end(),
                        [&](const Registration &r) { return r.number == listener.number; });
        if (!registered)
            continue;
        // Once its registration is over, only this reference keeps the client alive.
        listener.client->AddRef();
        m_calling = listener.number;
        lock.unlock();
        t_calling = this;
        call(listener.client, announcement);
        t_calling = nullptr;
        listener.client->Release();
        lock.lock();
        m_calling = 0;
        m_called.notify_all();
    }
}

void EndpointNotifier::call(IMMNotificationClient *client, const EndpointAnnouncement &announcement)
{
    const LPCWSTR id = announcement.id.c_str();
    switch (announcement.kind) {
    case EndpointAnnouncement::Added:
        client->OnDeviceAdded(id);
        break;
    case EndpointAnnouncement::Removed:
        client->OnDeviceRemoved(id);
        break;
    case EndpointAnnouncement::StateChanged:
        client->OnDeviceStateChanged(id, announcement.state);
        break;
    case EndpointAnnouncement::DefaultChanged:
        callForEveryRole(client, announcement.flow, id);
        break;
    case EndpointAnnouncement::NameChanged:
        client->OnPropertyValueChanged(id, PKEY_Device_FriendlyName);
        break;
    }
}

void EndpointNotifier::callForEveryRole(IMMNotificationClient *client, EDataFlow flow, LPCWSTR id)
{
    const auto tellOthers = [client, flow, id] {
        client->OnDefaultDeviceChanged(flow, eMultimedia, id);
        client->OnDefaultDeviceChanged(flow, eCommunications, id);
    };
    std::mutex mutex;
    std::condition_variable changed;
    bool consoleTold = false;
    std::thread others;
    try {
        others = startThread([&] {
            t_calling = this;
            {
                std::unique_lock<std::mutex> lock(mutex);
                waitUntil(changed, &lock, steadyNow() + kRoleDelay, [&] { return consoleTold; });
            }
            tellOthers();
        });
    } catch (const std::system_error &) {
        // The system gives no thread: the roles follow one another.
    }
    client->OnDefaultDeviceChanged(flow, eConsole, id);
    {
        const std::lock_guard<std::mutex> lock(mutex);
        consoleTold = true;
        changed.notify_all();
    }
    if (others.joinable())
        joinThread(others);
    else
        tellOthers();
}
