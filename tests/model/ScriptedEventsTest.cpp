// Scripted events of a machine description: read in time order, checked by playing the
// script over, and an endpoint that only arrives later held out of the machine until then.
#include "platform/model/JsonLoader.h"

#include <gtest/gtest.h>

namespace {

using namespace model;
using Kind = ScriptedEvent::Kind;

const std::string kSpeakers = "{0.0.0.00000000}.{00000000-0000-0000-0000-000000000001}";
const std::string kHeadset = "{0.0.1.00000000}.{00000000-0000-0000-0000-000000000002}";

// Two adapters: a codec with speakers, a USB headset with a microphone and its own
// topology device wired to the headset's filter.
std::string machineWith(const std::string& events) {
    return R"({"adapters": [{"instance_id": "HDAUDIO\\FUNC_01\\1", "friendly_name": "Codec"},
                            {"instance_id": "USB\\VID_1\\2", "friendly_name": "Headset"}],
              "endpoints": [{"id": ")" +
           kSpeakers + R"("},
                            {"id": ")" +
           kHeadset + R"(", "flow": "capture", "adapter": "USB\\VID_1\\2"}],
              "devices": [{"id": ")" +
           kHeadset + R"(", "connectors": [{"type": "SoftwareFixed", "flow": "out",
                             "connected_to": {"device": "usb filter", "connector": 0}}]},
                          {"id": "usb filter", "connectors": [{"name": "Mic", "subtype": "MICROPHONE"}]}],
              "events": )" +
           events + "}";
}

Machine load(const std::string& events) {
    return loadMachineJson(machineWith(events), "test.json");
}

TEST(ScriptedEventsTest, ComeInTimeOrderKeepingTheListsOrderForEqualTimes) {
    Machine m = load(R"([{"at_ms": 900, "add": ")" + kSpeakers + R"("},
                         {"at_ms": 300, "endpoint": ")" +
                     kSpeakers + R"(", "state": "unplugged"},
                         {"at_ms": 500, "remove": ")" +
                     kSpeakers + R"("},
                         {"at_ms": 300, "endpoint": ")" +
                     kHeadset + R"(", "state": 2}])");
    ASSERT_EQ(m.events.size(), 4u);
    auto stateChange = [](std::uint32_t at, const std::string& id, std::uint32_t state) {
        ScriptedEvent e;
        e.atMs = at;
        e.endpoint = id;
        e.state = state;
        return e;
    };
    EXPECT_EQ(m.events[0], stateChange(300, kSpeakers, STATE_UNPLUGGED));
    EXPECT_EQ(m.events[1], stateChange(300, kHeadset, STATE_DISABLED));
    EXPECT_EQ(m.events[2].kind, Kind::Remove);
    EXPECT_EQ(m.events[3].kind, Kind::Add);
    // Back as it left: the event carries nothing, and the machine starts complete.
    EXPECT_FALSE(m.events[3].arriving);
    EXPECT_EQ(m.endpoints.size(), 2u);
    EXPECT_TRUE(load("[]").events.empty());
}

TEST(ScriptedEventsTest, AnEndpointFirstAddedIsAbsentUntilItsEvent) {
    Machine m = load(R"([{"at_ms": 200, "add": ")" + kHeadset + R"("},
                         {"at_ms": 400, "remove": ")" +
                     kHeadset + R"("},
                         {"at_ms": 600, "add": ")" +
                     kHeadset + R"("}])");
    ASSERT_EQ(m.endpoints.size(), 1u);
    EXPECT_EQ(m.endpoints[0].id, kSpeakers);
    EXPECT_EQ(m.findDevice(kHeadset), nullptr);
    EXPECT_EQ(m.defaultCapture[0], "") << "an endpoint not yet there is nobody's default";
    ASSERT_TRUE(m.events[0].arriving);
    EXPECT_EQ(m.events[0].arriving->id, kHeadset);
    EXPECT_EQ(m.events[0].arriving->adapter, "USB\\VID_1\\2");
    ASSERT_TRUE(m.events[0].arrivingDevice);
    EXPECT_EQ(m.events[0].arrivingDevice->id, kHeadset);
    // The filter still knows its partner, as after a removal.
    EXPECT_TRUE(m.findDevice("usb filter")->parts[0].connectedTo);
    // Its second arrival is a return.
    EXPECT_FALSE(m.events[2].arriving);
}

struct Broken {
    std::string events;
    std::string path;
    std::string problem;
};

class MalformedEventTest : public testing::TestWithParam<Broken> {};

TEST_P(MalformedEventTest, IsRefusedNamingTheFieldAndWhy) {
    const Broken& c = GetParam();
    try {
        load(c.events);
        FAIL() << "accepted: " << c.events;
    } catch (const LoadError& error) {
        std::string message = error.what();
        EXPECT_EQ(message.rfind("test.json: " + c.path + ": ", 0), 0u) << message;
        EXPECT_NE(message.find(c.problem), std::string::npos) << message;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Events, MalformedEventTest,
    testing::Values(
        Broken{R"([{"remove": ")" + kSpeakers + R"("}])", "events[0].at_ms", "missing"},
        Broken{R"([{"at_ms": -1, "remove": ")" + kSpeakers + R"("}])", "events[0].at_ms", "-1"},
        Broken{R"([{"at_ms": 86400001, "remove": ")" + kSpeakers + R"("}])", "events[0].at_ms",
               "86400001"},
        Broken{R"([{"at_ms": 1}])", "events[0]", "exactly one of"},
        Broken{R"([{"at_ms": 1, "remove": ")" + kSpeakers + R"(", "add": ")" + kHeadset + R"("}])",
               "events[0]", "got 2"},
        Broken{R"([{"at_ms": 1, "endpoint": ")" + kSpeakers + R"("}])", "events[0].state",
               "missing"},
        Broken{R"([{"at_ms": 1, "remove": ")" + kSpeakers + R"(", "state": "active"}])",
               "events[0].state", "only an \"endpoint\" event"},
        Broken{R"([{"at_ms": 1, "endpoint": ")" + kSpeakers + R"(", "state": "gone"}])",
               "events[0].state", "\"gone\""},
        Broken{R"([{"at_ms": 1, "remove": ""}])", "events[0].remove", "must not be empty"},
        Broken{R"([{"at_ms": 1, "remove": "{nothing}"}])", "events[0].remove",
               "no endpoint has the id \"{nothing}\""},
        Broken{R"([{"at_ms": 1, "remvoe": ")" + kSpeakers + R"("}])", "events[0].remvoe",
               "unknown field"},
        // Played over in time order, not in the order written.
        Broken{R"([{"at_ms": 9, "endpoint": ")" + kSpeakers + R"(", "state": "active"},
                   {"at_ms": 5, "remove": ")" +
                   kSpeakers + R"("}])",
               "events[0].endpoint", "is not there at 9 ms"},
        Broken{R"([{"at_ms": 5, "remove": ")" + kSpeakers + R"("},
                   {"at_ms": 6, "remove": ")" +
                   kSpeakers + R"("}])",
               "events[1].remove", "is not there at 6 ms"},
        Broken{R"([{"at_ms": 5, "remove": ")" + kSpeakers + R"("},
                   {"at_ms": 6, "add": ")" +
                   kSpeakers + R"("},
                   {"at_ms": 7, "add": ")" +
                   kSpeakers + R"("}])",
               "events[2].add", "is present at 7 ms"},
        // Changed at 3, so there from the start: it cannot arrive at 8.
        Broken{R"([{"at_ms": 8, "add": ")" + kHeadset + R"("},
                   {"at_ms": 3, "endpoint": ")" +
                   kHeadset + R"(", "state": "disabled"}])",
               "events[0].add", "is present at 8 ms"}),
    [](const testing::TestParamInfo<Broken>& info) { return "case" + std::to_string(info.index); });

} // namespace
