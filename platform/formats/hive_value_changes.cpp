// Changing the values of a hive's keys.
#include <algorithm>
#include <cstring>
#include <limits>

#include "platform/formats/hive_format.h"
#include "platform/formats/hive_image.h"
#include "platform/formats/hive_names.h"
#include "platform/formats/names.h"

namespace platform::posix {
namespace {

constexpr std::size_t kAnyNumber = std::numeric_limits<std::size_t>::max();

std::uint32_t DataSizeOf(HiveView value) { return value.Long(kValueDataSize) & ~kDataInRecord; }

}  // namespace

Code HiveImage::SetValue(Cell key, std::u16string_view name, std::uint32_t type,
                         std::span<const std::byte> data, std::uint64_t time) {
  if (name.size() > kLongestValueName) {
    return kInvalidParameter;
  }
  if (data.size() > kLargestHive) {
    return kDiskFull;
  }
  return Change([&]() -> Code {
    Cell value = kNoCell;
    const std::u16string folded = Folded(name);
    Code code = ClaimKey(key);
    code = code == kSuccess ? FindValueCell(key, folded, &value) : code;
    if (code == kSuccess) {
      code = ReplaceValue(key, value, type, data);
    } else if (code == kFileNotFound) {
      code = AddValue(key, name, type, data, &value);
      const auto names = valueNames_.find(key);
      if (code == kSuccess && names != valueNames_.end()) {
        names->second.emplace(folded, value);
      }
    }
    if (code == kSuccess) {
      cells_.Put(key, kKeyWritten, time);
      Raise(key, kKeyLongestValueName, name.size() * sizeof(char16_t));
      Raise(key, kKeyLongestData, data.size());
    }
    return code;
  });
}

Code HiveImage::AddValue(Cell key, std::u16string_view name, std::uint32_t type,
                         std::span<const std::byte> data, Cell* value) {
  std::uint32_t sizeField = 0;
  std::uint32_t dataField = 0;
  Code code = AddData(data, &sizeField, &dataField);
  if (code != kSuccess) {
    return code;
  }
  std::vector<std::byte> record(kValueName + StoredSize(name));
  std::memcpy(record.data(), "vk", 2);
  Store(&record[kValueNameSize], static_cast<std::uint16_t>(StoredSize(name)));
  Store(&record[kValueDataSize], sizeField);
  Store(&record[kValueData], dataField);
  Store(&record[kValueType], type);
  Store(&record[kValueFlags],
        !name.empty() && IsNarrow(name) ? kValueNarrowName : std::uint16_t{0});
  if (!name.empty()) {
    StoreName(name, &record[kValueName]);
  }
  code = cells_.Allocate(record, 0, value);
  if (code != kSuccess) {
    return code;
  }
  const auto entry = std::as_bytes(std::span(value, 1));
  const std::uint32_t count = KeyAt(key).Long(kKeyValues);
  List list{KeyAt(key).Long(kKeyValueList), 0, sizeof(Cell), count};
  code =
      count == 0 ? cells_.Allocate(entry, 0, &list.cell) : Insert(&list, count, entry, kAnyNumber);
  if (code == kSuccess) {
    cells_.Put(key, kKeyValueList, list.cell);
    cells_.Put(key, kKeyValues, count + 1);
  }
  return code;
}

// Stores data, and gives what the value's record has to say of it.
Code HiveImage::AddData(std::span<const std::byte> data, std::uint32_t* sizeField,
                        std::uint32_t* dataField) {
  *sizeField = static_cast<std::uint32_t>(data.size());
  if (data.size() <= sizeof(Cell)) {
    *sizeField |= kDataInRecord;
    *dataField = 0;
    std::copy(data.begin(), data.end(), reinterpret_cast<std::byte*>(dataField));
    return kSuccess;
  }
  return data.size() <= LargestPlainData() ? cells_.Allocate(data, 0, dataField)
                                           : AddSegments(data, dataField);
}

Code HiveImage::AddSegments(std::span<const std::byte> data, Cell* record) {
  std::vector<Cell> segments;
  for (std::size_t i = 0; i < data.size(); i += kSegment) {
    Cell segment = kNoCell;
    const auto part = data.subspan(i, std::min(kSegment, data.size() - i));
    const Code code = cells_.Allocate(part, part.size() + kSegmentPadding, &segment);
    if (code != kSuccess) {
      return code;
    }
    segments.push_back(segment);
  }
  if (segments.size() > kLargestList) {
    return kDiskFull;
  }
  Cell list = kNoCell;
  const Code code = cells_.Allocate(std::as_bytes(std::span(segments)), 0, &list);
  if (code != kSuccess) {
    return code;
  }
  std::byte content[kSegmentsRecord] = {std::byte{'d'}, std::byte{'b'}};
  Store(content + kSegmentCount, static_cast<std::uint16_t>(segments.size()));
  Store(content + kSegmentList, list);
  return cells_.Allocate(content, 0, record);
}

Code HiveImage::FreeData(View value) {
  const DataForm form = FormOf(value);
  const Cell data = value.Long(kValueData);
  if (form == DataForm::InRecord || form == DataForm::Damaged) {
    return form == DataForm::InRecord ? kSuccess : Code(kBadDatabase);
  }
  if (form == DataForm::Segments) {
    const View record = cells_.At(data);
    const View list = SegmentsOf(record, DataSizeOf(value));
    if (!list) {
      return kBadDatabase;
    }
    Code code = cells_.Free(record.Long(kSegmentList));
    for (std::size_t i = 0; code == kSuccess && i < record.Short(kSegmentCount); ++i) {
      code = cells_.Free(list.Long(i * sizeof(Cell)));
    }
    if (code != kSuccess) {
      return code;
    }
  }
  return cells_.Free(data);
}

// Data that needs at least half of the cell that is there is written over it.
Code HiveImage::ReplaceValue(Cell key, Cell value, std::uint32_t type,
                             std::span<const std::byte> data) {
  Code code = cells_.Claim(value);
  if (code != kSuccess) {
    return code;
  }
  const View view = ValueCellAt(value);
  const std::uint32_t formerSize = DataSizeOf(view);
  const View former = cells_.At(view.Long(kValueData));
  if (FormOf(view) == DataForm::Plain && data.size() > sizeof(Cell) &&
      data.size() <= LargestPlainData() && data.size() <= former.Size() &&
      data.size() >= former.Size() / 2) {
    code = cells_.Claim(view.Long(kValueData));
    if (code == kSuccess) {
      std::copy(data.begin(), data.end(), cells_.Write(view.Long(kValueData), 0, data.size()));
      cells_.Put(value, kValueDataSize, static_cast<std::uint32_t>(data.size()));
    }
  } else {
    std::uint32_t sizeField = 0;
    std::uint32_t dataField = 0;
    code = FreeData(view);
    code = code == kSuccess ? AddData(data, &sizeField, &dataField) : code;
    if (code == kSuccess) {
      cells_.Put(value, kValueDataSize, sizeField);
      cells_.Put(value, kValueData, dataField);
    }
  }
  if (code != kSuccess) {
    return code;
  }
  cells_.Put(value, kValueType, type);
  if (data.size() < formerSize) {
    LowerForValues(key, kKeyLongestData, formerSize, 0);
  }
  return kSuccess;
}

void HiveImage::LowerForValues(Cell key, std::size_t field, std::size_t gone, std::uint32_t near) {
  const View list = ValueListOf(KeyAt(key));
  Lower(key, field, gone, KeyAt(key).Long(kKeyValues), near, [&](std::uint32_t i) -> std::size_t {
    const View value = ValueCellAt(list.Long(i * sizeof(Cell)));
    if (!value) {
      return gone;
    }
    return field == kKeyLongestData ? DataSizeOf(value)
                                    : NameOfValue(value).Length() * sizeof(char16_t);
  });
}

Code HiveImage::RemoveValue(Cell key, std::u16string_view name, std::uint64_t time) {
  return Change([&]() -> Code {
    Cell value = kNoCell;
    const std::u16string folded = Folded(name);
    Code code = ClaimKey(key);
    code = code == kSuccess ? FindValueCell(key, folded, &value) : code;
    code = code == kSuccess ? EraseValue(key, value) : code;
    if (code == kSuccess) {
      cells_.Put(key, kKeyWritten, time);
      const auto names = valueNames_.find(key);
      if (names != valueNames_.end()) {
        names->second.erase(folded);
        // Where a name was there twice, the next search begins anew.
        if (names->second.size() != KeyAt(key).Long(kKeyValues)) {
          valueNames_.erase(names);
        }
      }
    }
    return code;
  });
}

Code HiveImage::EraseValue(Cell key, Cell value) {
  const View view = KeyAt(key);
  const View list = ValueListOf(view);
  const std::uint32_t count = view.Long(kKeyValues);
  std::uint32_t at = 0;
  while (at + 1 < count && list.Long(at * sizeof(Cell)) != value) {
    ++at;
  }
  const View former = ValueCellAt(value);
  Code code = FreeData(former);
  code = code == kSuccess ? cells_.Free(value) : code;
  if (code == kSuccess) {
    const Cell listCell = view.Long(kKeyValueList);
    code = count == 1 ? cells_.Free(listCell) : Erase({listCell, 0, sizeof(Cell), count}, at);
  }
  if (code != kSuccess) {
    return code;
  }
  cells_.Put(key, kKeyValues, count - 1);
  if (count == 1) {
    cells_.Put(key, kKeyValueList, kNoCell);
  }
  LowerForValues(key, kKeyLongestValueName, NameOfValue(former).Length() * sizeof(char16_t), at);
  LowerForValues(key, kKeyLongestData, DataSizeOf(former), at);
  return kSuccess;
}

Code HiveImage::FreeValues(View key) {
  const std::uint32_t count = key.Long(kKeyValues);
  if (count == 0) {
    return kSuccess;
  }
  const View list = ValueListOf(key);
  Code code = list ? cells_.Free(key.Long(kKeyValueList)) : Code(kBadDatabase);
  for (std::uint32_t i = 0; code == kSuccess && i < count; ++i) {
    const Cell cell = list.Long(i * sizeof(Cell));
    const View value = ValueCellAt(cell);
    code = value ? FreeData(value) : Code(kBadDatabase);
    code = code == kSuccess ? cells_.Free(cell) : code;
  }
  return code;
}

}  // namespace platform::posix
