// What differs in one key of two hives.
#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/error.h"
#include "platform/formats/hive_image.h"
#include "platform/machine_changes.h"

namespace platform::posix {

// The cells of a key on both sides, where it is there.
struct CellPair {
  HiveImage::Cell before = HiveImage::kNoCell;
  HiveImage::Cell after = HiveImage::kNoCell;
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

// The names that lead to a key, its own first.
Code WayTo(const HiveImage& image, HiveImage::Cell key, std::vector<std::u16string>* names);

// Compares keys of two hives that are open; `hive` is what the changes call them.
class KeyComparison {
 public:
  KeyComparison(const HiveImage& before, const HiveImage& after, cvn::StringView hive)
      : before_(before), after_(after), hive_(hive), allowance_(Allowance()) {}

  // Appends the change of the key, if there is one. 1009 for what is damaged.
  Code Compare(const CellPair& pair, cvn::List<machine::KeyChange>* changes);
  // All keys may be read once more.
  void Restart() { allowance_ = Allowance(); }

 private:
  using Cell = HiveImage::Cell;
  struct Value {
    std::u16string folded;
    HiveImage::ValueRecord record;
  };

  std::uint64_t Allowance() const;
  Code Take(std::uint64_t size);
  Code TakeForm(const HiveImage& image, Cell key, machine::KeyState* state);
  Code CompareForms(const CellPair& pair, bool* isSame);
  Code CompareSecurity(const CellPair& keys, std::pair<Cell, Cell> cells, bool* isSame);
  Code ListValues(const HiveImage& image, Cell key, std::vector<Value>* values);
  Code CompareValues(const CellPair& pair, cvn::List<machine::ValueChange>* changes);
  Code CompareValue(const Value* was, const Value* is, cvn::List<machine::ValueChange>* changes);
  Code ReadValue(const HiveImage& image, const HiveImage::ValueRecord& record,
                 machine::ValueState* state);
  Code PathOf(const CellPair& pair, cvn::String* path);

  const HiveImage& before_;
  const HiveImage& after_;
  const cvn::StringView hive_;
  std::uint64_t allowance_;  // bytes that may still be read
  std::map<std::pair<Cell, Cell>, bool> sameSecurity_;
};

}  // namespace platform::posix
