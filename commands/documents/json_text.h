// JSON as text.
#pragma once

#include <json/value.h>

#include <string>

namespace tessel {

enum class JsonComments { Keep, Drop };

// Parses UTF-8 text. False when it isn't JSON, or nests deeper than the library's reader allows
// (1,000 levels).
bool ParseJson(const std::string& text, JsonComments comments, Json::Value* value);

// The value in the forms of the library's styled writer. Throws what the library throws.
std::string PrintJson(const Json::Value& value);

}  // namespace tessel
