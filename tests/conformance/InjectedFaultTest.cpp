// Injected faults answer the result code a real system gives in that situation, touch
// nothing else in the machine, and are consumed in order (a sticky one keeps failing).
// Beside them, what the platform does as hardware comes and goes, and the misuse it
// catches where Windows would hang.
#include "conformance/ConformanceSupport.h"
#include "platform/model/MachineBuilder.h"
#include "platform/sim/MachineEvents.h"
#include "platform/sim/Notifier.h"
#include "platform/sim/Runtime.h"

#include <cstdio>
#include <functional>

using namespace conformance;

namespace {

const std::string kSpeakers = model::generatedEndpointId(model::Flow::Render, 0);
const std::string kMicrophone = model::generatedEndpointId(model::Flow::Capture, 1);
constexpr HRESULT kStorageAccessDenied = HRESULT(0x80030005L); // STG_E_ACCESSDENIED
constexpr HRESULT kIllegalMethodCall = HRESULT(0x8000000EL);   // E_ILLEGAL_METHOD_CALL

// Speakers behind a filter's Speaker connector (fed by a volume node), a microphone without
// a topology, and a Line In jack that is connected to nothing.
model::MachineBuilder faultMachine() {
    model::MachineBuilder b("faults");
    b.adapter("HDAUDIO\\FUNC_01&VEN_10EC&DEV_0269\\1", "Codec")
        .endpoint(model::Flow::Render, "Speakers", model::Speakers)
        .volume({-6, -12})
        .endpointDevice()
        .endpoint(model::Flow::Capture, "Microphone", model::Microphone)
        .device("filter")
        .connector("Speaker", KSNODETYPE_SPEAKER, model::ConnectorType::PhysicalInternal, 1)
        .connector("Line In", KSNODETYPE_LINE_CONNECTOR, model::ConnectorType::PhysicalExternal, 0)
        .subunit("Volume", KSNODETYPE_VOLUME)
        .link("Volume", "Speaker")
        .connect({kSpeakers, 0}, {"filter", 0});
    return b;
}

// The fault target of one property: "<endpoint id>|{fmtid},<pid>".
std::string propertyTarget(const std::string& endpointId, const PROPERTYKEY& key) {
    const GUID& g = key.fmtid;
    char text[64];
    std::snprintf(text, sizeof text, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X},%u",
                  unsigned(g.Data1), unsigned(g.Data2), unsigned(g.Data3), g.Data4[0], g.Data4[1],
                  g.Data4[2], g.Data4[3], g.Data4[4], g.Data4[5], g.Data4[6], g.Data4[7],
                  unsigned(key.pid));
    return endpointId + "|" + text;
}

model::Machine installed() {
    return sim::readMachine<model::Machine>([](const model::Machine& m) { return m; });
}

// Runs a call that hands out an object, checking that a failing call hands out none.
template <class T> HRESULT handsOutNothingOnFailure(const std::function<HRESULT(T**)>& call) {
    CComPtr<T> out;
    HRESULT hr = call(&out);
    EXPECT_TRUE(SUCCEEDED(hr) || !out) << "a failing call handed out an object";
    return hr;
}

class Faults : public ::testing::Test {
protected:
    void SetUp() override { install(faultMachine().build()); }
    void TearDown() override { sim::waitForNotifications(); }

    void install(model::Machine machine) {
        sim::installMachine(std::move(machine));
        ASSERT_EQ(S_OK, enumerator.CoCreateInstance(CLSID_MMDeviceEnumerator));
        ASSERT_EQ(S_OK, enumerator->GetDevice(wide(kSpeakers).c_str(), &speakers));
        ASSERT_EQ(S_OK, enumerator->GetDevice(wide(kMicrophone).c_str(), &microphone));
        ASSERT_EQ(S_OK, speakers->Activate(IID_IDeviceTopology, CLSCTX_ALL, nullptr,
                                           reinterpret_cast<void**>(&endpointTopology)));
        ASSERT_EQ(S_OK, endpointTopology->GetConnector(0, &endpointConnector));
        ASSERT_EQ(S_OK, endpointConnector->GetConnectedTo(&speakerJack));
        ASSERT_EQ(S_OK, speakerJack.QueryInterface(&speakerPart));
        ASSERT_EQ(S_OK, platform::topologyOf(speakerPart, &filter));
        ASSERT_EQ(S_OK, filter->GetConnector(1, &lineIn));
        ASSERT_EQ(S_OK, filter->GetSubunit(0, &volumeNode));
        ASSERT_EQ(S_OK, volumeNode.QueryInterface(&volumePart));
    }

    CComPtr<IMMDeviceEnumerator> enumerator;
    CComPtr<IMMDevice> speakers, microphone;
    CComPtr<IDeviceTopology> endpointTopology, filter;
    CComPtr<IConnector> endpointConnector, speakerJack, lineIn;
    CComPtr<ISubunit> volumeNode;
    CComPtr<IPart> speakerPart, volumePart;
};

TEST_F(Faults, EachCallAnswersItsInjectedCodeAndChangesNothing) {
    using Call = std::function<HRESULT()>;
    auto activate = [](IMMDevice* device, const IID& iid) -> Call {
        return [=] {
            return handsOutNothingOnFailure<IUnknown>([&](IUnknown** out) {
                return device->Activate(iid, CLSCTX_ALL, nullptr, reinterpret_cast<void**>(out));
            });
        };
    };
    DeviceEventRecorder client;
    VolumeRecorder volumeClient;
    CComPtr<IAudioEndpointVolume> volume;
    ASSERT_EQ(S_OK, speakers->Activate(IID_IAudioEndpointVolume, CLSCTX_ALL, nullptr,
                                       reinterpret_cast<void**>(&volume)));
    const struct {
        std::string operation, target;
        HRESULT code;
        Call call;
    } cases[] = {
        {"CoCreateInstance", "MMDeviceEnumerator", CO_E_NOTINITIALIZED,
         [] {
             CComPtr<IMMDeviceEnumerator> other;
             HRESULT hr = other.CoCreateInstance(CLSID_MMDeviceEnumerator);
             EXPECT_TRUE(SUCCEEDED(hr) || !other);
             return hr;
         }},
        {"EnumAudioEndpoints", "render", E_OUTOFMEMORY,
         [&] {
             return handsOutNothingOnFailure<IMMDeviceCollection>([&](IMMDeviceCollection** out) {
                 return enumerator->EnumAudioEndpoints(eRender, DEVICE_STATE_ACTIVE, out);
             });
         }},
        {"GetDefaultAudioEndpoint", "capture", E_NOTFOUND,
         [&] {
             return handsOutNothingOnFailure<IMMDevice>([&](IMMDevice** out) {
                 return enumerator->GetDefaultAudioEndpoint(eCapture, eConsole, out);
             });
         }},
        {"GetDevice", kSpeakers, E_NOTFOUND,
         [&] {
             return handsOutNothingOnFailure<IMMDevice>([&](IMMDevice** out) {
                 return enumerator->GetDevice(wide(kSpeakers).c_str(), out);
             });
         }},
        {"Item", kMicrophone, E_INVALIDARG,
         [&] {
             CComPtr<IMMDeviceCollection> all;
             EXPECT_EQ(S_OK, enumerator->EnumAudioEndpoints(eAll, DEVICE_STATEMASK_ALL, &all));
             return handsOutNothingOnFailure<IMMDevice>(
                 [&](IMMDevice** out) { return all->Item(1, out); });
         }},
        {"OpenPropertyStore", kSpeakers, E_OUTOFMEMORY,
         [&] {
             return handsOutNothingOnFailure<IPropertyStore>(
                 [&](IPropertyStore** out) { return speakers->OpenPropertyStore(STGM_READ, out); });
         }},
        {"GetValue", propertyTarget(kSpeakers, PKEY_Device_FriendlyName), kStorageAccessDenied,
         [&] {
             CComPtr<IPropertyStore> store;
             Variant value;
             EXPECT_EQ(S_OK, speakers->OpenPropertyStore(STGM_READ, &store));
             HRESULT hr = store->GetValue(PKEY_Device_FriendlyName, &value);
             EXPECT_EQ(SUCCEEDED(hr) ? VT_LPWSTR : VT_EMPTY, value.vt);
             return hr;
         }},
        {"Activate.IAudioEndpointVolume", kMicrophone, AUDCLNT_E_DEVICE_INVALIDATED,
         activate(microphone, IID_IAudioEndpointVolume)},
        {"Activate.IDeviceTopology", kSpeakers, E_NOINTERFACE,
         activate(speakers, IID_IDeviceTopology)},
        {"QueryInterface.IMMEndpoint", kSpeakers, E_NOINTERFACE,
         [&] {
             return handsOutNothingOnFailure<IMMEndpoint>(
                 [&](IMMEndpoint** out) { return speakers.QueryInterface(out); });
         }},
        {"SetMute", kSpeakers, AUDCLNT_E_DEVICE_INVALIDATED,
         [&] {
             return volume->SetMute(TRUE, nullptr);
         }},
        {"RegisterControlChangeNotify", kSpeakers, E_OUTOFMEMORY,
         [&] {
             return volume->RegisterControlChangeNotify(&volumeClient);
         }},
        {"RegisterEndpointNotificationCallback", "", E_OUTOFMEMORY,
         [&] {
             return enumerator->RegisterEndpointNotificationCallback(&client);
         }},
        {"GetConnectedTo", narrow(idOf(endpointConnector)), E_NOTFOUND,
         [&] {
             return handsOutNothingOnFailure<IConnector>(
                 [&](IConnector** out) { return endpointConnector->GetConnectedTo(out); });
         }},
        {"GetSignalPath", narrow(idOf(filter)), E_NOTFOUND,
         [&] {
             return handsOutNothingOnFailure<IPartsList>([&](IPartsList** out) {
                 return filter->GetSignalPath(volumePart, speakerPart, FALSE, out);
             });
         }},
        {"Part.Activate", narrow(idOf(volumePart)), E_NOINTERFACE,
         [&] {
             return handsOutNothingOnFailure<IUnknown>([&](IUnknown** out) {
                 return volumePart->Activate(CLSCTX_ALL, IID_IAudioVolumeLevel,
                                             reinterpret_cast<void**>(out));
             });
         }},
    };
    for (const auto& c : cases) {
        const model::Machine before = installed();
        sim::addFault({c.operation, c.target, {c.code}, false});
        EXPECT_EQ(c.code, c.call()) << c.operation;
        EXPECT_TRUE(installed() == before) << c.operation << " changed the machine";
        EXPECT_EQ(S_OK, c.call()) << c.operation << ": a one-off fault must be consumed";
        if (c.operation == "RegisterEndpointNotificationCallback") {
            EXPECT_EQ(S_OK, enumerator->UnregisterEndpointNotificationCallback(&client));
        }
        if (c.operation == "RegisterControlChangeNotify") {
            EXPECT_EQ(S_OK, volume->UnregisterControlChangeNotify(&volumeClient));
        }
    }
}

TEST_F(Faults, ResultsAreConsumedInOrderAndOnlyByTheirTarget) {
    const model::Machine before = installed();
    sim::addFault({"OpenPropertyStore", kSpeakers, {E_ACCESSDENIED, E_OUTOFMEMORY}, false});
    CComPtr<IPropertyStore> store;
    EXPECT_EQ(S_OK, microphone->OpenPropertyStore(STGM_READ, &store));
    for (HRESULT expected : {E_ACCESSDENIED, E_OUTOFMEMORY, S_OK}) {
        EXPECT_EQ(expected, speakers->OpenPropertyStore(STGM_READ, &store));
        EXPECT_EQ(SUCCEEDED(expected), bool(store));
    }
    EXPECT_TRUE(installed() == before);
}

TEST_F(Faults, StickyFaultKeepsFailingUntilCleared) {
    model::Machine before = installed();
    sim::addFault(
        {"GetValue", propertyTarget(kSpeakers, PKEY_Device_FriendlyName), {E_OUTOFMEMORY}, true});
    CComPtr<IPropertyStore> store;
    ASSERT_EQ(S_OK, speakers->OpenPropertyStore(STGM_READ, &store));
    for (int i = 0; i < 3; ++i) {
        Variant name, description;
        EXPECT_EQ(E_OUTOFMEMORY, store->GetValue(PKEY_Device_FriendlyName, &name));
        EXPECT_EQ(VT_EMPTY, name.vt);
        EXPECT_EQ(S_OK, store->GetValue(PKEY_Device_DeviceDesc, &description));
        EXPECT_EQ(VT_LPWSTR, description.vt);
    }
    model::Machine after = installed();
    ASSERT_EQ(1u, after.faults.size()); // still there, still failing
    after.faults.clear();
    EXPECT_TRUE(after == before);
    sim::clearFaults();
    Variant name;
    EXPECT_EQ(S_OK, store->GetValue(PKEY_Device_FriendlyName, &name));
    EXPECT_EQ(VT_LPWSTR, name.vt);
}

TEST_F(Faults, MissingConnectionsAndPathsAnswerNotFound) {
    const model::Machine before = installed();
    CComPtr<IConnector> nothing;
    BOOL connected = TRUE;
    LPWSTR deviceId = nullptr;
    EXPECT_EQ(S_OK, lineIn->IsConnected(&connected));
    EXPECT_FALSE(connected);
    EXPECT_EQ(E_NOTFOUND, lineIn->GetConnectedTo(&nothing));
    EXPECT_FALSE(nothing);
    EXPECT_EQ(E_NOTFOUND, lineIn->GetDeviceIdConnectedTo(&deviceId));
    EXPECT_EQ(nullptr, deviceId);
    CComPtr<IPartsList> path;
    EXPECT_EQ(E_NOTFOUND, filter->GetSignalPath(speakerPart, volumePart, FALSE, &path));
    EXPECT_FALSE(path); // the signal runs the other way
    EXPECT_EQ(S_OK, filter->GetSignalPath(volumePart, speakerPart, FALSE, &path));
    CComPtr<IMMDeviceCollection> all;
    CComPtr<IMMDevice> beyond;
    ASSERT_EQ(S_OK, enumerator->EnumAudioEndpoints(eAll, DEVICE_STATEMASK_ALL, &all));
    EXPECT_EQ(E_INVALIDARG, all->Item(2, &beyond));
    EXPECT_FALSE(beyond);
    EXPECT_TRUE(installed() == before);
}

TEST_F(Faults, RemovedEndpointAnswersAsWindowsDoes) {
    DeviceEventRecorder events;
    ScopedRegistration registration(enumerator, &events);
    ASSERT_EQ(S_OK, registration.result());
    ASSERT_TRUE(sim::removeEndpoint(kSpeakers));
    sim::waitForNotifications();
    DWORD state = 0;
    EXPECT_EQ(S_OK, speakers->GetState(&state));
    EXPECT_EQ(DWORD(DEVICE_STATE_NOTPRESENT), state);
    for (const IID& iid : {IID_IAudioEndpointVolume, IID_IDeviceTopology}) {
        void* out = &state;
        EXPECT_EQ(AUDCLNT_E_DEVICE_INVALIDATED, speakers->Activate(iid, CLSCTX_ALL, nullptr, &out));
        EXPECT_EQ(nullptr, out);
    }
    // The speakers were the only render endpoint: every role is left without one.
    CComPtr<IMMDevice> gone;
    EXPECT_EQ(E_NOTFOUND, enumerator->GetDefaultAudioEndpoint(eRender, eConsole, &gone));
    EXPECT_EQ(E_NOTFOUND, enumerator->GetDevice(wide(kSpeakers).c_str(), &gone));
    const std::vector<DefaultChange> none = {
        {eRender, eConsole, {}}, {eRender, eMultimedia, {}}, {eRender, eCommunications, {}}};
    EXPECT_EQ(none, events.defaults());

    // An endpoint that arrives where no default is takes every role at once.
    model::Endpoint line = faultMachine().build().endpoints.front();
    line.id = model::generatedEndpointId(model::Flow::Render, 7);
    line.topologyDevice.clear();
    ASSERT_TRUE(sim::addEndpoint(line));
    sim::waitForNotifications();
    CComPtr<IMMDevice> successor;
    ASSERT_EQ(S_OK, enumerator->GetDefaultAudioEndpoint(eRender, eCommunications, &successor));
    EXPECT_EQ(wide(line.id), idOf(successor));
    std::vector<DefaultChange> all = none;
    for (ERole role : {eConsole, eMultimedia, eCommunications}) {
        all.push_back({eRender, role, wide(line.id)});
    }
    EXPECT_EQ(all, events.defaults());
    EXPECT_EQ(S_OK, registration.end());
}

model::Jack jackAt(std::uint32_t portConnection) {
    model::Jack jack;
    jack.portConnection = portConnection;
    return jack;
}

// When the default goes, the successor is the active endpoint Windows ranks highest for the
// role: jack detection before form factor, form factor before the pin's category; the
// user's choice returns with its endpoint.
TEST_F(Faults, SuccessorIsTheEndpointWindowsRanksHighest) {
    constexpr std::uint32_t kJack = 0, kIntegrated = 1; // EPxcPortConnection
    auto render = [](std::size_t i) {
        return model::generatedEndpointId(model::Flow::Render, i);
    };
    auto capture = [](std::size_t i) {
        return model::generatedEndpointId(model::Flow::Capture, i);
    };
    using model::ConnectorType;
    model::MachineBuilder b("ranking");
    b.adapter("HDAUDIO\\FUNC_01&VEN_10EC&DEV_0888\\1", "Codec");
    b.endpoint(model::Flow::Render, "Speakers", model::Speakers).endpointDevice();
    b.endpoint(model::Flow::Render, "Headphones", model::Headphones).endpointDevice();
    b.endpoint(model::Flow::Render, "S/PDIF", model::SPDIF).endpointDevice();
    b.endpoint(model::Flow::Render, "Line Out", model::LineLevel).endpointDevice();
    b.endpoint(model::Flow::Capture, "Microphone", model::Microphone).endpointDevice();
    b.endpoint(model::Flow::Capture, "Line In", model::LineLevel).endpointDevice();
    b.endpoint(model::Flow::Capture, "Microphone Array", model::Microphone).endpointDevice();
    b.device("filter")
        .connector("Speaker", KSNODETYPE_SPEAKER, ConnectorType::PhysicalInternal, 1)
        .jack(jackAt(kIntegrated))
        .connector("Headphone", KSNODETYPE_HEADPHONES, ConnectorType::PhysicalExternal, 1)
        .jack(jackAt(kIntegrated)) // a jack without presence detection
        .connector("SPDIF", KSNODETYPE_SPDIF_INTERFACE, ConnectorType::PhysicalExternal, 1)
        .jack(jackAt(kJack))
        .connector("Line Out", KSNODETYPE_LINE_CONNECTOR, ConnectorType::PhysicalExternal, 1)
        .jack(jackAt(kJack))
        .connector("Mic", KSNODETYPE_MICROPHONE, ConnectorType::PhysicalExternal, 0)
        .jack(jackAt(kIntegrated))
        .connector("Line In", KSNODETYPE_LINE_CONNECTOR, ConnectorType::PhysicalExternal, 0)
        .jack(jackAt(kIntegrated))
        .connector("Array", KSNODETYPE_MICROPHONE_ARRAY, ConnectorType::PhysicalInternal, 0)
        .jack(jackAt(kIntegrated));
    for (std::uint32_t i = 0; i < 4; ++i) {
        b.connect({render(i), 0}, {"filter", i});
    }
    for (std::uint32_t i = 0; i < 3; ++i) {
        b.connect({capture(4 + i), 0}, {"filter", 4 + i});
    }
    b.defaultEndpoint(model::Flow::Render, render(0));
    b.defaultEndpoint(model::Flow::Capture, capture(5));
    sim::installMachine(b.build());

    auto defaults = [&](EDataFlow flow) {
        std::vector<std::string> ids;
        for (ERole role : {eConsole, eMultimedia, eCommunications}) {
            CComPtr<IMMDevice> device;
            HRESULT hr = enumerator->GetDefaultAudioEndpoint(flow, role, &device);
            ids.push_back(SUCCEEDED(hr) ? narrow(idOf(device)) : "none");
        }
        return ids;
    };
    auto all = [](const std::string& id) {
        return std::vector<std::string>(3, id);
    };
    ASSERT_TRUE(sim::setEndpointState(render(0), DEVICE_STATE_UNPLUGGED));
    EXPECT_EQ(all(render(3)), defaults(eRender)) << "a detecting line out before static headphones";
    ASSERT_TRUE(sim::setEndpointState(render(3), DEVICE_STATE_DISABLED));
    EXPECT_EQ(all(render(2)), defaults(eRender)) << "a detecting S/PDIF before static headphones";
    ASSERT_TRUE(sim::setEndpointState(render(2), DEVICE_STATE_DISABLED));
    EXPECT_EQ(all(render(1)), defaults(eRender));
    ASSERT_TRUE(sim::setEndpointState(render(0), DEVICE_STATE_ACTIVE));
    EXPECT_EQ(all(render(0)), defaults(eRender)) << "the user's choice returns";

    ASSERT_TRUE(sim::removeEndpoint(capture(5)));
    EXPECT_EQ(all(capture(6)), defaults(eCapture)) << "an array before a microphone";
    ASSERT_TRUE(sim::setEndpointState(capture(6), DEVICE_STATE_DISABLED));
    EXPECT_EQ(all(capture(4)), defaults(eCapture));
    ASSERT_TRUE(sim::setEndpointState(capture(4), DEVICE_STATE_NOTPRESENT));
    EXPECT_EQ(all("none"), defaults(eCapture));
}

TEST_F(Faults, FailedRegistrationDeliversNothing) {
    sim::addFault({"RegisterEndpointNotificationCallback", "", {E_OUTOFMEMORY}, false});
    DeviceEventRecorder client;
    ASSERT_EQ(E_OUTOFMEMORY, enumerator->RegisterEndpointNotificationCallback(&client));
    EXPECT_TRUE(sim::setEndpointState(kMicrophone, DEVICE_STATE_DISABLED));
    sim::waitForNotifications();
    EXPECT_EQ(0u, client.calls());
    ASSERT_EQ(S_OK, enumerator->RegisterEndpointNotificationCallback(&client));
    EXPECT_TRUE(sim::setEndpointState(kMicrophone, DEVICE_STATE_ACTIVE));
    sim::waitForNotifications();
    const std::pair<WString, DWORD> active{wide(kMicrophone), DEVICE_STATE_ACTIVE};
    EXPECT_EQ(std::vector{active}, client.states());
    EXPECT_EQ(3u, client.defaults().size()) << "the microphone takes back every capture role";
    EXPECT_EQ(S_OK, enumerator->UnregisterEndpointNotificationCallback(&client));
}

// Calls into the platform from inside notification callbacks, recording what they answer.
class ReentrantClient final : public Recorder<IMMNotificationClient> {
public:
    explicit ReentrantClient(IMMDeviceEnumerator* enumerator) : m_enumerator(enumerator) {}

    HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR, DWORD) override {
        HRESULT unregistered = m_enumerator->UnregisterEndpointNotificationCallback(this);
        HRESULT registered = m_enumerator->RegisterEndpointNotificationCallback(&m_other);
        std::lock_guard lock(m_mutex);
        m_threads.push_back(std::this_thread::get_id());
        m_results.push_back(unregistered);
        m_results.push_back(registered);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow, ERole, LPCWSTR) override {
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR, const PROPERTYKEY) override {
        return S_OK;
    }
    std::vector<HRESULT> results() const {
        std::lock_guard lock(m_mutex);
        return m_results;
    }

private:
    IMMDeviceEnumerator* m_enumerator;
    DeviceEventRecorder m_other;
    std::vector<HRESULT> m_results;
};

class ReentrantVolumeClient final : public Recorder<IAudioEndpointVolumeCallback> {
public:
    explicit ReentrantVolumeClient(IAudioEndpointVolume* volume) : m_volume(volume) {}

    HRESULT STDMETHODCALLTYPE OnNotify(PAUDIO_VOLUME_NOTIFICATION_DATA) override {
        HRESULT unregistered = m_volume->UnregisterControlChangeNotify(this);
        std::lock_guard lock(m_mutex);
        m_threads.push_back(std::this_thread::get_id());
        m_result = unregistered;
        return S_OK;
    }
    HRESULT result() const {
        std::lock_guard lock(m_mutex);
        return m_result;
    }

private:
    IAudioEndpointVolume* m_volume;
    HRESULT m_result = S_OK;
};

// Registering or unregistering from inside a callback deadlocks Windows (the callback
// interfaces' documented rules forbid it). The platform refuses such a call instead, with
// E_ILLEGAL_METHOD_CALL, and records it; the client stays registered.
TEST_F(Faults, RegistrationFromInsideACallbackIsRefused) {
    sim::takeRefusedCalls();
    ReentrantClient client(enumerator);
    ScopedRegistration registration(enumerator, &client);
    ASSERT_EQ(S_OK, registration.result());
    EXPECT_TRUE(sim::setEndpointState(kMicrophone, DEVICE_STATE_DISABLED));
    sim::waitForNotifications();
    EXPECT_EQ((std::vector<HRESULT>{kIllegalMethodCall, kIllegalMethodCall}), client.results());
    EXPECT_TRUE(sim::setEndpointState(kMicrophone, DEVICE_STATE_ACTIVE));
    sim::waitForNotifications();
    EXPECT_EQ(2u, client.calls()) << "the client stayed registered";
    EXPECT_EQ(S_OK, registration.end());

    CComPtr<IAudioEndpointVolume> volume;
    ASSERT_EQ(S_OK, speakers->Activate(IID_IAudioEndpointVolume, CLSCTX_ALL, nullptr,
                                       reinterpret_cast<void**>(&volume)));
    ReentrantVolumeClient volumeClient(volume);
    ASSERT_EQ(S_OK, volume->RegisterControlChangeNotify(&volumeClient));
    EXPECT_EQ(S_OK, volume->SetMute(TRUE, nullptr));
    sim::waitForNotifications();
    EXPECT_EQ(kIllegalMethodCall, volumeClient.result());
    EXPECT_EQ(S_OK, volume->UnregisterControlChangeNotify(&volumeClient));

    std::vector<std::string> refused;
    for (const sim::RefusedCall& call : sim::takeRefusedCalls()) {
        EXPECT_EQ(kIllegalMethodCall, call.result);
        refused.push_back(call.operation);
    }
    const std::vector<std::string> expected = {
        "UnregisterEndpointNotificationCallback", "RegisterEndpointNotificationCallback",
        "UnregisterEndpointNotificationCallback", "RegisterEndpointNotificationCallback",
        "UnregisterControlChangeNotify"};
    EXPECT_EQ(expected, refused);
}

TEST_F(Faults, PropertyOverridesReadAsWritten) {
    model::PropertyValue number, shortBlob;
    number.type = model::PropertyValue::Type::UInt32;
    number.number = 7;
    shortBlob.type = model::PropertyValue::Type::Blob;
    for (int i = 0; i < 39; ++i) {
        shortBlob.blob.push_back(std::uint8_t(i * 5));
    }
    auto keyOf = [](const PROPERTYKEY& k) {
        return model::PropertyKey{k.fmtid, k.pid};
    };
    model::MachineBuilder b = faultMachine();
    b.machine().endpoints.front().propertyOverrides = {
        {keyOf(PKEY_AudioEndpoint_FormFactor), std::nullopt},
        {keyOf(PKEY_Device_FriendlyName), number},
        {keyOf(PKEY_AudioEngine_DeviceFormat), shortBlob}};
    install(b.build());
    CComPtr<IPropertyStore> store;
    ASSERT_EQ(S_OK, speakers->OpenPropertyStore(STGM_READ, &store));
    Variant missing, name, format;
    EXPECT_EQ(S_OK, store->GetValue(PKEY_AudioEndpoint_FormFactor, &missing));
    EXPECT_EQ(VT_EMPTY, missing.vt);
    DWORD count = 0;
    ASSERT_EQ(S_OK, store->GetCount(&count));
    for (DWORD i = 0; i < count; ++i) {
        PROPERTYKEY key{};
        EXPECT_EQ(S_OK, store->GetAt(i, &key));
        EXPECT_FALSE(key == PKEY_AudioEndpoint_FormFactor) << "a missing property is listed";
    }
    ASSERT_EQ(S_OK, store->GetValue(PKEY_Device_FriendlyName, &name));
    ASSERT_EQ(VT_UI4, name.vt);
    EXPECT_EQ(7u, name.ulVal);
    ASSERT_EQ(S_OK, store->GetValue(PKEY_AudioEngine_DeviceFormat, &format));
    ASSERT_EQ(VT_BLOB, format.vt);
    ASSERT_EQ(39u, format.blob.cbSize);
    EXPECT_EQ(shortBlob.blob,
              std::vector<std::uint8_t>(format.blob.pBlobData, format.blob.pBlobData + 39));
}

} // namespace
