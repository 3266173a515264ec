#include "tools/tlx/der_writer.h"

#include <algorithm>
#include <charconv>

namespace tlx::der {
namespace {

// The bytes of a number from the highest that matters on; 0 has one.
std::string BigEndian(std::size_t value) {
  std::string bytes;
  do {
    bytes.insert(bytes.begin(), static_cast<char>(value & 0xFF));
    value >>= 8;
  } while (value != 0);
  return bytes;
}

void AppendArc(std::string* content, std::uint32_t arc) {
  std::string bytes(1, static_cast<char>(arc & 0x7F));
  while ((arc >>= 7) != 0) {
    bytes.insert(bytes.begin(), static_cast<char>(0x80 | (arc & 0x7F)));
  }
  content->append(bytes);
}

}  // namespace

std::string_view View(std::span<const std::byte> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::string Element(Tag tag, std::string_view content) {
  std::string element(1, static_cast<char>(tag));
  std::string length = BigEndian(content.size());
  if (content.size() >= 0x80) {
    element.push_back(static_cast<char>(0x80 | length.size()));
  }
  return element.append(length).append(content);
}

std::string Sequence(std::initializer_list<std::string_view> parts) {
  std::string content;
  for (const std::string_view part : parts) {
    content.append(part);
  }
  return Element(Tag::Sequence, content);
}

std::string SetOf(Tag tag, std::vector<std::string> elements) {
  // Bytes compare without a sign, and no element is the beginning of another.
  std::ranges::sort(elements);
  elements.erase(std::unique(elements.begin(), elements.end()), elements.end());
  std::string content;
  for (const std::string& element : elements) {
    content.append(element);
  }
  return Element(tag, content);
}

std::string_view ContentOf(std::string_view element) {
  const auto length = static_cast<unsigned char>(element[1]);
  return element.substr(length < 0x80 ? 2 : 2 + (length & 0x7F));
}

std::string Integer(std::uint32_t value) {
  std::string bytes = BigEndian(value);
  if ((bytes.front() & 0x80) != 0) {
    bytes.insert(bytes.begin(), '\0');
  }
  return Element(Tag::Integer, bytes);
}

std::string ObjectId(std::string_view dotted) {
  std::vector<std::uint32_t> arcs;
  for (const char* at = dotted.data(); at < dotted.data() + dotted.size(); ++at) {
    at = std::from_chars(at, dotted.data() + dotted.size(), arcs.emplace_back()).ptr;
  }
  std::string content;
  AppendArc(&content, arcs[0] * 40 + arcs[1]);
  for (std::size_t i = 2; i < arcs.size(); ++i) {
    AppendArc(&content, arcs[i]);
  }
  return Element(Tag::ObjectId, content);
}

std::string Algorithm(std::string_view dotted) {
  return Sequence({ObjectId(dotted), Element(Tag::Null, {})});
}

std::string Attribute(std::string_view type, std::string_view value) {
  return Sequence({ObjectId(type), Element(Tag::Set, value)});
}

std::string BmpText(Tag tag, cvn::StringView text) {
  std::string bytes;
  for (const char16_t unit : text) {
    bytes.push_back(static_cast<char>(unit >> 8));
    bytes.push_back(static_cast<char>(unit & 0xFF));
  }
  return Element(tag, bytes);
}

std::string WideBytes(cvn::StringView text) {
  std::string bytes;
  for (const char16_t unit : text) {
    bytes.push_back(static_cast<char>(unit & 0xFF));
    bytes.push_back(static_cast<char>(unit >> 8));
  }
  return bytes;
}

}  // namespace tlx::der
