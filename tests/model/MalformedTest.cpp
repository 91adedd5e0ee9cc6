// Malformed machine descriptions are refused with a message naming file, field and problem.
#include "platform/model/Bundled.h"
#include "platform/model/JsonLoader.h"

#include <gtest/gtest.h>

namespace {

struct Broken {
    const char* json;
    const char* path; // "" for a problem of the whole document
    const char* problem;
};

const char* const kOneEndpoint = R"("endpoints": [{}])";

std::string withEndpoint(const char* fields) {
    return std::string(R"({"endpoints": [{)") + fields + "}]}";
}

std::string withDevice(const char* fields) {
    return std::string(R"({"devices": [{"id": "d", )") + fields + "}]}";
}

// The field's path names a case in reports (and keeps test names stable).
void PrintTo(const Broken& c, std::ostream* out) {
    *out << (*c.path ? c.path : c.json);
}

class MalformedTest : public testing::TestWithParam<Broken> {};

TEST_P(MalformedTest, IsRefusedNamingFileFieldAndProblem) {
    const Broken& c = GetParam();
    std::string prefix = std::string("bad.json: ") + (*c.path ? std::string(c.path) + ": " : "");
    try {
        model::loadMachineJson(c.json, "bad.json");
        FAIL() << "accepted: " << c.json;
    } catch (const model::LoadError& error) {
        std::string message = error.what();
        EXPECT_EQ(message.rfind(prefix, 0), 0u) << message;
        EXPECT_NE(message.find(c.problem), std::string::npos) << message;
    }
}

const std::string kCases[][3] = {
    {R"({"name": })", "", "not valid JSON"},
    {"[]", "", "expected an object, got an array"},
    {R"({"endpionts": []})", "endpionts", "unknown field"},
    {R"({"volume_taper": "logarithmic"})", "volume_taper",
     R"(expected "audio" or "linear", got "logarithmic")"},
    {R"({"elevated": "no"})", "elevated", R"(expected true or false, got "no")"},
    {R"({"endpoints": [{}, {}, {"flow": "render", "flow": "capture"}]})", "endpoints[2].flow",
     "written twice"},
    {R"({"devices": [{"id": "d", "links": [["a", "b"], ["c"]], "id": "e"}]})", "devices[0].id",
     "written twice"},
    {withEndpoint(R"("flow": "sideways")"), "endpoints[0].flow",
     R"(expected "render" or "capture", got "sideways")"},
    {withEndpoint(R"("flw": "render")"), "endpoints[0].flw", "unknown field"},
    {withEndpoint(R"("stream": {"exclusive_mode_allowed": 0})"),
     "endpoints[0].stream.exclusive_mode_allowed", "expected true or false, got 0"},
    {withEndpoint(R"("state": 3)"), "endpoints[0].state", "got 3"},
    {R"({"adapters": [{"instance_id": 5}]})", "adapters[0].instance_id",
     "expected a string, got 5"},
    {withEndpoint(R"("volume": {"range": {"min_db": -10, "max_db": 0}, "levels_db": [0, -20]})"),
     "endpoints[0].volume.levels_db[1]", "-20 dB is outside the range -10 to 0 dB"},
    {withEndpoint(R"("volume": {"channels": 2, "levels_db": [0]})"),
     "endpoints[0].volume.levels_db", "1 levels for 2 channels"},
    {withEndpoint(R"("volume": {"range": {"step_db": 0}})"), "endpoints[0].volume.range.step_db",
     "must be above 0"},
    {withEndpoint(R"("format": {"bits": 12})"), "endpoints[0].format.bits", "8, 16, 24 or 32"},
    {withEndpoint(R"("format": {"channels": 0})"), "endpoints[0].format.channels", "from 1 to 32"},
    {withEndpoint(R"("direct_sound_guid": "{1234}")"), "endpoints[0].direct_sound_guid",
     "expected a GUID"},
    {withEndpoint(
         R"("flow": "capture", "id": "{0.0.0.00000000}.{00000000-0000-0000-0000-000000000001}")"),
     "endpoints[0].id", "for a capture endpoint"},
    {R"({"adapters": [{"instance_id": "A"}], "endpoints": [{"adapter": "B"}]})",
     "endpoints[0].adapter", R"(no adapter has the instance id "B")"},
    {withEndpoint(R"("topology_device": "nowhere")"), "endpoints[0].topology_device",
     "no topology device"},
    {R"({"endpoints": [{}, {"id": "{0.0.0.00000000}.{00000000-0000-0000-0000-000000000001}"}]})",
     "endpoints[1].id", "another endpoint has the same id"},
    {withEndpoint(
         R"("property_overrides": [{"fmtid": "{A45C254E-DF1C-4EFD-8020-67D146A850E0}", "pid": 2, "missing": true, "uint32": 3}])"),
     "endpoints[0].property_overrides[0]", "exactly one of"},
    {withEndpoint(
         R"("property_overrides": [{"fmtid": "{A45C254E-DF1C-4EFD-8020-67D146A850E0}", "pid": 2, "blob_hex": "abc"}])"),
     "endpoints[0].property_overrides[0].blob_hex", "even number of hex digits"},
    {R"({"devices": [{"connectors": []}]})", "devices[0].id", "missing"},
    {withDevice(R"("connectors": [{"subtype": "LOUDSPEAKER"}])"),
     "devices[0].connectors[0].subtype", "KSNODETYPE name"},
    {withDevice(R"("connectors": [{"jacks": [{"color": "#GGGGGG"}]}])"),
     "devices[0].connectors[0].jacks[0].color", "#RRGGBB"},
    {withDevice(R"("connectors": [{"id": 1}, {"id": 1}])"), "devices[0].connectors[1].id",
     "another part of this device has the local id 1"},
    {withDevice(R"("subunits": [{"jacks": []}])"), "devices[0].subunits[0].jacks", "unknown field"},
    {withDevice(R"("connectors": [{}], "links": [{"from": 0, "to": 7}])"), "devices[0].links[0].to",
     "no part of this device has the local id 7"},
    {withDevice(R"("connectors": [{"name": "a"}], "links": [["a", "x"]])"),
     "devices[0].links[0][1]", R"(no part named "x")"},
    {withDevice(
         R"("connectors": [{"name": "a"}, {"name": "b"}], "subunits": [{"name": "m", "subtype": "MUX", "selected_input": "b"}], "links": [["a", "m"]])"),
     "devices[0].subunits[0].selected_input", "does not link into this selector"},
    {withDevice(R"("connectors": [{"connected_to": {"device": "e", "connector": 0}}])"),
     "devices[0].connectors[0].connected_to.device", R"(no topology device has the id "e")"},
    {R"({"devices": [{"id": "a", "connectors": [{"connected_to": {"device": "b", "connector": 0}}]},
                     {"id": "b", "subunits": [{}]}]})",
     "devices[0].connectors[0].connected_to.connector", "has no connector with the local id 0"},
    {R"({"devices": [{"id": "a", "connectors": [{"connected_to": {"device": "c", "connector": 0}}]},
                     {"id": "b", "connectors": [{"connected_to": {"device": "c", "connector": 0}}]},
                     {"id": "c", "connectors": [{}]}]})",
     "devices[1].connectors[0].connected_to",
     R"(connector 0 of "c" is already connected to connector 0 of "a")"},
    {std::string(
         R"({"endpoints": [{}, {}], "routes": [{"render": "{0.0.0.00000000}.{00000000-0000-0000-0000-000000000001}", "capture": "{0.0.0.00000000}.{00000000-0000-0000-0000-000000000002}"}]})"),
     "routes[0].capture", "is not a capture endpoint"},
    {R"({"endpoints": [{"flow": "capture"}], "defaults": {"render": "{0.0.1.00000000}.{00000000-0000-0000-0000-000000000001}"}})",
     "defaults.render.console", "is not a render endpoint"},
    {R"({"endpoints": [{}, {"flow": "capture"}], "routes": [{"render": "{0.0.0.00000000}.{00000000-0000-0000-0000-000000000001}", "capture": "{0.0.1.00000000}.{00000000-0000-0000-0000-000000000002}", "delay_ms": 1e9}]})",
     "routes[0].delay_ms", "must be from 0 to 10000 ms"},
    {withEndpoint(R"("volume": {"range": {"min_db": -1e39}})"), "endpoints[0].volume.range.min_db",
     "must be from -1000 to 1000 dB"},
    {withEndpoint(R"("format": {"rate": 1e400})"), "", "not valid JSON"},
    {R"({"faults": [{"operation": "Activate", "results": ["0xZZ"]}]})", "faults[0].results[0]",
     "expected a result code"},
    {R"({"faults": [{"target": "x"}]})", "faults[0].operation", "missing"},
    {std::string("{") + kOneEndpoint + R"(, "routes": [{"render": 1}]})", "routes[0].render",
     "expected a string"},
};

std::vector<Broken> cases() {
    std::vector<Broken> all;
    for (const auto& c : kCases) {
        all.push_back({c[0].c_str(), c[1].c_str(), c[2].c_str()});
    }
    return all;
}

INSTANTIATE_TEST_SUITE_P(model, MalformedTest, testing::ValuesIn(cases()));

// Any prefix of a valid description is an error, never a crash or a half-read machine.
TEST(modelMalformed, EveryTruncationOfTheLaptopIsRefused) {
    std::string text = model::bundledMachineJson("laptop").value();
    for (std::size_t length = 0; length + 1 < text.size(); length += 61) {
        EXPECT_THROW(model::loadMachineJson(text.substr(0, length), "cut.json"), model::LoadError);
    }
}

} // namespace
