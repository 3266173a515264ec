#include "platform/offline/registry/hive_difference.h"

#include <algorithm>
#include <map>
#include <string>
#include <utility>

#include "platform/formats/names.h"
#include "platform/offline/registry/hive_store.h"

namespace platform::posix {
namespace {

using Cell = HiveImage::Cell;
using machine::KeyChange;
using machine::KeyState;
using machine::ValueChange;
using machine::ValueState;

constexpr Cell kNoCell = HiveImage::kNoCell;
constexpr std::size_t kDeepestKey = 512;  // levels; a limit of Windows

struct Value {
  std::u16string folded;
  HiveImage::ValueRecord record;
};

struct SubKey {
  std::u16string folded;
  Cell cell = kNoCell;
};

// Of several with one name the first counts, as it does when one is looked for.
template <typename Item>
void SortByName(std::vector<Item>* items) {
  std::ranges::stable_sort(*items, {}, &Item::folded);
  const auto end =
      std::unique(items->begin(), items->end(),
                  [](const Item& left, const Item& right) { return left.folded == right.folded; });
  items->erase(end, items->end());
}

// Calls `use` with what has the same name on both sides, or null for the side that lacks it.
template <typename Item, typename Use>
Code Merge(const std::vector<Item>& before, const std::vector<Item>& after, Use use) {
  auto left = before.begin();
  auto right = after.begin();
  Code code = kSuccess;
  while (code == kSuccess && (left != before.end() || right != after.end())) {
    const bool isLeft =
        left != before.end() && (right == after.end() || left->folded <= right->folded);
    const bool isRight =
        right != after.end() && (left == before.end() || right->folded <= left->folded);
    code = use(isLeft ? &*left : nullptr, isRight ? &*right : nullptr);
    left += isLeft ? 1 : 0;
    right += isRight ? 1 : 0;
  }
  return code;
}

class HiveComparison {
 public:
  HiveComparison(const HiveImage& before, const HiveImage& after, cvn::StringView hive,
                 cvn::List<KeyChange>* changes)
      : before_(before),
        after_(after),
        hive_(hive),
        changes_(*changes),
        allowance_(4 * (std::uint64_t{before.DataSize()} + after.DataSize()) + kLeastAllowance) {}

  Code Run() {
    const auto first = static_cast<std::ptrdiff_t>(changes_.size());
    pending_.push_back({before_.Root(), after_.Root()});
    Code code = kSuccess;
    while (code == kSuccess && !pending_.empty()) {
      const Pair pair = pending_.back();
      pending_.pop_back();
      code = CompareKey(pair);
      code = code == kSuccess ? EnterSubKeys(pair) : code;
    }
    std::sort(changes_.begin() + first, changes_.end(),
              [](const KeyChange& left, const KeyChange& right) {
                return machine::ComesBefore(left.path, right.path);
              });
    return code;
  }

 private:
  static constexpr std::uint64_t kLeastAllowance = std::uint64_t{64} << 20;

  // The cells of a key on both sides, where it is there.
  struct Pair {
    Cell before = kNoCell;
    Cell after = kNoCell;
  };

  // In a sound hive no byte belongs to two keys, but for descriptors, and those are short. In
  // another one that is all that may be read.
  Code Take(std::uint64_t size) {
    if (size > allowance_) {
      return kBadDatabase;
    }
    allowance_ -= size;
    return kSuccess;
  }

  Code CompareKey(const Pair& pair) {
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
      changes_.push_back(std::move(change));
    }
    return code;
  }

  Code TakeForm(const HiveImage& image, Cell key, KeyState* state) {
    const Code code = ReadForm(image, key, state);
    return code == kSuccess
               ? Take(state->security.size() + state->className.Length() * sizeof(char16_t))
               : code;
  }

  Code CompareForms(const Pair& pair, bool* isSame) {
    *isSame = pair.before != kNoCell && pair.after != kNoCell;
    if (!*isSame) {
      return kSuccess;
    }
    HiveImage::KeyRecord was;
    HiveImage::KeyRecord is;
    Code code = before_.Read(pair.before, &was);
    code = code == kSuccess ? after_.Read(pair.after, &is) : code;
    *isSame =
        was.className == is.className && ((was.flags ^ is.flags) & HiveImage::kKeyIsLink) == 0;
    return code == kSuccess && *isSame ? CompareSecurity(pair, {was.security, is.security}, isSame)
                                       : code;
  }

  // Many keys share few descriptors.
  Code CompareSecurity(const Pair& keys, std::pair<Cell, Cell> cells, bool* isSame) {
    if (const auto known = sameSecurity_.find(cells); known != sameSecurity_.end()) {
      *isSame = known->second;
      return kSuccess;
    }
    std::vector<std::byte> was;
    std::vector<std::byte> is;
    Code code = before_.ReadSecurity(keys.before, &was);
    code = code == kSuccess ? after_.ReadSecurity(keys.after, &is) : code;
    *isSame = was == is;
    sameSecurity_.emplace(cells, *isSame);
    return code == kSuccess ? Take(was.size() + is.size()) : code;
  }

  static Code ListValues(const HiveImage& image, Cell key, std::vector<Value>* values) {
    Code code = key == kNoCell ? Code(kNoMoreItems) : kSuccess;
    for (std::uint32_t i = 0; code == kSuccess; ++i) {
      Value value;
      code = image.ValueAt(key, i, &value.record);
      if (code == kSuccess) {
        value.folded = Folded(value.record.name);
        values->push_back(std::move(value));
      }
    }
    SortByName(values);
    return code == kNoMoreItems ? kSuccess : code;
  }

  Code CompareValues(const Pair& pair, cvn::List<ValueChange>* changes) {
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

  Code CompareValue(const Value* was, const Value* is, cvn::List<ValueChange>* changes) {
    ValueChange change;
    Code code = was == nullptr ? kSuccess : ReadValue(before_, was->record, &change.before);
    if (code == kSuccess && is != nullptr) {
      code = ReadValue(after_, is->record, &change.after);
    }
    if (code == kSuccess && change.before != change.after) {
      change.name = cvn::StringView((is == nullptr ? was : is)->record.name);
      changes->push_back(std::move(change));
    }
    return code;
  }

  Code ReadValue(const HiveImage& image, const HiveImage::ValueRecord& record,
                 std::optional<ValueState>* state) {
    const Code code = Take(record.size);
    state->emplace().type = record.type;
    return code == kSuccess ? image.ReadData(record.cell, &(*state)->data) : code;
  }

  // Keys name their parent: so no way down meets one twice.
  static Code ListSubKeys(const HiveImage& image, Cell key, std::vector<SubKey>* subKeys) {
    std::vector<Cell> cells;
    Code code = key == kNoCell ? kSuccess : image.ListSubKeys(key, &cells);
    for (const Cell cell : cells) {
      HiveImage::KeyRecord record;
      code = code == kSuccess ? image.Read(cell, &record) : code;
      if (code != kSuccess || record.parent != key || cell == image.Root()) {
        return code == kSuccess ? Code(kBadDatabase) : code;
      }
      subKeys->push_back({Folded(record.name), cell});
    }
    SortByName(subKeys);
    return code;
  }

  Code EnterSubKeys(const Pair& pair) {
    std::vector<SubKey> before;
    std::vector<SubKey> after;
    Code code = ListSubKeys(before_, pair.before, &before);
    code = code == kSuccess ? ListSubKeys(after_, pair.after, &after) : code;
    return code == kSuccess ? Merge(before, after,
                                    [this](const SubKey* was, const SubKey* is) -> Code {
                                      pending_.push_back({was == nullptr ? kNoCell : was->cell,
                                                          is == nullptr ? kNoCell : is->cell});
                                      return kSuccess;
                                    })
                            : code;
  }

  Code PathOf(const Pair& pair, cvn::String* path) {
    const HiveImage& image = pair.after == kNoCell ? before_ : after_;
    std::u16string text;
    std::size_t depth = 0;
    for (Cell key = pair.after == kNoCell ? pair.before : pair.after; key != image.Root();) {
      HiveImage::KeyRecord record;
      const Code code = image.Read(key, &record);
      if (code != kSuccess || ++depth > kDeepestKey || record.name.empty() ||
          record.name.find(u'\\') != std::u16string::npos) {
        return code == kSuccess ? Code(kBadDatabase) : code;
      }
      text.insert(0, text.empty() ? record.name : record.name + u'\\');
      key = record.parent;
    }
    *path = cvn::StringView(text);
    return Take(text.size() * sizeof(char16_t));
  }

  const HiveImage& before_;
  const HiveImage& after_;
  const cvn::StringView hive_;
  cvn::List<KeyChange>& changes_;
  std::uint64_t allowance_;  // bytes that may still be read
  std::vector<Pair> pending_;
  std::map<std::pair<Cell, Cell>, bool> sameSecurity_;
};

}  // namespace

Code ReadForm(const HiveImage& image, Cell key, KeyState* state) {
  HiveImage::KeyRecord record;
  const Code code = image.Read(key, &record);
  state->className = cvn::StringView(record.className);
  state->isLink = (record.flags & HiveImage::kKeyIsLink) != 0;
  return code == kSuccess ? image.ReadSecurity(key, &state->security) : code;
}

Code CompareImages(const HiveImage& before, const HiveImage& after, cvn::StringView hive,
                   cvn::List<KeyChange>* changes) {
  return HiveComparison(before, after, hive, changes).Run();
}

Code CompareHives(const HiveFiles& before, const HiveFiles& after, cvn::StringView hive,
                  cvn::List<KeyChange>* changes) {
  HiveStore first(before);
  HiveStore second(after);
  HiveImage was(&first.Pages());
  HiveImage is(&second.Pages());
  const std::size_t known = changes->size();
  Code code = first.Enter(false);
  code = code == kSuccess ? second.Enter(false) : code;
  code = code == kSuccess ? was.Open() : code;
  code = code == kSuccess ? is.Open() : code;
  code = code == kSuccess ? CompareImages(was, is, hive, changes) : code;
  if (code == kSuccess && (first.Pages().IsTorn() || second.Pages().IsTorn())) {
    code = kReadFault;
  }
  if (code != kSuccess) {
    changes->resize(known);
  }
  return code;
}

}  // namespace platform::posix
