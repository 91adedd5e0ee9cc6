#include "platform/model/Bundled.h"

#include "platform/model/BundledTable.h"

#include <algorithm>
#include <span>

namespace model {

namespace {

std::span<const bundled::Entry> entries() {
    return {bundled::kEntries, bundled::kEntryCount};
}

} // namespace

std::vector<std::string> bundledMachineNames() {
    std::vector<std::string> names;
    for (const bundled::Entry& entry : entries()) {
        names.emplace_back(entry.name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::optional<std::string> bundledMachineJson(const std::string& name) {
    for (const bundled::Entry& entry : entries()) {
        if (name == entry.name) {
            return std::string(reinterpret_cast<const char*>(entry.text), entry.size);
        }
    }
    return std::nullopt;
}

} // namespace model
