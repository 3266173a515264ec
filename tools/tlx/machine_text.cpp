#include "tools/tlx/machine_text.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <iterator>
#include <string>

#include "platform/registry.h"
#include "support/format.h"
#include "tools/tlx/unseen.h"

namespace tlx {
namespace {

namespace registry = platform::registry;

static_assert(std::endian::native == std::endian::little, "values are stored as memory has them");

struct Architecture {
  cvn::StringView name;
  cvn::StringView environmentName;
};

constexpr Architecture kArchitectures[] = {
    {u"x64", u"AMD64"}, {u"x86", u"x86"}, {u"arm64", u"ARM64"}};

constexpr cvn::StringView kTypeNames[] = {
    u"REG_NONE",
    u"REG_SZ",
    u"REG_EXPAND_SZ",
    u"REG_BINARY",
    u"REG_DWORD",
    u"REG_DWORD_BIG_ENDIAN",
    u"REG_LINK",
    u"REG_MULTI_SZ",
    u"REG_RESOURCE_LIST",
    u"REG_FULL_RESOURCE_DESCRIPTOR",
    u"REG_RESOURCE_REQUIREMENTS_LIST",
    u"REG_QWORD",
};

// Bytes of a binary value that a line shows.
constexpr std::size_t kShownBytes = 32;

std::u16string CharactersOf(std::span<const std::byte> data) {
  std::u16string characters(data.size() / sizeof(char16_t), u'\0');
  std::copy_n(data.begin(), characters.size() * sizeof(char16_t),
              std::as_writable_bytes(std::span(characters)).begin());
  return characters;
}

template <typename Number>
Number NumberIn(std::span<const std::byte> data) {
  Number number = 0;
  std::memcpy(&number, data.data(), sizeof(number));
  return number;
}

// Takes the string at the front of a list, with its zero.
cvn::StringView TakeString(cvn::StringView* list) {
  const cvn::StringView one = list->substr(0, list->find(u'\0'));
  list->remove_prefix(std::min(one.size() + 1, list->size()));
  return one;
}

cvn::String Quoted(cvn::StringView text) { return cvn::Format(u"\"%s\"", Printable(text)); }

cvn::String HexBytes(std::span<const std::byte> data) {
  cvn::String text;
  for (const std::byte byte : data.first(std::min(data.size(), kShownBytes))) {
    text.Append(cvn::Format(u"%02x ", std::to_integer<unsigned>(byte)));
  }
  text.Append(data.size() > kShownBytes ? cvn::StringView(u"... ") : cvn::StringView());
  text.Append(cvn::Format(data.size() == 1 ? u"(%u byte)" : u"(%u bytes)", data.size()));
  return text;
}

cvn::String DescribeData(std::uint32_t type, std::span<const std::byte> data) {
  if (type == registry::kTypeString || type == registry::kTypeExpandString) {
    return Quoted(StoredText(data));
  }
  if (type == registry::kTypeDword && data.size() == sizeof(std::uint32_t)) {
    const auto number = NumberIn<std::uint32_t>(data);
    return cvn::Format(u"0x%08X (%u)", number, number);
  }
  if (type == registry::kTypeQword && data.size() == sizeof(std::uint64_t)) {
    const auto number = NumberIn<std::uint64_t>(data);
    return cvn::Format(u"0x%016X (%u)", number, number);
  }
  return HexBytes(data);
}

// A path as the session manager stores it, in the usual form.
cvn::String UsualPath(cvn::StringView stored) {
  constexpr cvn::StringView kPrefix = u"\\??\\";
  return Printable(stored.substr(stored.starts_with(kPrefix) ? kPrefix.size() : 0));
}

}  // namespace

cvn::StringView EnvironmentArchitecture(cvn::StringView name) {
  const auto* found = std::ranges::find(kArchitectures, name, &Architecture::name);
  return found == std::end(kArchitectures) ? name : found->environmentName;
}

cvn::StringView ArchitectureName(cvn::StringView environmentName) {
  const auto* found =
      std::ranges::find(kArchitectures, environmentName, &Architecture::environmentName);
  return found == std::end(kArchitectures) ? environmentName : found->name;
}

cvn::String Printable(cvn::StringView text) {
  cvn::String printable;
  while (!text.empty()) {
    const cvn::StringView rest = text;
    const char32_t c = TakeCharacter(&text);
    if (c == U'\t' || c == U'\n' || (c < 0x100 && IsUnseen(c))) {
      printable.Append(cvn::Format(u"\\x%02X", static_cast<std::uint32_t>(c)));
    } else if (IsUnseen(c)) {
      printable.Append(cvn::Format(u"\\u%04X", static_cast<std::uint32_t>(c)));
    } else {
      printable.Append(rest.substr(0, rest.size() - text.size()));
    }
  }
  return printable;
}

cvn::String StoredText(std::span<const std::byte> data) {
  const std::u16string characters = CharactersOf(data);
  return cvn::StringView(characters).substr(0, characters.find(u'\0'));
}

cvn::List<cvn::String> DescribeValue(std::uint32_t type, std::span<const std::byte> data) {
  const cvn::String typeName = type < std::size(kTypeNames) ? cvn::String(kTypeNames[type])
                                                            : cvn::Format(u"type 0x%X", type);
  if (type != registry::kTypeMultiString) {
    return {cvn::Format(u"%s %s", typeName, DescribeData(type, data))};
  }
  const std::u16string characters = CharactersOf(data);
  cvn::StringView list = characters;
  cvn::List<cvn::String> lines = {cvn::String()};
  while (!list.empty() && list.find_first_not_of(u'\0') != cvn::StringView::npos) {
    lines.push_back(Quoted(TakeString(&list)));
  }
  lines.front() = cvn::Format(lines.size() == 2 ? u"%s of %u string" : u"%s of %u strings",
                              typeName, lines.size() - 1);
  return lines;
}

cvn::List<cvn::String> DescribePendingMoves(std::span<const std::byte> data) {
  const std::u16string characters = CharactersOf(data);
  cvn::StringView list = characters;
  cvn::List<cvn::String> lines;
  while (!list.empty() && list.front() != u'\0') {
    const cvn::StringView from = TakeString(&list);
    const cvn::StringView to = TakeString(&list);
    if (to.empty()) {
      lines.push_back(cvn::Format(u"delete %s", UsualPath(from)));
    } else if (to.front() == u'!') {
      lines.push_back(
          cvn::Format(u"move %s to %s (replacing)", UsualPath(from), UsualPath(to.substr(1))));
    } else {
      lines.push_back(cvn::Format(u"move %s to %s", UsualPath(from), UsualPath(to)));
    }
  }
  return lines;
}

}  // namespace tlx
