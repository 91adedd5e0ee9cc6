#include "platform/sim/control.h"
#include "platform/sim/devicetree.h"
#include "platform/win32.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

namespace {

// The apartment belongs to the thread, so each case starts from a clean one.
template <class Body> void onFreshThread(Body body) {
    std::thread(body).join();
}

TEST(CoInitialize, FirstCallOkThenFalseUntilBalanced) {
    onFreshThread([] {
        EXPECT_EQ(CoInitialize(nullptr), S_OK);
        EXPECT_EQ(CoInitialize(nullptr), S_FALSE);
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), RPC_E_CHANGED_MODE);
        EXPECT_EQ(sim::comInitCount(), 2); // the rejected call does not count
        CoUninitialize();
        CoUninitialize();
        EXPECT_EQ(sim::comInitCount(), 0);
        // Once fully uninitialized the thread may choose another model.
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
        CoUninitialize();
        EXPECT_EQ(sim::comUninitializeCalls(), 3);
        sim::failNextCoInitialize(E_UNEXPECTED); // hits the next call only
        EXPECT_EQ(CoInitialize(nullptr), E_UNEXPECTED);
        EXPECT_EQ(sim::comInitCount(), 0);
        EXPECT_EQ(CoInitialize(nullptr), S_OK);
        CoUninitialize();
    });
}

CONFIGRET locate(const std::string& id, DEVINST& node, ULONG flags = CM_LOCATE_DEVNODE_NORMAL) {
    std::u16string wide(id.begin(), id.end());
    return CM_Locate_DevNodeW(&node, wide.data(), flags);
}
std::string idOf(DEVINST node) {
    WCHAR buffer[MAX_DEVICE_ID_LEN + 1] = {};
    EXPECT_EQ(CM_Get_Device_IDW(node, buffer, MAX_DEVICE_ID_LEN + 1, 0), CONFIGRET(CR_SUCCESS));
    std::u16string wide(buffer);
    return std::string(wide.begin(), wide.end());
}

TEST(DeviceTree, WalksFromFunctionToAdapterToRoot) {
    sim::clearDeviceTree();
    sim::addDeviceNode("ROOT\\PCI0", "");
    sim::addDeviceNode("PCI\\VEN_8086&DEV_A170\\3&1&0&FB", "ROOT\\PCI0");
    sim::addDeviceNode("HDAUDIO\\FUNC_01&VEN_10EC\\4&2&0&0001", "PCI\\VEN_8086&DEV_A170\\3&1&0&FB");
    DEVINST function = 0, adapter = 0, root = 0, none = 0;
    ASSERT_EQ(locate("hdaudio\\func_01&ven_10ec\\4&2&0&0001", function), CONFIGRET(CR_SUCCESS));
    ASSERT_EQ(CM_Get_Parent(&adapter, function, 0), CONFIGRET(CR_SUCCESS));
    EXPECT_EQ(idOf(adapter), "PCI\\VEN_8086&DEV_A170\\3&1&0&FB");
    ASSERT_EQ(CM_Get_Parent(&root, adapter, 0), CONFIGRET(CR_SUCCESS));
    EXPECT_EQ(idOf(root), "ROOT\\PCI0");
    EXPECT_EQ(CM_Get_Parent(&none, root, 0), CONFIGRET(CR_NO_SUCH_DEVNODE));

    sim::addDeviceNode("HDAUDIO\\FUNC_01&VEN_10EC\\4&2&0&0001", "ROOT\\PCI0"); // re-parent
    ASSERT_EQ(CM_Get_Parent(&adapter, function, 0), CONFIGRET(CR_SUCCESS));
    EXPECT_EQ(idOf(adapter), "ROOT\\PCI0");

    EXPECT_EQ(locate("USB\\VID_046D", none), CONFIGRET(CR_NO_SUCH_DEVNODE));
    EXPECT_EQ(locate("ROOT\\PCI0", none, 0x100), CONFIGRET(CR_INVALID_FLAG));
    EXPECT_EQ(CM_Get_Parent(&none, 999, 0), CONFIGRET(CR_INVALID_DEVNODE));
    WCHAR exact[10] = {}; // "ROOT\PCI0" and its terminator
    EXPECT_EQ(CM_Get_Device_IDW(root, exact, 9, 0), CONFIGRET(CR_BUFFER_SMALL));
    EXPECT_EQ(CM_Get_Device_IDW(root, exact, 10, 0), CONFIGRET(CR_SUCCESS));
    EXPECT_EQ(std::u16string(exact), u"ROOT\\PCI0");
    sim::clearDeviceTree();
}

} // namespace
