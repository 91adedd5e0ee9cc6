// AudioDeviceTopology and AudioPart over the simulated topology: listing connectors and
// subunits through failures, signal paths between connectors, neighbour lists.
#include "DeviceModelSupport.h"
#include "libAudio/AudioDevice.h"
#include "libAudio/AudioDeviceTopology.h"

#include <functional>
#include <optional>
#include <utility>

namespace devicemodel {
namespace {

using testsupport::LogCapture;

const std::string kEndpoint = model::generatedEndpointId(model::Flow::Render, 0);
const std::string kBare = model::generatedEndpointId(model::Flow::Render, 1);
const std::string kUpper = model::generatedEndpointId(model::Flow::Render, 2);

// The filter: Playback -> Volume -> Speaker, and Playback -> Mute -> S/PDIF, a path that
// turns analog into digital; Headphone stands apart. "FILTER" is another device whose id
// differs from "filter" only in case.
model::Machine topologyMachine() {
    model::MachineBuilder b("topology");
    b.adapter(kAdapter, "Codec");
    b.endpoint(model::Flow::Render, "Speakers").endpointDevice();
    b.endpoint(model::Flow::Render, "Bare");
    b.lastEndpoint().topologyDevice = kBare;
    b.device(kBare);
    b.endpoint(model::Flow::Render, "Upper").endpointDevice();
    b.device("filter")
        .connector("Speaker", KSNODETYPE_SPEAKER, model::ConnectorType::PhysicalInternal, 1)
        .connector("Playback", KSNODETYPE_DAC, model::ConnectorType::SoftwareIO, 0);
    b.lastPart().domain = model::SignalDomain::Analog;
    b.connector("Headphone", KSNODETYPE_HEADPHONES, model::ConnectorType::PhysicalExternal, 1)
        .connector("S/PDIF", KSNODETYPE_SPDIF_INTERFACE, model::ConnectorType::PhysicalExternal, 1);
    b.lastPart().domain = model::SignalDomain::Digital;
    b.subunit("Volume", KSNODETYPE_VOLUME)
        .subunit("Mute", KSNODETYPE_MUTE)
        .chain({"Playback", "Volume", "Speaker"})
        .chain({"Playback", "Mute", "S/PDIF"});
    b.device("FILTER").connector("Speaker", KSNODETYPE_SPEAKER,
                                 model::ConnectorType::PhysicalInternal, 1);
    b.connect({kEndpoint, 0}, {"filter", 0}).connect({kUpper, 0}, {"FILTER", 0});
    return b.build();
}

const std::vector<std::string> kFilterParts{"filter/00000000", "filter/00000001",
                                            "filter/00000002", "filter/00000003",
                                            "filter/00010000", "filter/00010001"};

class TopologyTest : public ::testing::Test {
protected:
    void SetUp() override { sim::installMachine(topologyMachine()); }

    // The connector across an endpoint's connection: a way into the adapter's topology.
    static CComPtr<IConnector> partnerOf(const std::string& endpoint) {
        AudioDevice d;
        d.initialize(platformDevice(endpoint));
        qel::Array<AudioComponent<IConnector>> own;
        EXPECT_EQ(d.connector(own), 1u);
        CComPtr<IConnector> partner;
        EXPECT_EQ(own[0].component()->GetConnectedTo(&partner), S_OK);
        return partner;
    }
    LogCapture log;
};

std::vector<std::string> globalIds(const AudioDeviceTopology& t) {
    std::vector<std::string> out;
    for (unsigned int i = 0; i < t.connector().size(); ++i) {
        out.push_back(utf8(t.connector()[i].part().globalId()));
    }
    for (unsigned int i = 0; i < t.subunit().size(); ++i) {
        out.push_back(utf8(t.subunit()[i].part().globalId()));
    }
    return out;
}

TEST_F(TopologyTest, ListsConnectorsAndSubunitsInIndexOrder) {
    AudioDeviceTopology t(partnerOf(kEndpoint));
    ASSERT_TRUE(t.isInitialized());
    EXPECT_EQ(utf8(t.deviceOwner()), "filter");
    EXPECT_EQ(globalIds(t), kFilterParts);
    EXPECT_EQ(utf8(t.connector()[1].part().name()), "Playback");
    EXPECT_EQ(t.subunit()[0].part().subType(), KSNODETYPE_VOLUME);
    EXPECT_TRUE(logged(log, kTopologyLog, kInfo, "Num connector = 4"));
    EXPECT_TRUE(logged(log, kTopologyLog, kInfo, "Subunit count = 2"));

    AudioDevice bare;
    bare.initialize(platformDevice(kBare));
    AudioDeviceTopology empty(bare.deviceTopology());
    EXPECT_TRUE(empty.isInitialized());
    EXPECT_EQ(utf8(empty.deviceOwner()), kBare);
    EXPECT_TRUE(globalIds(empty).empty());
}

// Every way of reaching the filter's topology gives the whole of it, including a rebuild
// from a part of the topology itself, which clearing would otherwise free or drop.
TEST_F(TopologyTest, EveryWayToTheSameTopologyListsAllOfIt) {
    using Made = std::optional<AudioDeviceTopology>;
    auto check = [](const char* way, const std::function<bool(Made&)>& make) {
        SCOPED_TRACE(way);
        Made t;
        EXPECT_TRUE(make(t));
        EXPECT_EQ(utf8(t->deviceOwner()), "filter");
        EXPECT_EQ(globalIds(*t), kFilterParts);
    };
    const AudioDeviceTopology filter(partnerOf(kEndpoint));
    auto own = [](Made& t) -> AudioDeviceTopology& {
        return t.emplace(partnerOf(kEndpoint));
    };
    auto connector = [] {
        return AudioComponent<IConnector>(partnerOf(kEndpoint));
    };

    check("connector", [&](Made& t) { return own(t).isInitialized(); });
    check("component", [&](Made& t) { return t.emplace(connector()).isInitialized(); });
    check("subunit",
          [&](Made& t) { return t.emplace(filter.subunit()[1].component()).isInitialized(); });
    check("copy", [&](Made& t) { return t.emplace(filter).isInitialized(); });
    check("assignment", [&](Made& t) { return (t.emplace() = filter).isInitialized(); });
    check("own connector",
          [&](Made& t) { return own(t).initialize(t->connector()[3].component()); });
    check("own subunit", [&](Made& t) { return own(t).initialize(t->subunit()[1].component()); });
    check("own topology", [&](Made& t) { return own(t).initialize(t->topology()); });
    check("own topology assigned", [&](Made& t) {
        own(t);
        return (*t = t->topology()).isInitialized();
    });
}

TEST_F(TopologyTest, PartsThatCannotBeFetchedAreLoggedAndLeftOut) {
    CComPtr<IConnector> speaker = partnerOf(kEndpoint);
    fault("GetConnector", "filter", {kNotFound});
    fault("GetSubunit", "filter");
    fault("GetDeviceId", "filter");
    fault("QueryInterface.IPart", "filter/00000002"); // listed all the same, without identity
    AudioDeviceTopology t(speaker);
    EXPECT_EQ(globalIds(t), (std::vector<std::string>{"filter/00000001", "", "filter/00000003",
                                                      "filter/00010001"}));
    EXPECT_EQ(t.connector()[1].part().subType(), GUID{});
    EXPECT_TRUE(t.deviceOwner().empty());
    EXPECT_EQ(messages(log, kTopologyLog, kError),
              (std::vector<std::string>{"Unable to retrieve device id from topology " + hex(kFail),
                                        "Unable to retrieve connector index 0 " + hex(kNotFound),
                                        "Unable to retrieve subunit index 0 " + hex(kFail)}));
}

TEST_F(TopologyTest, TopologyOfAComponentFailsCleanly) {
    CComPtr<IConnector> speaker = partnerOf(kEndpoint);
    AudioDeviceTopology t(speaker);
    EXPECT_FALSE(t.initialize(CComPtr<IConnector>()));
    EXPECT_FALSE(t.isInitialized());
    EXPECT_TRUE(t.connector().empty());
    EXPECT_TRUE(logged(log, kTopologyLog, kError, "Cannot use NULL as parameter"));

    fault("QueryInterface.IPart", "filter/00000000");
    EXPECT_FALSE(t.initialize(speaker));
    EXPECT_TRUE(logged(log, kTopologyLog, kError, "No part interface found"));

    fault("GetTopologyObject", "filter/00000000");
    EXPECT_FALSE(t.initialize(speaker));
    EXPECT_TRUE(logged(log, kTopologyLog, kError, "GetTopologyObject fails " + hex(kFail)));
    EXPECT_TRUE(
        logged(log, kTopologyLog, kInfo, "Using NULL deviceTopology invalidates this object"));
    EXPECT_TRUE(t.initialize(speaker));
}

TEST_F(TopologyTest, ConnectorsAreLinkedInEitherDirectionButNeverToThemselves) {
    AudioDeviceTopology t(partnerOf(kEndpoint));
    const auto& c = t.connector();
    const AudioComponent<IConnector>&speaker = c[0], &playback = c[1], &headphone = c[2],
          &spdif = c[3];
    const std::string noPath = "No signal path from ";

    EXPECT_TRUE(t.connectorsAreLinked(playback, speaker));
    EXPECT_TRUE(messages(log, kTopologyLog, kError).empty());

    EXPECT_TRUE(t.connectorsAreLinked(speaker, playback));
    EXPECT_EQ(messages(log, kTopologyLog, kError),
              std::vector<std::string>{noPath + "filter/00000000 to filter/00000001"});

    // No path at all, and a path that mixes analog and digital, are both unlinked.
    for (const AudioComponent<IConnector>* other : {&headphone, &spdif}) {
        const std::string id = utf8(other->part().globalId());
        SCOPED_TRACE(id);
        log.clear();
        EXPECT_FALSE(t.connectorsAreLinked(playback, *other));
        EXPECT_EQ(messages(log, kTopologyLog, kError),
                  (std::vector<std::string>{noPath + "filter/00000001 to " + id,
                                            noPath + id + " to filter/00000001"}));
    }

    // Same connector, or one whose id differs only in case: the platform is not asked.
    AudioDeviceTopology upper(partnerOf(kUpper));
    ASSERT_EQ(upper.connector().size(), 1u);
    fault("GetSignalPath", "filter", {kFail}, true);
    log.clear();
    EXPECT_FALSE(t.connectorsAreLinked(speaker, speaker));
    EXPECT_FALSE(t.connectorsAreLinked(speaker, upper.connector()[0]));
    EXPECT_EQ(countOf(log, kTopologyLog, kError, "Function treats the same connectors as unlinked"),
              2);
    EXPECT_EQ(messages(log, kTopologyLog, kError).size(), 2u);
    EXPECT_EQ(
        sim::readMachine<std::size_t>([](const model::Machine& m) { return m.faults.size(); }), 1u);
    EXPECT_FALSE(t.connectorsAreLinked(speaker, AudioComponent<IConnector>()));
    EXPECT_TRUE(logged(log, kTopologyLog, kError, "One of the connectors is invalid"));
}

TEST_F(TopologyTest, PartsCompareByGlobalIdIgnoringCaseAndTakeTheIdentityOfWhatIsAssigned) {
    AudioDeviceTopology t(partnerOf(kEndpoint)), upper(partnerOf(kUpper));
    const AudioPart &speaker = t.connector()[0].part(), &playback = t.connector()[1].part();
    EXPECT_TRUE(speaker == upper.connector()[0].part());
    EXPECT_FALSE(speaker == playback);

    AudioPart raw = speaker, counted = speaker;
    raw = static_cast<IPart*>(t.subunit()[1].part().part());
    counted = playback.part();
    EXPECT_EQ(utf8(raw.globalId()), "filter/00010001");
    EXPECT_EQ(utf8(raw.name()), "Mute");
    EXPECT_EQ(raw.subType(), KSNODETYPE_MUTE);
    EXPECT_TRUE(counted == playback);
    EXPECT_EQ(utf8(counted.name()), "Playback");
}

std::vector<std::string> names(const qel::Array<AudioPart>& parts) {
    std::vector<std::string> out;
    for (const AudioPart& part : parts) {
        out.push_back(utf8(part.name()));
    }
    return out;
}

TEST_F(TopologyTest, NeighbourListsAreReplacedOnEveryRequest) {
    AudioDeviceTopology t(partnerOf(kEndpoint));
    AudioPart volume = t.subunit()[0].part();
    qel::Array<AudioPart> parts;
    for (int request = 0; request < 2; ++request) {
        EXPECT_EQ(volume.incomingPartsList(parts), 1u);
        EXPECT_EQ(names(parts), std::vector<std::string>{"Playback"});
        EXPECT_EQ(volume.outgoingPartsList(parts), 1u);
        EXPECT_EQ(names(parts), std::vector<std::string>{"Speaker"});
    }
    EXPECT_TRUE(parts[0] == t.connector()[0].part());

    // A walk along the signal that lists each part's neighbours into the array holding it.
    AudioPart playback = t.connector()[1].part();
    EXPECT_EQ(playback.outgoingPartsList(parts), 2u);
    EXPECT_EQ(names(parts), (std::vector<std::string>{"Volume", "Mute"}));
    EXPECT_EQ(parts[1].outgoingPartsList(parts), 1u);
    EXPECT_EQ(names(parts), std::vector<std::string>{"S/PDIF"});

    // A failed request leaves nothing of the last one behind.
    EXPECT_EQ(playback.incomingPartsList(parts), 0u); // nothing links into it
    EXPECT_TRUE(parts.empty());
    EXPECT_TRUE(logged(log, kPartLog, kError, "Unable to enumerate incoming parts"));
    EXPECT_EQ(playback.outgoingPartsList(parts), 2u);
    fault("EnumPartsOutgoing", "filter/00000001");
    EXPECT_EQ(playback.outgoingPartsList(parts), 0u);
    EXPECT_TRUE(parts.empty());
    EXPECT_TRUE(logged(log, kPartLog, kError, "Unable to enumerate outgoing parts"));
}

TEST_F(TopologyTest, PartsFindTheirTopology) {
    AudioDeviceTopology t(partnerOf(kEndpoint));
    AudioPart playback = t.connector()[1].part();
    EXPECT_TRUE(playback.topology());
    fault("GetTopologyObject", "filter/00000001");
    EXPECT_FALSE(playback.topology());
    EXPECT_TRUE(logged(log, kPartLog, kError, "Unable to get topology object from part Playback"));
}

} // namespace
} // namespace devicemodel
