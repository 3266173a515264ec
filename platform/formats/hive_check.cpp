// Checking a whole hive.
#include <algorithm>
#include <unordered_map>

#include "platform/formats/hive_format.h"
#include "platform/formats/hive_image.h"
#include "platform/formats/hive_names.h"
#include "platform/formats/names.h"

namespace platform::posix {
namespace {

constexpr std::size_t kMostFaults = 1000;

}  // namespace

// Each cell in use has to be referred to once, security cells as often as they say. What is
// referred to again isn't followed again, so the check ends.
class HiveImage::Checker {
 public:
  Checker(const HiveImage& image, std::vector<HiveFault>* faults)
      : image_(image), faults_(*faults), uses_(image.cells_.DataSize() / kCellUnit, Use::None) {}

  Code Run() {
    CheckBins();
    CheckBase();
    if (Refer(image_.root_)) {
      pending_.push_back({image_.root_, kNoCell});
    }
    while (!pending_.empty() && !IsFull()) {
      const auto [key, parent] = pending_.back();
      pending_.pop_back();
      CheckKey(key, parent);
    }
    CheckRing();
    for (std::size_t i = 0; i < uses_.size() && !IsFull(); ++i) {
      if (uses_[i] == Use::Unknown) {
        Report(static_cast<Cell>(i * kCellUnit), "nothing uses this cell", true);
      }
    }
    return isDamaged_ ? Code(kBadDatabase) : kSuccess;
  }

 private:
  enum class Use : char { None, Unknown, Known };
  struct Pending {
    Cell key;
    Cell parent;
  };
  // The largest of each kind that a key's parent or a value's key has to know.
  struct Sizes {
    std::size_t name = 0;
    std::size_t other = 0;  // the class of subkeys, the data of values
  };

  bool IsFull() const { return faults_.size() >= kMostFaults; }

  void Report(Cell cell, const char* what, bool isHarmless = false) {
    isDamaged_ = isDamaged_ || !isHarmless;
    if (!IsFull()) {
      faults_.push_back({static_cast<std::uint32_t>(kBaseSize + cell), what, isHarmless});
    }
  }

  void Expect(bool holds, Cell cell, const char* what) {
    if (!holds) {
      Report(cell, what);
    }
  }

  // Whether a cell is there that nothing else uses.
  bool Refer(Cell cell) {
    if (!image_.cells_.At(cell) || uses_[cell / kCellUnit] != Use::Unknown) {
      Report(cell, "no cell, a free one, or one that is used twice");
      return false;
    }
    uses_[cell / kCellUnit] = Use::Known;
    return true;
  }

  void CheckBase() {
    const View base(image_.cells_.Bytes().first(kBaseSize));
    if (base.Long(kChecksum) != HiveChecksum(image_.cells_.Bytes())) {
      isDamaged_ = true;
      faults_.push_back({kChecksum, "the sum of the base block is wrong"});
    }
  }

  void CheckBins() {
    const std::uint32_t size = image_.cells_.DataSize();
    for (std::uint32_t bin = 0; bin < size;) {
      const std::uint32_t binSize = image_.cells_.BinSizeAt(bin);
      if (binSize == 0) {
        Report(bin, "no bin begins here");
        return;
      }
      CheckCells(bin, binSize);
      bin += binSize;
    }
  }

  void CheckCells(std::uint32_t bin, std::uint32_t binSize) {
    bool isAfterFree = false;
    for (std::uint32_t at = kBinHeader; at < binSize;) {
      const std::size_t place = kBaseSize + bin + at;
      const std::int64_t header = Fetch<std::int32_t>(&image_.cells_.Bytes()[place]);
      const std::int64_t size = header < 0 ? -header : header;
      if (size < static_cast<std::int64_t>(kCellUnit) || size % kCellUnit != 0 ||
          size > binSize - at) {
        Report(bin + at, "a cell of an impossible size");
        return;
      }
      if (header < 0) {
        uses_[(bin + at) / kCellUnit] = Use::Unknown;
      } else if (isAfterFree) {
        Report(bin + at, "free cells side by side", true);
      }
      isAfterFree = header > 0;
      at += static_cast<std::uint32_t>(size);
    }
  }

  void CheckKey(Cell cell, Cell parent) {
    const View key = image_.KeyAt(cell);
    if (!key) {
      Report(cell, "no key");
      return;
    }
    Expect(cell == image_.root_ || key.Long(kKeyParent) == parent, cell, "a key's parent is wrong");
    if (const Cell security = key.Long(kKeySecurity); security != kNoCell) {
      ++users_[security];
    }
    if (key.Short(kKeyClassSize) != 0 && Refer(key.Long(kKeyClass))) {
      Expect(image_.cells_.At(key.Long(kKeyClass)).Size() >= key.Short(kKeyClassSize), cell,
             "a key's class is longer than its cell");
    }
    CheckSubKeys(cell, key);
    CheckValues(cell, key);
  }

  void CheckSubKeys(Cell cell, View key) {
    std::vector<Cell> subKeys;
    if (key.Long(kKeySubKeys) == 0) {
      return;
    }
    if (image_.ListSubKeys(cell, &subKeys) != kSuccess) {
      Report(cell, "a key's list of subkeys is damaged");
      return;
    }
    Expect(subKeys.size() == key.Long(kKeySubKeys), cell, "a key's number of subkeys is wrong");
    const Cell list = key.Long(kKeySubKeyList);
    if (const View leaves = image_.IndexAt(list); Refer(list) && leaves) {
      for (std::uint32_t i = 0; i < leaves.Short(kListCount); ++i) {
        if (Refer(EntryOfIndex(leaves, i))) {
          CheckHints(EntryOfIndex(leaves, i));
        }
      }
    } else if (!leaves) {
      CheckHints(list);
    }
    CheckOrder(cell, subKeys);
    Sizes sizes;
    for (const Cell subKey : subKeys) {
      const View view = image_.KeyAt(subKey);
      if (Refer(subKey)) {
        pending_.push_back({subKey, cell});
      }
      if (view) {
        sizes.name = std::max(sizes.name, NameOfKey(view).Length() * sizeof(char16_t));
        sizes.other = std::max(sizes.other, std::size_t{view.Short(kKeyClassSize)});
      }
    }
    Expect(sizes.name <= key.Short(kKeyLongestName) && sizes.other <= key.Long(kKeyLongestClass),
           cell, "a subkey's name or class is longer than its parent says");
  }

  void CheckOrder(Cell cell, const std::vector<Cell>& subKeys) {
    std::u16string last;
    for (std::size_t i = 0; i < subKeys.size(); ++i) {
      const View view = image_.KeyAt(subKeys[i]);
      if (!view) {
        return;
      }
      const StoredName name = NameOfKey(view);
      if (i != 0 && std::is_gteq(CompareNames(last, name))) {
        Report(cell, "a key's subkeys are out of order");
        return;
      }
      last = Folded(name.Text());
    }
  }

  void CheckHints(Cell list) {
    std::uint32_t count = 0;
    const View leaf = image_.LeafAt(list, &count);
    for (std::uint32_t i = 0; leaf && !leaf.Is("li") && i < count; ++i) {
      const View key = image_.KeyAt(EntryOf(leaf, i));
      if (!key) {
        continue;
      }
      const std::u16string name = NameOfKey(key).Text();
      const std::uint32_t hint = leaf.Is("lh") ? HashOf(Folded(name)) : HintOf(name);
      Expect(leaf.Long(kListEntries + i * kLeafStep + kIndexStep) == hint, list,
             "a hash or hint in a list of subkeys is wrong");
    }
  }

  void CheckValues(Cell cell, View key) {
    const std::uint32_t count = key.Long(kKeyValues);
    const View list = image_.ValueListOf(key);
    if (count == 0) {
      return;
    }
    if (!list || !Refer(key.Long(kKeyValueList))) {
      Report(cell, "a key's list of values is damaged");
      return;
    }
    Sizes sizes;
    for (std::uint32_t i = 0; i < count; ++i) {
      const Cell valueCell = list.Long(i * sizeof(Cell));
      const View value = image_.ValueCellAt(valueCell);
      if (!value || !Refer(valueCell)) {
        Report(cell, "a key's value is damaged");
        return;
      }
      CheckData(valueCell, value);
      sizes.name = std::max(sizes.name, NameOfValue(value).Length() * sizeof(char16_t));
      sizes.other = std::max(sizes.other, std::size_t{value.Long(kValueDataSize) & ~kDataInRecord});
    }
    Expect(sizes.name <= key.Long(kKeyLongestValueName) && sizes.other <= key.Long(kKeyLongestData),
           cell, "a value's name or data is longer than its key says");
  }

  void CheckData(Cell cell, View value) {
    const DataForm form = image_.FormOf(value);
    const Cell data = value.Long(kValueData);
    if (form == DataForm::Damaged) {
      Report(cell, "a value's data is damaged");
    }
    if (form == DataForm::InRecord || form == DataForm::Damaged || !Refer(data) ||
        form == DataForm::Plain) {
      return;
    }
    const View record = image_.cells_.At(data);
    std::vector<std::byte> content;
    if (image_.ReadData(cell, &content) != kSuccess || !Refer(record.Long(kSegmentList))) {
      Report(cell, "a value's data is damaged");
      return;
    }
    const View segments = image_.cells_.At(record.Long(kSegmentList));
    for (std::size_t i = 0; i < record.Short(kSegmentCount); ++i) {
      Refer(segments.Long(i * sizeof(Cell)));
    }
  }

  // All security cells stand in one ring, and know how many keys use them.
  void CheckRing() {
    const Cell first = image_.KeyAt(image_.root_).Long(kKeySecurity);
    std::size_t found = 0;
    for (Cell cell = first; cell != kNoCell && (cell != first || found == 0); ++found) {
      const View security = image_.SecurityAt(cell);
      if (!security || !Refer(cell)) {
        Report(cell, "the ring of security cells is damaged");
        return;
      }
      const auto users = users_.find(cell);
      Expect(users != users_.end() && users->second == security.Long(kSecurityUsers), cell,
             "a security cell's number of users is wrong");
      Expect(security.Long(kSecuritySize) <= security.Size() - kSecurityDescriptor, cell,
             "a security descriptor is longer than its cell");
      const Cell next = security.Long(kSecurityNext);
      const View after = image_.SecurityAt(next);
      Expect(after && after.Long(kSecurityPrevious) == cell, cell,
             "the ring of security cells isn't the same backwards");
      cell = next;
    }
    Expect(found == users_.size(), first, "a key's security isn't in the ring");
  }

  const HiveImage& image_;
  std::vector<HiveFault>& faults_;
  std::vector<Use> uses_;  // of the cell that begins at each possible place
  std::vector<Pending> pending_;
  std::unordered_map<Cell, std::uint32_t> users_;
  bool isDamaged_ = false;
};

Code HiveImage::Check(std::vector<HiveFault>* faults) const { return Checker(*this, faults).Run(); }

}  // namespace platform::posix
