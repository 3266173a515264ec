// Hives edited in place: random edits against a model, which hivex and libregf have to read as
// well, and what becomes of damaged ones.

#include <gtest/gtest.h>
#include <hivex.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <sstream>

#include "platform/formats/hive_image.h"
#include "platform/formats/hive_names.h"
#include "platform/formats/names.h"
#include "platform/formats/upcase.h"
#include "support/utf.h"
#include "tests/platform/memory_bytes.h"

namespace platform::posix {
namespace {

using Cell = HiveImage::Cell;
using Data = std::vector<std::byte>;
using test::MemoryBytes;
using Text = std::u16string;

constexpr auto kSum = [](const Data& data) {
  return std::hash<std::string_view>()({reinterpret_cast<const char*>(data.data()), data.size()});
};

struct Value {
  Text name;
  std::uint32_t type;
  Data data;
};

struct Node {
  Text name;
  Text className;
  std::uint64_t time = 0;
  Node* parent = nullptr;
  std::map<Text, std::unique_ptr<Node>> subKeys;  // by the folded name
  std::vector<Value> values;
};

void PrintKey(const Text& name, std::uint64_t time, std::ostream* out) {
  *out << "key " << cvn::WideToUtf8(name) << ' ' << time << '\n';
}

void PrintValue(const Value& value, std::ostream* out) {
  *out << "  " << cvn::WideToUtf8(value.name) << ' ' << value.type << ' ' << value.data.size()
       << ' ' << kSum(value.data) << '\n';
}

// What only the image tells, not hivex.
void PrintMore(const HiveImage::KeyRecord& key, std::ostream* out) {
  *out << " = " << cvn::WideToUtf8(key.className) << ' ' << key.subKeys << ' ' << key.values << ' '
       << key.longestName << ' ' << key.longestClass << ' ' << key.longestValueName << ' '
       << key.longestData << '\n';
}

void Print(const Node& node, bool more, std::ostream* out) {
  PrintKey(node.name, node.time, out);
  HiveImage::KeyRecord record;
  record.className = node.className;
  record.subKeys = static_cast<std::uint32_t>(node.subKeys.size());
  record.values = static_cast<std::uint32_t>(node.values.size());
  const auto raise = [](std::uint32_t* longest, std::size_t size) {
    *longest = std::max(*longest, static_cast<std::uint32_t>(size));
  };
  for (const Value& value : node.values) {
    PrintValue(value, out);
    raise(&record.longestValueName, value.name.size() * 2);
    raise(&record.longestData, value.data.size());
  }
  for (const auto& [folded, subKey] : node.subKeys) {
    raise(&record.longestName, folded.size() * 2);
    raise(&record.longestClass, subKey->className.size() * 2);
    Print(*subKey, more, out);
  }
  more ? PrintMore(record, out) : void();
}

void Print(const HiveImage& image, Cell key, std::ostream* out) {
  HiveImage::KeyRecord record;
  ASSERT_EQ(image.Read(key, &record), kSuccess);
  PrintKey(record.name, record.writeTime, out);
  HiveImage::ValueRecord value;
  Data data;
  for (std::uint32_t i = 0; image.ValueAt(key, i, &value) == kSuccess; ++i) {
    ASSERT_EQ(image.ReadData(value.cell, &data), kSuccess);
    PrintValue({value.name, value.type, data}, out);
  }
  Cell subKey = 0;
  for (std::uint32_t i = 0; image.SubKeyAt(key, i, &subKey) == kSuccess; ++i) {
    Print(image, subKey, out);
  }
  PrintMore(record, out);
}

void Print(hive_h* hive, hive_node_h key, std::ostream* out) {
  const auto print = [](char* text) { return std::unique_ptr<char, decltype(&free)>(text, &free); };
  *out << "key " << print(hivex_node_name(hive, key)).get() << ' '
       << hivex_node_timestamp(hive, key) << '\n';
  const std::unique_ptr<hive_value_h, decltype(&free)> values(hivex_node_values(hive, key), &free);
  ASSERT_NE(values, nullptr);
  for (const hive_value_h* value = values.get(); *value != 0; ++value) {
    hive_type type = hive_t_REG_NONE;
    std::size_t size = 0;
    const auto data = print(hivex_value_value(hive, *value, &type, &size));
    const auto bytes = std::as_bytes(std::span(data.get(), size));
    PrintValue({Text(cvn::Utf8ToWide(print(hivex_value_key(hive, *value)).get()).AsView()), type,
                Data(bytes.begin(), bytes.end())},
               out);
  }
  const std::unique_ptr<hive_node_h, decltype(&free)> keys(hivex_node_children(hive, key), &free);
  for (const hive_node_h* subKey = keys.get(); *subKey != 0; ++subKey) {
    Print(hive, *subKey, out);
  }
}

// As much of a long text as tells where two differ.
void ExpectSame(const std::string& expected, const std::string& found) {
  const auto [left, right] = std::ranges::mismatch(expected, found);
  const auto at = static_cast<std::size_t>(left - expected.begin());
  if (left != expected.end() || right != found.end()) {
    const std::size_t from = at - std::min<std::size_t>(at, 100);
    ADD_FAILURE() << expected.substr(from, 200) << "\n--- is:\n" << found.substr(from, 200);
  }
}

// Removes all below `key`, in as many steps as the hive can have keys.
void RemoveAll(HiveImage* image, Cell key, int* steps) {
  Cell subKey = 0;
  while (image->SubKeyAt(key, 0, &subKey) == kSuccess) {
    ASSERT_LT(++*steps, 100000);
    RemoveAll(image, subKey, steps);
    if (image->RemoveKey(subKey, 1) != kSuccess) {
      return;
    }
  }
}

class HiveImages : public testing::TestWithParam<std::uint32_t> {
 protected:
  HiveImages() {
    Store(&bytes_.bytes[kMinorVersion], GetParam());
    Store(&bytes_.bytes[kChecksum], HiveChecksum(bytes_.bytes));
    EXPECT_EQ(image_.Open(), kSuccess);
    root_.name = u"ROOT";
    root_.time = 1;
  }

  std::size_t Random(std::size_t below) { return random_() % below; }

  Text Name() {
    static const Text kNames[] = {
        u"a",       u"A",      u"_",      u"Key",   u"kEY",   u"\u0142\u00E9",           u"Χρήστης",
        u"ΧΡΉΣΤΗς", u"\u01C5", u"\u01C6", u"x y/z", u"abcdE", u"long " + Text(200, u'n')};
    const std::size_t which = Random(std::size(kNames) * 2);
    return which < std::size(kNames) ? kNames[which]
                                     : Text(cvn::Utf8ToWide(std::to_string(Random(3000))).AsView());
  }

  // A key of the model, with where the image finds it.
  std::pair<Node*, Cell> Somewhere() {
    Node* node = &root_;
    Cell cell = image_.Root();
    while (!node->subKeys.empty() && Random(3) != 0) {
      auto next = node->subKeys.begin();
      std::advance(next, Random(std::min<std::size_t>(node->subKeys.size(), 5)));
      EXPECT_EQ(image_.FindSubKey(cell, next->second->name, &cell), kSuccess);
      node = next->second.get();
    }
    return {node, cell};
  }

  void AddKey(Node* node, Cell cell) {
    auto added = std::make_unique<Node>();
    added->name = Name();
    added->time = ++time_;
    added->parent = node;
    added->className = Random(4) == 0 ? Name() : Text();
    const Text folded = Folded(added->name);
    const bool isThere = node->subKeys.contains(folded);
    const Code code = image_.AddSubKey(cell, added->name, 0, added->className, time_, &cell);
    EXPECT_EQ(code, isThere ? kAlreadyExists : code == kDiskFull ? kDiskFull : kSuccess);
    if (code == kSuccess) {
      node->time = time_;
      node->subKeys[folded] = std::move(added);
    }
  }

  void RemoveKey(Node* node, Cell cell) {
    const Code code = image_.RemoveKey(cell, ++time_);
    EXPECT_EQ(code, node == &root_ || !node->subKeys.empty() ? kAccessDenied : kSuccess);
    if (code == kSuccess) {
      node->parent->time = time_;
      node->parent->subKeys.erase(Folded(node->name));
    }
  }

  void SetValue(Node* node, Cell cell) {
    constexpr std::size_t kSizes[] = {0, 1, 4, 5, 30, 100, 16344, 16345, 50000};
    Value value{Random(9) == 0 ? Text() : Name(), static_cast<std::uint32_t>(Random(12)), {}};
    value.data.assign(kSizes[Random(Random(4) == 0 ? 9 : 6)], static_cast<std::byte>(Random(256)));
    const Code code = image_.SetValue(cell, value.name, value.type, value.data, ++time_);
    EXPECT_TRUE(code == kSuccess || code == kDiskFull) << code;
    if (code == kSuccess) {
      node->time = time_;
      const auto known = Find(node, value.name);
      if (known == node->values.end()) {
        node->values.push_back(value);
      } else {
        value.name = known->name;
        *known = value;
      }
    }
  }

  void RemoveValue(Node* node, Cell cell) {
    const Text name = Name();
    const auto known = Find(node, name);
    const Code code = image_.RemoveValue(cell, name, ++time_);
    EXPECT_EQ(code, known == node->values.end() ? kFileNotFound : kSuccess);
    if (code == kSuccess) {
      node->time = time_;
      node->values.erase(known);
    }
  }

  static std::vector<Value>::iterator Find(Node* node, const Text& name) {
    return std::find_if(node->values.begin(), node->values.end(),
                        [&](const Value& value) { return Folded(value.name) == Folded(name); });
  }

  void Step() {
    const auto [node, cell] = Somewhere();
    switch (Random(8)) {
      case 0:
        return RemoveKey(node, cell);
      case 1:
        return RemoveValue(node, cell);
      case 2:
      case 3:
        return AddKey(node, cell);
      default:
        return SetValue(node, cell);
    }
  }

  void ExpectSound() {
    std::vector<HiveFault> faults;
    EXPECT_EQ(image_.Check(&faults), kSuccess);
    for (const HiveFault& fault : faults) {
      ADD_FAILURE() << fault.offset << ": " << fault.what;
    }
  }

  void ExpectModel() {
    std::ostringstream expected;
    std::ostringstream found;
    Print(root_, true, &expected);
    HiveImage again(&bytes_);
    ASSERT_EQ(again.Open(), kSuccess);
    Print(again, again.Root(), &found);
    ExpectSame(expected.str(), found.str());
  }

  // Other readers find the same.
  void ExpectWitnesses() {
    const std::string file = testing::TempDir() + "tessel-hive-" + std::to_string(getpid());
    std::ofstream(file, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes_.bytes.data()),
               static_cast<std::streamsize>(bytes_.bytes.size()));
    std::ostringstream expected;
    std::ostringstream found;
    Print(root_, false, &expected);
    hive_h* hive = hivex_open(file.c_str(), 0);
    ASSERT_NE(hive, nullptr);
    Print(hive, hivex_root(hive), &found);
    hivex_close(hive);
    ExpectSame(expected.str(), found.str());
    if (system("command -v regfexport >/dev/null") == 0) {
      EXPECT_EQ(system(("regfexport " + file + " >/dev/null").c_str()), 0);
    }
    std::filesystem::remove(file);
  }

  MemoryBytes bytes_{HiveImage::Empty(u"test", HiveImage::Readers::All, 1)};
  HiveImage image_{&bytes_};
  Node root_;
  std::uint64_t time_ = 1;
  std::mt19937 random_{GetParam()};  // NOLINT: the same each time
};

TEST_P(HiveImages, HoldWhatTheyWereGiven) {
  for (int i = 1; i <= 1200 && !HasFailure(); ++i) {
    const Data before = bytes_.bytes;
    bytes_.limit = i % 10 == 0 ? before.size() : SIZE_MAX;
    Step();
    bytes_.ExpectOnlyChanged(before);
    ExpectSound();
    if (i % 100 == 0) {
      EXPECT_EQ(image_.Open(), kSuccess);
      ExpectModel();
    }
    if (i % 300 == 0) {
      ExpectWitnesses();
    }
  }
}

TEST_P(HiveImages, SplitAndJoinLongLists) {
  for (int i = 0; i < 7000; ++i) {
    AddKey(&root_, image_.Root());
    SetValue(&root_, image_.Root());
    if (i > 5000) {
      ASSERT_FALSE(root_.subKeys.empty());
      auto gone = root_.subKeys.begin();
      std::advance(gone, Random(root_.subKeys.size()));
      Cell cell = 0;
      ASSERT_EQ(image_.FindSubKey(image_.Root(), gone->second->name, &cell), kSuccess);
      RemoveKey(gone->second.get(), cell);
      RemoveValue(&root_, image_.Root());
    }
    if (i % 1000 == 0) {
      ExpectSound();
      ExpectModel();
    }
  }
  ExpectWitnesses();
  int steps = 0;
  RemoveAll(&image_, image_.Root(), &steps);
  ExpectSound();
  Cell none = 0;
  EXPECT_EQ(image_.SubKeyAt(image_.Root(), 0, &none), kNoMoreItems);
}

TEST_P(HiveImages, TakeNoDataForABin) {
  const auto bin = [](std::uint32_t at, std::uint32_t size, std::byte* to) {
    std::memcpy(to, "hbin", 4);
    Store(to + kBinOffset, at);
    Store(to + kBinSize, size);
    Store(to + kBinHeader, size - static_cast<std::uint32_t>(kBinHeader));  // a free cell
  };
  const Data mark(16000, std::byte{0xEE});
  ASSERT_EQ(image_.SetValue(image_.Root(), u"v", 3, mark, 1), kSuccess);
  const auto data =
      std::search(bytes_.bytes.begin(), bytes_.bytes.end(), mark.begin(), mark.end()) -
      bytes_.bytes.begin();
  Data forged = mark;
  for (auto at = (data + 4095) / 4096 * 4096; at < data + 15000; at += 4096) {
    const auto size = static_cast<std::uint32_t>((data + 16000 + 4095) / 4096 * 4096 - at);
    bin(static_cast<std::uint32_t>(at - 4096), size, &forged[static_cast<std::size_t>(at - data)]);
  }
  ASSERT_EQ(image_.SetValue(image_.Root(), u"v", 3, forged, 1), kSuccess);
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(image_.Open(), kSuccess);
    EXPECT_EQ(image_.SetValue(image_.Root(), Name(), 3, Data(Random(500)), 1), kSuccess);
  }
  HiveImage::ValueRecord value;
  Data found;
  ASSERT_EQ(image_.FindValue(image_.Root(), u"v", &value), kSuccess);
  EXPECT_EQ(image_.ReadData(value.cell, &found), kSuccess);
  EXPECT_TRUE(found == forged);
  ExpectSound();
}

TEST(HiveNames, AreComparedByWindowsTable) {
  // Of a unit that has no other case: final sigma, a digraph in title case, a Georgian letter, the
  // micro sign, the dotless i.
  for (const char16_t unit : u"\u03C2\u01C5\u10D0\u00B5\u0131") {
    EXPECT_EQ(UpperCase(unit), unit);
  }
  EXPECT_EQ(Folded(u"aσάǆᾀⓐѐἀӏﬀｚ"), u"AΣΆǄᾈⒶЀἈӀﬀＺ");
  int others = 0;
  for (int unit = 0; unit <= 0xFFFF; ++unit) {
    others += UpperCase(static_cast<char16_t>(unit)) == unit ? 0 : 1;
  }
  EXPECT_EQ(others, 973);  // as many as NTFS's table has
  EXPECT_EQ(HashOf(Folded(u"Χρήστης")), 0xF48F9C5DU);
}

INSTANTIATE_TEST_SUITE_P(Versions, HiveImages, testing::Values(3, 4, 5));

TEST_P(HiveImages, EndWhenTheyAreDamaged) {
  for (int i = 0; i < 300; ++i) {
    Step();
  }
  const Data sound = bytes_.bytes;
  for (int round = 0; round < 450 && !HasFailure(); ++round) {
    bytes_.bytes = sound;
    for (std::size_t i = 0; i <= Random(30); ++i) {
      // Mostly what another place has: such a cell or count can pass for the right one.
      const std::size_t to = 4096 + Random((sound.size() - 4096) / 4) * 4;
      const std::size_t from = 4096 + Random((sound.size() - 4096) / 4) * 4;
      Store(&bytes_.bytes[to], Random(3) == 0 ? static_cast<std::uint32_t>(random_())
                                              : Fetch<std::uint32_t>(&sound[from]));
    }
    HiveImage image(&bytes_);
    if (image.Open() != kSuccess) {
      continue;
    }
    std::vector<HiveFault> faults;
    IgnoreError(image.Check(&faults));
    for (int i = 0; i < 20; ++i) {
      Cell key = image.Root();
      while (Random(3) != 0 &&
             image.SubKeyAt(key, static_cast<std::uint32_t>(Random(4)), &key) == kSuccess) {
      }
      const Data before = bytes_.bytes;
      Cell added = 0;
      const Code code = i % 4 == 0   ? image.AddSubKey(key, Name(), 0, u"c", 1, &added)
                        : i % 4 == 1 ? image.SetValue(key, Name(), 1, Data(Random(20000)), 1)
                        : i % 4 == 2 ? image.RemoveValue(key, Name(), 1)
                                     : image.RemoveKey(key, 1);
      if (code != kSuccess && before.size() == bytes_.bytes.size()) {
        EXPECT_TRUE(before == bytes_.bytes) << code;
      }
    }
    int steps = 0;
    RemoveAll(&image, image.Root(), &steps);
  }
}

}  // namespace
}  // namespace platform::posix
