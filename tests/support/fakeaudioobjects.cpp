#include "tests/support/fakeaudioobjects.h"

#include "tests/support/taskmemory.h"

#include <cstring>
#include <functiondiscoverykeys_devpkey.h>
#include <objbase.h>

namespace {

/// Nobody may touch what a failed call left behind.
template <typename T> T *junkPointer()
{
    return reinterpret_cast<T *>(static_cast<quintptr>(0x10));
}

LPWSTR taskString(const QString &text, const FakeAudio *world)
{
    const auto size = static_cast<size_t>(text.size() + 1) * sizeof(wchar_t);
    auto *memory = static_cast<wchar_t *>(taskAlloc(size, world));
    const int length = text.toWCharArray(memory);
    memory[length] = L'\0';
    return memory;
}

const auto kNothing = [] {};

} // namespace

FakeObject::FakeObject(FakeAudio *world, const char *kind)
    : m_world(world)
    , m_kind(kind)
{
    m_world->adopt(this);
}

ULONG FakeObject::retain()
{
    const int count = m_references.fetch_add(1) + 1;
    if (count < 2)
        m_world->violate(QStringLiteral("AddRef on a released %1").arg(QLatin1String(m_kind)));
    return static_cast<ULONG>(count);
}

ULONG FakeObject::drop()
{
    const int count = m_references.fetch_sub(1) - 1;
    if (count < 0)
        m_world->violate(QStringLiteral("%1 released too often").arg(QLatin1String(m_kind)));
    return static_cast<ULONG>(count);
}

// --- enumerator ------------------------------------------------------------------------------

FakeEnumerator::FakeEnumerator(FakeAudio *world)
    : FakeCom(world, "enumerator")
{
}

HRESULT FakeEnumerator::EnumAudioEndpoints(EDataFlow flow, DWORD stateMask,
                                           IMMDeviceCollection **devices)
{
    FakeCallRecord record;
    record.call = FakeCall::EnumAudioEndpoints;
    return run(
        record,
        [&] {
            QStringList ids;
            {
                const std::lock_guard<std::mutex> lock(m_world->m_mutex);
                for (const FakeEndpoint &endpoint : std::as_const(m_world->m_endpoints)) {
                    if (endpoint.present && (flow == eAll || endpoint.flow == flow)
                        && (endpoint.state & stateMask)) {
                        ids.append(endpoint.id);
                    }
                }
            }
            *devices = new FakeCollection(m_world, ids);
            return S_OK;
        },
        [&] { *devices = nullptr; }, [&] { *devices = junkPointer<FakeCollection>(); });
}

HRESULT FakeEnumerator::GetDefaultAudioEndpoint(EDataFlow flow, ERole role, IMMDevice **device)
{
    FakeCallRecord record;
    record.call = FakeCall::GetDefaultAudioEndpoint;
    record.argument = role;
    return run(
        record,
        [&] {
            QString id;
            {
                const std::lock_guard<std::mutex> lock(m_world->m_mutex);
                const QString wanted = flow == eRender ? m_world->m_defaults[role] : QString();
                if (const FakeEndpoint *endpoint = m_world->find(wanted)) {
                    if (endpoint->present)
                        id = wanted;
                }
            }
            *device = id.isEmpty() ? nullptr : new FakeDevice(m_world, id);
            return id.isEmpty() ? E_NOTFOUND : S_OK;
        },
        [&] { *device = nullptr; }, [&] { *device = junkPointer<FakeDevice>(); });
}

HRESULT FakeEnumerator::GetDevice(LPCWSTR id, IMMDevice **device)
{
    FakeCallRecord record;
    record.call = FakeCall::GetDevice;
    record.device = QString::fromWCharArray(id);
    return run(
        record,
        [&] {
            bool present = false;
            {
                const std::lock_guard<std::mutex> lock(m_world->m_mutex);
                const FakeEndpoint *endpoint = m_world->find(record.device);
                present = endpoint && endpoint->present;
            }
            *device = present ? new FakeDevice(m_world, record.device) : nullptr;
            return present ? S_OK : E_NOTFOUND;
        },
        [&] { *device = nullptr; }, [&] { *device = junkPointer<FakeDevice>(); });
}

HRESULT FakeEnumerator::RegisterEndpointNotificationCallback(IMMNotificationClient *client)
{
    FakeCallRecord record;
    record.call = FakeCall::Register;
    return run(
        record,
        [&] {
            client->AddRef();
            const std::lock_guard<std::mutex> lock(m_world->m_mutex);
            m_world->m_registered.append(client);
            return S_OK;
        },
        kNothing, kNothing);
}

HRESULT FakeEnumerator::UnregisterEndpointNotificationCallback(IMMNotificationClient *client)
{
    FakeCallRecord record;
    record.call = FakeCall::Unregister;
    // A fault changes what is returned and nothing else: a client that is going away cannot be
    // kept.
    const auto unregister = [&] {
        std::unique_lock<std::mutex> lock(m_world->m_mutex);
        const bool known = m_world->m_registered.removeOne(client);
        waitFor(m_world->m_callbackEnded, &lock,
                [&] { return !m_world->m_inCallback.contains(client); });
        lock.unlock();
        if (known)
            client->Release();
        return known ? S_OK : E_NOTFOUND;
    };
    return run(record, unregister, unregister, unregister);
}

// --- collection ------------------------------------------------------------------------------

FakeCollection::FakeCollection(FakeAudio *world, const QStringList &ids)
    : FakeCom(world, "collection")
    , m_ids(ids)
{
}

HRESULT FakeCollection::GetCount(UINT *count)
{
    FakeCallRecord record;
    record.call = FakeCall::CollectionGetCount;
    return run(
        record,
        [&] {
            *count = static_cast<UINT>(m_ids.size());
            return S_OK;
        },
        [&] { *count = 0; }, [&] { *count = 0xFFFFFFFFU; });
}

HRESULT FakeCollection::Item(UINT index, IMMDevice **device)
{
    FakeCallRecord record;
    record.call = FakeCall::CollectionItem;
    return run(
        record,
        [&] {
            const bool there = index < static_cast<UINT>(m_ids.size());
            *device = there ? new FakeDevice(m_world, m_ids.at(static_cast<int>(index))) : nullptr;
            return there ? S_OK : E_INVALIDARG;
        },
        [&] { *device = nullptr; }, [&] { *device = junkPointer<FakeDevice>(); });
}

// --- device ----------------------------------------------------------------------------------

FakeDevice::FakeDevice(FakeAudio *world, const QString &id)
    : FakeCom(world, "device")
    , m_id(id)
{
}

HRESULT FakeDevice::Activate(REFIID iid, DWORD context, PROPVARIANT *, void **object)
{
    FakeCallRecord record;
    record.call = FakeCall::Activate;
    record.device = m_id;
    record.argument = context;
    return run(
        record,
        [&] {
            *object = nullptr;
            if (iid != IID_IAudioClient)
                return E_NOINTERFACE;
            int number = 0;
            {
                const std::lock_guard<std::mutex> lock(m_world->m_mutex);
                const FakeEndpoint *endpoint = m_world->find(m_id);
                if (!endpoint || !endpoint->present)
                    return AUDCLNT_E_DEVICE_INVALIDATED;
                number = ++m_world->m_clients;
            }
            *object = static_cast<IAudioClient *>(new FakeAudioClient(m_world, m_id, number));
            return S_OK;
        },
        [&] { *object = nullptr; }, [&] { *object = junkPointer<void>(); });
}

HRESULT FakeDevice::OpenPropertyStore(DWORD, IPropertyStore **store)
{
    FakeCallRecord record;
    record.call = FakeCall::OpenPropertyStore;
    record.device = m_id;
    return run(
        record,
        [&] {
            *store = new FakePropertyStore(m_world, m_id);
            return S_OK;
        },
        [&] { *store = nullptr; }, [&] { *store = junkPointer<FakePropertyStore>(); });
}

HRESULT FakeDevice::GetId(LPWSTR *id)
{
    FakeCallRecord record;
    record.call = FakeCall::GetId;
    record.device = m_id;
    return run(
        record,
        [&] {
            *id = taskString(m_id, m_world);
            return S_OK;
        },
        [&] { *id = nullptr; }, [&] { *id = junkPointer<WCHAR>(); });
}

HRESULT FakeDevice::GetState(DWORD *state)
{
    FakeCallRecord record;
    record.call = FakeCall::GetState;
    record.device = m_id;
    return run(
        record,
        [&] {
            const std::lock_guard<std::mutex> lock(m_world->m_mutex);
            const FakeEndpoint *endpoint = m_world->find(m_id);
            *state = endpoint && endpoint->present ? endpoint->state : DEVICE_STATE_NOTPRESENT;
            return S_OK;
        },
        [&] { *state = 0; }, [&] { *state = 0xFFFFFFFFU; });
}

// --- property store --------------------------------------------------------------------------

FakePropertyStore::FakePropertyStore(FakeAudio *world, const QString &id)
    : FakeCom(world, "property store")
    , m_id(id)
{
}

HRESULT FakePropertyStore::GetValue(REFPROPERTYKEY key, PROPVARIANT *value)
{
    FakeCallRecord record;
    record.call = FakeCall::GetValue;
    record.device = m_id;
    return run(
        record,
        [&] {
            QString name;
            {
                const std::lock_guard<std::mutex> lock(m_world->m_mutex);
                if (const FakeEndpoint *endpoint = m_world->find(m_id))
                    name = endpoint->name;
            }
            const bool known =
                key.pid == PKEY_Device_FriendlyName.pid || key.pid == PKEY_Device_DeviceDesc.pid;
            value->vt = VT_EMPTY;
            if (known) {
                value->vt = VT_LPWSTR;
                value->pwszVal = taskString(name, m_world);
            }
            return S_OK;
        },
        kNothing, kNothing);
}

HRESULT FakePropertyStore::GetCount(DWORD *count)
{
    *count = 2;
    return S_OK;
}

HRESULT FakePropertyStore::GetAt(DWORD, PROPERTYKEY *)
{
    return E_NOTIMPL;
}

HRESULT FakePropertyStore::SetValue(REFPROPERTYKEY, REFPROPVARIANT)
{
    return E_ACCESSDENIED;
}

HRESULT FakePropertyStore::Commit()
{
    return E_ACCESSDENIED;
}
