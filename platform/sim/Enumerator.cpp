#include "platform/sim/ComObject.h"
#include "platform/sim/DefaultEndpoints.h"
#include "platform/sim/DeviceObjects.h"
#include "platform/sim/Notifier.h"
#include "platform/sim/Runtime.h"
#include "platform/sim/TopologyAccess.h"

#include <cctype>
#include <algorithm>
#include <string_view>

namespace sim {

namespace {

const char* flowName(EDataFlow flow) {
    return flow == eRender ? "render" : flow == eCapture ? "capture" : "all";
}

bool sameId(const std::string& a, const std::string& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower((unsigned char)x) == std::tolower((unsigned char)y);
           });
}

std::string utf8(LPCWSTR text) {
    std::string out;
    for (; *text; ++text) {
        char16_t c = *text;
        if (c < 0x80) {
            out += char(c);
        } else if (c < 0x800) {
            out += char(0xC0 | (c >> 6));
            out += char(0x80 | (c & 0x3F));
        } else {
            out += char(0xE0 | (c >> 12));
            out += char(0x80 | ((c >> 6) & 0x3F));
            out += char(0x80 | (c & 0x3F));
        }
    }
    return out;
}

bool isHex(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return std::isxdigit(static_cast<unsigned char>(c)); });
}

bool isGuidText(std::string_view text) {
    return text.size() == 38 && text.front() == '{' && text.back() == '}' && text[9] == '-' &&
           text[14] == '-' && text[19] == '-' && text[24] == '-' && isHex(text.substr(1, 8)) &&
           isHex(text.substr(10, 4)) && isHex(text.substr(15, 4)) && isHex(text.substr(20, 4)) &&
           isHex(text.substr(25, 12));
}

// The two forms of id Windows hands out: an endpoint's "{0.0.F.XXXXXXXX}.{GUID}" and an
// adapter device's "{N}.\\?\<device interface path>". An unknown id of either form names a
// device that is not there (E_NOTFOUND); anything else is not an id at all (E_INVALIDARG).
bool wellFormedId(std::string_view id) {
    constexpr std::string_view render = "{0.0.0.", capture = "{0.0.1.", path = "\\\\?\\";
    if (id.starts_with(render) || id.starts_with(capture)) {
        return id.size() == 17 + 38 && isHex(id.substr(7, 8)) && id.substr(15, 2) == "}." &&
               isGuidText(id.substr(17));
    }
    std::size_t close = id.find("}.");
    return id.starts_with('{') && close != std::string_view::npos && close > 1 &&
           std::all_of(id.begin() + 1, id.begin() + long(close),
                       [](char c) { return std::isdigit(static_cast<unsigned char>(c)); }) &&
           id.substr(close + 2).starts_with(path) && id.size() > close + 2 + path.size();
}

class Enumerator final : public ComObject<Enumerator, IMMDeviceEnumerator> {
public:
    HRESULT STDMETHODCALLTYPE EnumAudioEndpoints(EDataFlow flow, DWORD mask,
                                                 IMMDeviceCollection** out) override {
        if (!out) {
            return E_POINTER;
        }
        *out = nullptr;
        // A mask of no state is valid and selects nothing, as on Windows.
        if (flow < eRender || flow > eAll || (mask & ~DWORD(DEVICE_STATEMASK_ALL))) {
            return E_INVALIDARG;
        }
        if (HRESULT fault = injectedFault("EnumAudioEndpoints", flowName(flow))) {
            return fault;
        }
        std::vector<std::string> ids;
        withMachine([&](model::Machine& m) {
            for (const model::Endpoint& e : m.endpoints) {
                if ((flow == eAll || int(e.flow) == int(flow)) && (e.state & mask)) {
                    ids.push_back(e.id);
                }
            }
        });
        *out = createCollection(std::move(ids));
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetDefaultAudioEndpoint(EDataFlow flow, ERole role,
                                                      IMMDevice** out) override {
        if (!out) {
            return E_POINTER;
        }
        *out = nullptr;
        if ((flow != eRender && flow != eCapture) || role < eConsole || role > eCommunications) {
            return E_INVALIDARG;
        }
        if (HRESULT fault = injectedFault("GetDefaultAudioEndpoint", flowName(flow))) {
            return fault;
        }
        std::string id = defaultEndpoint(flow, role);
        if (id.empty()) {
            return E_NOTFOUND;
        }
        *out = createDevice(id);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetDevice(LPCWSTR wantedId, IMMDevice** out) override {
        if (!out || !wantedId) {
            return E_POINTER;
        }
        *out = nullptr;
        std::string wanted = utf8(wantedId);
        if (HRESULT fault = injectedFault("GetDevice", wanted)) {
            return fault;
        }
        std::string endpoint, adapter;
        withMachine([&](model::Machine& m) {
            for (const model::Endpoint& e : m.endpoints) {
                if (sameId(e.id, wanted)) {
                    endpoint = e.id;
                    return;
                }
            }
            for (const model::TopologyDevice& d : m.devices) {
                if (sameId(d.id, wanted) && isAdapterDevice(m, d.id)) {
                    adapter = d.id;
                    return;
                }
            }
        });
        if (!endpoint.empty()) {
            *out = createDevice(endpoint);
        } else if (!adapter.empty()) {
            *out = createAdapterDevice(adapter);
        }
        return *out ? S_OK : wellFormedId(wanted) ? E_NOTFOUND : E_INVALIDARG;
    }

    HRESULT STDMETHODCALLTYPE
    RegisterEndpointNotificationCallback(IMMNotificationClient* client) override {
        if (HRESULT refused = refuseInsideCallback("RegisterEndpointNotificationCallback")) {
            return refused;
        }
        if (HRESULT fault = injectedFault("RegisterEndpointNotificationCallback", "")) {
            return fault;
        }
        return registerEndpointClient(client);
    }

    HRESULT STDMETHODCALLTYPE
    UnregisterEndpointNotificationCallback(IMMNotificationClient* client) override {
        if (HRESULT refused = refuseInsideCallback("UnregisterEndpointNotificationCallback")) {
            return refused;
        }
        if (HRESULT fault = injectedFault("UnregisterEndpointNotificationCallback", "")) {
            return fault;
        }
        return unregisterEndpointClient(client);
    }

private:
    static std::string defaultEndpoint(EDataFlow flow, ERole role) {
        model::Flow modelFlow = flow == eRender ? model::Flow::Render : model::Flow::Capture;
        return readMachine<std::string>(
            [&](const model::Machine& m) { return defaultEndpointOf(m, modelFlow, role); });
    }
};

class Collection final : public ComObject<Collection, IMMDeviceCollection> {
public:
    explicit Collection(std::vector<std::string> ids) : m_ids(std::move(ids)) {}

    HRESULT STDMETHODCALLTYPE GetCount(UINT* count) override {
        if (!count) {
            return E_POINTER;
        }
        *count = UINT(m_ids.size());
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE Item(UINT index, IMMDevice** out) override {
        if (!out) {
            return E_POINTER;
        }
        *out = nullptr;
        if (index >= m_ids.size()) {
            return E_INVALIDARG;
        }
        if (HRESULT fault = injectedFault("Item", m_ids[index])) {
            return fault;
        }
        *out = createDevice(m_ids[index]);
        return S_OK;
    }

private:
    const std::vector<std::string> m_ids; // a snapshot, as the platform's collections are
};

} // namespace

IMMDeviceEnumerator* createEnumerator() {
    return Enumerator::create();
}

IMMDeviceCollection* createCollection(std::vector<std::string> endpointIds) {
    return Collection::create(std::move(endpointIds));
}

} // namespace sim
