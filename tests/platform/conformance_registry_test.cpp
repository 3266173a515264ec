#include <algorithm>
#include <functional>

#include "platform/random.h"
#include "platform/registry.h"
#include "support/containers.h"
#include "support/format.h"
#include "support/numbers.h"
#include "tests/platform/fixture.h"

namespace platform::test {
namespace {

using registry::kEnumerateSubKeys;
using registry::Key;
using registry::kQueryValue;
using registry::kSetValue;
using registry::Root;

constexpr std::uint32_t kAll = kQueryValue + kSetValue + kEnumerateSubKeys;
constexpr std::size_t kRoomy = 300;
constexpr std::size_t kLongestKeyName = 255;
constexpr std::size_t kLongestValueName = 16'383;

using Names = std::vector<std::string>;
using Bytes = std::vector<std::byte>;

Bytes SomeBytes(std::size_t count) {
  Bytes bytes(count);
  for (std::size_t i = 0; i < count; ++i) {
    bytes[i] = static_cast<std::byte>(i * 31 + i / 256);
  }
  return bytes;
}

cvn::String Repeated(char16_t character, std::size_t count) {
  return cvn::String(std::u16string(count, character));
}

template <typename NameAt>
Names NamesOf(NameAt nameAt) {
  Names names;
  cvn::String name;
  Code code = kSuccess;
  for (std::uint32_t index = 0; (code = nameAt(index, &name)) == kSuccess; ++index) {
    names.push_back(Utf8(name));
  }
  EXPECT_EQ(code, kNoMoreItems);
  return names;
}

Names SubKeysOf(const Key& key) {
  return NamesOf([&](std::uint32_t index, cvn::String* name) {
    return registry::EnumerateKey(key, index, kRoomy, name);
  });
}

// Values come in any order.
Names ValuesOf(const Key& key) {
  Names names = NamesOf([&](std::uint32_t index, cvn::String* name) {
    return registry::EnumerateValue(key, index, kLongestValueName + 1, name);
  });
  std::sort(names.begin(), names.end());
  return names;
}

void DeleteWithAllBelow(const Key& parent, cvn::StringView path) {
  Key key;
  if (registry::OpenKey(parent, path, kEnumerateSubKeys, &key) != kSuccess) {
    return;
  }
  cvn::String name;
  while (registry::EnumerateKey(key, 0, kRoomy, &name) == kSuccess) {
    DeleteWithAllBelow(key, name);
  }
  ASSERT_EQ(registry::DeleteKey(parent, path), kSuccess) << Utf8(path);
}

// A test with a new key of its own, below each of the two roots that hold most of what there is.
class RegistryConformance : public testing::TestWithParam<Root> {
 protected:
  RegistryConformance()
      : root_(GetParam()),
        path_(cvn::Format(u"SOFTWARE\\TesselTest-%08x%08x", SecureRandom32(), SecureRandom32())) {
    EXPECT_EQ(registry::CreateKey(root_, path_, false, kAll, &key_), kSuccess);
  }
  ~RegistryConformance() override { DeleteWithAllBelow(root_, path_); }

  const Key& RootKey() const { return root_; }
  cvn::StringView Path() const { return path_; }
  // The test's key, open with all rights.
  const Key& OwnKey() const { return key_; }

  Code Create(cvn::StringView path, bool isVolatile = false) const {
    Key created;
    return registry::CreateKey(key_, path, isVolatile, kQueryValue, &created);
  }
  Code Open(cvn::StringView path) const {
    Key opened;
    const Code code = registry::OpenKey(key_, path, kQueryValue, &opened);
    EXPECT_EQ(opened.IsOpen(), code == kSuccess);
    return code;
  }
  Code Set(cvn::StringView name, std::string_view text = "x") const {
    return registry::SetValue(key_, name, registry::kTypeBinary, BytesOf(text));
  }
  // The value's bytes, or "code <n>".
  std::string Get(cvn::StringView name) const {
    std::uint32_t type = 0;
    Bytes data;
    const Code code = registry::QueryValue(key_, name, &type, &data);
    return code == kSuccess ? std::string(reinterpret_cast<const char*>(data.data()), data.size())
                            : "code " + std::to_string(code);
  }

 private:
  Key root_;
  cvn::String path_;
  Key key_;
};

INSTANTIATE_TEST_SUITE_P(Roots, RegistryConformance,
                         testing::Values(Root::CurrentUser, Root::LocalMachine),
                         [](const auto& each) {
                           return each.param == Root::CurrentUser ? "CurrentUser" : "LocalMachine";
                         });

TEST_P(RegistryConformance, FindsKeysByPath) {
  ASSERT_EQ(Create(u"One\\Two\\Three"), kSuccess);
  constexpr struct {
    cvn::StringView path;
    Code code;
  } kCases[] = {
      {u"", 0},
      {u"One", 0},
      {u"one\\TWO\\tHREE", 0},
      {u"One\\Two\\", 0},
      {u"One\\\\Two", 0},
      {u"Two", 2},
      {u"One\\Three", 2},
      {u"One\\Two\\Three\\Four", 2},
      {u"On", 2},
      {u"One ", 2},
      {u"One/Two", 2},
      {u"\\One", 161},
      {cvn::StringView(u"One\0Four", 8), 0},  // as for all texts of Windows, the first zero ends it
  };
  for (const auto& example : kCases) {
    EXPECT_EQ(Open(example.path), example.code) << Utf8(example.path);
  }
  EXPECT_EQ(Create(u"\\One"), 161U);
  EXPECT_EQ(SubKeysOf(OwnKey()), Names{"One"});
}

TEST_P(RegistryConformance, CreatesWhatIsMissingAndOpensWhatIsThere) {
  Key key;
  ASSERT_EQ(registry::CreateKey(OwnKey(), u"A\\B\\C", false, kAll, &key), kSuccess);
  ASSERT_EQ(registry::SetValue(key, u"v", registry::kTypeBinary, BytesOf("kept")), kSuccess);
  Key again;
  ASSERT_EQ(registry::CreateKey(OwnKey(), u"a\\b\\c", false, kAll, &again), kSuccess);
  EXPECT_EQ(ValuesOf(again), Names{"v"});
  EXPECT_EQ(SubKeysOf(OwnKey()), Names{"A"});

  Key self;
  ASSERT_EQ(registry::CreateKey(OwnKey(), u"", false, kAll, &self), kSuccess);
  EXPECT_EQ(SubKeysOf(self), Names{"A"});
  Key bare;
  EXPECT_EQ(registry::CreateKey(OwnKey(), u"bare", false, 0, &bare), kSuccess);
  EXPECT_EQ(SubKeysOf(OwnKey()), (Names{"A", "bare"}));
}

TEST_P(RegistryConformance, TakesKeyNamesOfUpTo255Characters) {
  const cvn::String longest = Repeated(u'n', kLongestKeyName);
  EXPECT_EQ(Create(longest), kSuccess);
  EXPECT_EQ(Open(longest), kSuccess);
  std::uint32_t count = 0;
  std::uint32_t length = 0;
  EXPECT_EQ(registry::QueryInfo(OwnKey(), &count, &length), kSuccess);
  EXPECT_EQ(length, kLongestKeyName);
  EXPECT_EQ(Create(Repeated(u'm', 400)), kInvalidParameter);
  EXPECT_EQ(SubKeysOf(OwnKey()), Names{Utf8(longest)});
  if (RunsUnderWine()) {
    GTEST_SKIP() << "Wine takes one character more";
  }
  EXPECT_EQ(Create(Repeated(u'm', kLongestKeyName + 1)), kInvalidParameter);
  EXPECT_EQ(SubKeysOf(OwnKey()), Names{Utf8(longest)});
}

TEST_P(RegistryConformance, KeepsTypeAndBytesOfValues) {
  for (const std::uint32_t type : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 11U, 12U, 0x7FFF0000U}) {
    for (const std::size_t size : {0U, 1U, 2U, 3U, 4U, 5U, 8U, 255U, 16'344U, 16'345U, 70'000U}) {
      // A string whose end is missing, and stands right behind it by chance, would get it.
      const Bytes withMore = SomeBytes(size + 2);
      const auto data = std::span(withMore).first(size);
      const cvn::String name = cvn::Format(u"%u of %u", size, type);
      ASSERT_EQ(registry::SetValue(OwnKey(), name, type, data), kSuccess) << Utf8(name);
      std::uint32_t storedType = kUntouched;
      Bytes stored = SomeBytes(7);
      ASSERT_EQ(registry::QueryValue(OwnKey(), name, &storedType, &stored), kSuccess) << Utf8(name);
      EXPECT_EQ(storedType, type) << Utf8(name);
      EXPECT_TRUE(std::ranges::equal(stored, data)) << Utf8(name);
    }
  }
  EXPECT_EQ(registry::Flush(), kSuccess);
  EXPECT_EQ(Get(u"5 of 3"), std::string(reinterpret_cast<const char*>(SomeBytes(5).data()), 5));
}

TEST_P(RegistryConformance, FindsValuesByName) {
  const cvn::String longest = Repeated(u'v', kLongestValueName);
  EXPECT_EQ(Get(u""), "code 2");
  EXPECT_EQ(Get(u"Name"), "code 2");
  EXPECT_EQ(Set(u"", "default"), kSuccess);
  EXPECT_EQ(Set(u"Name", "first"), kSuccess);
  EXPECT_EQ(Set(u"with \\ and / and ,", "odd"), kSuccess);
  EXPECT_EQ(Set(longest, "long"), kSuccess);
  EXPECT_EQ(Set(Repeated(u'v', kLongestValueName + 1)), kInvalidParameter);
  EXPECT_EQ(Set(u"NAME", "second"), kSuccess);

  EXPECT_EQ(Get(u""), "default");
  EXPECT_EQ(Get(u"name"), "second");
  EXPECT_EQ(Get(u"with \\ and / and ,"), "odd");
  EXPECT_EQ(Get(longest), "long");
  EXPECT_EQ(Get(cvn::StringView(u"name\0more", 9)), "second");
  EXPECT_EQ(ValuesOf(OwnKey()), (Names{"", "Name", Utf8(longest), "with \\ and / and ,"}));
}

TEST_P(RegistryConformance, TakesNamesOfAnyScript) {
  constexpr struct {
    cvn::StringView name;
    cvn::StringView sameName;  // in other letters
  } kCases[] = {
      {u"\u00C4rger \u00D1", u"\u00E4RGER \u00F1"},
      {u"\u0416\u043E\u0440\u0430", u"\u0436\u041E\u0420\u0410"},
      {u"\u65E5\u672C\u8A9E", u"\u65E5\u672C\u8A9E"},
      {u"\U0001F600 smile", u"\U0001F600 SMILE"},
  };
  for (const auto& example : kCases) {
    EXPECT_EQ(Create(example.name), kSuccess);
    EXPECT_EQ(Open(example.sameName), kSuccess) << Utf8(example.name);
    EXPECT_EQ(Set(example.name, Utf8(example.name)), kSuccess);
    EXPECT_EQ(Get(example.sameName), Utf8(example.name));
  }
  // What only looks alike is another name.
  EXPECT_EQ(Open(u"A\u0308rger \u00D1"), kFileNotFound);
  EXPECT_EQ(SubKeysOf(OwnKey()).size(), std::size(kCases));
  EXPECT_EQ(ValuesOf(OwnKey()).size(), std::size(kCases));
}

TEST_P(RegistryConformance, EnumeratesKeysInTheOrderOfTheirNames) {
  EXPECT_EQ(SubKeysOf(OwnKey()), Names{});
  for (const cvn::StringView name : {u"delta", u"Bravo", u"10", u"alpha", u"9", u"Charlie", u"a"}) {
    ASSERT_EQ(Create(name), kSuccess);
  }
  EXPECT_EQ(SubKeysOf(OwnKey()), (Names{"10", "9", "a", "alpha", "Bravo", "Charlie", "delta"}));
  ASSERT_EQ(registry::DeleteKey(OwnKey(), u"alpha"), kSuccess);
  ASSERT_EQ(Create(u"aa"), kSuccess);
  EXPECT_EQ(SubKeysOf(OwnKey()), (Names{"10", "9", "a", "aa", "Bravo", "Charlie", "delta"}));
}

TEST_P(RegistryConformance, EnumerationNeedsRoomForTheNameAndItsEnd) {
  ASSERT_EQ(Create(u"four"), kSuccess);
  ASSERT_EQ(Set(u"four"), kSuccess);
  for (const auto enumerate : {registry::EnumerateKey, registry::EnumerateValue}) {
    cvn::String name = u"kept";
    EXPECT_EQ(enumerate(OwnKey(), 0, 4, &name), kMoreData);
    EXPECT_EQ(enumerate(OwnKey(), 1, 5, &name), kNoMoreItems);
    EXPECT_EQ(enumerate(OwnKey(), 0xFFFF'FFFF, 5, &name), kNoMoreItems);
    EXPECT_EQ(Utf8(name), "kept");
    EXPECT_EQ(enumerate(OwnKey(), 0, 5, &name), kSuccess);
    EXPECT_EQ(Utf8(name), "four");
  }
}

TEST_P(RegistryConformance, TellsHowManySubKeysThereAre) {
  std::uint32_t count = kUntouched;
  std::uint32_t longest = kUntouched;
  EXPECT_EQ(registry::QueryInfo(OwnKey(), &count, &longest), kSuccess);
  EXPECT_EQ(count, 0U);
  EXPECT_EQ(longest, 0U);
  ASSERT_EQ(Create(u"three\\a longer name below"), kSuccess);
  ASSERT_EQ(Create(u"\U0001F600\U0001F600\U0001F600"), kSuccess);
  ASSERT_EQ(Create(u"fleeting", true), kSuccess);
  EXPECT_EQ(registry::QueryInfo(OwnKey(), &count, &longest), kSuccess);
  EXPECT_EQ(count, 3U);
  EXPECT_EQ(longest, 8U);
}

TEST_P(RegistryConformance, EachOperationNeedsItsRight) {
  struct Operation {
    const char* name;
    std::uint32_t right;
    std::function<Code(const Key&)> call;
  };
  std::uint32_t number = 0;
  Bytes data;
  cvn::String name;
  const Operation operations[] = {
      {"QueryValue", kQueryValue,
       [&](const Key& key) { return registry::QueryValue(key, u"v", &number, &data); }},
      {"EnumerateValue", kQueryValue,
       [&](const Key& key) { return registry::EnumerateValue(key, 0, kRoomy, &name); }},
      {"EnumerateKey", kEnumerateSubKeys,
       [&](const Key& key) { return registry::EnumerateKey(key, 0, kRoomy, &name); }},
      {"SetValue", kSetValue,
       [&](const Key& key) {
         return registry::SetValue(key, u"v", registry::kTypeNone, BytesOf("new"));
       }},
      {"DeleteValue", kSetValue,
       [&](const Key& key) { return registry::DeleteValue(key, u"gone"); }},
  };
  ASSERT_EQ(Create(u"below"), kSuccess);
  ASSERT_EQ(Set(u"v"), kSuccess);
  for (std::uint32_t access : {0U, kQueryValue, kSetValue, kEnumerateSubKeys, kAll}) {
    Key opened;
    ASSERT_EQ(registry::OpenKey(RootKey(), Path(), access, &opened), kSuccess) << access;
    for (const Operation& operation : operations) {
      ASSERT_EQ(Set(u"gone"), kSuccess);
      const bool isAllowed = (access & operation.right) != 0;
      EXPECT_EQ(operation.call(opened), isAllowed ? kSuccess : kAccessDenied)
          << operation.name << " with access " << access;
    }
  }
}

TEST_P(RegistryConformance, CountingSubKeysNeedsTheRightToQuery) {
  if (RunsUnderWine()) {
    GTEST_SKIP() << "Wine counts for anybody";
  }
  std::uint32_t number = 0;
  for (std::uint32_t access : {0U, kQueryValue, kSetValue, kEnumerateSubKeys, kAll}) {
    Key opened;
    ASSERT_EQ(registry::OpenKey(RootKey(), Path(), access, &opened), kSuccess) << access;
    EXPECT_EQ(registry::QueryInfo(opened, &number, &number),
              (access & kQueryValue) != 0 ? kSuccess : kAccessDenied)
        << access;
  }
}

TEST_P(RegistryConformance, DeletesKeysWithoutSubKeys) {
  ASSERT_EQ(Create(u"a\\b\\c"), kSuccess);
  EXPECT_EQ(registry::DeleteKey(OwnKey(), u"a\\b"), kAccessDenied);
  EXPECT_EQ(registry::DeleteKey(OwnKey(), u"a\\x"), kFileNotFound);
  EXPECT_EQ(registry::DeleteKey(OwnKey(), u"x\\b"), kFileNotFound);
  EXPECT_EQ(registry::DeleteKey(OwnKey(), u"A\\B\\C"), kSuccess);
  EXPECT_EQ(registry::DeleteKey(OwnKey(), u"a\\b"), kSuccess);
  EXPECT_EQ(registry::DeleteKey(OwnKey(), u"a\\b"), kFileNotFound);

  // The handle's rights have no part in it.
  Key parent;
  ASSERT_EQ(registry::OpenKey(RootKey(), Path(), kQueryValue, &parent), kSuccess);
  EXPECT_EQ(registry::DeleteKey(parent, u"a"), kSuccess);
  EXPECT_EQ(SubKeysOf(OwnKey()), Names{});

  ASSERT_EQ(Create(u"self\\below"), kSuccess);
  Key self;
  ASSERT_EQ(registry::OpenKey(OwnKey(), u"self", kQueryValue, &self), kSuccess);
  EXPECT_EQ(registry::DeleteKey(self, u""), kAccessDenied);
  EXPECT_EQ(registry::DeleteKey(self, u"below"), kSuccess);
  EXPECT_EQ(registry::DeleteKey(self, u""), kSuccess);
  EXPECT_EQ(Open(u"self"), kFileNotFound);
}

TEST_P(RegistryConformance, AnOpenKeyThatIsDeletedIsGoneForGood) {
  Key stale;
  ASSERT_EQ(registry::CreateKey(OwnKey(), u"doomed", false, kAll, &stale), kSuccess);
  ASSERT_EQ(registry::DeleteKey(OwnKey(), u"doomed"), kSuccess);
  ASSERT_EQ(Create(u"doomed\\new life"), kSuccess);
  std::uint32_t number = 0;
  Bytes data;
  cvn::String name;
  Key other;
  EXPECT_EQ(registry::QueryValue(stale, u"", &number, &data), kKeyDeleted);
  EXPECT_EQ(registry::SetValue(stale, u"", 1, {}), kKeyDeleted);
  EXPECT_EQ(registry::DeleteValue(stale, u""), kKeyDeleted);
  EXPECT_EQ(registry::EnumerateKey(stale, 0, kRoomy, &name), kKeyDeleted);
  EXPECT_EQ(registry::EnumerateValue(stale, 0, kRoomy, &name), kKeyDeleted);
  EXPECT_EQ(registry::QueryInfo(stale, &number, &number), kKeyDeleted);
  EXPECT_EQ(registry::OpenKey(stale, u"new life", kQueryValue, &other), kKeyDeleted);
  EXPECT_EQ(registry::CreateKey(stale, u"x", false, kQueryValue, &other), kKeyDeleted);
  EXPECT_EQ(registry::DeleteKey(stale, u"new life"), kKeyDeleted);
  EXPECT_EQ(Open(u"doomed\\new life"), kSuccess);
  EXPECT_EQ(Open(u"doomed\\x"), kFileNotFound);
}

TEST_P(RegistryConformance, DeletesValues) {
  EXPECT_EQ(registry::DeleteValue(OwnKey(), u""), kFileNotFound);
  EXPECT_EQ(registry::DeleteValue(OwnKey(), u"none"), kFileNotFound);
  for (const cvn::StringView name : {u"", u"One", u"Two", u"Three"}) {
    ASSERT_EQ(Set(name), kSuccess);
  }
  EXPECT_EQ(registry::DeleteValue(OwnKey(), u"oNE"), kSuccess);
  EXPECT_EQ(registry::DeleteValue(OwnKey(), u""), kSuccess);
  EXPECT_EQ(registry::DeleteValue(OwnKey(), u"One"), kFileNotFound);
  EXPECT_EQ(ValuesOf(OwnKey()), (Names{"Three", "Two"}));
}

TEST_P(RegistryConformance, VolatileKeysHoldOnlyTheirLike) {
  EXPECT_EQ(Create(u"fleeting\\below", true), kSuccess);
  EXPECT_EQ(Create(u"fleeting\\stable"), kChildMustBeVolatile);
  EXPECT_EQ(Create(u"fleeting\\below"), kSuccess) << "one that is there is just opened";
  EXPECT_EQ(Create(u"stable"), kSuccess);
  EXPECT_EQ(Create(u"stable", true), kSuccess);
  EXPECT_EQ(Create(u"stable\\still stable"), kSuccess) << "it stays as it was made";
  EXPECT_EQ(Create(u"stable\\fleeting", true), kSuccess);
  EXPECT_EQ(SubKeysOf(OwnKey()), (Names{"fleeting", "stable"}));

  Key key;
  ASSERT_EQ(registry::OpenKey(OwnKey(), u"FLEETING\\BELOW", kAll, &key), kSuccess);
  EXPECT_EQ(registry::SetValue(key, u"v", registry::kTypeNone, BytesOf("x")), kSuccess);
  EXPECT_EQ(ValuesOf(key), Names{"v"});
  EXPECT_EQ(registry::Flush(), kSuccess);
  EXPECT_EQ(ValuesOf(key), Names{"v"});
  EXPECT_EQ(registry::DeleteKey(OwnKey(), u"stable"), kAccessDenied);
  EXPECT_EQ(registry::DeleteKey(OwnKey(), u"fleeting\\below"), kSuccess);
  EXPECT_EQ(registry::DeleteKey(OwnKey(), u"fleeting"), kSuccess);
  EXPECT_EQ(Create(u"fleeting"), kSuccess);
  EXPECT_EQ(Create(u"fleeting\\stable"), kSuccess);
}

TEST_P(RegistryConformance, LeavesTheLastErrorAlone) {
  ASSERT_EQ(Create(u"parent\\child"), kSuccess);
  std::uint32_t number = 0;
  Bytes data;
  cvn::String name;
  Key key;
  SetLastError(kUntouched);
  EXPECT_EQ(Open(u"none"), kFileNotFound);
  EXPECT_EQ(Open(u"parent"), kSuccess);
  EXPECT_EQ(Create(Repeated(u'n', 400)), kInvalidParameter);
  EXPECT_EQ(registry::DeleteKey(OwnKey(), u"parent"), kAccessDenied);
  EXPECT_EQ(registry::QueryValue(OwnKey(), u"none", &number, &data), kFileNotFound);
  EXPECT_EQ(Set(u""), kSuccess);
  EXPECT_EQ(registry::DeleteValue(OwnKey(), u"none"), kFileNotFound);
  EXPECT_EQ(registry::EnumerateKey(OwnKey(), 0, 2, &name), kMoreData);
  EXPECT_EQ(registry::EnumerateValue(OwnKey(), 9, kRoomy, &name), kNoMoreItems);
  EXPECT_EQ(registry::QueryInfo(OwnKey(), &number, &number), kSuccess);
  EXPECT_EQ(registry::Flush(), kSuccess);
  EXPECT_EQ(LastError(), kUntouched);
}

TEST_P(RegistryConformance, KeysCloseOnceAndWhenTold) {
  Key first;
  ASSERT_EQ(registry::OpenKey(OwnKey(), u"", kAll, &first), kSuccess);
  Key second = std::move(first);
  EXPECT_FALSE(first.IsOpen());  // NOLINT(bugprone-use-after-move): that is the contract
  EXPECT_EQ(SubKeysOf(second), Names{});
  ASSERT_EQ(registry::OpenKey(RootKey(), Path(), kAll, &second), kSuccess)
      << "into one that is open";
  EXPECT_EQ(SubKeysOf(second), Names{});
  second.Close();
  EXPECT_FALSE(second.IsOpen());

  cvn::String name;
  EXPECT_EQ(registry::OpenKey(second, u"x", kAll, &first), kInvalidHandle);
  EXPECT_EQ(registry::EnumerateKey(second, 0, kRoomy, &name), kInvalidHandle);
  EXPECT_EQ(registry::SetValue(second, u"", 1, {}), kInvalidHandle);

  Key root(GetParam());
  root.Close();
  EXPECT_EQ(registry::OpenKey(Key(GetParam()), Path(), kAll, &first), kSuccess);
}

TEST(RegistryRootsConformance, HoldWhatEveryWindowsHas) {
  constexpr struct {
    Root root;
    cvn::StringView path;
  } kCases[] = {
      {Root::LocalMachine, u"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion"},
      {Root::LocalMachine, u"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall"},
      {Root::LocalMachine, u"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment"},
      {Root::LocalMachine, u"SYSTEM\\CurrentControlSet\\Services"},
      {Root::CurrentUser, u"Software"},
      {Root::Users, u".DEFAULT\\Software"},
      {Root::ClassesRoot, u""},
      {Root::CurrentConfig, u""},
  };
  for (const auto& example : kCases) {
    Key key;
    EXPECT_EQ(registry::OpenKey(Key(example.root), example.path, kQueryValue, &key), kSuccess)
        << std::hex << static_cast<std::uint32_t>(example.root) << ' ' << Utf8(example.path);
  }
  const auto contains = [](Root root, const char16_t* wanted) {
    const Names names = SubKeysOf(Key(root));
    return std::ranges::any_of(names, [&](const std::string& name) {
      return cvn::EqualNoCase(cvn::String(std::u16string(name.begin(), name.end())), wanted);
    });
  };
  EXPECT_TRUE(contains(Root::LocalMachine, u"SOFTWARE"));
  EXPECT_TRUE(contains(Root::LocalMachine, u"SYSTEM"));
  EXPECT_TRUE(contains(Root::Users, u".DEFAULT"));
  EXPECT_EQ(registry::DeleteKey(Key(Root::LocalMachine), u"SOFTWARE"), kAccessDenied);
}

struct Place {
  Root root;
  cvn::StringView prefix;
};

// A key made below the first place is found, and gone again, below the second.
void ExpectOnePlace(const Place& first, const Place& second) {
  const cvn::String name = cvn::Format(u"TesselTest-%08x", SecureRandom32());
  const cvn::String firstPath = Joined(first.prefix, name);
  const cvn::String secondPath = Joined(second.prefix, name);
  Key made;
  Key found;
  EXPECT_EQ(registry::CreateKey(Key(first.root), firstPath, false, kAll, &made), kSuccess);
  EXPECT_EQ(registry::OpenKey(Key(second.root), secondPath, kAll, &found), kSuccess);
  EXPECT_EQ(registry::DeleteKey(Key(second.root), secondPath), kSuccess);
  EXPECT_EQ(registry::OpenKey(Key(first.root), firstPath, kQueryValue, &found), kFileNotFound);
}

TEST(RegistryRootsConformance, ClassesRootIsPartOfSoftware) {
  const Place classes = {Root::LocalMachine, u"SOFTWARE\\Classes\\"};
  ExpectOnePlace(classes, {Root::ClassesRoot, u""});
  ExpectOnePlace({Root::ClassesRoot, u""}, classes);
}

TEST(RegistryRootsConformance, CurrentConfigIsTheCurrentProfile) {
  ExpectOnePlace({Root::LocalMachine, u"SYSTEM\\CurrentControlSet\\Hardware Profiles\\Current\\"},
                 {Root::CurrentConfig, u""});
}

TEST(RegistryRootsConformance, CurrentControlSetIsTheSelectedOne) {
  if (RunsUnderWine()) {
    GTEST_SKIP() << "Wine has no other";
  }
  Key select;
  std::uint32_t type = 0;
  Bytes data;
  ASSERT_EQ(registry::OpenKey(Key(Root::LocalMachine), u"SYSTEM\\Select", kQueryValue, &select),
            kSuccess);
  ASSERT_EQ(registry::QueryValue(select, u"Current", &type, &data), kSuccess);
  ASSERT_EQ(type, registry::kTypeDword);
  const cvn::String selected =
      cvn::Format(u"SYSTEM\\ControlSet%03d\\Control\\", static_cast<int>(data.at(0)));
  ExpectOnePlace({Root::LocalMachine, u"SYSTEM\\CurrentControlSet\\Control\\"},
                 {Root::LocalMachine, selected});
}

}  // namespace
}  // namespace platform::test
