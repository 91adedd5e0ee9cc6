#include "Report.h"
#include "Terminal.h"

#include <iostream>

namespace audiodiag {

namespace {

std::string plain(const nlohmann::ordered_json& value) {
    if (value.is_string()) {
        return value.get<std::string>();
    }
    if (value.is_number_float()) {
        char text[64];
        std::snprintf(text, sizeof text, "%.6g", value.get<double>());
        return text;
    }
    return value.dump();
}

// A value with a name beside it ("geo_location" and "geo_location_name"): people read the
// name, and the number only when it has none.
bool isNameOfSibling(const nlohmann::ordered_json& object, const std::string& key) {
    const std::string suffix = "_name";
    return key.size() > suffix.size() && key.ends_with(suffix) &&
           object.contains(key.substr(0, key.size() - suffix.size()));
}

void printText(const nlohmann::ordered_json& value, const std::string& indent) {
    for (const auto& [key, entry] : value.items()) {
        if (isNameOfSibling(value, key)) {
            continue;
        }
        const auto name = value.find(key + "_name");
        const nlohmann::ordered_json& item =
            name != value.end() && name->is_string() ? *name : entry;
        if (item.is_object()) {
            std::cout << indent << key << ":\n";
            printText(item, indent + "  ");
        } else if (item.is_array() && !item.empty() && item.front().is_object()) {
            std::cout << indent << key << ":\n";
            for (const auto& element : item) {
                std::cout << indent << "  -\n";
                printText(element, indent + "    ");
            }
        } else if (item.is_array() && !item.empty()) {
            std::cout << indent << key << ":\n";
            for (const auto& element : item) {
                std::cout << indent << "  " << plain(element) << "\n";
            }
        } else {
            std::cout << indent << key << ": " << plain(item) << "\n";
        }
    }
}

} // namespace

void printReport(const nlohmann::ordered_json& report, bool json) {
    if (json) {
        std::cout << report.dump(2) << "\n";
    } else {
        printText(report, "");
    }
}

void printError(const std::string& message) {
    writeErrorLine("audiodiag: " + message);
}

} // namespace audiodiag
