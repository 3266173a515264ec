// Reading the values of a hive's keys.
#include <algorithm>

#include "platform/formats/hive_format.h"
#include "platform/formats/hive_image.h"
#include "platform/formats/hive_names.h"
#include "platform/formats/names.h"

namespace platform::posix {
namespace {

// From so many on, the names of a key's values are kept in an index.
constexpr std::uint32_t kManyValues = 64;

}  // namespace

HiveView HiveImage::ValueCellAt(Cell cell) const {
  const View value = cells_.At(cell);
  return value.Size() >= kValueName && value.Is("vk") &&
                 kValueName + value.Short(kValueNameSize) <= value.Size()
             ? value
             : View();
}

// Without content when the list isn't as long as the key says.
HiveView HiveImage::ValueListOf(View key) const {
  const View list = cells_.At(key.Long(kKeyValueList));
  return list.Size() / sizeof(Cell) >= key.Long(kKeyValues) ? list : View();
}

void HiveImage::FillValue(View value, Cell cell, ValueRecord* record) {
  record->name = NameOfValue(value).Text();
  record->type = value.Long(kValueType);
  record->size = value.Long(kValueDataSize) & ~kDataInRecord;
  record->cell = cell;
}

Code HiveImage::ValueAt(Cell key, std::uint32_t index, ValueRecord* found) const {
  const View view = KeyAt(key);
  if (!view) {
    return kBadDatabase;
  }
  if (index >= view.Long(kKeyValues)) {
    return kNoMoreItems;
  }
  const View list = ValueListOf(view);
  const Cell cell = list ? list.Long(index * sizeof(Cell)) : kNoCell;
  const View value = ValueCellAt(cell);
  if (!value) {
    return kBadDatabase;
  }
  FillValue(value, cell, found);
  return kSuccess;
}

Code HiveImage::FindValue(Cell key, std::u16string_view name, ValueRecord* found) const {
  Cell cell = kNoCell;
  const Code code = FindValueCell(key, Folded(name), &cell);
  if (code == kSuccess) {
    FillValue(ValueCellAt(cell), cell, found);
  }
  return code;
}

Code HiveImage::FindValueCell(Cell key, const std::u16string& folded, Cell* found) const {
  const View view = KeyAt(key);
  const std::uint32_t count = view ? view.Long(kKeyValues) : 0;
  if (view && count == 0) {
    return kFileNotFound;
  }
  const View list = view ? ValueListOf(view) : View();
  if (!list) {
    return kBadDatabase;
  }
  if (count >= kManyValues) {
    return FindManyValue(key, list, count, folded, found);
  }
  for (std::uint32_t i = 0; i < count; ++i) {
    *found = list.Long(i * sizeof(Cell));
    const View value = ValueCellAt(*found);
    if (!value) {
      return kBadDatabase;
    }
    if (std::is_eq(CompareNames(folded, NameOfValue(value)))) {
      return kSuccess;
    }
  }
  return kFileNotFound;
}

Code HiveImage::FindManyValue(Cell key, View list, std::uint32_t count,
                              const std::u16string& folded, Cell* found) const {
  auto known = valueNames_.find(key);
  if (known == valueNames_.end()) {
    ValueNames names;
    for (std::uint32_t i = 0; i < count; ++i) {
      const Cell cell = list.Long(i * sizeof(Cell));
      const View value = ValueCellAt(cell);
      if (!value) {
        return kBadDatabase;
      }
      names.try_emplace(Folded(NameOfValue(value).Text()), cell);
    }
    known = valueNames_.emplace(key, std::move(names)).first;
  }
  const auto value = known->second.find(folded);
  if (value == known->second.end()) {
    return kFileNotFound;
  }
  *found = value->second;
  return kSuccess;
}

std::size_t HiveImage::LargestPlainData() const {
  return minorVersion_ < 4 ? kLargestHive : kSegment;
}

// Where a value's data is.
HiveImage::DataForm HiveImage::FormOf(View value) const {
  const std::uint32_t size = value.Long(kValueDataSize) & ~kDataInRecord;
  if (size == 0 || (value.Long(kValueDataSize) & kDataInRecord) != 0) {
    return size <= sizeof(Cell) ? DataForm::InRecord : DataForm::Damaged;
  }
  const View data = cells_.At(value.Long(kValueData));
  if (size <= data.Size()) {
    return DataForm::Plain;
  }
  return size > LargestPlainData() && data.Size() >= kSegmentsRecord && data.Is("db")
             ? DataForm::Segments
             : DataForm::Damaged;
}

Code HiveImage::ReadData(Cell value, std::vector<std::byte>* data) const {
  const View view = ValueCellAt(value);
  const DataForm form = view ? FormOf(view) : DataForm::Damaged;
  if (form == DataForm::Damaged) {
    return kBadDatabase;
  }
  const std::size_t size = view.Long(kValueDataSize) & ~kDataInRecord;
  if (form == DataForm::Segments) {
    return ReadSegments(cells_.At(view.Long(kValueData)), size, data);
  }
  const auto part = form == DataForm::InRecord ? view.Part(kValueData, size)
                                               : cells_.At(view.Long(kValueData)).Part(0, size);
  data->assign(part.begin(), part.end());
  return kSuccess;
}

// The cells of the segments, without content when there aren't as many as `size` bytes need.
HiveView HiveImage::SegmentsOf(View record, std::size_t size) const {
  const View list = cells_.At(record.Long(kSegmentList));
  const std::size_t count = record.Short(kSegmentCount);
  return count >= (size + kSegment - 1) / kSegment && count * sizeof(Cell) <= list.Size() ? list
                                                                                          : View();
}

Code HiveImage::ReadSegments(View record, std::size_t size, std::vector<std::byte>* data) const {
  const View list = SegmentsOf(record, size);
  if (!list || size > cells_.DataSize()) {
    return kBadDatabase;
  }
  data->clear();
  data->reserve(size);
  for (std::size_t i = 0; data->size() < size; ++i) {
    const View segment = cells_.At(list.Long(i * sizeof(Cell)));
    const std::size_t wanted = std::min(size - data->size(), kSegment);
    if (segment.Size() < wanted) {
      return kBadDatabase;
    }
    const auto part = segment.Part(0, wanted);
    data->insert(data->end(), part.begin(), part.end());
  }
  return kSuccess;
}

}  // namespace platform::posix
