// Settings lookup. Settings live in an INI file named by the environment variable
// LIBAUDIO_SETTINGS:
//
//   ; comment            # comment
//   [section]
//   key = value
//
// Section and key names compare ignoring ASCII case; the value is the text after the
// first '=' with surrounding blanks removed, read as UTF-8. The first definition of a key
// in a section wins. The file is read on every lookup, so edits take effect at once.
#pragma once

#include "foundation/export.h"
#include "foundation/qelString.h"

class LIBAUDIO_API QELLocale {
public:
    static const QELLocale& getGlobalLocale();
};

namespace qel {

class LIBAUDIO_API Resource {
public:
    // True and the value when the key exists in the section; false otherwise, value as it was.
    static bool getSetting(const char* section, const char* key, String& value,
                           const QELLocale& locale);
};

} // namespace qel
