// Looking endpoints, adapters and devices up by id stays right while the lists change under
// it: each lookup remembers where it last found an id, and a remembered place that no longer
// holds the id must not be trusted.
#include "platform/model/Machine.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using namespace model;

Machine withIds(const std::vector<std::string>& ids) {
    Machine m;
    for (const std::string& id : ids) {
        m.endpoints.emplace_back().id = id;
        m.devices.emplace_back().id = id;
        m.adapters.emplace_back().instanceId = id;
    }
    return m;
}

// The element each lookup returns must carry the id asked for.
void expectFound(Machine& m, const std::string& id) {
    SCOPED_TRACE(id);
    ASSERT_NE(m.findEndpoint(id), nullptr);
    EXPECT_EQ(m.findEndpoint(id)->id, id);
    EXPECT_EQ(m.findDevice(id)->id, id);
    EXPECT_EQ(m.findAdapter(id)->instanceId, id);
    const Machine& constant = m;
    EXPECT_EQ(constant.findEndpoint(id), m.findEndpoint(id));
    EXPECT_EQ(constant.findDevice(id), m.findDevice(id));
}

void expectMissing(const Machine& m, const std::string& id) {
    EXPECT_EQ(m.findEndpoint(id), nullptr) << id;
    EXPECT_EQ(m.findDevice(id), nullptr) << id;
    EXPECT_EQ(m.findAdapter(id), nullptr) << id;
}

TEST(LookupTest, FindsEachIdWhereverTheListsMoveIt) {
    Machine m = withIds({"a", "b", "c", "d"});
    for (const char* id : {"d", "a", "c", "b", "d"}) {
        expectFound(m, id);
    }
    // Removed from the front: every remembered place is off by one.
    m.endpoints.erase(m.endpoints.begin());
    m.devices.erase(m.devices.begin());
    m.adapters.erase(m.adapters.begin());
    expectMissing(m, "a");
    for (const char* id : {"d", "b", "c"}) {
        expectFound(m, id);
    }
    // Reordered, and one id given to another place.
    std::reverse(m.endpoints.begin(), m.endpoints.end());
    std::reverse(m.devices.begin(), m.devices.end());
    m.adapters[0].instanceId = "e";
    expectFound(m, "c");
    EXPECT_EQ(m.findEndpoint("d"), &m.endpoints[0]);
    EXPECT_EQ(m.findDevice("b"), &m.devices[2]);
    EXPECT_EQ(m.findAdapter("b"), nullptr);
    EXPECT_EQ(m.findAdapter("e"), &m.adapters[0]);
    m.endpoints.clear();
    EXPECT_EQ(m.findEndpoint("c"), nullptr);
}

TEST(LookupTest, TwoMachinesWithTheSameIdsInOtherPlaces) {
    Machine first = withIds({"x", "y", "z"});
    Machine second = withIds({"z", "y", "x"});
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(first.findEndpoint("z"), &first.endpoints[2]);
        EXPECT_EQ(second.findEndpoint("z"), &second.endpoints[0]);
        EXPECT_EQ(first.findDevice("x"), &first.devices[0]);
        EXPECT_EQ(second.findDevice("x"), &second.devices[2]);
    }
    // A copy answers with its own elements.
    Machine copy = second;
    EXPECT_EQ(copy.findEndpoint("y"), &copy.endpoints[1]);
    const PartRef ref{"y", 0};
    copy.findDevice("y")->parts.emplace_back().localId = 0;
    EXPECT_EQ(copy.findPart(ref), &copy.devices[1].parts[0]);
    EXPECT_EQ(second.findPart(ref), nullptr);
}

} // namespace
