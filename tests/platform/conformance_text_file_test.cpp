#include "platform/text_file.h"
#include "tests/platform/fixture.h"

namespace platform::test {
namespace {

using namespace std::string_view_literals;

class TextFileConformance : public FolderTest {};

TEST_F(TextFileConformance, WritesTheBytesOfTheRuntime) {
  struct Case {
    const char* what;
    std::optional<std::string_view> before;
    cvn::StringView text;
    std::string_view after;
  };
  constexpr Case kCases[] = {
      {"new", std::nullopt, u"a\nb",
       "\xEF\xBB\xBF"
       "a\r\nb"},
      {"new, nothing written", std::nullopt, u"", "\xEF\xBB\xBF"},
      {"empty", "", u"\n", "\xEF\xBB\xBF\r\n"},
      {"UTF-8", "\xEF\xBB\xBFold\r\n", u"new", "\xEF\xBB\xBFold\r\nnew"},
      {"no mark", "old", u"\u00E9\u20AC\U0001F600", "old\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
      {"one byte", "\xFF", u"x", "\xFFx"},
      {"carriage returns stay", "-", u"a\r\n\r", "-a\r\r\n\r"},
      {"single surrogates", "-", u"\xD83D.\xDE00", "-\xEF\xBF\xBD.\xEF\xBF\xBD"},
      {"zero", "-", u"a\0b"sv, "-a\0b"sv},
      {"UTF-16",
       "\xFF\xFE"
       "o\0"sv,
       u"a\n\U0001F600",
       "\xFF\xFE"
       "o\0a\0\r\0\n\0\x3D\xD8\x00\xDE"sv},
  };
  for (const Case& test : kCases) {
    const cvn::String path = Path(u"text");
    IgnoreError(files::Delete(path));
    if (test.before) {
      WriteContent(path, *test.before);
    }
    TextFile file;
    EXPECT_EQ(Observe([&] { return file.OpenForAppend(path); }), Expected(kSuccess)) << test.what;
    EXPECT_TRUE(file.IsOpen());
    EXPECT_EQ(Observe([&] { return file.Write(test.text); }), Expected(kSuccess)) << test.what;
    // A reader sees it at once, while the file stays open.
    EXPECT_EQ(ContentOf(path), test.after) << test.what;
  }
}

TEST_F(TextFileConformance, RefusesWhatItCannotAppendTo) {
  WriteContent(Path(u"big-endian"), "\xFE\xFF\0a"sv);
  WriteContent(Path(u"held"), "text");
  ASSERT_EQ(files::CreateDirectory(Path(u"folder")), kSuccess);
  files::File holder;
  ASSERT_EQ(files::Open(Path(u"held"), files::Access::Read, files::Share::Read,
                        files::Disposition::OpenExisting, &holder),
            kSuccess);
  struct Case {
    cvn::StringView name;
    Code code;
  };
  constexpr Case kCases[] = {
      {u"big-endian", kInvalidParameter},
      {u"folder", kAccessDenied},
      {u"missing\\text", kPathNotFound},
      {u"held", kSharingViolation},
      {u"a|b", kInvalidName},
  };
  for (const Case& test : kCases) {
    TextFile file;
    EXPECT_EQ(Observe([&] { return file.OpenForAppend(Path(test.name)); }), Expected(test.code))
        << Utf8(test.name);
    EXPECT_FALSE(file.IsOpen()) << Utf8(test.name);
    EXPECT_EQ(Observe([&] { return file.Write(u"x"); }), Expected(kInvalidHandle));
  }
  EXPECT_EQ(ContentOf(Path(u"big-endian")), "\xFE\xFF\0a"sv);
}

TEST_F(TextFileConformance, GoesOnWhereItWas) {
  const cvn::String path = Path(u"text");
  TextFile file;
  for (const cvn::StringView text : {u"one\n", u"two\n", u"three\n"}) {
    ASSERT_EQ(file.OpenForAppend(path), kSuccess);
    EXPECT_EQ(file.Write(text), kSuccess);
    TextFile second;
    EXPECT_EQ(second.OpenForAppend(path), kSharingViolation);
    file.Close();
  }
  EXPECT_EQ(ContentOf(path), "\xEF\xBB\xBFone\r\ntwo\r\nthree\r\n");
}

TEST_F(TextFileConformance, SavesOverNoHiddenFile) {
  const cvn::String path = Path(u"text");
  for (const files::Attributes attribute : {files::kHidden, files::kSystem}) {
    WriteContent(path, "old");
    ASSERT_EQ(files::SetAttributes(path, attribute), kSuccess);
    EXPECT_EQ(Observe([&] { return SaveTextFile(path, "new"); }), Expected(kAccessDenied));
    EXPECT_EQ(ContentOf(path), "old");
    IgnoreError(files::Delete(path));
  }
}

}  // namespace
}  // namespace platform::test
