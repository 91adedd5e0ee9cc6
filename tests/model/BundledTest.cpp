// The bundled machines load, and their references hold when walked independently.
#include "platform/model/Bundled.h"
#include "platform/model/JsonLoader.h"
#include "platform/model/NodeTypes.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>

namespace {

using namespace model;

void expectReferencesHold(const Machine& m) {
    for (const Endpoint& e : m.endpoints) {
        SCOPED_TRACE(e.id);
        const Adapter* adapter = m.findAdapter(e.adapter);
        ASSERT_NE(adapter, nullptr);
        EXPECT_EQ(adapter->instanceId.rfind(adapter->enumerator + "\\", 0), 0u);
        const TopologyDevice* own = m.findDevice(e.topologyDevice);
        ASSERT_NE(own, nullptr) << "every bundled endpoint has its own topology";
        ASSERT_FALSE(own->parts.empty());
        ASSERT_TRUE(own->parts[0].connectedTo.has_value());
        const Part* pin = m.findPart(*own->parts[0].connectedTo);
        ASSERT_NE(pin, nullptr);
        EXPECT_EQ(pin->subType, e.jackSubType);
        EXPECT_FALSE(nodeTypeName(e.jackSubType).empty());
        EXPECT_EQ(e.deviceFormat.Format.wFormatTag, WAVE_FORMAT_EXTENSIBLE);
    }
    for (const TopologyDevice& d : m.devices) {
        for (const Part& p : d.parts) {
            if (p.connectedTo) {
                const Part* partner = m.findPart(*p.connectedTo);
                ASSERT_NE(partner, nullptr) << d.id;
                ASSERT_TRUE(partner->connectedTo.has_value()) << d.id;
                EXPECT_EQ(*partner->connectedTo, (PartRef{d.id, p.localId}));
            }
        }
        for (const Link& link : d.links) {
            EXPECT_TRUE(d.findPart(link.from) && d.findPart(link.to)) << d.id;
        }
    }
    for (const Route& r : m.routes) {
        ASSERT_TRUE(m.findEndpoint(r.render) && m.findEndpoint(r.capture));
        EXPECT_EQ(m.findEndpoint(r.render)->flow, Flow::Render);
        EXPECT_EQ(m.findEndpoint(r.capture)->flow, Flow::Capture);
    }
    for (int role = 0; role < 3; ++role) {
        for (auto [id, flow] : {std::pair{m.defaultRender[role], Flow::Render},
                                std::pair{m.defaultCapture[role], Flow::Capture}}) {
            ASSERT_NE(m.findEndpoint(id), nullptr) << "role " << role;
            EXPECT_EQ(m.findEndpoint(id)->flow, flow);
        }
    }
}

TEST(modelBundled, EveryOneLoadsAndItsReferencesHold) {
    std::vector<std::string> names = bundledMachineNames();
    EXPECT_EQ(names, (std::vector<std::string>{"desktop", "empty", "laptop"}));
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        Machine m = loadMachine(name);
        EXPECT_EQ(m.name, name);
        if (name == "empty") {
            EXPECT_TRUE(m.endpoints.empty() && m.adapters.empty() && m.defaultRender[0].empty());
        } else {
            expectReferencesHold(m);
        }
    }
}

std::set<std::string> nodeTypesOf(const Machine& m, Flow flow) {
    std::set<std::string> names;
    for (const Endpoint& e : m.endpoints) {
        if (e.flow == flow) {
            names.insert(nodeTypeName(e.jackSubType));
        }
    }
    return names;
}

TEST(modelBundled, LaptopHasTheDocumentedHardware) {
    Machine m = loadMachine("laptop");
    EXPECT_EQ(nodeTypesOf(m, Flow::Render),
              (std::set<std::string>{"SPEAKER", "HEADPHONES", "HDMI_INTERFACE"}));
    EXPECT_EQ(nodeTypesOf(m, Flow::Capture),
              (std::set<std::string>{"MICROPHONE_ARRAY", "MICROPHONE"}));
    std::set<std::string> buses;
    for (const Adapter& a : m.adapters) {
        buses.insert(a.enumerator);
    }
    EXPECT_EQ(buses, (std::set<std::string>{"HDAUDIO", "USB", "ROOT"}));
    ASSERT_EQ(m.routes.size(), 2u);
    EXPECT_EQ(nodeTypeName(m.findEndpoint(m.routes[0].render)->jackSubType), "SPEAKER");
    EXPECT_EQ(nodeTypeName(m.findEndpoint(m.routes[0].capture)->jackSubType), "MICROPHONE_ARRAY");
    EXPECT_EQ(nodeTypeName(m.findEndpoint(m.routes[1].render)->jackSubType), "HEADPHONES");
}

TEST(modelBundled, DesktopHasAnUnpluggedFrontMicrophone) {
    Machine m = loadMachine("desktop");
    std::size_t unplugged = 0;
    for (const Endpoint& e : m.endpoints) {
        unplugged += e.state == STATE_UNPLUGGED;
    }
    EXPECT_EQ(unplugged, 1u);
    EXPECT_EQ(nodeTypesOf(m, Flow::Capture),
              (std::set<std::string>{"MICROPHONE", "LINE_CONNECTOR"}));
}

TEST(modelLoadMachine, ReadsAFileByPathAndNamesItAfterTheFile) {
    auto path = std::filesystem::temp_directory_path() / "model_test_small.json";
    std::ofstream(path) << R"({"endpoints": [{"description": "Out"}]})";
    Machine m = loadMachine(path.string());
    std::filesystem::remove(path);
    EXPECT_EQ(m.name, "model_test_small");
    ASSERT_EQ(m.endpoints.size(), 1u);
    EXPECT_EQ(m.endpoints[0].description, "Out");
}

TEST(modelLoadMachine, UnknownNamesAndMissingFilesAreErrors) {
    try {
        loadMachine("submarine");
        FAIL();
    } catch (const LoadError& e) {
        EXPECT_NE(std::string(e.what()).find("desktop, empty, laptop"), std::string::npos);
    }
    EXPECT_THROW(loadMachine("/nonexistent/machine.json"), LoadError);
}

} // namespace
