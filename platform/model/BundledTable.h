// The table that the build generates from machines/*.json (see EmbedMachines.cmake).
#pragma once

#include <cstddef>

namespace model::bundled {

struct Entry {
    const char* name;
    const unsigned char* text;
    std::size_t size;
};

extern const Entry kEntries[];
extern const std::size_t kEntryCount;

} // namespace model::bundled
