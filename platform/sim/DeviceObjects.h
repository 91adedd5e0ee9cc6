// The device side of the simulated platform: enumerator, collections, devices, property
// stores and endpoint volume.
//
// Injected faults (operation, target) answered by these objects:
//   CoCreateInstance            "MMDeviceEnumerator"
//   EnumAudioEndpoints          "render" | "capture" | "all"
//   GetDefaultAudioEndpoint     "render" | "capture"
//   GetDevice                   the id asked for
//   RegisterEndpointNotificationCallback, UnregisterEndpointNotificationCallback   ""
//   Item                        id of the endpoint at that position
//   Activate.<interface>        endpoint or adapter device id (IAudioEndpointVolume,
//                               IDeviceTopology, IAudioClient, IBaseFilter)
//   OpenPropertyStore, GetId, GetState   endpoint or adapter device id
//   GetDataFlow, QueryInterface.IMMEndpoint   endpoint id
//   GetValue, SetValue          endpoint id, or "<endpoint id>|{fmtid},<pid>" for one key
//   RegisterControlChangeNotify and every other IAudioEndpointVolume method by its name
//                               endpoint id
//
// Behaviour chosen where Windows leaves room:
// - an adapter device (GetDevice with the id of an adapter's topology filter) is active, is
//   no endpoint (no IMMEndpoint), activates IDeviceTopology and nothing else (E_NOINTERFACE:
//   IKsControl is not modelled, and streaming and endpoint volume belong to endpoints); its
//   property store holds the adapter's names and is read-only (SetValue: STG_E_ACCESSDENIED);
// - without administrator rights (the machine's "elevated": false, or LIBAUDIO_ELEVATED=0)
//   OpenPropertyStore refuses STGM_WRITE and STGM_READWRITE with E_ACCESSDENIED.
#pragma once

#include "platform/win32.h"

#include <string>
#include <vector>

namespace sim {

IMMDeviceEnumerator* createEnumerator();
IMMDeviceCollection* createCollection(std::vector<std::string> endpointIds);
IMMDevice* createDevice(const std::string& endpointId);
IMMDevice* createAdapterDevice(const std::string& deviceId);
IPropertyStore* createPropertyStore(const std::string& endpointId, DWORD mode);
IPropertyStore* createAdapterPropertyStore(const std::string& deviceId, DWORD mode);
// Whether the process runs with administrator rights.
bool processElevated();
// What OpenPropertyStore answers for a valid mode, apart from injected faults.
HRESULT propertyStoreAccess(DWORD mode);
IAudioEndpointVolume* createEndpointVolume(const std::string& endpointId);

// Result for an object whose endpoint has left the machine.
constexpr HRESULT DEVICE_INVALIDATED = HRESULT(0x88890004L); // AUDCLNT_E_DEVICE_INVALIDATED
constexpr HRESULT ACCESS_DENIED = HRESULT(0x80030005L);      // STG_E_ACCESSDENIED

} // namespace sim
