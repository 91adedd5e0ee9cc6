// The builder makes what the loader makes, and refuses what the loader refuses.
#include "platform/model/JsonLoader.h"
#include "platform/model/MachineBuilder.h"
#include "platform/model/NodeTypes.h"

#include <gtest/gtest.h>

namespace {

using namespace model;

GUID node(const char* name) {
    return *nodeTypeByName(name);
}

const char* const kSmall = R"({
    "name": "small",
    "adapters": [{"instance_id": "HDAUDIO\\FUNC_01&VEN_10EC&DEV_0269\\1", "friendly_name": "Codec"}],
    "endpoints": [
        {"description": "Speakers", "form_factor": "Speakers", "format": {"channels": 2, "rate": 44100, "bits": 16},
         "volume": {"levels_db": [-6, -6]}},
        {"flow": "capture", "description": "Microphone", "form_factor": "Microphone"}],
    "devices": [
        {"id": "{0.0.0.00000000}.{00000000-0000-0000-0000-000000000001}",
         "connectors": [{"type": "SoftwareFixed", "flow": "in", "connected_to": {"device": "filter", "connector": 0}}]},
        {"id": "{0.0.1.00000000}.{00000000-0000-0000-0000-000000000002}",
         "connectors": [{"type": "SoftwareFixed", "flow": "out"}]},
        {"id": "filter",
         "connectors": [
            {"name": "Speaker", "subtype": "SPEAKER", "type": "PhysicalInternal", "flow": "out",
             "jacks": [{"connection_type": "AtapiInternal", "geo_location": "ATAPI"}]},
            {"name": "Mic", "subtype": "MICROPHONE", "type": "PhysicalExternal", "flow": "in",
             "connected_to": {"device": "{0.0.1.00000000}.{00000000-0000-0000-0000-000000000002}", "connector": 0}}],
         "subunits": [{"name": "Mute", "subtype": "MUTE"}, {"name": "Volume", "subtype": "VOLUME"},
                      {"name": "Select", "subtype": "MUX"}],
         "links": [["Mute", "Volume", "Speaker"], ["Mic", "Select"]]}],
    "routes": [{"render": "{0.0.0.00000000}.{00000000-0000-0000-0000-000000000001}",
                "capture": "{0.0.1.00000000}.{00000000-0000-0000-0000-000000000002}", "gain_db": -20}],
    "faults": [{"operation": "Activate", "results": ["0x80070005"]}]
})";

TEST(modelBuilder, MakesWhatTheLoaderMakes) {
    std::string speakers = generatedEndpointId(Flow::Render, 0);
    std::string mic = generatedEndpointId(Flow::Capture, 1);
    Jack internal;
    internal.channelMapping = 3;
    internal.connectionType = 3;
    internal.geoLocation = 13;
    Machine built = MachineBuilder("small")
                        .adapter("HDAUDIO\\FUNC_01&VEN_10EC&DEV_0269\\1", "Codec")
                        .endpoint(Flow::Render, "Speakers", Speakers)
                        .format(2, 44100)
                        .volume({-6, -6})
                        .endpointDevice()
                        .endpoint(Flow::Capture, "Microphone", Microphone)
                        .endpointDevice()
                        .device("filter")
                        .connector("Speaker", node("SPEAKER"), ConnectorType::PhysicalInternal, 1)
                        .jack(internal)
                        .connector("Mic", node("MICROPHONE"), ConnectorType::PhysicalExternal, 0)
                        .subunit("Mute", node("MUTE"))
                        .subunit("Volume", node("VOLUME"))
                        .subunit("Select", node("MUX"))
                        .chain({"Mute", "Volume", "Speaker"})
                        .link("Mic", "Select")
                        .connect({speakers, 0}, {"filter", 0})
                        .connect({"filter", 1}, {mic, 0})
                        .route(speakers, mic, -20)
                        .fault("Activate", "", {E_ACCESSDENIED})
                        .build();
    Machine loaded = loadMachineJson(kSmall, "small.json");
    EXPECT_EQ(built.endpoints, loaded.endpoints);
    EXPECT_EQ(built.devices, loaded.devices);
    EXPECT_TRUE(built == loaded);
    EXPECT_EQ(built.endpoints[1].jackSubType, node("MICROPHONE"));
}

TEST(modelBuilder, ConnectSetsBothSidesAndDefaultsCanBeChosen) {
    Machine m = MachineBuilder()
                    .endpoint(Flow::Render)
                    .endpoint(Flow::Render)
                    .defaultEndpoint(Flow::Render, generatedEndpointId(Flow::Render, 1), 2)
                    .defaultEndpoint(Flow::Capture, "")
                    .device("a")
                    .connector("x", GUID{}, ConnectorType::SoftwareFixed, 0)
                    .device("b")
                    .connector("y", GUID{}, ConnectorType::SoftwareFixed, 1)
                    .connect({"a", 0}, {"b", 0})
                    .build();
    EXPECT_EQ(m.devices[0].parts[0].connectedTo, (PartRef{"b", 0}));
    EXPECT_EQ(m.devices[1].parts[0].connectedTo, (PartRef{"a", 0}));
    EXPECT_EQ(m.defaultRender[0], m.endpoints[0].id);
    EXPECT_EQ(m.defaultRender[2], m.endpoints[1].id);
}

TEST(modelBuilder, RefusesBrokenReferencesLikeTheLoader) {
    MachineBuilder b;
    b.endpoint(Flow::Render)
        .endpoint(Flow::Capture)
        .route(generatedEndpointId(Flow::Capture, 1), generatedEndpointId(Flow::Capture, 1));
    try {
        b.build();
        FAIL();
    } catch (const LoadError& e) {
        EXPECT_NE(std::string(e.what()).find("routes[0].render: "), std::string::npos) << e.what();
    }
    EXPECT_THROW(MachineBuilder().device("d").link("nothing", "here"), std::logic_error);
}

} // namespace
