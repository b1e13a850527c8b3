// The IUnknown half of an object that has one interface.
#pragma once

#include <atomic>
#include <unknwn.h>

/// Starts with one reference, the maker's; deletes itself with the last one. Thread-safe.
template <class Interface> class ComObject : public Interface {
public:
    ComObject(const ComObject &) = delete;
    ComObject &operator=(const ComObject &) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void **object) override
    {
        if (!object)
            return E_POINTER;
        if (riid != IID_IUnknown && riid != m_iid) {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        *object = static_cast<Interface *>(this);
        AddRef();
        return S_OK;
    }

    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }

    ULONG STDMETHODCALLTYPE Release() override
    {
        const ULONG left = --m_references;
        if (!left)
            delete this;
        return left;
    }

protected:
    explicit ComObject(REFIID iid)
        : m_iid(iid)
    {
    }
    virtual ~ComObject() = default;

private:
    const IID m_iid;
    std::atomic<ULONG> m_references {1};
};
