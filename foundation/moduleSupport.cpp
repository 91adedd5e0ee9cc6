#include "foundation/moduleSupport.h"

#include <cstdio>

qel::String guidToString(const GUID* guid) {
    if (!guid) {
        return qel::String("{null}");
    }
    char text[40];
    std::snprintf(text, sizeof text, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                  unsigned(guid->Data1), unsigned(guid->Data2), unsigned(guid->Data3),
                  guid->Data4[0], guid->Data4[1], guid->Data4[2], guid->Data4[3], guid->Data4[4],
                  guid->Data4[5], guid->Data4[6], guid->Data4[7]);
    return qel::String(text);
}
