// Windows only: the one place where the SDK's GUIDs and property keys are defined rather
// than declared. The definitions are select-any, so they do not clash with system libraries.
#include <initguid.h>

#include "platform/win32.h"
