// The controls a part offers, named by its control interfaces and made by Activate.
#include "platform/CComPtr.h"
#include "platform/sim/Runtime.h"
#include "platform/sim/TopologyAccess.h"
#include "platform/sim/TopologyObjects.h"
#include "platform/sim/TopologyPart.h"

#include <vector>

namespace sim {

namespace {

struct Control {
    const char* name;
    const IID* iid;
    bool (*offered)(const model::Part&);
    IUnknown* (*make)(const model::PartRef&);
};

const Control controls[] = {
    {"IAudioVolumeLevel", &IID_IAudioVolumeLevel,
     [](const model::Part& p) { return p.volume.has_value(); },
     [](const model::PartRef& r) -> IUnknown* {
         return createVolumeLevel(r);
     }},
    {"IAudioMute", &IID_IAudioMute, [](const model::Part& p) { return p.mute.has_value(); },
     [](const model::PartRef& r) -> IUnknown* {
         return createMute(r);
     }},
    {"IAudioInputSelector", &IID_IAudioInputSelector,
     [](const model::Part& p) { return p.selectedInput.has_value(); },
     [](const model::PartRef& r) -> IUnknown* {
         return createInputSelector(r);
     }},
    {"IKsJackDescription", &IID_IKsJackDescription,
     [](const model::Part& p) { return p.kind == model::PartKind::Connector && !p.jacks.empty(); },
     [](const model::PartRef& r) -> IUnknown* {
         return createJackDescription(r);
     }},
};

std::vector<const Control*> offeredBy(const model::Part& part) {
    std::vector<const Control*> offered;
    for (const Control& control : controls) {
        if (control.offered(part)) {
            offered.push_back(&control);
        }
    }
    return offered;
}

// IPerChannelDbLevel is the base of IAudioVolumeLevel: the volume control answers both.
bool answers(const Control& control, REFIID iid) {
    return iid == *control.iid ||
           (iid == IID_IPerChannelDbLevel && *control.iid == IID_IAudioVolumeLevel);
}

} // namespace

HRESULT TopologyPart::GetControlInterfaceCount(UINT* count) {
    if (!count) {
        return E_POINTER;
    }
    return withPart(m_ref, [&](const model::Part& part, const model::Machine&) {
        *count = UINT(offeredBy(part).size());
        return S_OK;
    });
}

HRESULT TopologyPart::GetControlInterface(UINT index, IControlInterface** out) {
    if (!out) {
        return E_POINTER;
    }
    *out = nullptr;
    return withPart(m_ref, [&](const model::Part& part, const model::Machine&) {
        std::vector<const Control*> offered = offeredBy(part);
        if (index >= offered.size()) {
            return E_INVALIDARG;
        }
        *out = createControlInterface(offered[index]->name, *offered[index]->iid);
        return S_OK;
    });
}

HRESULT TopologyPart::Activate(DWORD context, REFIID iid, void** out) {
    if (!out) {
        return E_POINTER;
    }
    *out = nullptr;
    if (HRESULT fault = injectedFault("Part.Activate", m_globalId)) {
        return fault;
    }
    if (!(context & CLSCTX_INPROC_SERVER)) {
        return E_INVALIDARG;
    }
    return withPart(m_ref, [&](const model::Part& part, const model::Machine&) {
        for (const Control* control : offeredBy(part)) {
            if (answers(*control, iid)) {
                CComPtr<IUnknown> made;
                made.Attach(control->make(m_ref));
                return made->QueryInterface(iid, out);
            }
        }
        return E_NOINTERFACE;
    });
}

} // namespace sim
