// The module support library: GUID text.
#pragma once

#include "foundation/export.h"
#include "foundation/qelString.h"
#include "platform/win32.h"

// The registry form, "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}", upper-case; "{null}" for a
// null pointer.
LIBAUDIO_API qel::String guidToString(const GUID* guid);
