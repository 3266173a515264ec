// Bringing a hive from one side of a difference to the other.
#include <algorithm>
#include <string>
#include <unordered_set>

#include "platform/formats/names.h"
#include "platform/offline/registry/hive_difference.h"
#include "platform/offline/registry/registry_space.h"

namespace platform::posix {
namespace {

using Cell = HiveImage::Cell;
using machine::KeyChange;
using machine::KeyState;
using machine::Side;
using machine::ValueChange;

const std::optional<KeyState>& StateOf(const KeyChange& change, Side side) {
  return side == Side::After ? change.after : change.before;
}

const std::optional<machine::ValueState>& StateOf(const ValueChange& change, Side side) {
  return side == Side::After ? change.after : change.before;
}

Side Other(Side side) { return side == Side::After ? Side::Before : Side::After; }

// 2 when it is missing. `*parent` is then the key that it is to be in, or none where that is
// missing too.
Code FindKey(const HiveImage& image, cvn::StringView path, Cell* key, Cell* parent) {
  *key = image.Root();
  Code code = kSuccess;
  for (const cvn::StringView name : NamesOf(path)) {
    *parent = code == kSuccess ? *key : HiveImage::kNoCell;
    code = code == kSuccess ? image.FindSubKey(*parent, name, key) : code;
  }
  return code;
}

class KeyEdits {
 public:
  KeyEdits(Side to, std::uint64_t time, HiveImage* image) : to_(to), time_(time), image_(*image) {}

  // Removes a key that is there.
  Code Remove(const KeyChange& change) {
    Cell key = HiveImage::kNoCell;
    Cell parent = HiveImage::kNoCell;
    const Code code = FindKey(image_, change.path, &key, &parent);
    return code == kSuccess ? image_.RemoveKey(key, time_)
                            : (code == kFileNotFound ? kSuccess : code);
  }

  Code Put(const KeyChange& change) {
    const KeyState& state = *StateOf(change, to_);
    Cell key = HiveImage::kNoCell;
    Cell parent = HiveImage::kNoCell;
    // The root is a level too.
    const bool isTooDeep = NamesOf(change.path).size() >= HiveImage::kDeepestKey;
    Code code = isTooDeep ? Code(kInvalidParameter) : FindKey(image_, change.path, &key, &parent);
    if (code == kFileNotFound && parent != HiveImage::kNoCell) {
      const cvn::StringView path = change.path;
      code = image_.AddSubKey(parent, path.substr(path.rfind(u'\\') + 1), 0, {}, time_, &key);
    }
    KeyState has;
    code = code == kSuccess ? ReadForm(image_, key, &has) : code;
    if (code == kSuccess && has != state) {
      code = image_.SetForm(key, state.className, state.isLink, state.security, time_);
    }
    for (const ValueChange& value : change.values) {
      code = code == kSuccess ? PutValue(key, value) : code;
    }
    return code;
  }

 private:
  Code PutValue(Cell key, const ValueChange& change) {
    if (const auto& state = StateOf(change, to_)) {
      return image_.SetValue(key, change.name, state->type, state->data, time_);
    }
    const Code code = image_.RemoveValue(key, change.name, time_);
    return code == kFileNotFound ? kSuccess : code;
  }

  const Side to_;
  const std::uint64_t time_;
  HiveImage& image_;
};

class KeyCheck {
 public:
  KeyCheck(const HiveImage& image, std::span<const KeyChange> changes, Side side)
      : image_(image), side_(side) {
    for (const KeyChange& change : changes) {
      known_.insert(Folded(change.path));
    }
  }

  // Whether a key and its values are in the hive as they are on the side.
  Code Check(const KeyChange& change, bool* isSo) {
    Cell key = HiveImage::kNoCell;
    Cell parent = HiveImage::kNoCell;
    Code code = FindKey(image_, change.path, &key, &parent);
    const auto& state = StateOf(change, side_);
    *isSo = (code == kSuccess) == state.has_value();
    if (code != kSuccess || !*isSo) {
      return code == kFileNotFound ? kSuccess : code;
    }
    KeyState has;
    code = ReadForm(image_, key, &has);
    *isSo = has == *state;
    for (auto value = change.values.begin();
         code == kSuccess && *isSo && value != change.values.end(); ++value) {
      code = CheckValue(key, *value, isSo);
    }
    const bool isWhole = !StateOf(change, Other(side_));
    return code == kSuccess && *isSo && isWhole ? CheckWhole(change, key, isSo) : code;
  }

 private:
  Code CheckValue(Cell key, const ValueChange& change, bool* isSo) const {
    HiveImage::ValueRecord record;
    Code code = image_.FindValue(key, change.name, &record);
    const auto& state = StateOf(change, side_);
    *isSo = (code == kSuccess) == state.has_value();
    if (code != kSuccess || !*isSo) {
      return code == kFileNotFound ? kSuccess : code;
    }
    std::vector<std::byte> data;
    *isSo = record.type == state->type && record.size == state->data.size();
    code = *isSo ? image_.ReadData(record.cell, &data) : kSuccess;
    *isSo = *isSo && data == state->data;
    return code;
  }

  // A key of which all has to be told.
  Code CheckWhole(const KeyChange& change, Cell key, bool* isSo) const {
    HiveImage::KeyRecord record;
    std::vector<Cell> subKeys;
    Code code = image_.Read(key, &record);
    code = code == kSuccess ? image_.ListSubKeys(key, &subKeys) : code;
    *isSo = record.values <= change.values.size();
    for (auto subKey = subKeys.begin(); code == kSuccess && *isSo && subKey != subKeys.end();
         ++subKey) {
      std::u16string name;
      code = image_.ReadName(*subKey, &name, nullptr);
      *isSo = known_.contains(Folded(std::u16string(change.path).append(u"\\").append(name)));
    }
    return code;
  }

  const HiveImage& image_;
  const Side side_;
  std::unordered_set<std::u16string> known_;  // folded paths
};

}  // namespace

Code ReadForm(const HiveImage& image, Cell key, KeyState* state) {
  HiveImage::KeyRecord record;
  const Code code = image.Read(key, &record);
  state->className = cvn::StringView(record.className);
  state->isLink = (record.flags & HiveImage::kKeyIsLink) != 0;
  return code == kSuccess ? image.ReadSecurity(key, &state->security) : code;
}

Code ApplyToImage(std::span<const KeyChange> changes, Side to, std::uint64_t time,
                  HiveImage* image) {
  KeyEdits edits(to, time, image);
  Code code = kSuccess;
  for (auto change = changes.rbegin(); code == kSuccess && change != changes.rend(); ++change) {
    code = StateOf(*change, to) ? kSuccess : edits.Remove(*change);
  }
  for (const KeyChange& change : changes) {
    if (code == kSuccess && StateOf(change, to)) {
      code = edits.Put(change);
    }
  }
  return code;
}

Code FindOthersInImage(const HiveImage& image, std::span<const KeyChange> changes, Side side,
                       std::vector<std::size_t>* others) {
  KeyCheck check(image, changes, side);
  for (std::size_t i = 0; i < changes.size(); ++i) {
    bool isSo = true;
    const Code code = check.Check(changes[i], &isSo);
    if (code != kSuccess) {
      return code;
    }
    if (!isSo) {
      others->push_back(i);
    }
  }
  return kSuccess;
}

}  // namespace platform::posix
