// A physical connection reads the same from both ends, also when only one end records it,
// as a machine changed while the process runs may leave it.
#include "libAudio/AudioDevice.h"
#include "platform/model/JsonLoader.h"
#include "platform/sim/Runtime.h"

#include <gtest/gtest.h>

namespace {

const std::string kSpeakers = "{0.0.0.00000000}.{00000000-0000-0000-0000-000000000001}";

std::string globalIdOf(IConnector* connector) {
    CComPtr<IPart> part;
    LPWSTR id = nullptr;
    if (!connector ||
        FAILED(
            connector->QueryInterface(platform::iidOf<IPart>(), reinterpret_cast<void**>(&part))) ||
        FAILED(part->GetGlobalId(&id))) {
        return "";
    }
    std::string text = qel::String(platform::ucs2(id)).toStdString();
    CoTaskMemFree(id);
    return text;
}

// The filter's pin on the far side of the endpoint's connector, and that pin's own partner.
std::pair<std::string, std::string> bothEnds() {
    AudioDevice speakers(qel::String::fromUtf8(kSpeakers));
    qel::Array<AudioComponent<IConnector>> connectors;
    speakers.connector(connectors);
    if (connectors.empty()) {
        return {};
    }
    CComPtr<IConnector> pin, back;
    connectors[0].component()->GetConnectedTo(&pin);
    if (pin) {
        pin->GetConnectedTo(&back);
    }
    return {globalIdOf(pin), globalIdOf(back)};
}

void recordOnlyOnOneSide(const std::string& device) {
    sim::withMachine([&](model::Machine& m) {
        for (model::Part& part : m.findDevice(device)->parts) {
            part.connectedTo.reset();
        }
    });
}

TEST(ConnectionSidesTest, EitherEndAloneNamesTheConnection) {
    const std::string filter = "filter";
    const auto machine = model::loadMachineJson(
        R"({"adapters": [{"instance_id": "HDAUDIO\\FUNC_01\\1"}],
            "endpoints": [{"id": ")" +
            kSpeakers + R"("}],
            "devices": [{"id": ")" +
            kSpeakers + R"(", "connectors": [{"type": "SoftwareFixed",
                            "connected_to": {"device": "filter", "connector": 1}}]},
                        {"id": "filter", "connectors": [{"name": "Spare", "flow": "out"},
                                                        {"name": "Speaker", "flow": "out"}]}]})",
        "sides.json");
    const std::pair<std::string, std::string> expected = {"filter/00000001",
                                                          kSpeakers + "/00000000"};
    sim::installMachine(machine);
    EXPECT_EQ(bothEnds(), expected);
    // Only the endpoint's side: the pin finds its partner by looking for it.
    recordOnlyOnOneSide(filter);
    EXPECT_EQ(bothEnds(), expected);
    // Only the pin's side.
    sim::installMachine(machine);
    recordOnlyOnOneSide(kSpeakers);
    EXPECT_EQ(bothEnds(), expected);
}

} // namespace
