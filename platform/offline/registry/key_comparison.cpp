#include "platform/offline/registry/key_comparison.h"

#include <cstddef>

#include "platform/formats/names.h"
#include "platform/offline/registry/hive_difference.h"

namespace platform::posix {
namespace {

using machine::KeyChange;
using machine::KeyState;
using machine::ValueChange;
using machine::ValueState;

constexpr auto kNoCell = HiveImage::kNoCell;
constexpr std::uint64_t kLeastAllowance = std::uint64_t{64} << 20;

}  // namespace

Code WayTo(const HiveImage& image, HiveImage::Cell key, std::vector<std::u16string>* names) {
  while (key != image.Root()) {
    const Code code = image.ReadName(key, &names->emplace_back(), &key);
    if (code != kSuccess || names->size() > HiveImage::kDeepestKey) {
      return kBadDatabase;
    }
  }
  return kSuccess;
}

std::uint64_t KeyComparison::Allowance() const {
  return 4 * (std::uint64_t{before_.DataSize()} + after_.DataSize()) + kLeastAllowance;
}

// In a sound hive no byte belongs to two keys, but for descriptors, and those are short. In another
// one that is all that may be read.
Code KeyComparison::Take(std::uint64_t size) {
  if (size > allowance_) {
    return kBadDatabase;
  }
  allowance_ -= size;
  return kSuccess;
}

Code KeyComparison::Compare(const CellPair& pair, cvn::List<KeyChange>* changes) {
  KeyChange change;
  bool isSame = true;
  Code code = CompareForms(pair, &isSame);
  code = code == kSuccess ? CompareValues(pair, &change.values) : code;
  if (code != kSuccess || (isSame && change.values.empty())) {
    return code;
  }
  if (pair.before != kNoCell) {
    code = TakeForm(before_, pair.before, &change.before.emplace());
  }
  if (code == kSuccess && pair.after != kNoCell) {
    code = TakeForm(after_, pair.after, &change.after.emplace());
  }
  change.hive = hive_;
  code = code == kSuccess ? PathOf(pair, &change.path) : code;
  if (code == kSuccess) {
    changes->push_back(std::move(change));
  }
  return code;
}

Code KeyComparison::TakeForm(const HiveImage& image, Cell key, KeyState* state) {
  const Code code = ReadForm(image, key, state);
  return code == kSuccess
             ? Take(state->security.size() + state->className.Length() * sizeof(char16_t))
             : code;
}

Code KeyComparison::CompareForms(const CellPair& pair, bool* isSame) {
  *isSame = pair.before != kNoCell && pair.after != kNoCell;
  if (!*isSame) {
    return kSuccess;
  }
  HiveImage::KeyRecord was;
  HiveImage::KeyRecord is;
  Code code = before_.Read(pair.before, &was);
  code = code == kSuccess ? after_.Read(pair.after, &is) : code;
  code = code == kSuccess ? Take(was.className.size() + is.className.size()) : code;
  *isSame = was.className == is.className && ((was.flags ^ is.flags) & HiveImage::kKeyIsLink) == 0;
  return code == kSuccess && *isSame ? CompareSecurity(pair, {was.security, is.security}, isSame)
                                     : code;
}

// Many keys share few descriptors.
Code KeyComparison::CompareSecurity(const CellPair& keys, std::pair<Cell, Cell> cells,
                                    bool* isSame) {
  if (const auto known = sameSecurity_.find(cells); known != sameSecurity_.end()) {
    *isSame = known->second;
    return kSuccess;
  }
  std::vector<std::byte> was;
  std::vector<std::byte> is;
  Code code = before_.ReadSecurity(keys.before, &was);
  code = code == kSuccess ? after_.ReadSecurity(keys.after, &is) : code;
  if (code != kSuccess) {
    return code;
  }
  *isSame = was == is;
  sameSecurity_.emplace(cells, *isSame);
  return Take(was.size() + is.size());
}

Code KeyComparison::ListValues(const HiveImage& image, Cell key, std::vector<Value>* values) {
  Code code = key == kNoCell ? Code(kNoMoreItems) : kSuccess;
  for (std::uint32_t i = 0; code == kSuccess; ++i) {
    Value value;
    code = image.ValueAt(key, i, &value.record);
    code = code == kSuccess ? Take(sizeof(Cell) + value.record.name.size()) : code;
    if (code == kSuccess) {
      value.folded = Folded(value.record.name);
      values->push_back(std::move(value));
    }
  }
  SortByName(values);
  return code == kNoMoreItems ? kSuccess : code;
}

Code KeyComparison::CompareValues(const CellPair& pair, cvn::List<ValueChange>* changes) {
  std::vector<Value> before;
  std::vector<Value> after;
  Code code = ListValues(before_, pair.before, &before);
  code = code == kSuccess ? ListValues(after_, pair.after, &after) : code;
  return code == kSuccess ? Merge(before, after,
                                  [&](const Value* was, const Value* is) {
                                    return CompareValue(was, is, changes);
                                  })
                          : code;
}

Code KeyComparison::CompareValue(const Value* was, const Value* is,
                                 cvn::List<ValueChange>* changes) {
  ValueState before;
  ValueState after;
  Code code = was == nullptr ? kSuccess : ReadValue(before_, was->record, &before);
  if (code == kSuccess && is != nullptr) {
    code = ReadValue(after_, is->record, &after);
  }
  if (code != kSuccess || (was != nullptr && is != nullptr && before == after)) {
    return code;
  }
  ValueChange& change = changes->emplace_back();
  change.name = cvn::StringView((is == nullptr ? was : is)->record.name);
  if (was != nullptr) {
    change.before = std::move(before);
  }
  if (is != nullptr) {
    change.after = std::move(after);
  }
  return kSuccess;
}

Code KeyComparison::ReadValue(const HiveImage& image, const HiveImage::ValueRecord& record,
                              ValueState* state) {
  const Code code = Take(record.size);
  state->type = record.type;
  return code == kSuccess ? image.ReadData(record.cell, &state->data) : code;
}

Code KeyComparison::PathOf(const CellPair& pair, cvn::String* path) {
  const bool isGone = pair.after == kNoCell;
  std::vector<std::u16string> way;
  Code code = WayTo(isGone ? before_ : after_, isGone ? pair.before : pair.after, &way);
  std::u16string text;
  for (auto name = way.rbegin(); code == kSuccess && name != way.rend(); ++name) {
    const bool isOdd = name->empty() || name->find(u'\\') != std::u16string::npos;
    code = isOdd ? Code(kBadDatabase) : kSuccess;
    text.append(text.empty() ? u"" : u"\\").append(*name);
  }
  *path = cvn::StringView(text);
  return code == kSuccess ? Take(text.size() * sizeof(char16_t)) : code;
}

}  // namespace platform::posix
