#include "platform/formats/version_resource.h"

#include <array>
#include <initializer_list>
#include <optional>
#include <span>
#include <vector>

#include "platform/formats/little_endian.h"
#include "platform/formats/names.h"
#include "platform/formats/pe_image.h"
#include "support/format.h"
#include "support/numbers.h"

namespace platform::posix {
namespace {

using Block = std::span<const std::byte>;

// A directory of resources: two counts at 12 and 14, then entries of an identifier and an offset.
constexpr std::size_t kDirectoryHeader = 16;
constexpr std::size_t kDirectoryEntry = 8;
constexpr std::uint32_t kIsDirectory = 0x80000000;
constexpr std::uint32_t kVersionType = 16;
constexpr std::uint64_t kLargestResource = 1 << 20;

// The offset that the directory at `offset` in the resources gives for `id`, or for its first entry
// when there is no `id`.
std::optional<std::uint32_t> FindEntry(const ByteSource& source, Range resources,
                                       std::uint32_t offset, std::optional<std::uint32_t> id) {
  std::array<std::byte, kDirectoryHeader> header{};
  if (offset >= resources.size || !source.Read(resources.offset + offset, header)) {
    return std::nullopt;
  }
  const std::size_t count =
      std::size_t{NumberAt<std::uint16_t>(header, 12)} + NumberAt<std::uint16_t>(header, 14);
  std::vector<std::byte> entries((id ? count : std::min<std::size_t>(count, 1)) * kDirectoryEntry);
  if (!source.Read(resources.offset + offset + kDirectoryHeader, entries)) {
    return std::nullopt;
  }
  for (std::size_t at = 0; at < entries.size(); at += kDirectoryEntry) {
    if (!id || NumberAt<std::uint32_t>(entries, at) == *id) {
      return NumberAt<std::uint32_t>(entries, at + 4);
    }
  }
  return std::nullopt;
}

// The bytes of the first version resource.
std::vector<std::byte> ReadVersionResource(const ByteSource& source, const PeImage& image) {
  const Range resources = image.DataAt(image.resources);
  // Type, name, language.
  std::uint32_t offset = kIsDirectory;
  for (const std::optional<std::uint32_t> id : {std::optional(kVersionType), {}, {}}) {
    const auto entry = (offset & kIsDirectory) == 0
                           ? std::nullopt
                           : FindEntry(source, resources, offset & ~kIsDirectory, id);
    if (!entry) {
      return {};
    }
    offset = *entry;
  }
  std::array<std::byte, 8> data{};
  if ((offset & kIsDirectory) != 0 || offset >= resources.size ||
      !source.Read(resources.offset + offset, data)) {
    return {};
  }
  const Range range = image.DataAt(NumberAt<std::uint32_t>(data, 0));
  const std::uint64_t size = NumberAt<std::uint32_t>(data, 4);
  std::vector<std::byte> bytes(size <= range.size && size <= kLargestResource ? size : 0);
  return source.Read(range.offset, bytes) ? bytes : std::vector<std::byte>();
}

// A node of the version information: three lengths, a name, a value, and further nodes.
struct Node {
  cvn::String name;
  Block value;
  bool isText = false;
  Block children;
};

std::size_t Aligned(std::size_t offset) { return (offset + 3) & ~std::size_t{3}; }

Block From(Block block, std::size_t offset) {
  return block.subspan(std::min(offset, block.size()));
}

cvn::String TextOf(Block bytes) {
  cvn::String text;
  for (std::size_t at = 0; at + 1 < bytes.size() && NumberAt<char16_t>(bytes, at) != 0; at += 2) {
    text.Append(NumberAt<char16_t>(bytes, at));
  }
  return text;
}

// Takes the first node off `*nodes`; false at their end, and where they are damaged.
bool TakeNode(Block* nodes, Node* node) {
  constexpr std::size_t kLengths = 6;
  const std::size_t length = NumberAt<std::uint16_t>(*nodes, 0);
  if (length < kLengths || length > nodes->size()) {
    return false;
  }
  const Block whole = nodes->first(length);
  *nodes = From(*nodes, Aligned(length));
  node->name = TextOf(whole.subspan(kLengths));
  const Block rest = From(whole, Aligned(kLengths + (node->name.Length() + 1) * sizeof(char16_t)));
  node->isText = NumberAt<std::uint16_t>(whole, 4) == 1;
  const std::size_t valueSize =
      NumberAt<std::uint16_t>(whole, 2) * (node->isText ? sizeof(char16_t) : 1);
  node->value = rest.first(std::min(valueSize, rest.size()));
  node->children = From(rest, Aligned(valueSize));
  return true;
}

// The node of that name among `nodes`; names are found as VerQueryValueW finds them.
bool FindNode(Block nodes, cvn::StringView name, Node* node) {
  while (TakeNode(&nodes, node)) {
    if (cvn::EqualNoCase(node->name, name)) {
      return true;
    }
  }
  return false;
}

bool FindNode(Block nodes, std::initializer_list<cvn::StringView> path, Node* node) {
  for (const cvn::StringView name : path) {
    if (!FindNode(nodes, name, node)) {
      return false;
    }
    nodes = node->children;
  }
  return true;
}

}  // namespace

bool CompanyNameOf(const ByteSource& source, cvn::String* name) {
  const std::optional<PeImage> image = ReadPeImage(source);
  if (!image || image->resources == 0) {
    return false;
  }
  const std::vector<std::byte> resource = ReadVersionResource(source, *image);
  Node node;
  if (!FindNode(resource, {u"VS_VERSION_INFO", u"VarFileInfo", u"Translation"}, &node) ||
      node.value.size() < sizeof(std::uint32_t)) {
    return false;
  }
  const cvn::String table = cvn::Format(u"%04x%04x", NumberAt<std::uint16_t>(node.value, 0),
                                        NumberAt<std::uint16_t>(node.value, 2));
  if (!FindNode(resource, {u"VS_VERSION_INFO", u"StringFileInfo", table, u"CompanyName"}, &node)) {
    return false;
  }
  *name = TextOf(node.value);
  return true;
}

}  // namespace platform::posix
