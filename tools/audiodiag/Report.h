// Output of audiodiag: plain text for people, JSON with --json.
#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace audiodiag {

// In text, a number with a name beside it ("x" and "x_name") shows as the name.
void printReport(const nlohmann::ordered_json& report, bool json);
// An error for the user on stderr, prefixed with the program's name.
void printError(const std::string& message);

} // namespace audiodiag
