#include <gtest/gtest.h>

#include <string>

#include "engine/variable_store.h"
#include "platform/environment.h"
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
  Set(u"ab", u"2");
  Set(u"empty", u"");
  Set(u"nested", u"%a%");
  Set(u"a[b", u"open");
  Set(u"big[2147483648]", u"saturated");
  EXPECT_EQ(platform::environment::Set(u"TESSEL_TEST_VALUE", u"from outside"), platform::kSuccess);
  EXPECT_EQ(platform::environment::Set(u"empty", u"not looked at"), platform::kSuccess);
  const std::pair<const char16_t*, const char*> kCases[] = {
      {u"%%a%%", "%a%"},       {u"a%", "a%"},
      {u"%A%", "%A%"},         {u"%ab%", "2"},
      {u"%empty%", ""},        {u"%missing%a%", "%missing%a%"},
      {u"%nested%", "%a%"},    {u"%big[99999999999]%", "saturated"},
      {u"%a[b%", "%a[b%"},  // the open bracket keeps the sign from closing
      {u"%a]%a[%", "%a]%a[%"}, {u"%tessel_test_VALUE%", "from outside"},
  };
  for (const auto& [text, expected] : kCases) {
    EXPECT_EQ(Expand(text), expected) << cvn::WideToUtf8(text);
  }
  Set(u"long", std::u16string(1000, u'x'));
  EXPECT_EQ(ExpandVariables(u"%long%", &variables_).CStr(), variables_.Find(u"long")->CStr())
      << "a large text is not copied";
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
