// Which cells differ between two states of one hive, and which keys they belong to.
#include <algorithm>
#include <cstring>

#include "platform/formats/hive_format.h"
#include "platform/formats/hive_image.h"

namespace platform::posix {

void HiveImage::ListCells(Cell key, std::vector<Cell>* cells) const {
  const View view = KeyAt(key);
  if (!view) {
    return;
  }
  cells->push_back(key);
  cells->push_back(view.Long(kKeyClass));
  if (view.Long(kKeySubKeys) != 0) {
    const Cell list = view.Long(kKeySubKeyList);
    const View leaves = IndexAt(list);
    cells->push_back(list);
    for (std::uint32_t i = 0; leaves && i < leaves.Short(kListCount); ++i) {
      cells->push_back(EntryOfIndex(leaves, i));
    }
  }
  const View list = view.Long(kKeyValues) == 0 ? View() : ValueListOf(view);
  cells->push_back(view.Long(kKeyValueList));
  for (std::uint32_t i = 0; list && i < view.Long(kKeyValues); ++i) {
    const Cell cell = list.Long(i * sizeof(Cell));
    const View value = ValueCellAt(cell);
    const DataForm form = value ? FormOf(value) : DataForm::InRecord;
    cells->push_back(cell);
    if (form != DataForm::InRecord) {
      cells->push_back(value.Long(kValueData));
    }
    if (form == DataForm::Segments) {
      const View record = cells_.At(value.Long(kValueData));
      const std::size_t size = value.Long(kValueDataSize) & ~kDataInRecord;
      const View segments = SegmentsOf(record, size);
      cells->push_back(record.Long(kSegmentList));
      for (std::size_t j = 0; segments && j * kSegment < size; ++j) {
        cells->push_back(segments.Long(j * sizeof(Cell)));
      }
    }
  }
}

// The cells in use of the bins that the other image doesn't have just so.
Code HiveImage::ListCellsInOtherBins(const HiveImage& other, std::vector<Cell>* cells) const {
  const std::span<const std::byte> bytes = cells_.Bytes();
  std::uint32_t size = 0;
  for (std::uint32_t bin = 0; bin < cells_.DataSize(); bin += size) {
    size = cells_.BinSizeAt(bin);
    if (size == 0) {
      return kBadDatabase;
    }
    const bool isCommon = std::uint64_t{bin} + size <= other.DataSize();
    if (isCommon &&
        std::memcmp(&bytes[kBaseSize + bin], &other.cells_.Bytes()[kBaseSize + bin], size) == 0) {
      continue;
    }
    for (std::uint32_t at = kBinHeader; at < size;) {
      const std::int64_t header = Fetch<std::int32_t>(&bytes[kBaseSize + bin + at]);
      const std::int64_t cellSize = header < 0 ? -header : header;
      if (cellSize < static_cast<std::int64_t>(kCellUnit) || cellSize % kCellUnit != 0 ||
          cellSize > size - at) {
        return kBadDatabase;
      }
      if (header < 0) {
        cells->push_back(bin + at);
      }
      at += static_cast<std::uint32_t>(cellSize);
    }
  }
  return kSuccess;
}

Code HiveImage::ListDifferentCells(const HiveImage& before, const HiveImage& after,
                                   std::vector<Cell>* inBefore, std::vector<Cell>* inAfter) {
  std::vector<Cell> former;
  std::vector<Cell> latter;
  Code code = before.ListCellsInOtherBins(after, &former);
  code = code == kSuccess ? after.ListCellsInOtherBins(before, &latter) : code;
  const auto descriptorOf = [](View security) {
    const std::size_t size =
        std::min<std::size_t>(security.Long(kSecuritySize), security.Size() - kSecurityDescriptor);
    return security.Part(kSecurityDescriptor, size);
  };
  auto left = former.begin();
  auto right = latter.begin();
  while (code == kSuccess && (left != former.end() || right != latter.end())) {
    const bool isLeft = left != former.end() && (right == latter.end() || *left <= *right);
    const bool isRight = right != latter.end() && (left == former.end() || *right <= *left);
    const Cell cell = isLeft ? *left : *right;
    const View was = isLeft ? before.cells_.At(cell) : View();
    const View is = isRight ? after.cells_.At(cell) : View();
    const View wasSecurity = isLeft ? before.SecurityAt(cell) : View();
    const View isSecurity = isRight ? after.SecurityAt(cell) : View();
    if (wasSecurity && isSecurity) {
      code = std::ranges::equal(descriptorOf(wasSecurity), descriptorOf(isSecurity))
                 ? kSuccess
                 : Code(kBadDatabase);
    } else if (!isLeft || !isRight || was.Size() != is.Size() ||
               !std::ranges::equal(was.Part(0, was.Size()), is.Part(0, is.Size()))) {
      if (isLeft && !wasSecurity) {
        inBefore->push_back(cell);
      }
      if (isRight && !isSecurity) {
        inAfter->push_back(cell);
      }
    }
    left += isLeft ? 1 : 0;
    right += isRight ? 1 : 0;
  }
  return code;
}

}  // namespace platform::posix
