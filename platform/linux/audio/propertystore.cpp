#include "platform/linux/audio/propertystore.h"

#include "platform/linux/audio/taskstring.h"

#include <functiondiscoverykeys_devpkey.h>

PropertyStore::PropertyStore(std::wstring friendlyName, std::wstring description)
    : ComObject(IID_IPropertyStore)
    , m_friendlyName(std::move(friendlyName))
    , m_description(std::move(description))
{
}

HRESULT PropertyStore::GetCount(DWORD *count)
{
    if (!count)
        return E_POINTER;
    *count = 2;
    return S_OK;
}

HRESULT PropertyStore::GetAt(DWORD index, PROPERTYKEY *key)
{
    if (!key)
        return E_POINTER;
    if (index > 1)
        return E_INVALIDARG;
    *key = index == 0 ? PKEY_Device_FriendlyName : PKEY_Device_DeviceDesc;
    return S_OK;
}

HRESULT PropertyStore::GetValue(REFPROPERTYKEY key, PROPVARIANT *value)
{
    if (!value)
        return E_POINTER;
    PropVariantInit(value);
    const bool name = key == PKEY_Device_FriendlyName;
    if (!name && !(key == PKEY_Device_DeviceDesc))
        return S_OK;
    value->pwszVal = copyToTaskMemory(name ? m_friendlyName : m_description);
    if (!value->pwszVal)
        return E_OUTOFMEMORY;
    value->vt = VT_LPWSTR;
    return S_OK;
}

HRESULT PropertyStore::SetValue(REFPROPERTYKEY, REFPROPVARIANT)
{
    return STG_E_ACCESSDENIED;
}

HRESULT PropertyStore::Commit()
{
    return STG_E_ACCESSDENIED;
}
