// Parsing of a description's text. Besides malformed JSON it refuses a field written twice
// in one object, which JSON parsers otherwise resolve silently in favour of the last.
#pragma once

#include "platform/model/JsonValues.h"

namespace model::json {

Json parseDocument(const std::string& text, const std::string& source);

} // namespace model::json
