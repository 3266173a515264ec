// Differences of hives: they lead from the one to the other and back, and damage ends them.

#include <gtest/gtest.h>

#include <random>

#include "platform/offline/registry/hive_difference.h"
#include "tests/platform/memory_bytes.h"

namespace platform::posix {
namespace {

using Cell = HiveImage::Cell;
using Changes = cvn::List<machine::KeyChange>;
using machine::Side;

struct TestHive {
  explicit TestHive(std::vector<std::byte> start) : bytes(std::move(start)), image(&bytes) {
    EXPECT_EQ(image.Open(), kSuccess);
  }
  void ExpectSound() {
    std::vector<HiveFault> faults;
    EXPECT_EQ(image.Check(&faults), kSuccess);
    for (const HiveFault& fault : faults) {
      EXPECT_TRUE(fault.isHarmless) << fault.what;
    }
  }

  test::MemoryBytes bytes;
  HiveImage image;
};

Changes Difference(const TestHive& before, const TestHive& after) {
  Changes changes;
  EXPECT_EQ(CompareImages(before.image, after.image, u"C:\\hive", &changes), kSuccess);
  return changes;
}

// The same, where nothing can be skipped: without a bin's name its cells can't be told apart.
Changes WholeDifference(const TestHive& before, const TestHive& after) {
  TestHive torn(after.bytes.bytes);
  torn.bytes.bytes[kBaseSize] = std::byte{};
  return Difference(before, torn);
}

class Editor {
 public:
  explicit Editor(unsigned seed) : random_(seed) {}

  std::size_t Random(std::size_t below) { return random_() % below; }

  // Some change of some key. What isn't possible there is none.
  void Edit(HiveImage* image) {
    const Cell key = SomeKey(*image);
    const std::u16string name(1 + Random(2), static_cast<char16_t>(u'a' + Random(12)));
    const std::vector<std::byte> data(Random(8) == 0 ? 20000 : Random(60),
                                      static_cast<std::byte>(Random(200)));
    Cell added = 0;
    switch (Random(6)) {
      case 0:
      case 1:
        IgnoreError(image->AddSubKey(key, name, 0, Random(2) == 0 ? u"Class" : u"", 1, &added));
        break;
      case 2:
        IgnoreError(image->RemoveKey(key, 1));
        break;
      case 3:
        IgnoreError(image->RemoveValue(key, name, 1));
        break;
      case 4:
        EXPECT_EQ(image->SetForm(key, std::u16string(Random(3), u'C'), Random(2) == 0,
                                 std::vector<std::byte>(20 + Random(5)), 1),
                  kSuccess);
        break;
      default:
        EXPECT_EQ(image->SetValue(key, name, static_cast<std::uint32_t>(Random(4)), data, 1),
                  kSuccess);
    }
  }

 private:
  Cell SomeKey(const HiveImage& image) {
    Cell key = image.Root();
    std::vector<Cell> subKeys;
    while (Random(4) != 0 && image.ListSubKeys(key, &subKeys) == kSuccess && !subKeys.empty()) {
      key = subKeys[Random(subKeys.size())];
    }
    return key;
  }

  std::mt19937 random_;
};

TEST(HiveDifference, LeadsFromOneHiveToTheOtherAndBack) {
  for (unsigned seed = 0; seed < 40 && !testing::Test::HasFailure(); ++seed) {
    Editor editor(seed);
    TestHive before(HiveImage::Empty(u"test", HiveImage::Readers::All, 1));
    for (std::size_t i = 0; i < 300; ++i) {
      editor.Edit(&before.image);
    }
    TestHive after(before.bytes.bytes);
    for (std::size_t i = editor.Random(200); i > 0; --i) {
      editor.Edit(&after.image);
    }
    const Changes changes = Difference(before, after);
    EXPECT_TRUE(changes == WholeDifference(before, after)) << seed;
    TestHive moving(before.bytes.bytes);
    for (const Side side : {Side::After, Side::Before, Side::After}) {
      ASSERT_EQ(ApplyToImage(changes, side, 2, &moving.image), kSuccess) << seed;
      EXPECT_TRUE(Difference(moving, side == Side::After ? after : before).empty()) << seed;
      moving.ExpectSound();
      std::vector<std::size_t> others;
      EXPECT_EQ(FindOthersInImage(moving.image, changes, side, &others), kSuccess);
      EXPECT_TRUE(others.empty());
      EXPECT_EQ(FindOthersInImage(moving.image, changes,
                                  side == Side::After ? Side::Before : Side::After, &others),
                kSuccess);
      EXPECT_EQ(others.size(), changes.size()) << "each one is a difference";
    }
    after.ExpectSound();
  }
}

TEST(HiveDifference, TellsWhatCameToAKeyThatIsToGo) {
  const TestHive before(HiveImage::Empty(u"test", HiveImage::Readers::All, 1));
  TestHive after(before.bytes.bytes);
  Cell key = 0;
  Cell below = 0;
  ASSERT_EQ(after.image.AddSubKey(after.image.Root(), u"New", 0, {}, 1, &key), kSuccess);
  const Changes changes = Difference(before, after);
  const auto others = [&] {
    std::vector<std::size_t> found;
    EXPECT_EQ(FindOthersInImage(after.image, changes, Side::After, &found), kSuccess);
    return found.size();
  };
  EXPECT_EQ(others(), 0U);
  ASSERT_EQ(after.image.SetValue(key, u"v", 1, {}, 1), kSuccess);
  EXPECT_EQ(others(), 1U);
  ASSERT_EQ(after.image.RemoveValue(key, u"v", 1), kSuccess);
  ASSERT_EQ(after.image.AddSubKey(key, u"Below", 0, {}, 1, &below), kSuccess);
  EXPECT_EQ(others(), 1U);
  EXPECT_EQ(ApplyToImage(changes, Side::Before, 1, &after.image), kAccessDenied);
}

// Damage that both sides have is no likeness.
TEST(HiveDifference, TakesNoDamagedSecurityForTheSame) {
  TestHive before(HiveImage::Empty(u"test", HiveImage::Readers::All, 1));
  HiveImage::KeyRecord root;
  ASSERT_EQ(before.image.Read(before.image.Root(), &root), kSuccess);
  before.bytes.bytes[kBaseSize + root.security + 4] = std::byte{'x'};
  TestHive after(before.bytes.bytes);
  ASSERT_EQ(after.image.SetValue(after.image.Root(), u"v", 1, {}, 1), kSuccess);
  Changes changes;
  EXPECT_EQ(CompareImages(before.image, after.image, u"C:\\hive", &changes), kBadDatabase);
}

// Whatever the bytes are, all ends, and in a while that belongs to their number.
TEST(HiveDifference, EndsWithDamage) {
  Editor editor(1);
  TestHive before(HiveImage::Empty(u"test", HiveImage::Readers::All, 1));
  for (std::size_t i = 0; i < 400; ++i) {
    editor.Edit(&before.image);
  }
  for (int round = 0; round < 300; ++round) {
    test::MemoryBytes damaged(before.bytes.bytes);
    for (std::size_t i = 0; i < 8; ++i) {
      damaged.bytes[4096 + editor.Random(damaged.bytes.size() - 4096)] =
          static_cast<std::byte>(editor.Random(256));
    }
    HiveImage image(&damaged);
    Changes changes;
    if (image.Open() == kSuccess &&
        CompareImages(before.image, image, u"C:\\hive", &changes) == kSuccess) {
      IgnoreError(ApplyToImage(changes, Side::Before, 1, &image));
    }
  }
}

}  // namespace
}  // namespace platform::posix
