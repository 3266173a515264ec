// Reading a hive file. Nothing that stands in one is trusted.
#include <algorithm>
#include <utility>

#include "platform/formats/hive_file.h"
#include "platform/formats/hive_layout.h"

namespace platform::posix {
namespace {

std::u16string LoadName(std::span<const std::byte> stored, bool isNarrow) {
  std::u16string name;
  const std::size_t step = isNarrow ? 1 : sizeof(char16_t);
  name.reserve(stored.size() / step);
  for (std::size_t i = 0; i + step <= stored.size(); i += step) {
    name.push_back(isNarrow ? static_cast<char16_t>(stored[i]) : Fetch<char16_t>(&stored[i]));
  }
  return name;
}

}  // namespace

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
    const std::size_t size = Fetch<std::uint32_t>(&bytes_[bin + kBinSize]);
    if (std::memcmp(&bytes_[bin], "hbin", 4) != 0 || size == 0 || size % kBinUnit != 0 ||
        Fetch<std::uint32_t>(&bytes_[bin + kBinOffset]) != bin - kBaseSize ||
        size > bytes_.size() - bin) {
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
  const std::size_t count = view.Short(kListCount);
  const std::size_t step = hasHashes ? 8 : 4;
  // A list that names another many times could ask for more keys than the file can hold.
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

}  // namespace platform::posix
