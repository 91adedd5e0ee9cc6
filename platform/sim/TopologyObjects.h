// The topology side of the simulated platform: device topologies, their parts and the
// controls the parts activate.
//
// Injected faults (operation, target) answered by these objects, checked after the
// pointer arguments and before anything else:
//   GetConnector, GetSubunit            topology device id
//   GetDeviceId, GetSignalPath          topology device id
//   GetConnectedTo                      global id of the connector asked
//   GetTopologyObject                   global id of the part asked
//   EnumPartsIncoming, EnumPartsOutgoing   global id of the part asked
//   Part.Activate                       global id of the part asked
//   QueryInterface.IPart                global id of the connector or subunit queried
// A part's global id is "<device id>/<local id as 8 hex digits>" (globalIdOf below).
//
// Behaviour chosen where Windows leaves room:
// - every call looks the model up again: a device or part that has left the machine
//   answers E_NOTFOUND; identity calls (GetLocalId, GetGlobalId, GetPartType) keep working;
// - GetSignalPath follows links and crosses a physical connection at a connector whose data
//   flow is Out; a path is mixed when it holds both an Analog and a Digital part. The list
//   is in Windows' order: the "to" part first, the "from" part last;
// - RegisterControlChangeCallback answers E_NOTIMPL: control values change only through
//   these objects, so there would be nobody to tell;
// - ConnectTo and Disconnect answer E_NOTIMPL: the hardware fixes the connections.
#pragma once

#include "platform/model/Machine.h"
#include "platform/win32.h"

#include <optional>
#include <string>
#include <vector>

namespace sim {

// A new IDeviceTopology (one reference) over the topology device with this id, or null
// when the installed machine has no such device.
IDeviceTopology* createDeviceTopology(const std::string& deviceId);

// The object of one part: a connector answers IPart and IConnector, a subunit IPart and
// ISubunit.
IPart* createPart(const model::PartRef& ref, model::PartKind kind);
// The part behind an object made by createPart; nullopt for any other object.
std::optional<model::PartRef> partRefOf(IPart* part);
std::string globalIdOf(const model::PartRef& ref);

// A fixed list of the parts with these references, in this order; parts that are not in
// the machine are left out.
IPartsList* createPartsList(const model::Machine& machine,
                            const std::vector<model::PartRef>& parts);

IControlInterface* createControlInterface(const std::string& name, const IID& iid);
IAudioVolumeLevel* createVolumeLevel(const model::PartRef& ref);
IAudioMute* createMute(const model::PartRef& ref);
IAudioInputSelector* createInputSelector(const model::PartRef& ref);
IKsJackDescription* createJackDescription(const model::PartRef& ref);

} // namespace sim
