// What the loader makes of fields that are given and of fields that are left out.
#include "platform/model/Guid.h"
#include "platform/model/JsonLoader.h"
#include "platform/model/NodeTypes.h"

#include <gtest/gtest.h>

namespace {

using namespace model;

Machine load(const std::string& json) {
    return loadMachineJson(json, "test.json");
}

TEST(modelLoader, AnEmptyEndpointGetsTheDocumentedDefaults) {
    Machine m = load(R"({"adapters": [{"instance_id": "usb\\VID_1\\2", "friendly_name": "Box"}],
                         "endpoints": [{}, {"flow": "capture", "state": "unplugged"}]})");
    EXPECT_EQ(m.name, "test");
    EXPECT_EQ(m.adapters[0].enumerator, "USB");
    const Endpoint& e = m.endpoints[0];
    EXPECT_EQ(e.id, "{0.0.0.00000000}.{00000000-0000-0000-0000-000000000001}");
    EXPECT_EQ(m.endpoints[1].id, "{0.0.1.00000000}.{00000000-0000-0000-0000-000000000002}");
    EXPECT_EQ(e.adapter, "usb\\VID_1\\2");
    EXPECT_EQ(e.friendlyName, "Speakers (Box)");
    EXPECT_EQ(e.directSoundGuid, "{00000000-0000-0000-0000-000000000001}");
    EXPECT_EQ(e.formFactor, UnknownFormFactor);
    EXPECT_EQ(e.volume.levelsDb, (std::vector<float>{0, 0}));
    EXPECT_EQ(e.physicalSpeakers, 3u);
    EXPECT_EQ(m.defaultRender[2], e.id);
    EXPECT_EQ(m.defaultCapture[0], "") << "the only capture endpoint is not active";
}

TEST(modelLoader, ProcessRightsAndVolumeTaperAreMachineSettings) {
    Machine plain = load("{}");
    EXPECT_TRUE(plain.elevated) << "diagnostics run as an administrator";
    EXPECT_EQ(plain.volumeTaper, VolumeTaper::Audio);
    Machine user = load(R"({"elevated": false, "volume_taper": "Linear"})");
    EXPECT_FALSE(user.elevated);
    EXPECT_EQ(user.volumeTaper, VolumeTaper::Linear);
    EXPECT_EQ(load(R"({"volume_taper": "audio"})").volumeTaper, VolumeTaper::Audio);
}

TEST(modelLoader, ExclusiveModeSettingsAreAnEndpointsWithWindowsDefaults) {
    Machine m = load(R"({"endpoints": [{}, {"stream": {"exclusive_mode_allowed": false}},
                                       {"stream": {"exclusive_mode_priority": false}}]})");
    EXPECT_TRUE(m.endpoints[0].stream.exclusiveAllowed);
    EXPECT_TRUE(m.endpoints[0].stream.exclusivePriority);
    EXPECT_FALSE(m.endpoints[1].stream.exclusiveAllowed);
    EXPECT_TRUE(m.endpoints[1].stream.exclusivePriority);
    EXPECT_TRUE(m.endpoints[2].stream.exclusiveAllowed);
    EXPECT_FALSE(m.endpoints[2].stream.exclusivePriority);
}

TEST(modelLoader, BuildsTheExtensibleDeviceFormat) {
    Machine m = load(R"({"endpoints": [{"format": {"channels": 6, "rate": 44100, "bits": 24}}]})");
    const WAVEFORMATEXTENSIBLE& f = m.endpoints[0].deviceFormat;
    static_assert(sizeof f == 40);
    EXPECT_EQ(f.Format.wFormatTag, 0xFFFE);
    EXPECT_EQ(f.Format.cbSize, 22);
    EXPECT_EQ(f.Format.nBlockAlign, 18);
    EXPECT_EQ(f.Format.nAvgBytesPerSec, 44100u * 18);
    EXPECT_EQ(f.Samples.wValidBitsPerSample, 24);
    EXPECT_EQ(f.dwChannelMask, 0x3Fu);
    EXPECT_EQ(f.SubFormat, KSDATAFORMAT_SUBTYPE_PCM);
    EXPECT_EQ(m.endpoints[0].volume.channels(), 6u) << "the volume follows the format";
}

TEST(modelLoader, AConnectionWrittenOnOneSideIsMadeSymmetric) {
    Machine m =
        load(R"({"endpoints": [{"id": "{0.0.0.00000000}.{00000000-0000-0000-0000-0000000000AA}"}],
        "devices": [
            {"id": "{0.0.0.00000000}.{00000000-0000-0000-0000-0000000000AA}", "connectors": [{}]},
            {"id": "filter", "connectors": [{"name": "Pin"}, {"name": "Jack", "subtype": "headphones",
                "connected_to": {"device": "{0.0.0.00000000}.{00000000-0000-0000-0000-0000000000AA}", "connector": 0}}]}]})");
    const Endpoint& e = m.endpoints[0];
    EXPECT_EQ(e.topologyDevice, e.id) << "a device with the endpoint's id is its topology";
    const Part& own = m.devices[0].parts[0];
    ASSERT_TRUE(own.connectedTo.has_value());
    EXPECT_EQ(*own.connectedTo, (PartRef{"filter", 1}));
    EXPECT_EQ(e.jackSubType, *nodeTypeByName("HEADPHONES")) << "taken from the connected pin";
}

TEST(modelLoader, PartsGetWindowsLocalIdsAndControlsByTheirType) {
    Machine m = load(R"({"devices": [{"id": "d", "connectors": [{"name": "in"}, {"name": "out"}],
        "subunits": [{"name": "vol", "subtype": "VOLUME"}, {"name": "mute", "subtype": "KSNODETYPE_MUTE"},
                     {"name": "sel", "subtype": "{2CEAF780-C556-11D0-8A2B-00A0C9255AC1}"}],
        "links": [["in", "vol", "sel", "out"], {"from": "mute", "to": 65538}]}]})");
    const TopologyDevice& d = m.devices[0];
    EXPECT_EQ(d.parts[1].localId, 1u);
    EXPECT_EQ(d.parts[2].localId, 0x10000u);
    EXPECT_EQ(d.links.size(), 4u);
    EXPECT_EQ(d.parts[2].volume->levelsDb, (std::vector<float>{0, 0}));
    EXPECT_EQ(d.parts[3].mute, false);
    EXPECT_EQ(d.parts[4].subType, *nodeTypeByName("MUX"));
    EXPECT_EQ(d.parts[4].selectedInput, 0x10000u) << "the first input of the selector";
    EXPECT_FALSE(d.parts[0].mute.has_value());
}

TEST(modelLoader, ReadsOverridesFaultsAndRoles) {
    Machine m = load(R"({"endpoints": [{"state": "disabled"}, {},
        {"property_overrides": [
            {"fmtid": "{a45c254e-df1c-4efd-8020-67d146a850e0}", "pid": 14, "missing": true},
            {"fmtid": "{A45C254E-DF1C-4EFD-8020-67D146A850E0}", "pid": 2, "string": "Renamed"},
            {"fmtid": "{1DA5D803-D492-4EDD-8C23-E0C0FFEE7F0E}", "pid": 0, "uint32": 9},
            {"fmtid": "{F19F064D-082C-4E27-BC73-6882A1BB8E4C}", "pid": 0, "blob_hex": "01fE"}]}],
        "faults": [{"operation": "Initialize", "results": ["0x88890004", -2147467259, 1], "sticky": true}],
        "defaults": {"render": {"communications": ""}}})");
    EXPECT_EQ(m.defaultRender[0], m.endpoints[1].id) << "the first active one";
    EXPECT_EQ(m.defaultRender[2], "");
    const auto& o = m.endpoints[2].propertyOverrides;
    ASSERT_EQ(o.size(), 4u);
    auto at = [&](const char* fmtid, std::uint32_t pid) {
        return o.at(PropertyKey{*parseGuid(fmtid), pid});
    };
    EXPECT_FALSE(at("{A45C254E-DF1C-4EFD-8020-67D146A850E0}", 14).has_value());
    EXPECT_EQ(at("{A45C254E-DF1C-4EFD-8020-67D146A850E0}", 2)->text, "Renamed");
    EXPECT_EQ(at("{1DA5D803-D492-4EDD-8C23-E0C0FFEE7F0E}", 0)->number, 9u);
    EXPECT_EQ(at("{F19F064D-082C-4E27-BC73-6882A1BB8E4C}", 0)->blob,
              (std::vector<std::uint8_t>{0x01, 0xFE}));
    const Fault& f = m.faults[0];
    EXPECT_EQ(f.results, (std::vector<HRESULT>{HRESULT(0x88890004), E_FAIL, S_FALSE}));
    EXPECT_TRUE(f.sticky);
    EXPECT_EQ(f.target, "");
}

} // namespace
