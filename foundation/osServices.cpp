#include "foundation/osServices.h"
#include "foundation/qelLog.h"
#include "platform/win32.h"

#include <vector>

namespace {
QEL_DEFINE_UNIT_LOGGER("qel.osservices")
}

bool ConfigurationManager::getParentDeviceInstanceId(const qel::String& childInstanceId,
                                                     qel::String& parentInstanceId) {
    std::vector<WCHAR> id(childInstanceId.getUCS2Buffer(),
                          childInstanceId.getUCS2Buffer() + childInstanceId.length() + 1);
    DEVINST child = 0;
    DEVINST parent = 0;
    CONFIGRET result = CM_Locate_DevNodeW(&child, id.data(), CM_LOCATE_DEVNODE_NORMAL);
    if (result == CR_SUCCESS) {
        result = CM_Get_Parent(&parent, child, 0);
    }
    WCHAR parentId[MAX_DEVICE_ID_LEN + 1] = {};
    if (result == CR_SUCCESS) {
        result = CM_Get_Device_IDW(parent, parentId, MAX_DEVICE_ID_LEN + 1, 0);
    }
    if (result != CR_SUCCESS) {
        QEL_ERROR("No parent device for ", childInstanceId, ", configuration manager result ",
                  (unsigned long)result);
        return false;
    }
    parentInstanceId = platform::ucs2(parentId);
    return true;
}
