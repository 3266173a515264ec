// Hives: hostile ones are read and changed, and nothing of a change that is refused may stay; valid
// ones must hold together after each change, and in the end what was put into them.
//
// Byte 0 of an input chooses the hive: 0 one with the cells that stand behind the changes, 1 the
// whole file that stands there, 2 an empty one. Byte 1 counts the changes, which follow, four bytes
// each.
#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "fuzz/input.h"
#include "platform/formats/hive_format.h"
#include "platform/formats/hive_image.h"
#include "platform/formats/names.h"
#include "platform/offline/registry/registry_values.h"

namespace tessel::fuzz {
namespace {

using platform::Code;
using platform::kSuccess;
using platform::posix::HiveFault;
using platform::posix::HiveImage;
using Content = std::vector<std::byte>;
using Cell = HiveImage::Cell;

constexpr std::size_t kLargestFile = std::size_t{16} << 20;

class MemoryBytes final : public platform::posix::HiveBytes {
 public:
  explicit MemoryBytes(Content start) : bytes(std::move(start)) {}

  std::span<const std::byte> Bytes() const override { return bytes; }
  std::byte* Change(std::uint32_t offset, std::uint32_t size) override {
    Require(std::size_t{offset} + size <= bytes.size(), "a change lies inside the hive");
    return bytes.data() + offset;
  }
  Code Grow(std::uint32_t size) override {
    if (bytes.size() + size > kLargestFile) {
      return platform::kDiskFull;
    }
    bytes.resize(bytes.size() + size);
    return kSuccess;
  }

  Content bytes;
};

Content EmptyHive() { return HiveImage::Empty(u"fuzz", HiveImage::Readers::All, 1); }

// A hive with one bin, in which these cells are.
Content HiveWithCells(std::string_view cells) {
  using platform::kBaseSize;
  using platform::kBinHeader;
  using platform::kBinSize;
  using platform::kBinUnit;
  using platform::kDataSize;
  using platform::RoundUp;
  using platform::Store;
  Content hive = EmptyHive();
  hive.resize(kBaseSize + kBinHeader);
  const auto bytes = std::as_bytes(std::span(cells));
  hive.insert(hive.end(), bytes.begin(), bytes.end());
  const std::size_t size = RoundUp(hive.size() - kBaseSize, kBinUnit);
  // One free cell fills the rest.
  const std::size_t end = hive.size();
  hive.resize(kBaseSize + size);
  if (hive.size() - end >= sizeof(std::uint32_t)) {
    Store(&hive[end], static_cast<std::uint32_t>(hive.size() - end));
  }
  Store(&hive[kBaseSize + kBinSize], static_cast<std::uint32_t>(size));
  Store(&hive[kDataSize], static_cast<std::uint32_t>(size));
  return hive;
}

void ReadValues(const HiveImage& image, Cell key) {
  HiveImage::ValueRecord value;
  Content data;
  for (std::uint32_t i = 0; image.ValueAt(key, i, &value) == kSuccess; ++i) {
    if (image.ReadData(value.cell, &data) == kSuccess) {
      platform::posix::ValueData{value.type, data}.Text();
    }
  }
}

// The keys that are reached from the root.
std::vector<Cell> KeysOf(const HiveImage& image) {
  std::vector<Cell> keys = {image.Root()};
  for (std::size_t at = 0; at < keys.size(); ++at) {
    HiveImage::KeyRecord record;
    IgnoreError(image.Read(keys[at], &record));
    ReadValues(image, keys[at]);
    Cell subKey = 0;
    for (std::uint32_t i = 0; image.SubKeyAt(keys[at], i, &subKey) == kSuccess; ++i) {
      keys.push_back(subKey);
    }
    Require(keys.size() <= image.DataSize() / platform::kKeyName, "a walk ends");
  }
  return keys;
}

// The names that changes use: some are equal without case, some need two bytes a character.
constexpr std::u16string_view kNames[] = {u"a",   u"A", u"b", u"Key", u"kEY", u"\u0142\u00E9",
                                          u"x y", u""};

// What the values of the keys should be.
using Model = std::map<std::pair<Cell, std::u16string>, Content>;

Code ChangeOne(HiveImage* image, std::string_view change, Cell key, Model* model) {
  const auto byte = [&](std::size_t at) { return static_cast<std::uint8_t>(change[at]); };
  const std::u16string_view name = kNames[byte(2) % std::size(kNames)];
  const std::pair place(key, platform::posix::Folded(name));
  Code code = kSuccess;
  Cell added = 0;
  switch (byte(0) % 4) {
    case 0:
      return image->AddSubKey(key, name, 0, name, byte(3), &added);
    case 1: {
      const Content data(std::size_t{byte(3)} * byte(3), std::byte{byte(2)});
      code = image->SetValue(key, name, byte(3) % 12, data, byte(3));
      code == kSuccess ? void((*model)[place] = data) : void();
      return code;
    }
    case 2:
      code = image->RemoveValue(key, name, byte(3));
      code == kSuccess ? void(model->erase(place)) : void();
      return code;
    default:
      code = image->RemoveKey(key, byte(3));
      code == kSuccess ? void(std::erase_if(
                             *model, [key](const auto& entry) { return entry.first.first == key; }))
                       : void();
      return code;
  }
}

void ExpectSound(const HiveImage& image, const Model& model) {
  std::vector<HiveFault> faults;
  Require(image.Check(&faults) == kSuccess && faults.empty(), "a sound hive stays sound");
  for (const auto& [place, data] : model) {
    HiveImage::ValueRecord value;
    Content found;
    Require(image.FindValue(place.first, place.second, &value) == kSuccess &&
                image.ReadData(value.cell, &found) == kSuccess && found == data,
            "a hive holds what it was given");
  }
}

void ChangeHive(Content start, std::string_view changes, bool isSound) {
  MemoryBytes bytes(std::move(start));
  HiveImage image(&bytes);
  if (image.Open() != kSuccess) {
    return;
  }
  Model model;
  std::vector<HiveFault> faults;
  IgnoreError(image.Check(&faults));  // that it ends
  for (; changes.size() >= 4; changes.remove_prefix(4)) {
    const std::vector<Cell> keys = KeysOf(image);
    const Content before = bytes.bytes;
    const Code code = ChangeOne(&image, changes,
                                keys[static_cast<std::uint8_t>(changes[1]) % keys.size()], &model);
    Require(code == kSuccess || before.size() != bytes.bytes.size() || before == bytes.bytes,
            "a change that is refused changes nothing");
    if (isSound) {
      ExpectSound(image, model);
    }
  }
  if (isSound && image.Open() == kSuccess) {
    ExpectSound(image, model);
  }
}

}  // namespace
}  // namespace tessel::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  namespace fuzz = tessel::fuzz;
  fuzz::Input input(data, size);
  const std::uint8_t kind = input.Byte();
  const std::size_t count = std::size_t{input.Byte()} % 64 * 4;
  const std::string_view rest = input.Rest();
  const std::string_view changes = rest.substr(0, count);
  const std::string_view bytes = rest.substr(changes.size());
  if (kind % 3 == 2) {
    fuzz::ChangeHive(fuzz::EmptyHive(), changes, true);
  } else if (kind % 3 == 1) {
    const auto file = std::as_bytes(std::span(bytes));
    fuzz::ChangeHive({file.begin(), file.end()}, changes, false);
  } else {
    fuzz::ChangeHive(fuzz::HiveWithCells(bytes), changes, false);
  }
  return 0;
}
