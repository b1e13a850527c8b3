#include "capture/capturesessions.h"

SessionClients::~SessionClients()
{
    for (IAudioClient *client : std::as_const(m_clients))
        client->Release();
}

void SessionClients::add(IAudioClient *client)
{
    client->AddRef();
    const QMutexLocker lock(&m_mutex);
    m_clients.enqueue(client);
}

void SessionClients::releaseFirst()
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
