// Paths, environment, INI files and text files: what goes in and what comes out.

#include "platform/environment.h"
#include "platform/paths.h"
#include "platform/profile.h"
#include "platform/random.h"
#include "support/format.h"
#include "support/numbers.h"
#include "tests/platform/file_steps.h"

namespace platform::test {
namespace {

using namespace std::string_view_literals;
using profile::ReadString;
using profile::WriteString;

struct TextCase {
  cvn::StringView text;
  cvn::StringView result;
};

template <typename Call>
void Check(std::span<const TextCase> cases, Call call) {
  for (const auto& [text, result] : cases) {
    EXPECT_EQ(Utf8(call(text)), Utf8(result)) << Utf8(text);
  }
}

template <auto kChange>
cvn::String Changed(cvn::StringView text) {
  cvn::String changed(text);
  kChange(&changed);
  return changed;
}

TEST(PathTextConformance, FollowsShlwapi) {
  const cvn::String way = Joined(u"C:\\", Repeated(u"a way.to \U0001F600\\", 40));
  const cvn::String file = Joined(way, u"b.txt");
  const cvn::String folder(way.AsView().substr(0, way.Length() - 1));
  const cvn::String doubled = Joined(way, u"\\b");
  const TextCase kRemoved[] = {{u"C:\\a\\b.txt", u"C:\\a"},
                               {u"C:\\a", u"C:\\"},
                               {u"C:\\", u"C:\\"},
                               {u"C:a", u"C:"},
                               {u"a\\b", u"a"},
                               {u"a", u""},
                               {u"", u""},
                               {u"\\a", u"\\"},
                               {u"\\\\s\\h\\a", u"\\\\s\\h"},
                               {u"C:\\\\", u"C:\\"},
                               {file, folder},
                               {doubled, folder},
                               // Of these two Wine leaves a separator.
                               {u"C:\\a\\\\b", u"C:\\a"},
                               {u"a\\\\", u"a"}};
  const auto removed = std::span(kRemoved).first(std::size(kRemoved) - (RunsUnderWine() ? 2 : 0));
  Check(removed, Changed<paths::RemoveFileSpec>);
  for (const auto& [text, result] : removed) {
    cvn::String changed(text);
    EXPECT_EQ(paths::RemoveFileSpec(&changed), text != result) << Utf8(text);
  }
  const TextCase kAdded[] = {{u"C:\\a", u"C:\\a\\"}, {u"C:\\a\\", u"C:\\a\\"}, {u"a", u"a\\"},
                             {u"C:", u"C:\\"},       {u"\\", u"\\"},           {u"", u""},
                             {u"C:/a", u"C:/a\\"},   {u"C:/a/", u"C:/a/\\"},   {folder, way}};
  Check(kAdded, Changed<paths::AddBackslash>);
  const TextCase kCut[] = {{u"C:\\a\\", u"C:\\a"}, {u"C:\\a", u"C:\\a"}, {u"C:\\", u"C:\\"},
                           {u"a\\", u"a"},         {u"", u""},           {way, folder}};
  Check(kCut, Changed<paths::RemoveBackslash>);
  const TextCase kNames[] = {{u"C:\\a\\b.txt", u"b.txt"},
                             {u"C:\\a/b.txt", u"b.txt"},
                             {u"b.txt", u"b.txt"},
                             {u"", u""},
                             {file, u"b.txt"}};
  Check(kNames, paths::FindFileName);
  const TextCase kExtensions[] = {
      {u"C:\\a\\b.txt", u".txt"}, {u"C:\\a.b\\c", u""}, {u"b.", u"."},
      {u"C:\\a\\b c.d", u".d"},   {u"", u""},           {file, u".txt"}};
  Check(kExtensions, paths::FindExtension);
  for (const cvn::StringView path :
       {u"C:\\a", u"C:", u"z:a", u"\\", u"\\a", u"\\\\server\\share"}) {
    EXPECT_FALSE(paths::IsRelative(path)) << Utf8(path);
  }
}

class TextsConformance : public StepsTest {};

// The suite runs in the source folder.
TEST(PlacesConformance, AreAbsoluteWithoutSeparatorAtTheEnd) {
  SetLastError(kUntouched);
  for (const cvn::String& place : {paths::SystemDirectory(), paths::CurrentDirectory(),
                                   paths::CommonApplicationData(), paths::ModuleFileName()}) {
    ASSERT_GT(place.Length(), 3U) << Utf8(place);
    EXPECT_EQ(Utf8(place.AsView().substr(1, 2)), ":\\");
    EXPECT_NE(place[place.Length() - 1], u'\\') << Utf8(place);
  }
  EXPECT_EQ(LastError(), kUntouched);
  EXPECT_TRUE(cvn::EqualNoCase(paths::FindFileName(paths::SystemDirectory()), u"System32"));
  EXPECT_TRUE(cvn::EqualNoCase(paths::CommonApplicationData(),
                               environment::Get(u"ProgramData").value_or(u"none")));
  const cvn::String fromRoot(paths::CurrentDirectory().AsView().substr(2));
  for (const cvn::String& path :
       {paths::ModuleFileName(), fromRoot, cvn::String(u".\\platform/files.h"),
        Joined(paths::CurrentDirectory(), u"\\PLATFORM\\files.h")}) {
    EXPECT_TRUE(paths::Exists(path)) << Utf8(path);
  }
}

std::string ValueOf(cvn::StringView name) {
  SetLastError(kUntouched);
  const std::optional<cvn::String> value = environment::Get(name);
  EXPECT_EQ(LastError(), value ? kUntouched : kEnvVarNotFound) << Utf8(name);
  return value ? Utf8(*value) : "(none)";
}

TEST(EnvironmentConformance, SetsFindsAndExpands) {
  const cvn::String longValue = Repeated(u"long \U0001F600", 4000);
  const TextCase kVariables[] = {{u"TesselA", u"one"},
                                 {u"TesselB", u"%TesselA%"},
                                 {u"TesselEmpty", u""},
                                 {u"Tessel\u00C9", u"\u65E5 \U0001F600"},
                                 {u"TesselLong", longValue}};
  for (const auto& [name, value] : kVariables) {
    EXPECT_EQ(ValueOf(name), "(none)") << Utf8(name);
    EXPECT_CODE(kSuccess, environment::Set(name, value)) << Utf8(name);
    EXPECT_EQ(ValueOf(name), Utf8(value)) << Utf8(name);
  }
  EXPECT_EQ(ValueOf(u"tessel\u00E9"), "\xE6\x97\xA5 \xF0\x9F\x98\x80");
  const auto expand = [](cvn::StringView text) {
    SetLastError(kUntouched);
    cvn::String expanded = environment::Expand(text).value_or(u"(none)");
    EXPECT_EQ(LastError(), kUntouched) << Utf8(text);
    return expanded;
  };
  constexpr TextCase kTexts[] = {
      {u"", u""},
      {u"<%TESSELA%%tesselA%>", u"<oneone>"},
      {u"%TesselB%", u"%TesselA%"},  // what a value holds is not expanded again
      {u"%TesselNone% %TesselA%", u"%TesselNone% one"},
      {u"\U0001F600%TesselA%\u65E5", u"\U0001F600one\u65E5"},
  };
  Check(kTexts, expand);
  // Around the size of the first attempt.
  for (const std::size_t length : {1022U, 1023U, 1024U, 1025U, 20000U}) {
    const cvn::String rest = Repeated(u"x", length - 3);
    EXPECT_EQ(Utf8(expand(Joined(u"%TesselA%", rest))), "one" + Utf8(rest)) << length;
  }
}

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

TEST_F(TextsConformance, ProfilesGiveValues) {
  struct Case {
    std::string content;
    cvn::StringView section;
    cvn::StringView key;
    cvn::StringView value;  // "def" when there is none
    Wine wine = Wine::Agrees;
  };
  const Case kCases[] = {
      {"[A]\r\nKey=v\r\n", u"a", u"kEY", u"v"},
      {"[\xC4]\r\n\xD6=v\r\n", u"\u00E4", u"\u00F6", u"v", Wine::Differs},  // ASCII's case only
      {"\t [ a b ] \r\n k\t = v=w \r\n", u"a b", u"k", u"v=w"},
      {"[a]b]\r\nk=v\r\n", u"a]b", u"k", u"v"},
      {"k=v\r\n[a]\r\n", u"a", u"k", u"def"},
      {"[a]\r\nj=1\r\n[A]\r\nk=v\r\n", u"a", u"k", u"def"},
      {"[a]\r\nk='v'\r\n", u"a", u"k", u"v"},
      {"[a]\r\nk=\"'v'\"\r\n", u"a", u"k", u"'v'"},
      {"[a]\r\nk=\xE4\x80\r\n", u"a", u"k", u"\u00E4\u20AC"},
      {Wide(u"[a]\r\nk=\u043B\r\n"), u"a", u"k", u"\u043B"},
      {"\xEF\xBB\xBF[a]\r\nk=v\r\n", u"a", u"k", u"def", Wine::Differs},  // it knows UTF-8's mark
  };
  for (const Case& test : kCases) {
    if (test.wine == Wine::Agrees || !RunsUnderWine()) {
      WriteContent(Path(u"Settings.ini"), test.content);
      EXPECT_EQ(Utf8(ReadString(test.section, test.key, u"def", kCapacity, Path(u"settings.INI"))),
                Utf8(test.value))
          << test.content;
    }
  }
  for (const cvn::StringView name : {u"Settings.ini", u"missing.ini", u"missing\\x.ini", u"."}) {
    SetLastError(kUntouched);
    EXPECT_EQ(ReadString(u"a", u"j", u" d  ", kCapacity, Path(name)).AsView(), u" d") << Utf8(name);
    EXPECT_EQ(LastError(), kUntouched);
  }
}

TEST_F(TextsConformance, ProfilesCutAtTheCapacity) {
  const cvn::String path = Path(u"Settings.ini");
  WriteContent(path, "[a]\r\nk=\"" + std::string(10'241, 'x') + "\"\r\nj=1234\r\ni=\"1234\"\r\n");
  EXPECT_EQ(ReadString(u"a", u"k", u"", 10'240, path).Length(), 10'239U);
  EXPECT_EQ(ReadString(u"a", u"j", u"", 5, path).AsView(), u"1234");
  EXPECT_EQ(ReadString(u"a", u"j", u"", 4, path).AsView(), u"123");
  EXPECT_EQ(ReadString(u"a", u"i", u"", 4, path).AsView(), u"123");
  EXPECT_EQ(ReadString(u"a", u"h", u"12345", 5, path).AsView(), u"1234");
}

TEST_F(TextsConformance, ProfilesChangeOnlyWhatIsAsked) {
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
      {"junk", u"a", u"k", u"v", "junk\r\n[a]\r\nk=v\r\n"},
      {"[a]\r\nj=1\r\n[b]\r\nk=2\r\n", u"A", u"k", u"v", "[a]\r\nj=1\r\nk=v\r\n[b]\r\nk=2\r\n"},
      {"[a]\nj=1\n\n;c\n\n\n[b]\n", u"a", u"k", u"v", "[a]\nj=1\n\n;c\nk=v\r\n\n\n[b]\n",
       Wine::Differs},
      {"[a]\r\nk=1\r\n[a]\r\nj=2\r\n", u"a", u"j", u"v", "[a]\r\nk=1\r\nj=v\r\n[a]\r\nj=2\r\n"},
      {";c\r\n[a]\r\nKey = 1 \r\nj=2\r\n", u"a", u"kEY", u"v", ";c\r\n[a]\r\nKey=v\r\nj=2\r\n"},
      {"[a]\r\n\r\n k=1\n\r\nj=2", u"a", u"k", u"v", "[a]\r\n\r\nk=v\n\r\nj=2", Wine::Differs},
      {"[a]\r\nj=\x81\xFF\r\n", u"a", u"k", u"\u0141\u00F3d\u017A \u20AC\u03B1\u03B2\u4E2D\uFF21",
       "[a]\r\nj=\x81\xFF\r\nk=L\xF3"
       "dz \x80"
       "a\xDF?A\r\n"},
      {Wide(u"[a]\r\nk=\u0141\r\nj=\u4E2D\r\n"), u"a", u"k", u"\u03B1",
       Wide(u"[a]\r\nk=\u03B1\r\nj=\u4E2D\r\n")},
  };
  const cvn::String path = Path(u"Settings.ini");
  for (const Case& test : kCases) {
    if (test.wine == Wine::Agrees || !RunsUnderWine()) {
      WriteContent(path, test.before);
      EXPECT_CODE(kSuccess, WriteString(test.section, test.key, test.value, path)) << test.before;
      EXPECT_EQ(ContentOf(path), test.after);
    }
  }
  EXPECT_CODE(kPathNotFound, WriteString(u"a", u"k", u"v", Path(u"missing\\x.ini")));
  EXPECT_CODE(kAccessDenied, WriteString(u"a", u"k", u"v", Folder()));
  // A bare name means the folder of Windows.
  const cvn::String name = cvn::Format(u"tessel-%08x.ini", SecureRandom32());
  const cvn::String place = Joined(*environment::Expand(u"%SystemRoot%\\"), name);
  EXPECT_CODE(kSuccess, WriteString(u"a", u"k", u"v", name));
  EXPECT_EQ(ReadString(u"a", u"k", u"", kCapacity, name).AsView(), u"v");
  EXPECT_EQ(ContentOf(place), "[a]\r\nk=v\r\n");
  EXPECT_EQ(files::Delete(place), kSuccess);
}

TEST_F(TextsConformance, TextFilesHaveTheBytesOfTheRuntime) {
  struct Case {
    std::string_view before;
    cvn::StringView text;
    std::string_view after;
  };
  constexpr Case kCases[] = {
      {"", u"\n", "\xEF\xBB\xBF\r\n"},
      {"\xEF\xBB\xBFold\r\n", u"new", "\xEF\xBB\xBFold\r\nnew"},
      {"old", u"\u00E9\u20AC\U0001F600", "old\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
      {"-", u"a\r\n\r", "-a\r\r\n\r"},
      {"-", u"\xD83D.\xDE00", "-\xEF\xBF\xBD.\xEF\xBF\xBD"},
      {"\xFF\xFE\x6F\0"sv, u"a\n\U0001F600", "\xFF\xFE\x6F\0a\0\r\0\n\0\x3D\xD8\x00\xDE"sv},
  };
  const cvn::String path = Path(u"text");
  for (const Case& test : kCases) {
    WriteContent(path, test.before);
    TextFile file;
    EXPECT_CODE(kSuccess, file.OpenForAppend(path));
    EXPECT_CODE(kSuccess, file.Write(test.text));
    // A reader sees it at once, while the file stays open.
    EXPECT_EQ(ContentOf(path), test.after) << test.before;
    TextFile second;
    EXPECT_CODE(kSharingViolation, second.OpenForAppend(path));
    EXPECT_CODE(kInvalidHandle, second.Write(u"x"));
  }
  EXPECT_EQ(files::Delete(path), kSuccess);
  EXPECT_EQ(steps::Append(path, {}), kSuccess);
  EXPECT_EQ(ContentOf(path), "\xEF\xBB\xBF") << "new, nothing written";
  WriteContent(path, "\xFE\xFF\0a"sv);
  EXPECT_CODE(kInvalidParameter, steps::Append(path, {})) << "big-endian";
  EXPECT_EQ(ContentOf(path), "\xFE\xFF\0a"sv);
  EXPECT_CODE(kAccessDenied, steps::Append(Folder(), {}));
  EXPECT_CODE(kPathNotFound, steps::Append(Path(u"missing\\text"), {}));
}

// Wherever the pieces end in which it is written.
TEST_F(TextsConformance, SavedTextsHaveAReturnBeforeEachFeed) {
  std::string text;
  for (std::size_t length = (std::size_t{256} << 10) - 6; text.size() < std::size_t{3} << 20;
       ++length) {
    text += std::string(length, 'x') + "\n\n";
  }
  const cvn::String path = Path(u"text");
  for (const std::string& saved : {std::string(), std::string("\n"), text, text + "end"}) {
    EXPECT_EQ(SaveTextFile(path, saved), kSuccess);
    std::string expected = "\xEF\xBB\xBF";
    for (const char unit : saved) {
      expected += unit == '\n' ? "\r\n" : std::string(1, unit);
    }
    EXPECT_TRUE(ContentOf(path) == expected) << saved.size();
  }
}

}  // namespace
}  // namespace platform::test
