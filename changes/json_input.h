// JSON that is read as the standard has it.
#pragma once

#include <json/value.h>

#include <optional>
#include <string_view>

namespace tessel {

// One object, as the standard has it: no comments, no member twice, nothing behind it. Nothing for
// what isn't one, or nests too deep for the library.
std::optional<Json::Value> ReadJsonObject(std::string_view text);

}  // namespace tessel
