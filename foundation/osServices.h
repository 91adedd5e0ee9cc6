// The configuration manager of the OS services library: the device tree.
#pragma once

#include "foundation/export.h"
#include "foundation/qelString.h"

class LIBAUDIO_API ConfigurationManager {
public:
    // The device-tree parent of a device instance; false (parent unchanged) when the
    // device is unknown or has no parent.
    static bool getParentDeviceInstanceId(const qel::String& childInstanceId,
                                          qel::String& parentInstanceId);
};

inline bool getParentDeviceInstanceId(const qel::String& childInstanceId,
                                      qel::String& parentInstanceId) {
    return ConfigurationManager::getParentDeviceInstanceId(childInstanceId, parentInstanceId);
}
