// The configuration manager's device tree: locate a device node, walk to its parent.
#pragma once

#include "platform/standin/types.h"

typedef DWORD DEVINST;
typedef DEVINST* PDEVINST;
typedef DWORD CONFIGRET;

#define CR_SUCCESS 0x00000000
#define CR_INVALID_POINTER 0x00000003
#define CR_INVALID_FLAG 0x00000004
#define CR_INVALID_DEVNODE 0x00000005
#define CR_NO_SUCH_DEVNODE 0x0000000D
#define CR_BUFFER_SMALL 0x0000001A
#define CM_LOCATE_DEVNODE_NORMAL 0x00000000
#define CM_LOCATE_DEVNODE_PHANTOM 0x00000001
#define MAX_DEVICE_ID_LEN 200

extern "C" {
LIBAUDIO_PLATFORM_API CONFIGRET CM_Locate_DevNodeW(PDEVINST devInst, LPWSTR deviceId, ULONG flags);
LIBAUDIO_PLATFORM_API CONFIGRET CM_Get_Parent(PDEVINST parent, DEVINST child, ULONG flags);
LIBAUDIO_PLATFORM_API CONFIGRET CM_Get_Device_IDW(DEVINST devInst, LPWSTR buffer, ULONG length,
                                                  ULONG flags);
}
