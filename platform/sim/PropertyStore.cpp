#include "platform/sim/ComObject.h"
#include "platform/sim/DeviceObjects.h"
#include "platform/sim/EndpointProperties.h"
#include "platform/sim/Notifier.h"
#include "platform/sim/Runtime.h"

#include <optional>

namespace sim {

namespace {

HRESULT toVariant(const model::PropertyValue& value, PROPVARIANT* pv) {
    switch (value.type) {
    case model::PropertyValue::Type::String:
        pv->pwszVal = taskString(value.text);
        pv->vt = VT_LPWSTR;
        return pv->pwszVal ? S_OK : E_OUTOFMEMORY;
    case model::PropertyValue::Type::UInt32:
        pv->ulVal = value.number;
        pv->vt = VT_UI4;
        return S_OK;
    case model::PropertyValue::Type::Blob:
        pv->blob.cbSize = ULONG(value.blob.size());
        pv->blob.pBlobData = static_cast<BYTE*>(CoTaskMemAlloc(value.blob.size()));
        if (!pv->blob.pBlobData) {
            return E_OUTOFMEMORY;
        }
        std::copy(value.blob.begin(), value.blob.end(), pv->blob.pBlobData);
        pv->vt = VT_BLOB;
        return S_OK;
    }
    return E_UNEXPECTED;
}

std::optional<model::PropertyValue> fromVariant(const PROPVARIANT& pv) {
    model::PropertyValue value;
    if (pv.vt == VT_LPWSTR && pv.pwszVal) {
        std::u16string wide(pv.pwszVal);
        for (char16_t c : wide) { // property texts written by the library are ASCII
            value.text += c < 0x80 ? char(c) : '?';
        }
        return value;
    }
    if (pv.vt == VT_UI4) {
        value.type = model::PropertyValue::Type::UInt32;
        value.number = pv.ulVal;
        return value;
    }
    if (pv.vt == VT_BLOB && (pv.blob.pBlobData || pv.blob.cbSize == 0)) {
        value.type = model::PropertyValue::Type::Blob;
        value.blob.assign(pv.blob.pBlobData, pv.blob.pBlobData + pv.blob.cbSize);
        return value;
    }
    return std::nullopt;
}

class PropertyStore final : public ComObject<PropertyStore, IPropertyStore> {
public:
    // An endpoint's store, or an adapter device's when `adapter`.
    PropertyStore(std::string id, DWORD mode, bool adapter)
        : m_id(std::move(id)), m_mode(mode), m_adapter(adapter) {}

    HRESULT STDMETHODCALLTYPE GetCount(DWORD* count) override {
        if (!count) {
            return E_POINTER;
        }
        std::optional<PropertyMap> all = properties();
        *count = all ? DWORD(all->size()) : 0;
        return all ? S_OK : DEVICE_INVALIDATED;
    }

    HRESULT STDMETHODCALLTYPE GetAt(DWORD index, PROPERTYKEY* key) override {
        if (!key) {
            return E_POINTER;
        }
        std::optional<PropertyMap> all = properties();
        if (!all) {
            return DEVICE_INVALIDATED;
        }
        if (index >= all->size()) {
            return E_INVALIDARG;
        }
        *key = toPlatformKey(std::next(all->begin(), index)->first);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetValue(REFPROPERTYKEY key, PROPVARIANT* pv) override {
        if (!pv) {
            return E_POINTER;
        }
        PropVariantInit(pv);
        if (m_mode == STGM_WRITE) {
            return ACCESS_DENIED;
        }
        if (HRESULT fault = keyFault("GetValue", key)) {
            return fault;
        }
        std::optional<PropertyMap> all = properties();
        if (!all) {
            return DEVICE_INVALIDATED;
        }
        auto found = all->find(toModelKey(key));
        // A key the store does not hold reads as an empty value, not as a failure.
        return found == all->end() ? S_OK : toVariant(found->second, pv);
    }

    HRESULT STDMETHODCALLTYPE SetValue(REFPROPERTYKEY key, REFPROPVARIANT pv) override {
        if (m_mode == STGM_READ) {
            return ACCESS_DENIED;
        }
        if (HRESULT fault = keyFault("SetValue", key)) {
            return fault;
        }
        if (m_adapter) {
            return ACCESS_DENIED; // device properties belong to the driver's installation
        }
        std::optional<model::PropertyValue> value = fromVariant(pv);
        if (!value) {
            return E_INVALIDARG;
        }
        bool stored = false;
        withMachine([&](model::Machine& m) {
            if (model::Endpoint* e = m.findEndpoint(m_id)) {
                e->propertyOverrides[toModelKey(key)] = *value;
                stored = true;
            }
        });
        if (!stored) {
            return DEVICE_INVALIDATED;
        }
        notifyEndpointClients([id = m_id, key](IMMNotificationClient* client) {
            std::u16string wide = toUtf16(id);
            client->OnPropertyValueChanged(wide.c_str(), key);
        });
        return S_OK;
    }

    // Values are written through at once; there is nothing left to commit.
    HRESULT STDMETHODCALLTYPE Commit() override {
        return m_mode == STGM_READ ? ACCESS_DENIED : injectedFault("Commit", m_id);
    }

private:
    HRESULT keyFault(const char* operation, const PROPERTYKEY& key) const {
        HRESULT fault = injectedFault(operation, m_id + "|" + keyText(key));
        return fault ? fault : injectedFault(operation, m_id);
    }

    std::optional<PropertyMap> properties() const {
        std::optional<PropertyMap> all;
        withMachine([&](model::Machine& m) {
            if (m_adapter) {
                if (m.findDevice(m_id)) {
                    all = adapterDeviceProperties(m, m_id);
                }
            } else if (const model::Endpoint* e = m.findEndpoint(m_id)) {
                all = endpointProperties(m, *e);
            }
        });
        return all;
    }

    const std::string m_id;
    const DWORD m_mode;
    const bool m_adapter;
};

} // namespace

IPropertyStore* createPropertyStore(const std::string& endpointId, DWORD mode) {
    return PropertyStore::create(endpointId, mode, false);
}

IPropertyStore* createAdapterPropertyStore(const std::string& deviceId, DWORD mode) {
    return PropertyStore::create(deviceId, mode, true);
}

} // namespace sim
