// Writes ASN.1 in its distinguished form. Everything here is a string of encoded bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "support/string.h"

namespace tlx::der {

enum class Tag : std::uint8_t {
  Integer = 0x02,
  BitString = 0x03,
  OctetString = 0x04,
  Null = 0x05,
  ObjectId = 0x06,
  BmpString = 0x1E,
  Sequence = 0x30,
  Set = 0x31,
  Primitive0 = 0x80,  // [0] in place of a primitive type's tag
  Context0 = 0xA0,    // [0] around an element, or in place of a constructed type's tag
  Context1 = 0xA1,
  Context2 = 0xA2,
};

// szOID_CTL, a list of files as the content of a message.
inline constexpr char kTrustList[] = "1.3.6.1.4.1.311.10.1";
inline constexpr char kSha256[] = "2.16.840.1.101.3.4.2.1";

std::string_view View(std::span<const std::byte> bytes);

std::string Element(Tag tag, std::string_view content);
std::string Sequence(std::initializer_list<std::string_view> parts);
// The elements in the order that a SET OF has, each of them once.
std::string SetOf(Tag tag, std::vector<std::string> elements);

// The content of an element: what is behind its tag and its length.
std::string_view ContentOf(std::string_view element);

std::string Integer(std::uint32_t value);
// "1.2.840.113549"; the text must be right.
std::string ObjectId(std::string_view dotted);
// An algorithm whose parameters are NULL.
std::string Algorithm(std::string_view dotted);
// An attribute with one value.
std::string Attribute(std::string_view type, std::string_view value);
// UTF-16 with the higher byte first.
std::string BmpText(Tag tag, cvn::StringView text);
// UTF-16 as Windows keeps it in memory, without a zero at the end.
std::string WideBytes(cvn::StringView text);

}  // namespace tlx::der
