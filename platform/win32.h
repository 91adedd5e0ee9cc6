// The one door from the library to the operating system. On Windows it is the SDK;
// elsewhere the stand-in headers declare the same names with the same binary layout,
// implemented by the simulated platform.
#pragma once

#ifdef _WIN32
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
// Order matters: windows.h first, the multimedia headers after it.
#include <windows.h>
#include <objbase.h>
#include <strmif.h> // before ks.h: the two clash the other way round
#include <cfgmgr32.h>
#include <mmreg.h>
#include <mmsystem.h>
#include <ks.h>
#include <ksmedia.h>
#include <propidl.h>
#include <propsys.h>
#include <functiondiscoverykeys_devpkey.h>
#include <mmdeviceapi.h>
#include <devicetopology.h>
#include <endpointvolume.h>
#include <audioclient.h>

// MinGW spells the subunit interface ISubUnit, and lacks one device property key.
#ifdef __MINGW32__
typedef ISubUnit ISubunit;
#define IID_ISubunit IID_ISubUnit
static const PROPERTYKEY PKEY_Device_EnumeratorName = {
    {0xa45c254e, 0xdf1c, 0x4efd, {0x80, 0x20, 0x67, 0xd1, 0x46, 0xa8, 0x50, 0xe0}}, 24};
#endif
// Node types that MinGW's ksmedia.h lacks.
#ifndef STATIC_KSNODETYPE_HDMI_INTERFACE
static const GUID KSNODETYPE_HDMI_INTERFACE = {
    0xD1B9CC2A, 0xF519, 0x417F, {0x91, 0xC9, 0x55, 0xFA, 0x65, 0x48, 0x10, 0x01}};
#endif
#ifndef STATIC_KSNODETYPE_DISPLAYPORT_INTERFACE
static const GUID KSNODETYPE_DISPLAYPORT_INTERFACE = {
    0xE47E4031, 0x3EA6, 0x418D, {0x8F, 0x9B, 0xB7, 0x38, 0x43, 0xCC, 0xBA, 0x97}};
#endif
#else
#include "platform/standin/types.h"
#include "platform/standin/com.h"
#include "platform/standin/propsys.h"
#include "platform/standin/cfgmgr.h"
#include "platform/standin/mmreg.h"
#include "platform/standin/mmio.h"
#include "platform/standin/sync.h"
#include "platform/standin/ksmedia.h"
#include "platform/standin/mmdeviceapi.h"
#include "platform/standin/devicetopology.h"
#include "platform/standin/endpointvolume.h"
#include "platform/standin/strmif.h"
#include "platform/standin/winuser.h"
#include "platform/standin/audioclient.h"
#include "platform/standin/wave.h"
#endif

// Driver messages that ask a legacy wave device for its endpoint's id.
#ifndef DRV_QUERYFUNCTIONINSTANCEID
#define DRV_QUERYFUNCTIONINSTANCEID 0x811
#define DRV_QUERYFUNCTIONINSTANCEIDSIZE 0x812
#endif

#include <cstdint>

static_assert(sizeof(WAVEFORMATEX) == 18, "WAVEFORMATEX must be packed to 18 bytes");
static_assert(sizeof(WAVEFORMATEXTENSIBLE) == 40, "WAVEFORMATEXTENSIBLE must be 40 bytes");
static_assert(sizeof(GUID) == 16, "GUID must be 16 bytes");
static_assert(sizeof(WCHAR) == 2, "the platform's wide character must be 16-bit");
static_assert(sizeof(KSJACK_DESCRIPTION) == 28, "KSJACK_DESCRIPTION is seven 32-bit fields");
static_assert(sizeof(PROPERTYKEY) == 20, "PROPERTYKEY is a GUID and a 32-bit id");

namespace platform {

// The interface id of an interface type.
template <class Interface> const IID& iidOf() {
#ifdef _WIN32
    return __uuidof(Interface);
#else
    return InterfaceIdOf<Interface>::value();
#endif
}

// The topology that a part belongs to; MinGW names the method GetTopologyObjects.
inline HRESULT topologyOf(IPart* part, IDeviceTopology** topology) {
#ifdef __MINGW32__
    return part->GetTopologyObjects(topology);
#else
    return part->GetTopologyObject(topology);
#endif
}

// qel::String hands out UCS-2 as unsigned short; the platform's wide type differs by side.
inline const WCHAR* wide(const unsigned short* text) {
    return reinterpret_cast<const WCHAR*>(text);
}
inline WCHAR* wide(unsigned short* text) {
    return reinterpret_cast<WCHAR*>(text);
}
inline const unsigned short* ucs2(const WCHAR* text) {
    return reinterpret_cast<const unsigned short*>(text);
}

} // namespace platform
