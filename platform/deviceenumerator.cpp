#include "platform/deviceenumerator.h"

#include <atomic>
#include <objbase.h>

namespace {

std::atomic<DeviceEnumeratorFactory> s_factory {nullptr};

} // namespace

HRESULT createDeviceEnumerator(IMMDeviceEnumerator **enumerator)
{
    *enumerator = nullptr;
    if (const DeviceEnumeratorFactory factory = s_factory.load())
        return factory(enumerator);
    return CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_INPROC_SERVER,
                            IID_IMMDeviceEnumerator, reinterpret_cast<void **>(enumerator));
}

DeviceEnumeratorFactory setDeviceEnumeratorFactory(DeviceEnumeratorFactory factory)
{
    return s_factory.exchange(factory);
}
