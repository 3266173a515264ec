#include "platform/offline/registry/hive_difference.h"

#include <algorithm>
#include <map>
#include <string>
#include <unordered_set>
#include <utility>

#include "platform/formats/names.h"

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
      : before_(before), after_(after), hive_(hive), changes_(*changes), allowance_(Allowance()) {}

  Code Run() {
    const std::size_t known = changes_.size();
    Code code = CompareDifferentCells();
    if (code != kSuccess) {
      changes_.resize(known);
      allowance_ = Allowance();
      pending_ = {{before_.Root(), after_.Root()}};
      code = ComparePending(true);
    }
    std::sort(changes_.begin() + static_cast<std::ptrdiff_t>(known), changes_.end(),
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

  std::uint64_t Allowance() const {
    return 4 * (std::uint64_t{before_.DataSize()} + after_.DataSize()) + kLeastAllowance;
  }

  // Of a hive that was changed in place only the keys are compared whose cells differ, and keys
  // that came or went with all below them. That is all that differs if it is what all the cells
  // belong to that differ; 1009 where they don't.
  Code CompareDifferentCells() {
    std::vector<Cell> wasCells;
    std::vector<Cell> isCells;
    const Code code = HiveImage::ListDifferentCells(before_, after_, &wasCells, &isCells);
    if (code != kSuccess) {
      return code;
    }
    std::unordered_set<std::uint64_t> known;
    const auto add = [&](const Pair& pair) {
      const bool isPair = pair.before != kNoCell && pair.after != kNoCell;
      if (isPair && known.insert(std::uint64_t{pair.before} << 32 | pair.after).second) {
        pending_.push_back(pair);
      }
    };
    for (const Cell cell : wasCells) {
      add({cell, CounterpartOf(before_, cell, after_)});
    }
    for (const Cell cell : isCells) {
      add({CounterpartOf(after_, cell, before_), cell});
    }
    const Code compared = ComparePending(false);
    return compared != kSuccess ||
                   (AreAllIn(wasCells, &seenBefore_) && AreAllIn(isCells, &seenAfter_))
               ? compared
               : Code(kBadDatabase);
  }

  // The cell of the key in the other image that has the path of this one; none for what is no key.
  static Cell CounterpartOf(const HiveImage& image, Cell cell, const HiveImage& other) {
    std::vector<std::u16string> way;
    if (WayTo(image, cell, &way) != kSuccess) {
      return kNoCell;
    }
    Cell found = other.Root();
    for (auto name = way.rbegin(); name != way.rend(); ++name) {
      const Cell parent = found;
      if (other.FindSubKey(parent, *name, &found) != kSuccess) {
        return kNoCell;
      }
    }
    return found;
  }

  static bool AreAllIn(const std::vector<Cell>& cells, std::vector<Cell>* seen) {
    std::ranges::sort(*seen);
    return std::ranges::all_of(
        cells, [seen](Cell cell) { return std::ranges::binary_search(*seen, cell); });
  }

  // Compares what is pending: with `isDeep`, and where a key is on one side only, all below too.
  Code ComparePending(bool isDeep) {
    Code code = kSuccess;
    while (code == kSuccess && !pending_.empty()) {
      const Pair pair = pending_.back();
      pending_.pop_back();
      code = CompareKey(pair);
      code = code == kSuccess ? EnterSubKeys(pair, isDeep) : code;
      if (!isDeep) {
        before_.ListCells(pair.before, &seenBefore_);
        after_.ListCells(pair.after, &seenAfter_);
      }
    }
    return code;
  }

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
    code = code == kSuccess ? Take(was.className.size() + is.className.size()) : code;
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

  Code ListValues(const HiveImage& image, Cell key, std::vector<Value>* values) {
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

  Code ReadValue(const HiveImage& image, const HiveImage::ValueRecord& record, ValueState* state) {
    const Code code = Take(record.size);
    state->type = record.type;
    return code == kSuccess ? image.ReadData(record.cell, &state->data) : code;
  }

  // Keys name their parent: so no way down meets one twice.
  static Code ListSubKeys(const HiveImage& image, Cell key, std::vector<SubKey>* subKeys) {
    std::vector<Cell> cells;
    Code code = key == kNoCell ? kSuccess : image.ListSubKeys(key, &cells);
    for (const Cell cell : cells) {
      std::u16string name;
      Cell parent = kNoCell;
      code = image.ReadName(cell, &name, &parent);
      if (code != kSuccess || parent != key || cell == image.Root()) {
        return kBadDatabase;
      }
      subKeys->push_back({Folded(name), cell});
    }
    SortByName(subKeys);
    return code;
  }

  Code EnterSubKeys(const Pair& pair, bool isDeep) {
    std::vector<SubKey> before;
    std::vector<SubKey> after;
    Code code = ListSubKeys(before_, pair.before, &before);
    code = code == kSuccess ? ListSubKeys(after_, pair.after, &after) : code;
    return code == kSuccess ? Merge(before, after,
                                    [&](const SubKey* was, const SubKey* is) -> Code {
                                      if (isDeep || was == nullptr || is == nullptr) {
                                        pending_.push_back({was == nullptr ? kNoCell : was->cell,
                                                            is == nullptr ? kNoCell : is->cell});
                                      }
                                      return kSuccess;
                                    })
                            : code;
  }

  // The names that lead to a key, its own first.
  static Code WayTo(const HiveImage& image, Cell key, std::vector<std::u16string>* names) {
    while (key != image.Root()) {
      const Code code = image.ReadName(key, &names->emplace_back(), &key);
      if (code != kSuccess || names->size() > kDeepestKey) {
        return kBadDatabase;
      }
    }
    return kSuccess;
  }

  Code PathOf(const Pair& pair, cvn::String* path) {
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

  const HiveImage& before_;
  const HiveImage& after_;
  const cvn::StringView hive_;
  cvn::List<KeyChange>& changes_;
  std::uint64_t allowance_;  // bytes that may still be read
  std::vector<Pair> pending_;
  std::vector<Cell> seenBefore_;  // the cells of the keys that were compared
  std::vector<Cell> seenAfter_;
  std::map<std::pair<Cell, Cell>, bool> sameSecurity_;
};

}  // namespace

Code CompareImages(const HiveImage& before, const HiveImage& after, cvn::StringView hive,
                   cvn::List<KeyChange>* changes) {
  return HiveComparison(before, after, hive, changes).Run();
}

}  // namespace platform::posix
