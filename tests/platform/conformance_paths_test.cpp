#include "platform/environment.h"
#include "platform/paths.h"
#include "support/numbers.h"
#include "tests/platform/fixture.h"

namespace platform::test {
namespace {

struct TextCase {
  cvn::StringView path;
  cvn::StringView result;
};

// The rules are the same however long a path is: each case that begins with C:\ is tried once more
// with a long way inserted behind that. `change` makes the same change to the result.
template <typename Call>
void CheckTexts(std::span<const TextCase> cases, bool resultIsWholePath, Call call) {
  constexpr cvn::StringView kRoot = u"C:\\";
  cvn::String way(kRoot);
  while (way.Length() < 400) {
    way.Append(u"a way.to go\\");
  }
  for (const TextCase& test : cases) {
    EXPECT_EQ(Utf8(call(test.path)), Utf8(test.result)) << Utf8(test.path);
    if (!test.path.starts_with(kRoot) ||
        (resultIsWholePath && test.result.size() <= kRoot.size())) {
      continue;
    }
    const cvn::String path = Joined(way, test.path.substr(kRoot.size()));
    const cvn::String result = resultIsWholePath ? Joined(way, test.result.substr(kRoot.size()))
                                                 : cvn::String(test.result);
    EXPECT_EQ(Utf8(call(path)), Utf8(result)) << Utf8(path);
  }
}

TEST(PathTextConformance, RemoveFileSpec) {
  constexpr TextCase kCases[] = {
      {u"C:\\a\\b", u"C:\\a"},
      {u"C:\\a\\b.txt", u"C:\\a"},
      {u"C:\\a\\b\\", u"C:\\a\\b"},
      {u"C:\\a\\b c.d e\\f", u"C:\\a\\b c.d e"},
      {u"C:\\a", u"C:\\"},
      {u"C:\\", u"C:\\"},
      {u"C:a", u"C:"},
      {u"a\\b", u"a"},
      {u"a", u""},
      {u"", u""},
      {u"\\a\\b", u"\\a"},
      {u"\\a", u"\\"},
      {u"\\", u"\\"},
      {u"\\\\server\\share\\a", u"\\\\server\\share"},
  };
  CheckTexts(kCases, true, [](cvn::StringView path) {
    cvn::String text(path);
    const bool removed = paths::RemoveFileSpec(&text);
    EXPECT_EQ(removed, text != path) << Utf8(path);
    return text;
  });
  cvn::String deep(u"C:\\");
  for (int i = 0; i < 300; ++i) {
    deep.Append(u"\U0001F600");
  }
  EXPECT_TRUE(paths::RemoveFileSpec(&deep));
  EXPECT_EQ(Utf8(deep), "C:\\");
}

TEST(PathTextConformance, AddBackslash) {
  constexpr TextCase kCases[] = {
      {u"C:\\a", u"C:\\a\\"}, {u"C:\\a\\", u"C:\\a\\"}, {u"a", u"a\\"},
      {u"C:", u"C:\\"},       {u"\\", u"\\"},           {u"", u""},
  };
  CheckTexts(kCases, true, [](cvn::StringView path) {
    cvn::String text(path);
    paths::AddBackslash(&text);
    return text;
  });
}

TEST(PathTextConformance, FindFileName) {
  constexpr TextCase kCases[] = {
      {u"C:\\a\\b.txt", u"b.txt"},
      {u"C:\\a/b.txt", u"b.txt"},
      {u"C:\\a b.c", u"a b.c"},
      {u"C:\\\u65E5\u672C.\U0001F600", u"\u65E5\u672C.\U0001F600"},
      {u"C:\\.", u"."},
      {u"b.txt", u"b.txt"},
      {u"C:b", u"b"},
      {u"", u""},
      {u"\\a", u"a"},
  };
  CheckTexts(kCases, false, paths::FindFileName);
}

TEST(PathTextConformance, FindExtension) {
  constexpr TextCase kCases[] = {
      {u"C:\\a\\b.txt", u".txt"},
      {u"C:\\a\\b.tar.gz", u".gz"},
      {u"C:\\a.b\\c", u""},
      {u"C:\\a\\b.", u"."},
      {u"C:\\a\\b.c d", u""},
      {u"C:\\a\\b c.d", u".d"},
      {u"C:\\a\\.b", u".b"},
      {u"C:\\a.b\\", u""},
      {u"a", u""},
      {u"", u""},
  };
  CheckTexts(kCases, false, paths::FindExtension);
}

TEST(PathTextConformance, IsRelative) {
  constexpr TextCase kCases[] = {
      {u"C:\\a", u"no"},
      {u"C:", u"no"},
      {u"z:a", u"no"},
      {u"\\a", u"no"},
      {u"\\\\server\\share", u"no"},
      {u"a\\b", u"yes"},
      {u"a", u"yes"},
      {u"", u"yes"},
      {u".\\a", u"yes"},
      {u"..\\C:", u"yes"},
  };
  CheckTexts(kCases, false, [](cvn::StringView path) {
    return cvn::StringView(paths::IsRelative(path) ? u"yes" : u"no");
  });
}

class PathsConformance : public FolderTest {
 protected:
  PathsConformance() {
    WriteContent(Path(u"File.txt"), "content");
    EXPECT_EQ(files::CreateDirectory(Path(u"folder")), kSuccess);
  }
};

TEST_F(PathsConformance, ExistsNamesTheReasonWhyNot) {
  struct Case {
    cvn::StringView name;
    Code lastError;
  };
  constexpr Case kCases[] = {
      {u"File.txt", kUntouched},
      {u"FILE.TXT", kUntouched},
      {u"folder", kUntouched},
      {u"folder\\", kUntouched},
      {u"folder/", kUntouched},
      {u"folder\\..\\file.txt", kUntouched},
      {u"missing", kFileNotFound},
      {u"missing\\file", kPathNotFound},
      {u"File.txt\\below", kPathNotFound},
  };
  for (const Case& test : kCases) {
    SetLastError(kUntouched);
    EXPECT_EQ(paths::Exists(Path(test.name)), test.lastError == kUntouched) << Utf8(test.name);
    EXPECT_EQ(LastError(), test.lastError) << Utf8(test.name);
  }
  EXPECT_TRUE(paths::Exists(u"C:\\"));
  EXPECT_FALSE(paths::Exists(u""));
  EXPECT_FALSE(paths::Exists(u"Q:\\a"));
}

// A separator behind a file's name makes it name nothing.
TEST_F(PathsConformance, AFileIsNoFolder) { EXPECT_FALSE(paths::Exists(Path(u"File.txt\\"))); }

TEST_F(PathsConformance, LongNameIsThePathOfWhatExists) {
  SetLastError(kUntouched);
  EXPECT_EQ(Utf8(paths::LongName(Path(u"File.txt"))), Utf8(Path(u"File.txt")));
  EXPECT_EQ(LastError(), kUntouched);
  EXPECT_EQ(Utf8(paths::LongName(Path(u"missing"))), "");
  EXPECT_EQ(LastError(), kFileNotFound);
  SetLastError(kUntouched);
  EXPECT_EQ(Utf8(paths::LongName(Path(u"missing\\file"))), "");
  EXPECT_NE(LastError(), kUntouched);
}

TEST(PlacesConformance, AreAbsoluteWithoutSeparatorAtTheEnd) {
  SetLastError(kUntouched);
  for (const cvn::String& place : {paths::SystemDirectory(), paths::CurrentDirectory(),
                                   paths::CommonApplicationData(), paths::ModuleFileName()}) {
    ASSERT_GT(place.Length(), 3U) << Utf8(place);
    EXPECT_EQ(Utf8(place.AsView().substr(1, 2)), ":\\");
    EXPECT_NE(place[place.Length() - 1], u'\\') << Utf8(place);
  }
  EXPECT_EQ(LastError(), kUntouched);
  EXPECT_TRUE(paths::Exists(paths::ModuleFileName()));
  EXPECT_TRUE(paths::Exists(paths::CurrentDirectory()));
  EXPECT_TRUE(cvn::EqualNoCase(paths::FindFileName(paths::SystemDirectory()), u"System32"));
  EXPECT_TRUE(cvn::EqualNoCase(paths::CommonApplicationData(),
                               environment::Get(u"ProgramData").value_or(u"none")));
}

// The suite runs in the source folder.
TEST(PlacesConformance, RelativePathsStartAtTheCurrentDirectory) {
  EXPECT_TRUE(paths::Exists(u"platform\\files.h"));
  EXPECT_TRUE(paths::Exists(u".\\platform/files.h"));
  EXPECT_TRUE(paths::Exists(Joined(paths::CurrentDirectory(), u"\\PLATFORM\\files.h")));
  const cvn::String fromRoot(paths::CurrentDirectory().AsView().substr(2));
  EXPECT_TRUE(paths::Exists(fromRoot)) << Utf8(fromRoot);
}

}  // namespace
}  // namespace platform::test
