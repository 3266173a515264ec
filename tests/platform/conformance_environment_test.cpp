#include "platform/environment.h"
#include "platform/paths.h"
#include "tests/platform/fixture.h"

namespace platform::test {
namespace {

std::string ValueOf(cvn::StringView name) {
  SetLastError(kUntouched);
  const std::optional<cvn::String> value = environment::Get(name);
  EXPECT_EQ(LastError(), value ? kUntouched : kEnvVarNotFound) << Utf8(name);
  return value ? Utf8(*value) : "(none)";
}

std::string Expanded(cvn::StringView text) {
  SetLastError(kUntouched);
  const std::optional<cvn::String> value = environment::Expand(text);
  EXPECT_EQ(LastError(), kUntouched) << Utf8(text);
  return value ? Utf8(*value) : "(none)";
}

cvn::String Repeated(cvn::StringView text, int times) {
  cvn::String out;
  for (int i = 0; i < times; ++i) {
    out.Append(text);
  }
  return out;
}

TEST(EnvironmentConformance, SetsAndFindsWithoutRegardToCase) {
  struct Case {
    cvn::StringView name;
    cvn::StringView value;
    cvn::StringView asked;
  };
  const cvn::String longValue = Repeated(u"long \U0001F600", 4000);
  const Case cases[] = {
      {u"TesselOne", u"1", u"TESSELone"},
      {u"TESSELONE", u"2", u"tesselone"},
      {u"TesselEmpty", u"", u"TesselEmpty"},
      {u"Tessel Blank (x)", u" = %x% ", u"tessel blank (X)"},
      {u"Tessel\u00C9", u"\u65E5 \U0001F600", u"tessel\u00E9"},
      {u"TesselLong", longValue, u"TesselLong"},
  };
  for (const Case& test : cases) {
    EXPECT_EQ(ValueOf(test.asked), test.value == u"2" ? "1" : "(none)") << Utf8(test.name);
    EXPECT_EQ(Observe([&] { return environment::Set(test.name, test.value); }), Expected(kSuccess))
        << Utf8(test.name);
    EXPECT_EQ(ValueOf(test.asked), Utf8(test.value)) << Utf8(test.name);
  }
}

TEST(EnvironmentConformance, RefusesNamesThatAreNone) {
  EXPECT_EQ(Observe([] { return environment::Set(u"", u"value"); }), Expected(kInvalidParameter));
  EXPECT_EQ(Observe([] { return environment::Set(u"a=b", u"value"); }),
            Expected(kInvalidParameter));
  EXPECT_EQ(ValueOf(u""), "(none)");
  EXPECT_EQ(ValueOf(u"a=b"), "(none)");
}

TEST(EnvironmentConformance, ExpandsReferences) {
  ASSERT_EQ(environment::Set(u"TesselA", u"one"), kSuccess);
  ASSERT_EQ(environment::Set(u"TesselB", u"%TesselA%"), kSuccess);
  ASSERT_EQ(environment::Set(u"TesselC", u""), kSuccess);
  struct Case {
    cvn::StringView text;
    std::string_view expanded;
  };
  constexpr Case kCases[] = {
      {u"", ""},
      {u"nothing to do", "nothing to do"},
      {u"%TesselA%", "one"},
      {u"<%TESSELA%%tesselA%>", "<oneone>"},
      {u"%TesselB%", "%TesselA%"},  // what a value holds is not expanded again
      {u"[%TesselC%]", "[]"},
      {u"%TesselNone%", "%TesselNone%"},
      {u"%TesselNone% %TesselA%", "%TesselNone% one"},
      {u"100%", "100%"},
      {u"%TesselA% 100%", "one 100%"},
      {u"%%", "%%"},
      {u"\U0001F600%TesselA%\u65E5", "\xF0\x9F\x98\x80one\xE6\x97\xA5"},
  };
  for (const Case& test : kCases) {
    EXPECT_EQ(Expanded(test.text), test.expanded) << Utf8(test.text);
  }
  // Around the size of the first attempt.
  for (const int length : {1022, 1023, 1024, 1025, 20000}) {
    const cvn::String rest = Repeated(u"x", length - 3);
    EXPECT_EQ(Expanded(Joined(u"%TesselA%", rest)), "one" + Utf8(rest)) << length;
  }
}

TEST(EnvironmentConformance, HasTheVariablesOfWindows) {
  for (const cvn::StringView name :
       {u"SystemRoot", u"windir", u"ProgramData", u"ALLUSERSPROFILE", u"ProgramFiles",
        u"ProgramFiles(x86)", u"CommonProgramFiles", u"ProgramW6432", u"PUBLIC", u"USERPROFILE",
        u"TEMP", u"TMP", u"ComSpec"}) {
    const std::optional<cvn::String> value = environment::Get(name);
    ASSERT_TRUE(value) << Utf8(name);
    EXPECT_FALSE(paths::IsRelative(*value)) << Utf8(name) << " is " << Utf8(*value);
  }
  EXPECT_EQ(ValueOf(u"OS"), "Windows_NT");
  EXPECT_EQ(Expanded(u"%SystemDrive%\\"), "C:\\");
}

}  // namespace
}  // namespace platform::test
