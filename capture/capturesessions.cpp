#include "capture/capturesessions.h"

#include <QMutexLocker>

CaptureSessions::CaptureSessions(std::atomic<qint32> &running)
    : m_running(running)
{
}

CaptureSessions::~CaptureSessions()
{
    for (IAudioClient *client : std::as_const(m_clients))
        client->Release();
}

void CaptureSessions::queue(IAudioClient *client)
{
    client->AddRef();
    const QMutexLocker lock(&m_mutex);
    m_clients.enqueue(client);
    ++m_queued;
}

void CaptureSessions::retire()
{
    const QMutexLocker lock(&m_mutex);
    m_retired.store(m_queued);
}

void CaptureSessions::supersede()
{
    const QMutexLocker lock(&m_mutex);
    m_superseded = m_queued;
    m_retired.store(m_queued);
}

bool CaptureSessions::nextIsSuperseded() const
{
    const QMutexLocker lock(&m_mutex);
    return m_stopsArrived + 1 <= m_superseded;
}

bool CaptureSessions::stopArrived()
{
    const QMutexLocker lock(&m_mutex);
    ++m_stopsArrived;
    return m_stopsArrived <= m_superseded;
}

void CaptureSessions::leaveBehind()
{
    const QMutexLocker lock(&m_mutex);
    m_clients.clear();
}

bool CaptureSessions::begin()
{
    ++m_begun;
    return !isRetired();
}

void CaptureSessions::setRunning()
{
    m_running.store(1);
    if (isRetired())
        m_running.store(0);
}

void CaptureSessions::leaveLoop()
{
    if (isRetired())
        m_running.store(0);
}

void CaptureSessions::end()
{
    IAudioClient *client = nullptr;
    {
        const QMutexLocker lock(&m_mutex);
        if (!m_clients.isEmpty())
            client = m_clients.dequeue();
    }
    if (client)
        client->Release();
}
