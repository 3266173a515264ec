#include "platform/formats/hive_file.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "platform/clock.h"
#include "platform/formats/names.h"

namespace platform::posix {
namespace {

constexpr std::size_t kBaseSize = 4096;
constexpr std::size_t kBinUnit = 4096;
constexpr std::size_t kBinHeader = 32;
constexpr std::size_t kCellHeader = 4;
constexpr std::size_t kCellUnit = 8;
constexpr std::size_t kLargestHive = 0x7FFFF000;

// Offsets in the base block.
constexpr std::size_t kSequence1 = 4;
constexpr std::size_t kSequence2 = 8;
constexpr std::size_t kWritten = 12;
constexpr std::size_t kMajorVersion = 20;
constexpr std::size_t kMinorVersion = 24;
constexpr std::size_t kFormat = 32;
constexpr std::size_t kRootCell = 36;
constexpr std::size_t kDataSize = 40;
constexpr std::size_t kClustering = 44;
constexpr std::size_t kFileName = 48;
constexpr std::size_t kFileNameUnits = 31;
constexpr std::size_t kChecksum = 508;

// Offsets in a key's record, nk.
constexpr std::size_t kKeyFlags = 2;
constexpr std::size_t kKeyWritten = 4;
constexpr std::size_t kKeyParent = 16;
constexpr std::size_t kKeySubKeys = 20;
constexpr std::size_t kKeySubKeyList = 28;
constexpr std::size_t kKeyVolatileList = 32;
constexpr std::size_t kKeyValues = 36;
constexpr std::size_t kKeyValueList = 40;
constexpr std::size_t kKeySecurity = 44;
constexpr std::size_t kKeyClass = 48;
constexpr std::size_t kKeyLongestName = 52;
constexpr std::size_t kKeyLongestValueName = 60;
constexpr std::size_t kKeyLongestData = 64;
constexpr std::size_t kKeyNameSize = 72;
constexpr std::size_t kKeyName = 76;

constexpr std::uint16_t kFlagRoot = 0x0004;
constexpr std::uint16_t kFlagNoDelete = 0x0008;
constexpr std::uint16_t kFlagLink = 0x0010;
constexpr std::uint16_t kFlagNarrowName = 0x0020;

// Offsets in a value's record, vk.
constexpr std::size_t kValueNameSize = 2;
constexpr std::size_t kValueDataSize = 4;
constexpr std::size_t kValueData = 8;
constexpr std::size_t kValueType = 12;
constexpr std::size_t kValueFlags = 16;
constexpr std::size_t kValueName = 20;

constexpr std::uint16_t kValueNarrowName = 0x0001;
constexpr std::uint32_t kDataInRecord = 0x80000000;

// Offsets in a security record, sk.
constexpr std::size_t kSecurityNext = 4;
constexpr std::size_t kSecurityPrevious = 8;
constexpr std::size_t kSecurityUsers = 12;
constexpr std::size_t kSecuritySize = 16;
constexpr std::size_t kSecurityDescriptor = 20;

constexpr std::size_t kListEntries = 4;
constexpr std::size_t kLargestLeaf = 500;  // fits into one bin of the least size

// Above this much, data stands in segments of as much, from version 1.4 on.
constexpr std::size_t kSegment = 16344;

std::size_t RoundUp(std::size_t size, std::size_t unit) { return (size + unit - 1) / unit * unit; }

template <typename Number>
Number Fetch(const std::byte* from) {
  Number number;
  std::memcpy(&number, from, sizeof(number));
  return number;
}

template <typename Number>
void Store(std::byte* to, Number number) {
  std::memcpy(to, &number, sizeof(number));
}

// Now, as Windows counts: 100 nanoseconds since 1601.
std::uint64_t FileTime() {
  return static_cast<std::uint64_t>(clock::kTicksFrom1601To1970 + clock::NowTicks());
}

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

std::u16string LoadName(std::span<const std::byte> stored, bool isNarrow) {
  std::u16string name;
  const std::size_t step = isNarrow ? 1 : sizeof(char16_t);
  name.reserve(stored.size() / step);
  for (std::size_t i = 0; i + step <= stored.size(); i += step) {
    name.push_back(isNarrow ? static_cast<char16_t>(stored[i]) : Fetch<char16_t>(&stored[i]));
  }
  return name;
}

std::uint32_t HashOf(cvn::StringView name) {
  std::uint32_t hash = 0;
  for (const char16_t unit : Folded(name)) {
    hash = hash * 37 + unit;
  }
  return hash;
}

std::uint32_t ChecksumOf(const std::byte* base) {
  std::uint32_t sum = 0;
  for (std::size_t i = 0; i < kChecksum; i += sizeof(sum)) {
    sum ^= Fetch<std::uint32_t>(base + i);
  }
  return sum == 0 ? 1 : (sum == 0xFFFFFFFF ? 0xFFFFFFFE : sum);
}

// A self-relative descriptor: SYSTEM and the administrators, who own the key, may do all with it
// and what lies below; users may read when `readers` says so.
std::vector<std::byte> DescriptorFor(HiveFile::Readers readers) {
  constexpr std::uint32_t kSystem[] = {0x00000101, 0x05000000, 18};
  constexpr std::uint32_t kAdministrators[] = {0x00000201, 0x05000000, 32, 544};
  constexpr std::uint32_t kUsers[] = {0x00000201, 0x05000000, 32, 545};
  constexpr std::uint32_t kAll = 0xF003F;
  constexpr std::uint32_t kRead = 0x20019;
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

// A cell's content, for reading. One without content stands for a cell that isn't there or isn't
// what was expected.
class HiveFile::View {
 public:
  View() = default;
  explicit View(std::span<const std::byte> bytes) : bytes_(bytes) {}

  explicit operator bool() const { return !bytes_.empty(); }
  std::size_t Size() const { return bytes_.size(); }
  bool Is(std::string_view id) const { return std::memcmp(bytes_.data(), id.data(), 2) == 0; }
  std::uint16_t Short(std::size_t at) const { return Fetch<std::uint16_t>(&bytes_[at]); }
  std::uint32_t Long(std::size_t at) const { return Fetch<std::uint32_t>(&bytes_[at]); }
  std::span<const std::byte> Part(std::size_t at, std::size_t size) const {
    return bytes_.subspan(at, size);
  }

 private:
  std::span<const std::byte> bytes_;
};

HiveFile::View HiveFile::At(Cell cell) const {
  const std::size_t start = kBaseSize + std::size_t{cell};
  if (cell % kCellUnit != 0 || start + kCellHeader > bytes_.size()) {
    return {};
  }
  const std::int64_t size = -std::int64_t{Fetch<std::int32_t>(&bytes_[start])};
  if (size < static_cast<std::int64_t>(kCellUnit) ||
      size % static_cast<std::int64_t>(kCellUnit) != 0 ||
      static_cast<std::size_t>(size) > bytes_.size() - start) {
    return {};
  }
  return View(
      std::span(bytes_).subspan(start + kCellHeader, static_cast<std::size_t>(size) - kCellHeader));
}

HiveFile::View HiveFile::KeyAt(Cell cell) const {
  const View key = At(cell);
  return key.Size() > kKeyName && key.Is("nk") && kKeyName + key.Short(kKeyNameSize) <= key.Size()
             ? key
             : View();
}

HiveFile::View HiveFile::ValueAt(Cell cell) const {
  const View value = At(cell);
  return value.Size() >= kValueName && value.Is("vk") &&
                 kValueName + value.Short(kValueNameSize) <= value.Size()
             ? value
             : View();
}

std::byte* HiveFile::Payload(Cell cell) { return &bytes_[kBaseSize + cell + kCellHeader]; }

template <typename Number>
void HiveFile::Put(Cell cell, std::size_t offset, Number number) {
  Store(Payload(cell) + offset, number);
}

Code HiveFile::Load(std::vector<std::byte> content) {
  bytes_ = std::move(content);
  if (bytes_.size() < kBaseSize || std::memcmp(bytes_.data(), "regf", 4) != 0 ||
      Fetch<std::uint32_t>(&bytes_[kChecksum]) != ChecksumOf(bytes_.data())) {
    return kBadDatabase;
  }
  const auto base = [this](std::size_t at) { return Fetch<std::uint32_t>(&bytes_[at]); };
  minorVersion_ = base(kMinorVersion);
  const std::size_t size = base(kDataSize);
  if (base(kMajorVersion) != 1 || minorVersion_ < 3 || minorVersion_ > 6 || size % kBinUnit != 0 ||
      size > bytes_.size() - kBaseSize) {
    return kBadDatabase;
  }
  bytes_.resize(kBaseSize + size);
  root_ = base(kRootCell);
  return AreBinsWhole() && KeyAt(root_) ? kSuccess : kBadDatabase;
}

bool HiveFile::AreBinsWhole() const {
  for (std::size_t bin = kBaseSize; bin < bytes_.size();) {
    const std::size_t size = Fetch<std::uint32_t>(&bytes_[bin + 8]);
    if (std::memcmp(&bytes_[bin], "hbin", 4) != 0 || size == 0 || size % kBinUnit != 0 ||
        Fetch<std::uint32_t>(&bytes_[bin + 4]) != bin - kBaseSize || size > bytes_.size() - bin) {
      return false;
    }
    bin += size;
  }
  return true;
}

bool HiveFile::IsInterrupted() const {
  return Fetch<std::uint32_t>(&bytes_[kSequence1]) != Fetch<std::uint32_t>(&bytes_[kSequence2]);
}

Code HiveFile::ReadKey(Cell key, KeyRecord* record) const {
  const View view = KeyAt(key);
  if (!view) {
    return kBadDatabase;
  }
  const std::uint16_t flags = view.Short(kKeyFlags);
  record->name =
      LoadName(view.Part(kKeyName, view.Short(kKeyNameSize)), (flags & kFlagNarrowName) != 0);
  record->parent = view.Long(kKeyParent);
  record->isLink = (flags & kFlagLink) != 0;
  return kSuccess;
}

Code HiveFile::ReadSubKeys(Cell key, std::vector<Cell>* subKeys) const {
  const View view = KeyAt(key);
  if (!view) {
    return kBadDatabase;
  }
  return view.Long(kKeySubKeys) == 0 ? kSuccess
                                     : ReadList(view.Long(kKeySubKeyList), true, subKeys);
}

Code HiveFile::ReadList(Cell list, bool mayBeIndex, std::vector<Cell>* subKeys) const {
  const View view = At(list);
  if (!view) {
    return kBadDatabase;
  }
  const bool hasHashes = view.Is("lf") || view.Is("lh");
  const bool isIndex = mayBeIndex && view.Is("ri");
  const std::size_t count = view.Short(2);
  const std::size_t step = hasHashes ? 8 : 4;
  // A list that names others over and over could ask for more keys than the file has room for.
  const std::size_t most = bytes_.size() / kKeyName;
  if ((!hasHashes && !isIndex && !view.Is("li")) || kListEntries + count * step > view.Size() ||
      subKeys->size() + count > most) {
    return kBadDatabase;
  }
  for (std::size_t i = 0; i < count; ++i) {
    const Cell entry = view.Long(kListEntries + i * step);
    if (!isIndex) {
      subKeys->push_back(entry);
    } else if (const Code code = ReadList(entry, false, subKeys); code != kSuccess) {
      return code;
    }
  }
  return kSuccess;
}

Code HiveFile::ReadValues(Cell key, std::vector<ValueRecord>* values) const {
  const View view = KeyAt(key);
  if (!view) {
    return kBadDatabase;
  }
  const std::size_t count = view.Long(kKeyValues);
  if (count == 0) {
    return kSuccess;
  }
  const View list = At(view.Long(kKeyValueList));
  if (list.Size() < count * sizeof(Cell)) {
    return kBadDatabase;
  }
  for (std::size_t i = 0; i < count; ++i) {
    const Cell cell = list.Long(i * sizeof(Cell));
    const View value = ValueAt(cell);
    if (!value) {
      return kBadDatabase;
    }
    values->push_back({LoadName(value.Part(kValueName, value.Short(kValueNameSize)),
                                (value.Short(kValueFlags) & kValueNarrowName) != 0),
                       value.Long(kValueType), cell});
  }
  return kSuccess;
}

std::size_t HiveFile::LargestPlainData() const {
  return minorVersion_ < 4 ? kLargestHive : kSegment;
}

Code HiveFile::ReadData(Cell value, std::vector<std::byte>* data) const {
  const View view = ValueAt(value);
  if (!view) {
    return kBadDatabase;
  }
  const std::size_t size = view.Long(kValueDataSize) & ~kDataInRecord;
  const bool isInRecord = (view.Long(kValueDataSize) & kDataInRecord) != 0;
  if (isInRecord || size == 0) {
    const auto part = view.Part(kValueData, std::min(size, sizeof(Cell)));
    data->assign(part.begin(), part.end());
    return size <= sizeof(Cell) ? kSuccess : kBadDatabase;
  }
  const View cell = At(view.Long(kValueData));
  if (size <= cell.Size()) {
    const auto part = cell.Part(0, size);
    data->assign(part.begin(), part.end());
    return kSuccess;
  }
  return size > LargestPlainData() ? ReadSegments(cell, size, data) : kBadDatabase;
}

Code HiveFile::ReadSegments(View record, std::size_t size, std::vector<std::byte>* data) const {
  const bool isRecord = record.Size() >= 8 && record.Is("db");
  const View list = isRecord ? At(record.Long(4)) : View();
  const std::size_t count = isRecord ? record.Short(2) : 0;
  if (list.Size() < count * sizeof(Cell) || size > bytes_.size()) {
    return kBadDatabase;
  }
  data->clear();
  data->reserve(size);
  for (std::size_t i = 0; i < count && data->size() < size; ++i) {
    const View segment = At(list.Long(i * sizeof(Cell)));
    const std::size_t wanted = std::min(size - data->size(), kSegment);
    if (segment.Size() < wanted) {
      return kBadDatabase;
    }
    const auto part = segment.Part(0, wanted);
    data->insert(data->end(), part.begin(), part.end());
  }
  return data->size() == size ? kSuccess : kBadDatabase;
}

Code HiveFile::PrepareToChange() {
  if (isPrepared_) {
    return kSuccess;
  }
  free_.clear();
  for (std::size_t bin = kBaseSize; bin < bytes_.size();) {
    const std::size_t end = bin + Fetch<std::uint32_t>(&bytes_[bin + 8]);
    if (!CollectFreeCells(bin, end)) {
      return kBadDatabase;
    }
    bin = end;
  }
  isPrepared_ = true;
  return kSuccess;
}

bool HiveFile::CollectFreeCells(std::size_t bin, std::size_t end) {
  std::size_t freeFrom = 0;
  const auto keep = [&](std::size_t until) {
    if (freeFrom != 0) {
      Store(&bytes_[freeFrom], static_cast<std::int32_t>(until - freeFrom));
      free_.emplace(until - freeFrom, static_cast<Cell>(freeFrom - kBaseSize));
      freeFrom = 0;
    }
  };
  for (std::size_t at = bin + kBinHeader; at < end;) {
    const std::int64_t header = Fetch<std::int32_t>(&bytes_[at]);
    const auto size = static_cast<std::size_t>(header < 0 ? -header : header);
    if (size < kCellUnit || size % kCellUnit != 0 || size > end - at) {
      return false;
    }
    if (header < 0) {
      keep(at);
    } else if (freeFrom == 0) {
      freeFrom = at;
    }
    at += size;
  }
  keep(end);
  return true;
}

HiveFile::Cell HiveFile::Allocate(std::size_t size) {
  const std::size_t wanted = RoundUp(size + kCellHeader, kCellUnit);
  const auto found = free_.lower_bound(wanted);
  if (found == free_.end()) {
    return AppendBin(wanted);
  }
  const auto [available, cell] = *found;
  free_.erase(found);
  return TakeFrom(cell, available, wanted);
}

HiveFile::Cell HiveFile::AppendBin(std::size_t cellSize) {
  const std::size_t bin = bytes_.size();
  const std::size_t size = RoundUp(cellSize + kBinHeader, kBinUnit);
  if (size > kLargestHive || bin + size > kLargestHive) {
    throw std::length_error("hive");
  }
  bytes_.resize(bin + size);
  std::memcpy(&bytes_[bin], "hbin", 4);
  Store(&bytes_[bin + 4], static_cast<std::uint32_t>(bin - kBaseSize));
  Store(&bytes_[bin + 8], static_cast<std::uint32_t>(size));
  Store(&bytes_[bin + 20], FileTime());
  Store(&bytes_[kDataSize], static_cast<std::uint32_t>(bytes_.size() - kBaseSize));
  return TakeFrom(static_cast<Cell>(bin + kBinHeader - kBaseSize), size - kBinHeader, cellSize);
}

// Makes a cell of the first `wanted` bytes of free room; its content is zeros.
HiveFile::Cell HiveFile::TakeFrom(Cell cell, std::size_t available, std::size_t wanted) {
  std::byte* start = Payload(cell) - kCellHeader;
  if (available > wanted) {
    Store(start + wanted, static_cast<std::int32_t>(available - wanted));
    free_.emplace(available - wanted, static_cast<Cell>(cell + wanted));
  }
  std::fill_n(start, wanted, std::byte());
  Store(start, -static_cast<std::int32_t>(wanted));
  return cell;
}

void HiveFile::Free(Cell cell) {
  if (const View view = At(cell)) {
    const std::size_t size = view.Size() + kCellHeader;
    Store(Payload(cell) - kCellHeader, static_cast<std::int32_t>(size));
    free_.emplace(size, cell);
  }
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
  const std::size_t count = view.Short(2);
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
  Put(leaf, 2, static_cast<std::uint16_t>(subKeys.size()));
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
    Put(list, 2, static_cast<std::uint16_t>(leaves.size()));
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
  // The end of the name tells more than its beginning.
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
