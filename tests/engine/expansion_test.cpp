#include <gtest/gtest.h>

#include <set>
#include <string>

#include "engine/variable_store.h"
#include "platform/environment.h"
#include "support/numbers.h"
#include "support/utf.h"

namespace tessel {
namespace {

class ExpansionTest : public testing::Test {
 protected:
  void Set(cvn::StringView name, cvn::StringView value) { SetVariable(name, value, &variables_); }
  std::string Expand(cvn::StringView text) {
    return cvn::WideToUtf8(ExpandVariables(text, &variables_));
  }

  ObjectStore objects_;
  VariableStore variables_{&objects_};
};

TEST_F(ExpansionTest, ReplacesReferencesAndNothingElse) {
  Set(u"a", u"1");
  Set(u"empty", u"");
  Set(u"i", u"3");
  Set(u"list[%i%]", u"three");
  Set(u"list[abc]", u"letters");
  Set(u"list[0]", u"zero");
  Set(u"nested", u"%a%");
  Set(u"[ab]", u"ordinary");
  Set(u"a[b", u"open");
  Set(u"big[2147483648]", u"saturated");
  EXPECT_EQ(platform::environment::Set(u"TESSEL_TEST_VALUE", u"from outside"), platform::kSuccess);
  EXPECT_EQ(platform::environment::Set(u"empty", u"not looked at"), platform::kSuccess);
  const std::pair<const char16_t*, const char*> kCases[] = {
      {u"", ""},
      {u"100%%", "100%"},
      {u"%%a%%", "%a%"},
      {u"%", "%"},
      {u"a%", "a%"},
      {u"%a%", "1"},
      {u"x%a%y%a%z", "x1y1z"},
      {u"%A%", "%A%"},
      {u"%empty%", ""},
      {u"%missing%a%", "%missing%a%"},
      {u"%nested%", "%a%"},
      {u"%list[3]%", "three"},
      {u"%list[%i%]%", "three"},
      {u"%list[0000000003]%", "three"},
      {u"%list[00]%", "zero"},
      {u"%list[abc]%", "letters"},
      {u"%list[4]%", "%list[4]%"},
      {u"%big[99999999999]%", "saturated"},
      {u"%[ab]%", "ordinary"},
      {u"%a[b%", "%a[b%"},  // the open bracket keeps the sign from closing
      {u"%a]b%", "%a]b%"},  // and so does a closed one
      {u"%a]%a[%", "%a]%a[%"},
      {u"%x[ %a% %i%", "%x[ 1 3"},  // and doesn't spoil what follows
      {u"%tessel_test_VALUE%", "from outside"},
  };
  for (const auto& [text, expected] : kCases) {
    EXPECT_EQ(Expand(text), expected) << cvn::WideToUtf8(text);
  }
}

TEST_F(ExpansionTest, DrawsANewRandomNumberForEachReference) {
  std::set<std::string> drawn;
  for (int i = 0; i < 50; ++i) {
    const cvn::String text = ExpandVariables(cvn::String(u"%Random%"), &variables_);
    ASSERT_TRUE(cvn::IsAllDigits(text)) << cvn::WideToUtf8(text);
    ASSERT_LT(cvn::ReadInt32(text), 50000);
    drawn.insert(cvn::WideToUtf8(text));
  }
  EXPECT_GT(drawn.size(), 10U);
  Set(u"random", u"hidden");
  EXPECT_EQ(Expand(u"%random%"), "hidden");
}

TEST_F(ExpansionTest, SharesTheTextOfASingleReference) {
  Set(u"long", std::u16string(1000, u'x'));
  EXPECT_EQ(ExpandVariables(cvn::String(u"%long%"), &variables_).CStr(),
            variables_.Find(u"long")->CStr());
}

TEST_F(ExpansionTest, KeepsHandlesAndArraysApart) {
  SetObject(u"doc", std::make_shared<int>(1), ObjectType::XmlDocument, &objects_);
  Set(u"doc[1]", u"lost");
  EXPECT_EQ(Expand(u"%doc[1]%"), "%doc[1]%");
  SetObject(u"doc", nullptr, ObjectType::XmlDocument, &objects_);
  Set(u"doc[1]", u"kept");
  EXPECT_EQ(Expand(u"%doc[1]%"), "kept");
}

TEST_F(ExpansionTest, BearsDeepAndUnclosedReferences) {
  Set(u"x", u"1");
  Set(u"a[1]", u"1");
  const auto nested = [](int levels) {
    std::u16string text;
    for (int i = 0; i < levels; ++i) {
      text += u"%a[";
    }
    text += u"%x%";
    for (int i = 0; i < levels; ++i) {
      text += u"]%";
    }
    return text;
  };
  EXPECT_EQ(Expand(nested(1000)), "1");
  EXPECT_NE(Expand(nested(5000)), "1") << "too deep to be followed, and no crash";
  std::u16string unclosed;
  for (int i = 0; i < 200'000; ++i) {
    unclosed += u"%[";
  }
  EXPECT_EQ(Expand(unclosed), cvn::WideToUtf8(unclosed));
}

}  // namespace
}  // namespace tessel
