// Captured log texts without their statement number: line numbers change with every edit
// of the library, so tests check only that one is there.
#pragma once

#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

namespace testsupport {

inline std::vector<std::string> messages(const LogCapture& log, const std::string& logger,
                                         int priority) {
    std::vector<std::string> out;
    for (const std::string& text : log.texts(logger, priority)) {
        std::size_t blank = text.find(' ');
        bool numbered = blank != std::string::npos && blank > 0 &&
                        std::all_of(text.begin(), text.begin() + long(blank),
                                    [](unsigned char c) { return std::isdigit(c); });
        EXPECT_TRUE(numbered) << "no statement number in \"" << text << "\"";
        out.push_back(numbered ? text.substr(blank + 1) : text);
    }
    return out;
}

inline int countOf(const LogCapture& log, const std::string& logger, int priority,
                   const std::string& text) {
    std::vector<std::string> all = messages(log, logger, priority);
    return int(std::count(all.begin(), all.end(), text));
}

inline bool logged(const LogCapture& log, const std::string& logger, int priority,
                   const std::string& text) {
    return countOf(log, logger, priority, text) > 0;
}

} // namespace testsupport
