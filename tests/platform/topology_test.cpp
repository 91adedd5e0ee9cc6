// The simulated device topology, reached as the library reaches it: enumerator, endpoint,
// IDeviceTopology, connectors, subunits, parts lists and part controls.
#include "platform/CComPtr.h"
#include "platform/sim/ComObject.h"
#include "platform/sim/Runtime.h"
#include "platform/win32.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <set>
#include <utility>
#include <string>
#include <vector>

namespace {

using model::SignalDomain;

const std::string kHeadphones = "{0.0.0.00000000}.{hp}";
const std::string kMicrophone = "{0.0.1.00000000}.{mic}";
// Local ids of the adapter's parts.
enum : UINT { Playback = 1, Volume, Mute, HpJack, MicJack, LineIn, Mux, Adc, Capture, CapVolume };

model::Part connector(UINT id, const char* name, DWORD flow, SignalDomain domain,
                      std::optional<model::PartRef> to = std::nullopt) {
    model::Part p;
    p.kind = model::PartKind::Connector;
    p.localId = id;
    p.name = name;
    p.subType = KSNODETYPE_LINE_CONNECTOR;
    p.domain = domain;
    p.connectorType = model::ConnectorType::PhysicalExternal;
    p.connectorFlow = flow;
    p.connectedTo = to;
    return p;
}

model::Part subunit(UINT id, const char* name, const GUID& type, SignalDomain domain) {
    model::Part p;
    p.localId = id;
    p.name = name;
    p.subType = type;
    p.domain = domain;
    return p;
}

// Render: Playback -> Volume -> Mute -> HpJack => headphone endpoint. Capture: microphone
// endpoint => MicJack, which reaches Capture through the digital Adc (short, mixed) or
// through Mux and CapVolume (longer, analog only); LineIn is a second input of Mux.
model::Machine testMachine() {
    const auto none = SignalDomain::Unspecified, analog = SignalDomain::Analog;
    model::TopologyDevice codec{"codec", {}, {}};
    codec.parts = {connector(Playback, "Playback", In, none),
                   subunit(Volume, "Volume", KSNODETYPE_VOLUME, none),
                   subunit(Mute, "Mute", KSNODETYPE_MUTE, none),
                   connector(HpJack, "Headphone Jack", Out, analog, model::PartRef{"hp", 1}),
                   connector(MicJack, "Mic Jack", In, analog, model::PartRef{"mic", 1}),
                   connector(LineIn, "Line In", In, analog),
                   subunit(Mux, "Input Mux", KSNODETYPE_MUX, none),
                   subunit(Adc, "ADC", KSNODETYPE_ADC, SignalDomain::Digital),
                   connector(Capture, "Capture", Out, none),
                   subunit(CapVolume, "Capture Volume", KSNODETYPE_VOLUME, none)};
    codec.parts[1].volume = model::VolumeControl{{-6.0f, -12.0f}, {{-46.5f, 0.0f, 1.5f}}, {}};
    codec.parts[2].mute = false;
    codec.parts[3].jacks = {model::Jack{3, 0x00FF00, 1, 2, 0, 0, true}};
    codec.parts[6].selectedInput = MicJack;
    codec.parts[9].volume = model::VolumeControl{{0.0f}, {{-30.0f, 20.0f, 0.5f}}, {}};
    codec.links = {{Playback, Volume}, {Volume, Mute},   {Mute, HpJack},
                   {MicJack, Adc},     {Adc, Capture},   {MicJack, Mux},
                   {LineIn, Mux},      {Mux, CapVolume}, {CapVolume, Capture}};
    model::Machine m;
    m.devices = {
        codec,
        {"hp", {connector(1, "Headphones", In, none, model::PartRef{"codec", HpJack})}, {}},
        {"mic", {connector(1, "Microphone", Out, none, model::PartRef{"codec", MicJack})}, {}}};
    for (const auto& [id, flow, device] : {std::tuple{kHeadphones, model::Flow::Render, "hp"},
                                           std::tuple{kMicrophone, model::Flow::Capture, "mic"}}) {
        model::Endpoint e;
        e.id = id;
        e.flow = flow;
        e.topologyDevice = device;
        m.endpoints.push_back(e);
    }
    return m;
}

std::string take(LPWSTR text) {
    std::u16string wide = text ? std::u16string(text) : u"";
    CoTaskMemFree(text);
    return std::string(wide.begin(), wide.end());
}

std::string globalId(IPart* part) {
    LPWSTR id = nullptr;
    EXPECT_EQ(part->GetGlobalId(&id), S_OK);
    return take(id);
}

template <class I> CComPtr<IPart> partOf(const CComPtr<I>& component) {
    CComPtr<IPart> part;
    EXPECT_EQ(component.QueryInterface(&part), S_OK);
    return part;
}

std::vector<model::TopologyDevice> devices() {
    return sim::readMachine<std::vector<model::TopologyDevice>>(
        [](const model::Machine& m) { return m.devices; });
}

// The result of a call that hands out an object through p, and whether it did.
template <class I, class Call> std::pair<HRESULT, bool> handedOut(Call call) {
    CComPtr<I> p;
    HRESULT hr = call(&p);
    return {hr, bool(p)};
}

std::vector<model::Part> codecParts() {
    return devices()[0].parts;
}

// An IPart that the platform did not make.
class ForeignPart final : public sim::ComObject<ForeignPart, IPart> {
public:
    HRESULT STDMETHODCALLTYPE GetName(LPWSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetLocalId(UINT*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetGlobalId(LPWSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetPartType(PartType*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetSubType(GUID*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetControlInterfaceCount(UINT*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetControlInterface(UINT, IControlInterface**) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE EnumPartsIncoming(IPartsList**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EnumPartsOutgoing(IPartsList**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetTopologyObject(IDeviceTopology**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Activate(DWORD, REFIID, void**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE RegisterControlChangeCallback(REFGUID,
                                                            IControlChangeNotify*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE UnregisterControlChangeCallback(IControlChangeNotify*) override {
        return E_NOTIMPL;
    }
};

class Topology : public ::testing::Test {
protected:
    void SetUp() override {
        sim::installMachine(testMachine());
        endpointTopology(kHeadphones).CopyTo(&hp);
        ASSERT_TRUE(hp);
        CComPtr<IConnector> jack;
        ASSERT_EQ(connectorOf(hp, 0)->GetConnectedTo(&jack), S_OK);
        ASSERT_EQ(partOf(jack)->GetTopologyObject(&codec), S_OK);
    }

    static CComPtr<IDeviceTopology> endpointTopology(const std::string& id) {
        CComPtr<IMMDeviceEnumerator> enumerator;
        CComPtr<IMMDevice> device;
        CComPtr<IDeviceTopology> topology;
        EXPECT_EQ(enumerator.CoCreateInstance(CLSID_MMDeviceEnumerator), S_OK);
        EXPECT_EQ(enumerator->GetDevice(sim::toUtf16(id).c_str(), &device), S_OK);
        device->Activate(IID_IDeviceTopology, CLSCTX_ALL, nullptr,
                         reinterpret_cast<void**>(&topology));
        return topology;
    }
    static CComPtr<IConnector> connectorOf(IDeviceTopology* topology, UINT index) {
        CComPtr<IConnector> c;
        EXPECT_EQ(topology->GetConnector(index, &c), S_OK);
        return c;
    }
    CComPtr<IPart> subunitPart(UINT index) const {
        CComPtr<ISubunit> s;
        EXPECT_EQ(codec->GetSubunit(index, &s), S_OK);
        return partOf(s);
    }
    CComPtr<IPart> part(UINT id) const {
        CComPtr<IPart> p;
        EXPECT_EQ(codec->GetPartById(id, &p), S_OK);
        return p;
    }
    template <class I> CComPtr<I> control(UINT id, const IID& iid = platform::iidOf<I>()) {
        CComPtr<I> c;
        EXPECT_EQ(part(id)->Activate(CLSCTX_ALL, iid, reinterpret_cast<void**>(&c)), S_OK);
        return c;
    }
    // The local ids on the path, in the list's order; empty when the call fails.
    std::vector<UINT> path(UINT from, UINT to, BOOL rejectMixed) const {
        return pathBetween(part(from), part(to), rejectMixed);
    }
    std::vector<UINT> pathBetween(IPart* from, IPart* to, BOOL rejectMixed) const {
        CComPtr<IPartsList> list;
        if (FAILED(codec->GetSignalPath(from, to, rejectMixed, &list))) {
            EXPECT_FALSE(list);
            return {};
        }
        return localIds(list);
    }
    static std::vector<UINT> localIds(IPartsList* list) {
        UINT count = 0, id = 0;
        std::vector<UINT> ids;
        EXPECT_EQ(list->GetCount(&count), S_OK);
        for (UINT i = 0; i < count; ++i) {
            CComPtr<IPart> p;
            EXPECT_EQ(list->GetPart(i, &p), S_OK);
            EXPECT_EQ(p->GetLocalId(&id), S_OK);
            ids.push_back(id);
        }
        CComPtr<IPart> beyond;
        EXPECT_EQ(list->GetPart(count, &beyond), E_INVALIDARG);
        return ids;
    }
    std::vector<UINT> neighbours(UINT id, bool incoming) const {
        CComPtr<IPartsList> list;
        HRESULT hr =
            incoming ? part(id)->EnumPartsIncoming(&list) : part(id)->EnumPartsOutgoing(&list);
        EXPECT_EQ(SUCCEEDED(hr), bool(list));
        return list ? localIds(list) : std::vector<UINT>{};
    }

    CComPtr<IDeviceTopology> hp, codec;
};

TEST_F(Topology, CountsItemsAndIdentitiesAgreeWithTheModel) {
    const model::TopologyDevice codecModel = devices()[0];
    UINT connectors = 0, subunits = 0;
    ASSERT_EQ(codec->GetConnectorCount(&connectors), S_OK);
    ASSERT_EQ(codec->GetSubunitCount(&subunits), S_OK);
    EXPECT_EQ(connectors + subunits, codecModel.parts.size());
    std::vector<std::string> ordered;
    std::set<std::string> globalIds;
    for (UINT i = 0; i < connectors + subunits; ++i) {
        CComPtr<IPart> p =
            i < connectors ? partOf(connectorOf(codec, i)) : subunitPart(i - connectors);
        UINT id = 0;
        PartType type{};
        GUID subType{};
        LPWSTR name = nullptr;
        ASSERT_EQ(p->GetLocalId(&id), S_OK);
        const model::Part& expected =
            *std::find_if(codecModel.parts.begin(), codecModel.parts.end(),
                          [&](const model::Part& q) { return q.localId == id; });
        EXPECT_EQ(p->GetPartType(&type), S_OK);
        EXPECT_EQ(type == Connector, i < connectors);
        EXPECT_EQ(p->GetSubType(&subType), S_OK);
        EXPECT_EQ(subType, expected.subType);
        EXPECT_EQ(p->GetName(&name), S_OK);
        ordered.push_back(take(name));
        EXPECT_EQ(globalId(part(id)), globalId(p));
        globalIds.insert(globalId(p));
    }
    std::vector<std::string> modelOrder;
    for (model::PartKind kind : {model::PartKind::Connector, model::PartKind::Subunit}) {
        for (const model::Part& p : codecModel.parts) {
            if (p.kind == kind) {
                modelOrder.push_back(p.name);
            }
        }
    }
    EXPECT_EQ(ordered, modelOrder);
    EXPECT_EQ(globalIds.size(), codecModel.parts.size());
    EXPECT_EQ(globalIds.count(globalId(partOf(connectorOf(hp, 0)))), 0u);
    CComPtr<IConnector> none;
    CComPtr<ISubunit> noSubunit;
    CComPtr<IPart> unknown;
    EXPECT_EQ(codec->GetConnector(connectors, &none), E_INVALIDARG);
    EXPECT_EQ(codec->GetSubunit(subunits, &noSubunit), E_INVALIDARG);
    EXPECT_EQ(codec->GetPartById(999, &unknown), E_INVALIDARG);
    LPWSTR id = nullptr;
    EXPECT_EQ(codec->GetDeviceId(&id), S_OK);
    EXPECT_EQ(take(id), codecModel.id);
}

TEST_F(Topology, SignalPathsFollowTheSignalAcrossDevices) {
    EXPECT_EQ(path(Playback, HpJack, TRUE), (std::vector<UINT>{HpJack, Mute, Volume, Playback}));
    EXPECT_EQ(path(HpJack, Playback, TRUE), std::vector<UINT>{});
    CComPtr<IPart> headphones = partOf(connectorOf(hp, 0));
    std::vector<UINT> across = pathBetween(part(Playback), headphones, TRUE);
    ASSERT_EQ(across.size(), 5u);
    EXPECT_EQ(across[1], HpJack);
    EXPECT_EQ(pathBetween(headphones, part(Playback), TRUE), std::vector<UINT>{});
    // A connection is crossed only where the signal leaves a device.
    CComPtr<IPart> microphone = partOf(connectorOf(endpointTopology(kMicrophone), 0));
    EXPECT_EQ(pathBetween(microphone, part(Capture), TRUE).size(), 5u);
    EXPECT_EQ(pathBetween(part(MicJack), microphone, TRUE), std::vector<UINT>{});
    CComPtr<IPartsList> list;
    EXPECT_EQ(codec->GetSignalPath(nullptr, headphones, TRUE, &list), E_POINTER);
    CComPtr<IPart> foreign;
    foreign.Attach(ForeignPart::create());
    EXPECT_EQ(codec->GetSignalPath(foreign, headphones, TRUE, &list), E_NOINTERFACE);
}

TEST_F(Topology, MixedPathsAreSkippedOnlyWhenAsked) {
    EXPECT_EQ(path(MicJack, Capture, FALSE), (std::vector<UINT>{Capture, Adc, MicJack}));
    EXPECT_EQ(path(MicJack, Capture, TRUE), (std::vector<UINT>{Capture, CapVolume, Mux, MicJack}));
    EXPECT_EQ(path(MicJack, Adc, FALSE), (std::vector<UINT>{Adc, MicJack}));
    EXPECT_EQ(path(MicJack, Adc, TRUE), std::vector<UINT>{});
}

TEST_F(Topology, ControlsStoreTheirValuesInTheModel) {
    auto level = control<IAudioVolumeLevel>(Volume);
    float minDb = 0, maxDb = 0, stepDb = 0, db = 0;
    UINT channels = 0;
    ASSERT_EQ(level->GetChannelCount(&channels), S_OK);
    ASSERT_EQ(channels, 2u);
    ASSERT_EQ(level->GetLevelRange(1, &minDb, &maxDb, &stepDb), S_OK);
    EXPECT_EQ(level->SetLevel(1, minDb, nullptr), S_OK);
    EXPECT_EQ(control<IAudioVolumeLevel>(Volume)->GetLevel(1, &db), S_OK);
    EXPECT_EQ(db, minDb);
    EXPECT_EQ(level->SetLevel(1, maxDb + stepDb, nullptr), E_INVALIDARG);
    EXPECT_EQ(level->SetLevel(channels, maxDb, nullptr), E_INVALIDARG);
    EXPECT_EQ(level->SetLevelUniform(minDb - stepDb, nullptr), E_INVALIDARG);
    float three[] = {maxDb, maxDb, maxDb};
    EXPECT_EQ(level->SetLevelAllChannels(three, 3, nullptr), E_INVALIDARG);
    EXPECT_EQ(codecParts()[1].volume->levelsDb, (std::vector<float>{-6.0f, minDb}));
    EXPECT_EQ(level->SetLevelAllChannels(three, 2, nullptr), S_OK);
    EXPECT_EQ(control<IPerChannelDbLevel>(Volume)->GetLevel(0, &db), S_OK);
    EXPECT_EQ(db, maxDb);

    auto mute = control<IAudioMute>(Mute);
    BOOL muted = FALSE;
    EXPECT_EQ(mute->SetMute(TRUE, nullptr), S_OK);
    EXPECT_EQ(control<IAudioMute>(Mute)->GetMute(&muted), S_OK);
    EXPECT_TRUE(muted);
    EXPECT_EQ(codecParts()[2].mute, true);

    auto selector = control<IAudioInputSelector>(Mux);
    UINT selected = 0;
    EXPECT_EQ(selector->SetSelection(LineIn, nullptr), S_OK);
    EXPECT_EQ(selector->SetSelection(CapVolume, nullptr), E_INVALIDARG); // downstream
    EXPECT_EQ(control<IAudioInputSelector>(Mux)->GetSelection(&selected), S_OK);
    EXPECT_EQ(selected, UINT(LineIn));

    auto jacks = control<IKsJackDescription>(HpJack);
    UINT count = 0;
    KSJACK_DESCRIPTION d{};
    const model::Jack expected = codecParts()[3].jacks[0];
    EXPECT_EQ(jacks->GetJackCount(&count), S_OK);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(jacks->GetJackDescription(0, &d), S_OK);
    EXPECT_EQ(d.Color, expected.color);
    EXPECT_EQ(DWORD(d.ConnectionType), expected.connectionType);
    EXPECT_EQ(d.ChannelMapping, expected.channelMapping);
    EXPECT_EQ(jacks->GetJackDescription(count, &d), E_INVALIDARG);
}

TEST_F(Topology, PartsOfferExactlyTheControlsTheyHave) {
    for (const model::Part& p : codecParts()) {
        CComPtr<IPart> object = part(p.localId);
        UINT count = 0;
        ASSERT_EQ(object->GetControlInterfaceCount(&count), S_OK);
        EXPECT_EQ(count,
                  UINT(bool(p.volume)) + bool(p.mute) + bool(p.selectedInput) + !p.jacks.empty());
        for (UINT i = 0; i < count; ++i) {
            CComPtr<IControlInterface> described;
            CComPtr<IUnknown> made;
            IID iid{};
            ASSERT_EQ(object->GetControlInterface(i, &described), S_OK);
            ASSERT_EQ(described->GetIID(&iid), S_OK);
            EXPECT_EQ(object->Activate(CLSCTX_ALL, iid, reinterpret_cast<void**>(&made)), S_OK);
        }
    }
    CComPtr<IAudioMute> none;
    EXPECT_EQ(part(Volume)->Activate(CLSCTX_ALL, IID_IAudioMute, reinterpret_cast<void**>(&none)),
              E_NOINTERFACE);
    EXPECT_EQ(
        part(Mute)->Activate(CLSCTX_LOCAL_SERVER, IID_IAudioMute, reinterpret_cast<void**>(&none)),
        E_INVALIDARG);
    EXPECT_FALSE(none);
}

TEST_F(Topology, QueryInterfaceAnswersOnlyWhatThePartIs) {
    CComPtr<IConnector> asConnector;
    CComPtr<ISubunit> asSubunit;
    CComPtr<IUnknown> viaPart, viaConnector;
    EXPECT_EQ(part(Volume).QueryInterface(&asConnector), E_NOINTERFACE);
    EXPECT_EQ(part(Volume).QueryInterface(&asSubunit), S_OK);
    EXPECT_EQ(part(Capture).QueryInterface(&asSubunit), E_NOINTERFACE);
    ASSERT_EQ(part(Capture).QueryInterface(&asConnector), S_OK);
    EXPECT_EQ(asConnector.QueryInterface(&viaConnector), S_OK);
    EXPECT_EQ(partOf(asConnector).QueryInterface(&viaPart), S_OK);
    EXPECT_EQ(viaPart.p, viaConnector.p);
    CComPtr<IPart> notAPart;
    EXPECT_EQ(codec.QueryInterface(&notAPart), E_NOINTERFACE);
}

TEST_F(Topology, DevicesThatLeaveTheMachineAnswerNotFound) {
    CComPtr<IPart> jack = part(HpJack);
    const std::string id = globalId(jack);
    sim::withMachine([](model::Machine& m) { m.devices.erase(m.devices.begin()); });
    UINT count = 0;
    LPWSTR name = nullptr;
    EXPECT_EQ(codec->GetConnectorCount(&count), E_NOTFOUND);
    EXPECT_EQ(jack->GetName(&name), E_NOTFOUND);
    EXPECT_EQ(globalId(jack), id); // identity outlives the model's part
    sim::withMachine([](model::Machine& m) { m.devices.clear(); });
    EXPECT_FALSE(endpointTopology(kHeadphones));
}

} // namespace
