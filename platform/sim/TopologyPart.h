// The object of one part of a device topology. One class serves connectors and subunits;
// QueryInterface answers IConnector only for a connector and ISubunit only for a subunit.
#pragma once

#include "platform/model/Machine.h"
#include "platform/sim/ComObject.h"

#include <optional>
#include <string>

namespace sim {

class TopologyPart final : public ComObject<TopologyPart, IPart, IConnector, ISubunit> {
public:
    TopologyPart(model::PartRef ref, model::PartKind kind);

    const model::PartRef& ref() const { return m_ref; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;

    // IPart (TopologyPart.cpp, controls in PartControls.cpp)
    HRESULT STDMETHODCALLTYPE GetName(LPWSTR* name) override;
    HRESULT STDMETHODCALLTYPE GetLocalId(UINT* id) override;
    HRESULT STDMETHODCALLTYPE GetGlobalId(LPWSTR* id) override;
    HRESULT STDMETHODCALLTYPE GetPartType(PartType* type) override;
    HRESULT STDMETHODCALLTYPE GetSubType(GUID* subType) override;
    HRESULT STDMETHODCALLTYPE GetControlInterfaceCount(UINT* count) override;
    HRESULT STDMETHODCALLTYPE GetControlInterface(UINT index, IControlInterface** out) override;
    HRESULT STDMETHODCALLTYPE EnumPartsIncoming(IPartsList** out) override;
    HRESULT STDMETHODCALLTYPE EnumPartsOutgoing(IPartsList** out) override;
    HRESULT STDMETHODCALLTYPE GetTopologyObject(IDeviceTopology** out) override;
    HRESULT STDMETHODCALLTYPE Activate(DWORD context, REFIID iid, void** out) override;
    HRESULT STDMETHODCALLTYPE RegisterControlChangeCallback(REFGUID iid,
                                                            IControlChangeNotify* notify) override;
    HRESULT STDMETHODCALLTYPE
    UnregisterControlChangeCallback(IControlChangeNotify* notify) override;

    // IConnector (TopologyConnector.cpp)
    HRESULT STDMETHODCALLTYPE GetType(ConnectorType* type) override;
    HRESULT STDMETHODCALLTYPE GetDataFlow(DataFlow* flow) override;
    HRESULT STDMETHODCALLTYPE ConnectTo(IConnector* other) override;
    HRESULT STDMETHODCALLTYPE Disconnect() override;
    HRESULT STDMETHODCALLTYPE IsConnected(BOOL* connected) override;
    HRESULT STDMETHODCALLTYPE GetConnectedTo(IConnector** out) override;
    HRESULT STDMETHODCALLTYPE GetConnectorIdConnectedTo(LPWSTR* id) override;
    HRESULT STDMETHODCALLTYPE GetDeviceIdConnectedTo(LPWSTR* id) override;

private:
    HRESULT enumParts(const char* operation, bool incoming, IPartsList** out);
    // The connector across the physical connection (nullopt: none); E_NOTFOUND when this
    // part has left the machine.
    HRESULT partner(std::optional<model::PartRef>& other);

    const model::PartRef m_ref;
    const model::PartKind m_kind;
    const std::string m_globalId;
};

} // namespace sim
