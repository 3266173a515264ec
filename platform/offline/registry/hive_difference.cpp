#include "platform/offline/registry/hive_difference.h"

#include <algorithm>
#include <string>
#include <unordered_set>
#include <utility>

#include "platform/formats/names.h"
#include "platform/offline/registry/key_comparison.h"

namespace platform::posix {
namespace {

using Cell = HiveImage::Cell;
using machine::KeyChange;

constexpr Cell kNoCell = HiveImage::kNoCell;

struct SubKey {
  std::u16string folded;
  Cell cell = kNoCell;
};

class HiveComparison {
 public:
  HiveComparison(const HiveImage& before, const HiveImage& after, cvn::StringView hive,
                 cvn::List<KeyChange>* changes)
      : before_(before), after_(after), keys_(before, after, hive), changes_(*changes) {}

  Code Run() {
    const std::size_t known = changes_.size();
    Code code = CompareDifferentCells();
    if (code != kSuccess) {
      changes_.resize(known);
      keys_.Restart();
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
    const auto add = [&](const CellPair& pair) {
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
      const CellPair pair = pending_.back();
      pending_.pop_back();
      code = keys_.Compare(pair, &changes_);
      code = code == kSuccess ? EnterSubKeys(pair, isDeep) : code;
      if (!isDeep) {
        before_.ListCells(pair.before, &seenBefore_);
        after_.ListCells(pair.after, &seenAfter_);
      }
    }
    return code;
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

  Code EnterSubKeys(const CellPair& pair, bool isDeep) {
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

  const HiveImage& before_;
  const HiveImage& after_;
  KeyComparison keys_;
  cvn::List<KeyChange>& changes_;
  std::vector<CellPair> pending_;
  std::vector<Cell> seenBefore_;  // the cells of the keys that were compared
  std::vector<Cell> seenAfter_;
};

}  // namespace

Code CompareImages(const HiveImage& before, const HiveImage& after, cvn::StringView hive,
                   cvn::List<KeyChange>* changes) {
  return HiveComparison(before, after, hive, changes).Run();
}

}  // namespace platform::posix
