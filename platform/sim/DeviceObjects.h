// The device side of the simulated platform: enumerator, collections, devices, property
// stores and endpoint volume.
//
// Injected faults (operation, target) answered by these objects:
//   CoCreateInstance            "MMDeviceEnumerator"
//   EnumAudioEndpoints          "render" | "capture" | "all"
//   GetDefaultAudioEndpoint     "render" | "capture"
//   GetDevice                   endpoint id
//   RegisterEndpointNotificationCallback, UnregisterEndpointNotificationCallback   ""
//   Item                        id of the endpoint at that position
//   Activate.<interface>        endpoint id (IAudioEndpointVolume, IDeviceTopology,
//                               IAudioClient, IBaseFilter)
//   OpenPropertyStore, GetId, GetState, GetDataFlow, QueryInterface.IMMEndpoint   endpoint id
//   GetValue, SetValue          endpoint id, or "<endpoint id>|{fmtid},<pid>" for one key
//   RegisterControlChangeNotify and every other IAudioEndpointVolume method by its name
//                               endpoint id
#pragma once

#include "platform/win32.h"

#include <string>
#include <vector>

namespace sim {

IMMDeviceEnumerator* createEnumerator();
IMMDeviceCollection* createCollection(std::vector<std::string> endpointIds);
IMMDevice* createDevice(const std::string& endpointId);
IPropertyStore* createPropertyStore(const std::string& endpointId, DWORD mode);
IAudioEndpointVolume* createEndpointVolume(const std::string& endpointId);

// Result for an object whose endpoint has left the machine.
constexpr HRESULT DEVICE_INVALIDATED = HRESULT(0x88890004L); // AUDCLNT_E_DEVICE_INVALIDATED
constexpr HRESULT ACCESS_DENIED = HRESULT(0x80030005L);      // STG_E_ACCESSDENIED

} // namespace sim
