#include "changes/manifest_text.h"

#include <array>
#include <cstdio>

#include "support/format.h"
#include "support/utf.h"

namespace tessel {
namespace {

constexpr const char* kUnits = "utf16";
constexpr const char* kBytes = "bytes";

int DigitOf(char character) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  const std::size_t digit = kDigits.find(character);
  return digit == std::string_view::npos ? -1 : static_cast<int>(digit);
}

// The text of the only member of an object; nothing for anything else.
std::optional<std::string> OnlyMember(const Json::Value& value, const char* name) {
  if (!value.isObject() || value.size() != 1 || !value[name].isString()) {
    return std::nullopt;
  }
  return value[name].asString();
}

}  // namespace

std::string ToHex(std::span<const std::byte> bytes) { return cvn::WideToUtf8(cvn::HexText(bytes)); }

std::optional<std::vector<std::byte>> FromHex(std::string_view text) {
  std::vector<std::byte> bytes(text.size() / 2);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const int high = DigitOf(text[2 * i]);
    const int low = DigitOf(text[2 * i + 1]);
    if (high < 0 || low < 0) {
      return std::nullopt;
    }
    bytes[i] = static_cast<std::byte>(high << 4 | low);
  }
  return text.size() % 2 == 0 ? std::optional(std::move(bytes)) : std::nullopt;
}

Json::Value TextToJson(cvn::StringView text) {
  std::string utf8 = cvn::WideToUtf8(text);
  if (cvn::Utf8ToWide(utf8).AsView() == text) {
    return utf8;
  }
  std::string digits;
  for (const char16_t unit : text) {
    digits += cvn::WideToUtf8(cvn::Format(u"%04x", static_cast<std::uint16_t>(unit)));
  }
  Json::Value value(Json::objectValue);
  value[kUnits] = digits;
  return value;
}

std::optional<cvn::String> TextFromJson(const Json::Value& value) {
  if (value.isString()) {
    const std::string text = value.asString();
    return cvn::IsValidUtf8(text) ? std::optional(cvn::Utf8ToWide(text)) : std::nullopt;
  }
  const std::optional<std::string> digits = OnlyMember(value, kUnits);
  const auto bytes = digits ? FromHex(*digits) : std::nullopt;
  if (!bytes || bytes->size() % sizeof(char16_t) != 0) {
    return std::nullopt;
  }
  cvn::String text;
  for (std::size_t i = 0; i < bytes->size(); i += sizeof(char16_t)) {
    text.Append(static_cast<char16_t>(std::to_integer<unsigned>((*bytes)[i]) << 8 |
                                      std::to_integer<unsigned>((*bytes)[i + 1])));
  }
  return text;
}

Json::Value BytesToJson(std::string_view bytes) {
  if (cvn::IsValidUtf8(bytes)) {
    return std::string(bytes);
  }
  Json::Value value(Json::objectValue);
  value[kBytes] = ToHex(std::as_bytes(std::span(bytes)));
  return value;
}

std::optional<std::string> BytesFromJson(const Json::Value& value) {
  if (value.isString()) {
    return value.asString();
  }
  const std::optional<std::string> digits = OnlyMember(value, kBytes);
  const auto bytes = digits ? FromHex(*digits) : std::nullopt;
  return bytes ? std::optional(
                     std::string(reinterpret_cast<const char*>(bytes->data()), bytes->size()))
               : std::nullopt;
}

std::string OctalText(std::uint32_t mode) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%04o", mode);
  return text.data();
}

}  // namespace tessel
