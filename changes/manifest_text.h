// How a manifest writes text and bytes that a JSON string can't hold.
#pragma once

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "support/string.h"

namespace tessel {

// A string; or, for a text that has half a character, an object with its UTF-16 units: {"utf16":
// "..."}, four hexadecimal digits each.
Json::Value TextToJson(cvn::StringView text);
std::optional<cvn::String> TextFromJson(const Json::Value& value);

// The same of bytes: a string in UTF-8, or {"bytes": "..."}.
Json::Value BytesToJson(std::string_view bytes);
std::optional<std::string> BytesFromJson(const Json::Value& value);

// Hexadecimal digits in lower case, two a byte.
std::string ToHex(std::span<const std::byte> bytes);
std::optional<std::vector<std::byte>> FromHex(std::string_view text);

// Permission bits of the host: four octal digits.
std::string OctalText(std::uint32_t mode);

}  // namespace tessel
