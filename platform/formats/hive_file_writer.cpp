// Changing a hive file, and making a new one.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "platform/formats/hive_file.h"
#include "platform/formats/hive_layout.h"

namespace platform::posix {
namespace {

bool IsNarrow(cvn::StringView name) {
  return std::all_of(name.begin(), name.end(), [](char16_t unit) { return unit < 0x100; });
}

std::size_t StoredSize(cvn::StringView name) { return name.size() * (IsNarrow(name) ? 1 : 2); }

void StoreName(cvn::StringView name, std::byte* to) {
  const bool isNarrow = IsNarrow(name);
  for (const char16_t unit : name) {
    if (isNarrow) {
      *to++ = static_cast<std::byte>(unit);
    } else {
      Store(to, unit);
      to += sizeof(unit);
    }
  }
}

std::uint32_t HashOf(cvn::StringView name) {
  std::uint32_t hash = 0;
  for (const char16_t unit : Folded(name)) {
    hash = hash * 37 + unit;
  }
  return hash;
}

// A self-relative security descriptor: SYSTEM and the administrators, who own the key, have full
// access to it and what lies below; users may read when `readers` says so.
std::vector<std::byte> DescriptorFor(HiveFile::Readers readers) {
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
  if (readers == HiveFile::Readers::All) {
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

}  // namespace

template <typename Number>
void HiveFile::Put(Cell cell, std::size_t offset, Number number) {
  Store(Payload(cell) + offset, number);
}

HiveFile::Cell HiveFile::AddKey(Cell parent, cvn::StringView name) {
  const Cell key = Allocate(kKeyName + StoredSize(name));
  const View parentView = KeyAt(parent);
  const Cell security = parentView ? parentView.Long(kKeySecurity) : kNoCell;
  std::memcpy(Payload(key), "nk", 2);
  Put(key, kKeyFlags, IsNarrow(name) ? kFlagNarrowName : std::uint16_t{0});
  Put(key, kKeyWritten, FileTime());
  Put(key, kKeyParent, parent);
  for (const std::size_t none : {kKeySubKeyList, kKeyVolatileList, kKeyValueList, kKeyClass}) {
    Put(key, none, kNoCell);
  }
  Put(key, kKeySecurity, security);
  Put(key, kKeyNameSize, static_cast<std::uint16_t>(StoredSize(name)));
  StoreName(name, Payload(key) + kKeyName);
  AddSecurityUser(security);
  return key;
}

void HiveFile::AddSecurityUser(Cell security) {
  const View view = At(security);
  if (view.Size() >= kSecurityDescriptor && view.Is("sk")) {
    Put(security, kSecurityUsers, view.Long(kSecurityUsers) + 1);
  }
}

void HiveFile::RemoveSecurityUser(Cell security) {
  const View view = At(security);
  if (view.Size() < kSecurityDescriptor || !view.Is("sk") || view.Long(kSecurityUsers) == 0) {
    return;
  }
  Put(security, kSecurityUsers, view.Long(kSecurityUsers) - 1);
  const Cell next = view.Long(kSecurityNext);
  const Cell previous = view.Long(kSecurityPrevious);
  const bool isLinked = At(next).Size() >= kSecurityDescriptor && At(next).Is("sk") &&
                        At(previous).Size() >= kSecurityDescriptor && At(previous).Is("sk");
  if (view.Long(kSecurityUsers) == 0 && isLinked && next != security) {
    Put(previous, kSecurityNext, next);
    Put(next, kSecurityPrevious, previous);
    Free(security);
  }
}

void HiveFile::FreeKey(Cell key) {
  const View view = KeyAt(key);
  if (!view) {
    return;
  }
  std::vector<ValueRecord> values;
  if (ReadValues(key, &values) == kSuccess) {
    for (const ValueRecord& value : values) {
      FreeValue(value.cell);
    }
  }
  FreeSubKeyLists(view.Long(kKeySubKeyList));
  Free(view.Long(kKeyValueList));
  Free(view.Long(kKeyClass));
  RemoveSecurityUser(view.Long(kKeySecurity));
  Free(key);
}

void HiveFile::FreeSubKeyLists(Cell list) {
  const View view = At(list);
  if (!view) {
    return;
  }
  const std::size_t count = view.Short(kListCount);
  if (view.Is("ri") && kListEntries + count * sizeof(Cell) <= view.Size()) {
    for (std::size_t i = 0; i < count; ++i) {
      Free(view.Long(kListEntries + i * sizeof(Cell)));
    }
  }
  Free(list);
}

HiveFile::Cell HiveFile::AddLeaf(std::span<const NamedKey> subKeys) {
  const bool hasHashes = minorVersion_ >= 5;
  const std::size_t step = hasHashes ? 8 : 4;
  const Cell leaf = Allocate(kListEntries + subKeys.size() * step);
  std::memcpy(Payload(leaf), hasHashes ? "lh" : "li", 2);
  Put(leaf, kListCount, static_cast<std::uint16_t>(subKeys.size()));
  std::size_t at = kListEntries;
  for (const NamedKey& subKey : subKeys) {
    Put(leaf, at, subKey.cell);
    if (hasHashes) {
      Put(leaf, at + 4, HashOf(subKey.name));
    }
    at += step;
  }
  return leaf;
}

Code HiveFile::SetSubKeys(Cell key, std::span<const NamedKey> subKeys) {
  const View view = KeyAt(key);
  if (!view) {
    return kBadDatabase;
  }
  FreeSubKeyLists(view.Long(kKeySubKeyList));
  std::vector<Cell> leaves;
  std::size_t longest = 0;
  for (std::size_t i = 0; i < subKeys.size(); i += kLargestLeaf) {
    leaves.push_back(AddLeaf(subKeys.subspan(i, std::min(kLargestLeaf, subKeys.size() - i))));
  }
  for (const NamedKey& subKey : subKeys) {
    longest = std::max(longest, subKey.name.size() * sizeof(char16_t));
  }
  Cell list = leaves.empty() ? kNoCell : leaves.front();
  if (leaves.size() > 1) {
    list = Allocate(kListEntries + leaves.size() * sizeof(Cell));
    std::memcpy(Payload(list), "ri", 2);
    Put(list, kListCount, static_cast<std::uint16_t>(leaves.size()));
    std::memcpy(Payload(list) + kListEntries, leaves.data(), leaves.size() * sizeof(Cell));
  }
  Put(key, kKeySubKeys, static_cast<std::uint32_t>(subKeys.size()));
  Put(key, kKeySubKeyList, list);
  Put(key, kKeyLongestName, static_cast<std::uint16_t>(longest));
  Put(key, kKeyWritten, FileTime());
  return kSuccess;
}

HiveFile::Cell HiveFile::AddSegments(std::span<const std::byte> data) {
  std::vector<Cell> segments;
  for (std::size_t i = 0; i < data.size(); i += kSegment) {
    const auto part = data.subspan(i, std::min(kSegment, data.size() - i));
    segments.push_back(Allocate(part.size()));
    std::memcpy(Payload(segments.back()), part.data(), part.size());
  }
  const Cell list = Allocate(segments.size() * sizeof(Cell));
  std::memcpy(Payload(list), segments.data(), segments.size() * sizeof(Cell));
  const Cell record = Allocate(8);
  std::memcpy(Payload(record), "db", 2);
  Put(record, 2, static_cast<std::uint16_t>(segments.size()));
  Put(record, 4, list);
  return record;
}

HiveFile::Cell HiveFile::AddData(std::span<const std::byte> data) {
  if (data.size() > LargestPlainData()) {
    return AddSegments(data);
  }
  const Cell cell = Allocate(data.size());
  std::memcpy(Payload(cell), data.data(), data.size());
  return cell;
}

HiveFile::Cell HiveFile::AddValue(cvn::StringView name, std::uint32_t type,
                                  std::span<const std::byte> data) {
  const bool isInRecord = data.size() <= sizeof(Cell);
  const Cell dataCell = isInRecord ? kNoCell : AddData(data);
  const Cell value = Allocate(kValueName + StoredSize(name));
  std::memcpy(Payload(value), "vk", 2);
  Put(value, kValueNameSize, static_cast<std::uint16_t>(StoredSize(name)));
  Put(value, kValueDataSize,
      static_cast<std::uint32_t>(data.size()) | (isInRecord ? kDataInRecord : 0));
  if (isInRecord) {
    std::copy(data.begin(), data.end(), Payload(value) + kValueData);
  } else {
    Put(value, kValueData, dataCell);
  }
  Put(value, kValueType, type);
  Put(value, kValueFlags, IsNarrow(name) ? kValueNarrowName : std::uint16_t{0});
  StoreName(name, Payload(value) + kValueName);
  return value;
}

void HiveFile::FreeData(View value) {
  const std::uint32_t size = value.Long(kValueDataSize);
  if ((size & kDataInRecord) != 0 || size == 0) {
    return;
  }
  const Cell data = value.Long(kValueData);
  const View record = At(data);
  if (record && size > record.Size() && record.Is("db")) {
    const Cell list = record.Long(4);
    const View segments = At(list);
    for (std::size_t i = 0; i < record.Short(2) && (i + 1) * sizeof(Cell) <= segments.Size(); ++i) {
      Free(segments.Long(i * sizeof(Cell)));
    }
    Free(list);
  }
  Free(data);
}

void HiveFile::FreeValue(Cell value) {
  if (const View view = ValueAt(value)) {
    FreeData(view);
    Free(value);
  }
}

Code HiveFile::SetValues(Cell key, std::span<const Cell> values) {
  const View keyView = KeyAt(key);
  if (!keyView) {
    return kBadDatabase;
  }
  Free(keyView.Long(kKeyValueList));
  Cell list = kNoCell;
  if (!values.empty()) {
    list = Allocate(values.size_bytes());
    std::memcpy(Payload(list), values.data(), values.size_bytes());
  }
  std::uint32_t longestName = 0;
  std::uint32_t longestData = 0;
  for (const Cell value : values) {
    const View view = ValueAt(value);
    if (!view) {
      return kBadDatabase;
    }
    const bool isNarrow = (view.Short(kValueFlags) & kValueNarrowName) != 0;
    longestName = std::max(longestName, view.Short(kValueNameSize) * (isNarrow ? 2U : 1U));
    longestData = std::max(longestData, view.Long(kValueDataSize) & ~kDataInRecord);
  }
  Put(key, kKeyValues, static_cast<std::uint32_t>(values.size()));
  Put(key, kKeyValueList, list);
  Put(key, kKeyLongestValueName, longestName);
  Put(key, kKeyLongestData, longestData);
  Put(key, kKeyWritten, FileTime());
  return kSuccess;
}

void HiveFile::Seal() {
  const std::uint32_t sequence = std::max(Fetch<std::uint32_t>(&bytes_[kSequence1]),
                                          Fetch<std::uint32_t>(&bytes_[kSequence2])) +
                                 1;
  Store(&bytes_[kSequence1], sequence);
  Store(&bytes_[kSequence2], sequence);
  Store(&bytes_[kWritten], FileTime());
  Store(&bytes_[kChecksum], ChecksumOf(bytes_.data()));
}

HiveFile HiveFile::MakeEmpty(cvn::StringView fileName, Readers readers) {
  HiveFile hive;
  hive.bytes_.resize(kBaseSize);
  std::memcpy(hive.bytes_.data(), "regf", 4);
  hive.minorVersion_ = 5;
  hive.isPrepared_ = true;
  Store(&hive.bytes_[kMajorVersion], std::uint32_t{1});
  Store(&hive.bytes_[kMinorVersion], hive.minorVersion_);
  Store(&hive.bytes_[kFormat], std::uint32_t{1});
  Store(&hive.bytes_[kClustering], std::uint32_t{1});
  // As Windows does, of a long name the end is kept.
  fileName.remove_prefix(fileName.size() - std::min(fileName.size(), kFileNameUnits));
  std::memcpy(&hive.bytes_[kFileName], fileName.data(), fileName.size() * sizeof(char16_t));

  hive.root_ = hive.AddKey(kNoCell, u"ROOT");
  hive.Put(hive.root_, kKeyFlags,
           static_cast<std::uint16_t>(kFlagRoot | kFlagNoDelete | kFlagNarrowName));
  Store(&hive.bytes_[kRootCell], hive.root_);
  const std::vector<std::byte> descriptor = DescriptorFor(readers);
  const Cell security = hive.Allocate(kSecurityDescriptor + descriptor.size());
  std::memcpy(hive.Payload(security), "sk", 2);
  hive.Put(security, kSecurityNext, security);
  hive.Put(security, kSecurityPrevious, security);
  hive.Put(security, kSecurityUsers, std::uint32_t{1});
  hive.Put(security, kSecuritySize, static_cast<std::uint32_t>(descriptor.size()));
  std::memcpy(hive.Payload(security) + kSecurityDescriptor, descriptor.data(), descriptor.size());
  hive.Put(hive.root_, kKeySecurity, security);
  hive.Seal();
  return hive;
}

}  // namespace platform::posix
