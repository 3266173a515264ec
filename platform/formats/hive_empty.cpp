// Making a new hive.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "platform/formats/hive_format.h"
#include "platform/formats/hive_image.h"

namespace platform::posix {
namespace {

// A self-relative security descriptor: SYSTEM and the administrators, who own the key, have full
// access to it and what lies below; users may read when `readers` says so.
std::vector<std::byte> DescriptorFor(HiveImage::Readers readers) {
  constexpr std::uint32_t kSystem[] = {0x00000101, 0x05000000, 18};               // S-1-5-18
  constexpr std::uint32_t kAdministrators[] = {0x00000201, 0x05000000, 32, 544};  // S-1-5-32-544
  constexpr std::uint32_t kUsers[] = {0x00000201, 0x05000000, 32, 545};           // S-1-5-32-545
  constexpr std::uint32_t kAll = 0xF003F;                                         // KEY_ALL_ACCESS
  constexpr std::uint32_t kRead = 0x20019;                                        // KEY_READ
  constexpr std::uint32_t kHeader = 20;
  constexpr std::uint32_t kAllowWithSubKeys = 0x0200;  // type 0, inherited by containers
  std::vector<std::uint32_t> list;
  std::uint32_t entries = 0;
  const auto allow = [&](std::uint32_t rights, std::span<const std::uint32_t> who) {
    const auto size = static_cast<std::uint32_t>(8 + who.size_bytes());
    list.insert(list.end(), {kAllowWithSubKeys | (size << 16), rights});
    list.insert(list.end(), who.begin(), who.end());
    ++entries;
  };
  allow(kAll, kSystem);
  allow(kAll, kAdministrators);
  if (readers == HiveImage::Readers::All) {
    allow(kRead, kUsers);
  }
  const auto listSize = static_cast<std::uint32_t>(8 + list.size() * sizeof(list[0]));
  const std::uint32_t owner = kHeader + listSize;
  const auto group = static_cast<std::uint32_t>(owner + sizeof(kAdministrators));
  // Revision 1; self-relative, with a list of rights that isn't inherited from elsewhere.
  std::vector<std::uint32_t> words = {0x90040001,           owner,  group, 0, kHeader,
                                      2 | (listSize << 16), entries};
  words.insert(words.end(), list.begin(), list.end());
  words.insert(words.end(), std::begin(kAdministrators), std::end(kAdministrators));
  words.insert(words.end(), std::begin(kSystem), std::end(kSystem));
  std::vector<std::byte> bytes(words.size() * sizeof(words[0]));
  std::memcpy(bytes.data(), words.data(), bytes.size());
  return bytes;
}

std::vector<std::byte> RootNode(std::uint64_t time) {
  constexpr std::string_view kName = "ROOT";
  std::vector<std::byte> node(kKeyName + kName.size());
  std::memcpy(node.data(), "nk", 2);
  Store(&node[kKeyFlags], static_cast<std::uint16_t>(kFlagRoot | kFlagNoDelete | kFlagNarrowName));
  Store(&node[kKeyWritten], time);
  for (const std::size_t none :
       {kKeyParent, kKeySubKeyList, kKeyVolatileList, kKeyValueList, kKeyClass}) {
    Store(&node[none], HiveImage::kNoCell);
  }
  Store(&node[kKeyNameSize], static_cast<std::uint16_t>(kName.size()));
  std::memcpy(&node[kKeyName], kName.data(), kName.size());
  return node;
}

class VectorBytes final : public HiveBytes {
 public:
  explicit VectorBytes(std::vector<std::byte>* bytes) : bytes_(bytes) {}

  std::span<const std::byte> Bytes() const override { return *bytes_; }
  std::byte* Change(std::uint32_t offset, std::uint32_t /*size*/) override {
    return bytes_->data() + offset;
  }
  Code Grow(std::uint32_t size) override {
    bytes_->resize(bytes_->size() + size);
    return kSuccess;
  }

 private:
  std::vector<std::byte>* bytes_;
};

}  // namespace

std::vector<std::byte> HiveImage::Empty(std::u16string_view fileName, Readers readers,
                                        std::uint64_t time) {
  std::vector<std::byte> bytes(kBaseSize);
  std::byte* base = bytes.data();
  std::memcpy(base, "regf", 4);
  Store(base + kSequence1, std::uint32_t{1});
  Store(base + kSequence2, std::uint32_t{1});
  Store(base + kWritten, time);
  Store(base + kMajorVersion, std::uint32_t{1});
  Store(base + kMinorVersion, std::uint32_t{5});
  Store(base + kFormat, std::uint32_t{1});
  Store(base + kClustering, std::uint32_t{1});
  // As Windows does, of a long name the end is kept.
  fileName.remove_prefix(fileName.size() - std::min(fileName.size(), kFileNameUnits));
  std::memcpy(base + kFileName, fileName.data(), fileName.size() * sizeof(char16_t));

  VectorBytes storage(&bytes);
  HiveImage hive(&storage);
  const std::vector<std::byte> descriptor = DescriptorFor(readers);
  std::vector<std::byte> security(kSecurityDescriptor);
  std::memcpy(security.data(), "sk", 2);
  Store(&security[kSecurityUsers], std::uint32_t{1});
  Store(&security[kSecuritySize], static_cast<std::uint32_t>(descriptor.size()));
  security.insert(security.end(), descriptor.begin(), descriptor.end());
  Cell root = kNoCell;
  Cell ring = kNoCell;
  // Nothing of this can fail: it all fits into the first bin.
  IgnoreError(hive.cells_.Allocate(RootNode(time), 0, &root));
  IgnoreError(hive.cells_.Allocate(security, 0, &ring));
  hive.cells_.Put(root, kKeySecurity, ring);
  hive.cells_.Put(ring, kSecurityNext, ring);
  hive.cells_.Put(ring, kSecurityPrevious, ring);
  hive.cells_.Commit();
  Store(&bytes[kRootCell], root);
  Store(&bytes[kBaseSize + kBinWritten], time);
  Store(&bytes[kChecksum], HiveChecksum(bytes));
  return bytes;
}

}  // namespace platform::posix
