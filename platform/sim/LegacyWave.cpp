// Legacy waveform-audio devices: the active endpoints of each flow, numbered in the
// machine's order. A driver message to a device number or an open device answers its
// endpoint's id.
//
// Injected faults: "waveInMessage" / "waveOutMessage", target the endpoint id of the
// device number addressed.
#include "platform/sim/ComObject.h"
#include "platform/sim/Runtime.h"
#include "platform/sim/WaveDevices.h"
#include "platform/win32.h"

#include <cstring>

namespace {

std::vector<std::string> activeEndpoints(model::Flow flow) {
    std::vector<std::string> ids;
    sim::withMachine([&](model::Machine& m) {
        for (const model::Endpoint& e : m.endpoints) {
            if (e.flow == flow && e.state == model::STATE_ACTIVE) {
                ids.push_back(e.id);
            }
        }
    });
    return ids;
}

MMRESULT functionInstanceMessage(const std::string& id, UINT message, DWORD_PTR param1,
                                 DWORD_PTR param2) {
    std::u16string wide = sim::toUtf16(id);
    ULONG bytes = ULONG((wide.size() + 1) * sizeof(WCHAR));
    if (message == DRV_QUERYFUNCTIONINSTANCEIDSIZE) {
        if (!param1) {
            return MMSYSERR_INVALPARAM;
        }
        // A count as wide as a pointer, as winmm writes it on every platform: a caller
        // that passes a 32-bit variable on 64-bit Windows has its stack overrun.
        const DWORD_PTR count = bytes;
        std::memcpy(reinterpret_cast<void*>(param1), &count, sizeof count);
        return MMSYSERR_NOERROR;
    }
    if (message == DRV_QUERYFUNCTIONINSTANCEID) {
        if (!param1 || param2 < bytes) {
            return MMSYSERR_INVALPARAM;
        }
        std::memcpy(reinterpret_cast<void*>(param1), wide.c_str(), bytes);
        return MMSYSERR_NOERROR;
    }
    return MMSYSERR_NOTSUPPORTED;
}

MMRESULT deviceMessage(model::Flow flow, const char* operation, DWORD_PTR device, UINT message,
                       DWORD_PTR param1, DWORD_PTR param2) {
    // An open device's handle, or a device number in the handle's place.
    std::optional<std::string> id = sim::openWaveEndpoint(reinterpret_cast<const void*>(device));
    if (!id) {
        std::vector<std::string> ids = activeEndpoints(flow);
        if (device >= ids.size()) {
            return MMSYSERR_BADDEVICEID;
        }
        id = ids[device];
    }
    if (HRESULT fault = sim::injectedFault(operation, *id)) {
        return MMRESULT(fault);
    }
    return functionInstanceMessage(*id, message, param1, param2);
}

} // namespace

extern "C" {

UINT waveInGetNumDevs(void) {
    return UINT(activeEndpoints(model::Flow::Capture).size());
}

UINT waveOutGetNumDevs(void) {
    return UINT(activeEndpoints(model::Flow::Render).size());
}

MMRESULT waveInMessage(HWAVEIN device, UINT message, DWORD_PTR param1, DWORD_PTR param2) {
    return deviceMessage(model::Flow::Capture, "waveInMessage", DWORD_PTR(device), message, param1,
                         param2);
}

MMRESULT waveOutMessage(HWAVEOUT device, UINT message, DWORD_PTR param1, DWORD_PTR param2) {
    return deviceMessage(model::Flow::Render, "waveOutMessage", DWORD_PTR(device), message, param1,
                         param2);
}
}
