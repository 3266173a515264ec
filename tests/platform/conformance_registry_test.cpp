#include <algorithm>
#include <functional>
#include <set>

#include "platform/random.h"
#include "platform/registry.h"
#include "support/containers.h"
#include "support/format.h"
#include "tests/platform/fixture.h"

namespace platform::test {
namespace {

using registry::kEnumerateSubKeys;
using registry::Key;
using registry::kQueryValue;
using registry::kSetValue;
using registry::Root;
using View = cvn::StringView;
using Bytes = std::vector<std::byte>;

constexpr std::uint32_t kAll = kQueryValue + kSetValue + kEnumerateSubKeys;
constexpr std::size_t kRoomy = 16'384;

// The names of all subkeys, or of all values, in alphabetical order.
std::string NamesOf(decltype(registry::EnumerateKey)* enumerate, const Key& key) {
  std::set<std::string> names;
  cvn::String name;
  Code code = kSuccess;
  for (std::uint32_t i = 0; (code = enumerate(key, i, kRoomy, &name)) == kSuccess; ++i) {
    names.insert(Utf8(name));
  }
  EXPECT_EQ(code, kNoMoreItems);
  std::string text;
  for (const std::string& each : names) {
    text += (each == *names.begin() ? "" : "; ") + each;
  }
  return text;
}

void DeleteWithAllBelow(const Key& parent, View path) {
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

// An operation as the row of a table: a call with a name below the test's key, and its code.
struct Step {
  Code (*call)(const Key& key, View name, View other);
  View name;
  View other = {};
  Code code = kSuccess;
};

Code Make(const Key& key, View name, View) {
  Key made;
  return registry::CreateKey(key, name, false, 0, &made);
}
Code Open(const Key& key, View name, View) {
  Key opened;
  const Code code = registry::OpenKey(key, name, kQueryValue, &opened);
  EXPECT_EQ(opened.IsOpen(), code == kSuccess);
  return code;
}
Code Delete(const Key& key, View name, View) { return registry::DeleteKey(key, name); }
Code Set(const Key& key, View name, View text) {
  return registry::SetValue(key, name, registry::kTypeBinary, BytesOf(Utf8(text)));
}
// Expects the value to be `text`.
Code Get(const Key& key, View name, View text) {
  std::uint32_t type = 0;
  Bytes data;
  const Code code = registry::QueryValue(key, name, &type, &data);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(data.data()), data.size()), Utf8(text));
  return code;
}
Code Unset(const Key& key, View name, View) { return registry::DeleteValue(key, name); }
// Expect these subkeys, or values, of the key `name`.
Code SubKeys(const Key& key, View name, View names) {
  Key opened;
  const Code code = registry::OpenKey(key, name, kAll, &opened);
  EXPECT_EQ(NamesOf(registry::EnumerateKey, opened), Utf8(names));
  return code;
}
Code Values(const Key& key, View name, View names) {
  Key opened;
  const Code code = registry::OpenKey(key, name, kAll, &opened);
  EXPECT_EQ(NamesOf(registry::EnumerateValue, opened), Utf8(names));
  return code;
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

  // No operation of the registry changes the last error.
  void Run(std::span<const Step> table, const Key& key) const {
    for (const Step& step : table) {
      EXPECT_EQ(Observe([&] { return step.call(key, step.name, step.other); }),
                (Outcome{step.code, kUntouched}))
          << "row " << &step - table.data() << ": " << Utf8(step.name);
    }
  }
  void Run(std::span<const Step> table) const { Run(table, key_); }

  Key root_;
  cvn::String path_;
  Key key_;  // the test's, open with all rights
};

INSTANTIATE_TEST_SUITE_P(Roots, RegistryConformance,
                         testing::Values(Root::CurrentUser, Root::LocalMachine),
                         [](const auto& each) {
                           return each.param == Root::CurrentUser ? "CurrentUser" : "LocalMachine";
                         });

TEST_P(RegistryConformance, FindsKeysByPath) {
  constexpr Step kSteps[] = {
      {Make, u"One\\Two\\Three"},
      {Open, u""},
      {Open, u"one\\TWO\\tHREE"},
      {Open, u"One\\Two\\"},
      {Open, u"One\\\\Two"},
      {Open, u"Two", {}, kFileNotFound},
      {Open, u"One\\Two\\Three\\Four", {}, kFileNotFound},
      {Open, u"One ", {}, kFileNotFound},
      {Open, u"One/Two", {}, kFileNotFound},
      {Open, u"\\One", {}, kBadPathName},
      {Open, View(u"One\0Four", 8)},  // as for all texts of Windows, the first zero ends it
      {Make, u"\u0416\u043E\U0001F600"},
      {Open, u"\u0436\u041E\U0001F600"},
      {Delete, u"\u0436\u041E\U0001F600"},
      {Make, u"ONE\\two\\three\\four"},
      {SubKeys, u"", u"One"},
      {SubKeys, u"one\\two\\three", u"four"},
  };
  Run(kSteps);
}

TEST_P(RegistryConformance, NamesHaveALongestLength) {
  const cvn::String key = Repeated(u"n", 255);
  const cvn::String value = Repeated(u"v", 16'383);
  const cvn::String tooLong = Joined(value, u"v");
  const Step kSteps[] = {
      {Make, key},           {Open, key},           {Make, value, {}, kInvalidParameter},
      {SubKeys, u"", key},   {Set, value, u"long"}, {Set, tooLong, {}, kInvalidParameter},
      {Get, value, u"long"}, {Values, u"", value},
  };
  Run(kSteps);
  if (RunsUnderWine()) {
    GTEST_SKIP() << "Wine takes one character more";
  }
  EXPECT_EQ(Make(key_, Joined(key, u"n"), {}), kInvalidParameter);
}

TEST_P(RegistryConformance, KeepsTypeAndBytesOfValues) {
  Bytes all(80'000);
  for (std::size_t i = 0; i < all.size(); ++i) {
    all[i] = static_cast<std::byte>(i * 31 + i / 256);
  }
  for (const std::uint32_t type : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 11U, 12U, 0x7FFF0000U}) {
    for (const std::size_t size : {0U, 1U, 2U, 3U, 4U, 5U, 8U, 255U, 16'344U, 16'345U, 70'000U}) {
      // A string whose end is missing, and stands right behind it by chance, would get it.
      const auto data = std::span(all).first(size);
      const cvn::String name = cvn::Format(u"%u of %u", size, type);
      ASSERT_EQ(registry::SetValue(key_, name, type, data), kSuccess) << Utf8(name);
      std::uint32_t storedType = kUntouched;
      Bytes stored(7);
      ASSERT_EQ(registry::QueryValue(key_, name, &storedType, &stored), kSuccess) << Utf8(name);
      EXPECT_EQ(storedType, type) << Utf8(name);
      EXPECT_TRUE(std::ranges::equal(stored, data)) << Utf8(name);
    }
  }
}

TEST_P(RegistryConformance, FindsValuesByName) {
  constexpr Step kSteps[] = {
      {Unset, u"Name", {}, kFileNotFound},
      {Set, u"", u"default"},
      {Set, u"Name", u"first"},
      {Set, u"NAME", u"second"},
      {Get, u"", u"default"},
      {Get, View(u"name\0more", 9), u"second"},
      {Values, u"", u"; Name"},
      {Unset, u"nAME"},
      {Values, u"", u""},
  };
  Run(kSteps);
}

TEST_P(RegistryConformance, EnumerationNeedsRoomForTheNameAndItsEnd) {
  ASSERT_EQ(Make(key_, u"four", {}), kSuccess);
  ASSERT_EQ(Set(key_, u"four", u"x"), kSuccess);
  SetLastError(kUntouched);
  for (const auto enumerate : {registry::EnumerateKey, registry::EnumerateValue}) {
    cvn::String name = u"kept";
    EXPECT_EQ(enumerate(key_, 0, 4, &name), kMoreData);
    EXPECT_EQ(enumerate(key_, 1, 5, &name), kNoMoreItems);
    EXPECT_EQ(enumerate(key_, 0xFFFF'FFFF, 5, &name), kNoMoreItems);
    EXPECT_EQ(Utf8(name), "kept");
    EXPECT_EQ(enumerate(key_, 0, 5, &name), kSuccess);
    EXPECT_EQ(Utf8(name), "four");
  }
  EXPECT_EQ(LastError(), kUntouched);
}

// Each call that takes an open key, and the right that it needs.
struct Operation {
  const char* name;
  std::uint32_t right;
  std::function<Code(const Key&)> call;
};

std::vector<Operation> Operations() {
  static std::uint32_t number = 0;
  static Bytes data;
  static cvn::String name;
  return {
      {"QueryValue", kQueryValue,
       [](const Key& key) { return registry::QueryValue(key, u"v", &number, &data); }},
      {"EnumerateValue", kQueryValue,
       [](const Key& key) { return registry::EnumerateValue(key, 0, kRoomy, &name); }},
      {"QueryInfo", kQueryValue,
       [](const Key& key) { return registry::QueryInfo(key, &number, &number); }},
      {"EnumerateKey", kEnumerateSubKeys,
       [](const Key& key) { return registry::EnumerateKey(key, 0, kRoomy, &name); }},
      {"SetValue", kSetValue, [](const Key& key) { return Set(key, u"v", u"new"); }},
      {"DeleteValue", kSetValue, [](const Key& key) { return Unset(key, u"gone", {}); }},
      {"OpenKey", 0, [](const Key& key) { return Open(key, u"below", {}); }},
      {"CreateKey", 0, [](const Key& key) { return Make(key, u"below", {}); }},
      {"DeleteKey", 0, [](const Key& key) { return Delete(key, u"leaf", {}); }},
  };
}

TEST_P(RegistryConformance, EachOperationNeedsItsRight) {
  for (const std::uint32_t access : {0U, kQueryValue, kSetValue, kEnumerateSubKeys, kAll}) {
    Key opened;
    ASSERT_EQ(registry::OpenKey(root_, path_, access, &opened), kSuccess) << access;
    for (const Operation& operation : Operations()) {
      constexpr Step kSteps[] = {{Make, u"below"}, {Make, u"leaf"}, {Set, u"v"}, {Set, u"gone"}};
      Run(kSteps);
      const bool isAllowed = operation.right == 0 || (access & operation.right) != 0;
      if (operation.name != std::string_view("QueryInfo") || !RunsUnderWine()) {
        EXPECT_EQ(operation.call(opened), isAllowed ? kSuccess : kAccessDenied)
            << operation.name << " with access " << access;
      }
    }
  }
}

TEST_P(RegistryConformance, AnOpenKeyThatIsDeletedIsGoneForGood) {
  Key stale;
  ASSERT_EQ(registry::CreateKey(key_, u"doomed", false, kAll, &stale), kSuccess);
  ASSERT_EQ(Delete(key_, u"doomed", {}), kSuccess);
  ASSERT_EQ(Make(key_, u"doomed\\below", {}), kSuccess);
  for (const Operation& operation : Operations()) {
    EXPECT_EQ(operation.call(stale), kKeyDeleted) << operation.name;
    EXPECT_EQ(operation.call(Key()), kInvalidHandle) << operation.name;
  }
  EXPECT_EQ(Open(key_, u"doomed\\below", {}), kSuccess);
}

TEST_P(RegistryConformance, DeletesKeysWithoutSubKeys) {
  constexpr Step kSteps[] = {
      {Make, u"a\\b\\c"},
      {Delete, u"a\\b", {}, kAccessDenied},
      {Delete, u"a\\x", {}, kFileNotFound},
      {Delete, u"A\\B\\C"},
      {Delete, u"a\\b"},
      {Make, u"self\\below"},
  };
  Run(kSteps);
  // The rights of the handle don't matter.
  Key self;
  ASSERT_EQ(registry::OpenKey(key_, u"self", kQueryValue, &self), kSuccess);
  constexpr Step kSelf[] = {{Delete, u"", {}, kAccessDenied}, {Delete, u"below"}, {Delete, u""}};
  Run(kSelf, self);
  EXPECT_EQ(NamesOf(registry::EnumerateKey, key_), "a");
}

}  // namespace
}  // namespace platform::test
