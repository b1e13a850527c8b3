// IPropertyStore: the names of an endpoint.
#pragma once

#include "platform/linux/audio/comobject.h"

#include <propsys.h>
#include <string>

/// A read-only copy of the names as they were when the store was opened.
class PropertyStore final : public ComObject<IPropertyStore> {
public:
    PropertyStore(std::wstring friendlyName, std::wstring description);

    HRESULT STDMETHODCALLTYPE GetCount(DWORD *count) override;
    HRESULT STDMETHODCALLTYPE GetAt(DWORD index, PROPERTYKEY *key) override;

    /// VT_EMPTY and S_OK for a property that the store does not have.
    HRESULT STDMETHODCALLTYPE GetValue(REFPROPERTYKEY key, PROPVARIANT *value) override;
    HRESULT STDMETHODCALLTYPE SetValue(REFPROPERTYKEY key, REFPROPVARIANT value) override;
    HRESULT STDMETHODCALLTYPE Commit() override;

private:
    const std::wstring m_friendlyName;
    const std::wstring m_description;
};
