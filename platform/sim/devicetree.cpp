#include "platform/sim/devicetree.h"
#include "platform/sim/utf16.h"
#include "platform/standin/cfgmgr.h"

#include <algorithm>
#include <cctype>
#include <mutex>
#include <vector>

namespace {

struct Node {
    std::string id;
    std::string parentId;
};

std::mutex treeMutex;
std::vector<Node> nodes; // DEVINST n is nodes[n - 1]

bool sameId(const std::string& a, const std::string& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::toupper((unsigned char)x) == std::toupper((unsigned char)y);
    });
}

DEVINST find(const std::string& id) {
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        if (sameId(nodes[i].id, id)) {
            return DEVINST(i + 1);
        }
    }
    return 0;
}

bool valid(DEVINST node) {
    return node >= 1 && node <= nodes.size();
}

} // namespace

namespace sim {

void addDeviceNode(const std::string& instanceId, const std::string& parentInstanceId) {
    std::lock_guard lock(treeMutex);
    if (DEVINST existing = find(instanceId)) {
        nodes[existing - 1].parentId = parentInstanceId;
        return;
    }
    nodes.push_back({instanceId, parentInstanceId});
}

void clearDeviceTree() {
    std::lock_guard lock(treeMutex);
    nodes.clear();
}

} // namespace sim

extern "C" {

CONFIGRET CM_Locate_DevNodeW(PDEVINST devInst, LPWSTR deviceId, ULONG flags) {
    if (!devInst) {
        return CR_INVALID_POINTER;
    }
    if (flags & ~ULONG(CM_LOCATE_DEVNODE_PHANTOM)) {
        return CR_INVALID_FLAG;
    }
    std::lock_guard lock(treeMutex);
    *devInst = deviceId ? find(sim::toUtf8(deviceId)) : (nodes.empty() ? 0 : 1);
    return *devInst ? CR_SUCCESS : CR_NO_SUCH_DEVNODE;
}

CONFIGRET CM_Get_Parent(PDEVINST parent, DEVINST child, ULONG) {
    if (!parent) {
        return CR_INVALID_POINTER;
    }
    std::lock_guard lock(treeMutex);
    if (!valid(child)) {
        return CR_INVALID_DEVNODE;
    }
    const std::string& parentId = nodes[child - 1].parentId;
    *parent = parentId.empty() ? 0 : find(parentId);
    return *parent ? CR_SUCCESS : CR_NO_SUCH_DEVNODE;
}

CONFIGRET CM_Get_Device_IDW(DEVINST devInst, LPWSTR buffer, ULONG length, ULONG) {
    if (!buffer) {
        return CR_INVALID_POINTER;
    }
    std::lock_guard lock(treeMutex);
    if (!valid(devInst)) {
        return CR_INVALID_DEVNODE;
    }
    const std::string& id = nodes[devInst - 1].id; // device ids are ASCII
    if (id.size() + 1 > length) {
        return CR_BUFFER_SMALL;
    }
    std::copy(id.begin(), id.end(), buffer);
    buffer[id.size()] = 0;
    return CR_SUCCESS;
}
}
