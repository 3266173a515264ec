#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "platform/environment.h"
#include "platform/profile.h"
#include "platform/random.h"
#include "support/format.h"
#include "tests/platform/fixture.h"

namespace platform {
namespace {

using profile::ReadString;
using profile::WriteString;
using test::ContentOf;
using test::Expected;
using test::Observe;
using test::RunsUnderWine;
using test::Utf8;
using test::WriteContent;

constexpr std::size_t kCapacity = 100;

// What Wine does otherwise than Windows, where it does.
enum class Wine : bool { Agrees, Differs };

std::string Wide(cvn::StringView text) {
  std::string bytes("\xFF\xFE");
  for (const char16_t unit : text) {
    bytes += static_cast<char>(unit & 0xFF);
    bytes += static_cast<char>(unit >> 8);
  }
  return bytes;
}

class ProfileConformance : public test::FolderTest {
 protected:
  cvn::String path_ = Path(u"Settings.ini");
};

TEST_F(ProfileConformance, FindsValues) {
  struct Case {
    std::string content;
    cvn::StringView section;
    cvn::StringView key;
    cvn::StringView value;  // "def" when there is none
    Wine wine = Wine::Agrees;
  };
  const Case kCases[] = {
      {"[a]\r\nk=v\r\n", u"a", u"k", u"v"},
      {"[a]\nk=v", u"a", u"k", u"v"},
      {"[A]\r\nKey=v\r\n", u"a", u"kEY", u"v"},
      {"[\xC4]\r\n\xD6=v\r\n", u"\u00E4", u"\u00F6", u"v", Wine::Differs},  // ASCII's case only
      {"\t [ a b ] \r\n k\t = v=w \r\n", u"a b", u"k", u"v=w"},
      {"[a]b]\r\nk=v\r\n", u"a]b", u"k", u"v"},
      {"[a\r\nk=v\r\n", u"a", u"k", u"def"},
      {"[a]\r\nk=v\r\n", u" a ", u" k ", u"v"},
      {"[a]\r\nk=v\r\n", u"b", u"k", u"def"},
      {"[a]\r\nk=v\r\n", u"a", u"j", u"def"},
      {"k=v\r\n[a]\r\n", u"a", u"k", u"def"},
      {"k=v\r\n", u"", u"k", u"def", Wine::Differs},
      {"[b]\r\n[a]\r\nj=1\r\nk=v\r\nk=w\r\n[c]\r\nk=x\r\n", u"a", u"k", u"v"},
      {"[a]\r\nj=1\r\n[A]\r\nk=v\r\n", u"a", u"k", u"def"},
      {"[a]\r\n;k=v\r\n", u"a", u"k", u"def"},
      {";[a]\r\nk=v\r\n", u"a", u"k", u"def"},
      {"[a]\r\n#k=v ; no comment\r\n", u"a", u"#k", u"v ; no comment"},
      {"[a]\r\nk\r\n", u"a", u"k", u"def"},
      {"[a]\r\nk=\r\n", u"a", u"k", u""},
      {"[a]\r\nk= \" v \" \r\n", u"a", u"k", u" v "},
      {"[a]\r\nk='v'\r\n", u"a", u"k", u"v"},
      {"[a]\r\nk=\"'v'\"\r\n", u"a", u"k", u"'v'"},
      {"[a]\r\nk=\"a\" \"b\"\r\n", u"a", u"k", u"a\" \"b"},
      {"[a]\r\nk=\"v'\r\n", u"a", u"k", u"\"v'"},
      {"[a]\r\nk=\"\r\n", u"a", u"k", u"\""},
      {"[a]\r\nk=\xE4\x80\r\n", u"a", u"k", u"\u00E4\u20AC"},
      {Wide(u"[a]\r\nk=\u043B\r\n"), u"a", u"k", u"\u043B"},
      {"\xEF\xBB\xBF[a]\r\nk=v\r\n", u"a", u"k", u"def", Wine::Differs},  // it knows UTF-8's mark
      {"\xEF\xBB\xBF\r\n[a]\r\nk=v\r\n", u"a", u"k", u"v"},
      {std::string("[a]\r\nk=v\0w\r\n", 12), u"a", u"k", u"v"},
      {"", u"a", u"k", u"def"},
  };
  for (const Case& test : kCases) {
    if (test.wine == Wine::Differs && RunsUnderWine()) {
      continue;
    }
    WriteContent(path_, test.content);
    EXPECT_EQ(ReadString(test.section, test.key, u"def", kCapacity, path_).AsView(), test.value)
        << test.content;
  }
}

TEST_F(ProfileConformance, FallsBack) {
  WriteContent(path_, "[a]\r\nk=v\r\n");
  for (const cvn::StringView name : {u"Settings.ini", u"missing.ini", u"missing\\x.ini", u"."}) {
    SetLastError(test::kUntouched);
    EXPECT_EQ(ReadString(u"a", u"j", u" d  ", kCapacity, Path(name)).AsView(), u" d") << Utf8(name);
    EXPECT_EQ(LastError(), test::kUntouched);
  }
  EXPECT_EQ(ReadString(u"a", u"k", u"d", kCapacity, Path(u"SETTINGS.INI")).AsView(), u"v");
}

TEST_F(ProfileConformance, CutsAtTheCapacity) {
  const std::string value(10'241, 'x');
  WriteContent(path_, "[a]\r\nk=\"" + value + "\"\r\nj=1234\r\ni=\"1234\"\r\n");
  EXPECT_EQ(ReadString(u"a", u"k", u"", 10'240, path_).Length(), 10'239U);
  EXPECT_EQ(ReadString(u"a", u"j", u"", 5, path_).AsView(), u"1234");
  EXPECT_EQ(ReadString(u"a", u"j", u"", 4, path_).AsView(), u"123");
  EXPECT_EQ(ReadString(u"a", u"i", u"", 4, path_).AsView(), u"123");
  EXPECT_EQ(ReadString(u"a", u"h", u"12345", 5, path_).AsView(), u"1234");
}

TEST_F(ProfileConformance, ChangesOnlyWhatIsAsked) {
  struct Case {
    std::string before;
    cvn::StringView section;
    cvn::StringView key;
    cvn::StringView value;
    std::string after;
    Wine wine = Wine::Agrees;
  };
  // Wine writes the whole file anew: without blank lines, with CR LF everywhere.
  const Case kCases[] = {
      {"", u"a", u"k", u"v", "[a]\r\nk=v\r\n"},
      {"junk", u"a", u"k", u"v", "junk\r\n[a]\r\nk=v\r\n"},
      {"[a]\r\nk=1", u"b", u"k", u"v", "[a]\r\nk=1\r\n[b]\r\nk=v\r\n"},
      {"[a]\r\nk=1\r\n\r\n", u"b", u"k", u"v", "[a]\r\nk=1\r\n\r\n[b]\r\nk=v\r\n", Wine::Differs},
      {"[a]\r\nj=1\r\n[b]\r\nk=2\r\n", u"A", u"k", u"v", "[a]\r\nj=1\r\nk=v\r\n[b]\r\nk=2\r\n"},
      {"[a]\r\n[b]\r\n", u"a", u"k", u"v", "[a]\r\nk=v\r\n[b]\r\n"},
      {"[a]", u"a", u"k", u"v", "[a]\r\nk=v\r\n"},
      {"[a]\nj=1\n\n;c\n\n\n[b]\n", u"a", u"k", u"v", "[a]\nj=1\n\n;c\nk=v\r\n\n\n[b]\n",
       Wine::Differs},
      {"[a]\r\nk=1\r\n[a]\r\nj=2\r\n", u"a", u"j", u"v", "[a]\r\nk=1\r\nj=v\r\n[a]\r\nj=2\r\n"},
      {";c\r\n[a]\r\nKey = 1 \r\nj=2\r\n", u"a", u"kEY", u"v", ";c\r\n[a]\r\nKey=v\r\nj=2\r\n"},
      {"[a]\r\n\r\n k=1\n\r\nj=2", u"a", u"k", u"v", "[a]\r\n\r\nk=v\n\r\nj=2", Wine::Differs},
      {"[a]\r\nk=1", u"a", u"k", u"v", "[a]\r\nk=v\r\n"},
      {"[a]\r\nk\r\n", u"a", u"k", u"v", "[a]\r\nk=v\r\n"},
      {"[a]\r\n;k=1\r\n", u"a", u"k", u"v", "[a]\r\n;k=1\r\nk=v\r\n"},
      {"[a]\r\nk=1\r\n", u"a", u"k", u"", "[a]\r\nk=\r\n"},
      {"[a]\r\nk=1\r\n", u"a", u"k", u" \"v\" ", "[a]\r\nk= \"v\" \r\n", Wine::Differs},  // trims
      {"[\xE4]\x80\x81\r\n", u"\u00E4", u"k", u"v", "[\xE4]\x80\x81\r\nk=v\r\n",
       Wine::Differs},  // cuts what follows the name
      {"[a]\r\nj=\x81\xFF\r\n", u"a", u"k", u"\u0141\u00F3d\u017A \u20AC\u03B1\u03B2\u4E2D\uFF21",
       "[a]\r\nj=\x81\xFF\r\nk=L\xF3"
       "dz \x80"
       "a\xDF?A\r\n"},
      {Wide(u""), u"a", u"k", u"\u4E2D", Wide(u"[a]\r\nk=\u4E2D\r\n")},
      {Wide(u"[a]\r\nk=\u0141\r\nj=\u4E2D\r\n"), u"a", u"k", u"\u03B1",
       Wide(u"[a]\r\nk=\u03B1\r\nj=\u4E2D\r\n")},
      {Wide(u"[a]\r\n") + "x", u"a", u"k", u"v", Wide(u"[a]\r\nk=v\r\n") + "x", Wine::Differs},
      {"\xEF\xBB\xBF[a]\r\nk=1\r\n", u"a", u"k", u"v", "\xEF\xBB\xBF[a]\r\nk=1\r\n[a]\r\nk=v\r\n",
       Wine::Differs},
  };
  for (const Case& test : kCases) {
    if (test.wine == Wine::Differs && RunsUnderWine()) {
      continue;
    }
    WriteContent(path_, test.before);
    EXPECT_EQ(Observe([&] { return WriteString(test.section, test.key, test.value, path_); }),
              Expected(kSuccess))
        << test.before;
    EXPECT_EQ(ContentOf(path_), test.after);
  }
}

TEST_F(ProfileConformance, MakesAMissingFile) {
  EXPECT_EQ(Observe([&] { return WriteString(u"a", u"k", u"v", path_); }), Expected(kSuccess));
  EXPECT_EQ(ContentOf(path_), "[a]\r\nk=v\r\n");
}

TEST_F(ProfileConformance, FailsToWrite) {
  EXPECT_EQ(Observe([&] { return WriteString(u"a", u"k", u"v", Path(u"missing\\x.ini")); }),
            Expected(kPathNotFound));
  EXPECT_EQ(Observe([&] { return WriteString(u"a", u"k", u"v", Folder()); }),
            Expected(kAccessDenied));
  if (!RunsUnderWine()) {  // there, root writes to read-only files
    WriteContent(path_, "[a]\r\n");
    test::MakeReadOnly(path_);
    EXPECT_EQ(Observe([&] { return WriteString(u"a", u"k", u"v", path_); }),
              Expected(kAccessDenied));
    EXPECT_EQ(ContentOf(path_), "[a]\r\n");
  }
}

TEST_F(ProfileConformance, BareNamesMeanTheWindowsFolder) {
  const cvn::String name = cvn::Format(u"tessel-%08x.ini", SecureRandom32());
  const cvn::String place =
      cvn::Format(u"%s\\%s", environment::Get(u"SystemRoot").value_or(u""), name);
  EXPECT_EQ(WriteString(u"a", u"k", u"v", name), kSuccess);
  EXPECT_EQ(ReadString(u"a", u"k", u"", kCapacity, name).AsView(), u"v");
  EXPECT_EQ(ContentOf(place), "[a]\r\nk=v\r\n");
  EXPECT_EQ(files::Delete(place), kSuccess);
}

}  // namespace
}  // namespace platform
