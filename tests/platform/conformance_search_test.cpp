#include "platform/file_search.h"
#include "support/format.h"
#include "tests/platform/fixture.h"

namespace platform::test {
namespace {

using files::Search;
using files::SearchEntry;

class SearchConformance : public FolderTest {
 protected:
  void Make(std::initializer_list<cvn::StringView> names) const {
    for (const cvn::StringView name : names) {
      WriteContent(Path(name), "x");
    }
  }
  void Check(std::span<const std::pair<cvn::StringView, const char*>> cases) const {
    for (const auto& [pattern, expected] : cases) {
      EXPECT_EQ(Found(Path(pattern)), expected) << Utf8(pattern);
    }
  }
};

TEST_F(SearchConformance, FindsByPattern) {
  Make({u"a", u"a.txt", u"b.TXT", u"ab.txt", u"abc.text", u"x.y.z", u".dot"});
  constexpr std::pair<cvn::StringView, const char*> kCases[] = {
      {u"*", "., .., .dot, a, a.txt, ab.txt, abc.text, b.TXT, x.y.z"},
      {u"*.*", "., .., .dot, a, a.txt, ab.txt, abc.text, b.TXT, x.y.z"},
      {u"A.TXT", "a.txt"},
      {u"*.txt", "a.txt, ab.txt, b.TXT"},
      {u"?.txt", "a.txt, b.TXT"},
      {u"*b*", "ab.txt, abc.text, b.TXT"},
      {u"*.y.*", "x.y.z"},
      {u"none*", "2"},
      {u"none", "2"},
      {u"none\\*", "3"},
      {u"no*ne\\a", "123"},
  };
  Check(kCases);
  // Wine lets a '?' stand for one character only, and has other codes.
  constexpr std::pair<cvn::StringView, const char*> kOldCases[] = {
      {u"a??.*", "a, a.txt, ab.txt, abc.text"},
      {u"a\\*", "267"},
      {u"n|o*", "123"},
  };
  Check(std::span(kOldCases).first(RunsUnderWine() ? 0 : std::size(kOldCases)));
}

TEST_F(SearchConformance, ListsByUpperCaseAndKeepsAnyName) {
  Make({u"_under", u"Zeta", u"alpha", u"Beta", u"\u00E9t\u00E9", u"\u00C9T\u00C8", u"\u65E5\u672C",
        u"with blank", u"[x]"});
  constexpr std::pair<cvn::StringView, const char*> kCases[] = {
      {u"*",
       "., .., alpha, Beta, with blank, Zeta, [x], _under, \u00C9T\u00C8, \u00E9t\u00E9, "
       "\u65E5\u672C"},
      {u"\u00C9*\u00E9", "\u00E9t\u00E9"}};
  Check(kCases);
}

TEST_F(SearchConformance, TellsWhatItFound) {
  Make({u"file"});
  ASSERT_EQ(files::CreateDirectory(Path(u"folder")), kSuccess);
  ASSERT_EQ(files::SetAttributes(Path(u"file"), files::kReadOnly | files::kHidden), kSuccess);
  Search search;
  SearchEntry entry;
  ASSERT_EQ(search.First(Path(u"FILE"), &entry), kSuccess);
  EXPECT_EQ(Utf8(entry.Name()), "file");
  EXPECT_FALSE(entry.IsDirectory() || entry.IsLink() || entry.IsSelfOrParent());
  EXPECT_EQ(Comparable(entry.GetAttributes()), files::kReadOnly | files::kHidden);
  // 2020 in 100-nanosecond units since 1601.
  EXPECT_GT(entry.LastWriteTime(), 132'223'104'000'000'000U);
  ASSERT_EQ(search.First(Path(u"*"), &entry), kSuccess);
  EXPECT_TRUE(entry.IsSelfOrParent() && entry.IsDirectory());
  EXPECT_EQ(entry.GetAttributes(), files::kDirectory);
  ASSERT_EQ(search.First(Path(u"folder"), &entry), kSuccess);
  EXPECT_TRUE(entry.IsDirectory() && !entry.IsLink() && !entry.IsSelfOrParent());
  EXPECT_EQ(entry.GetAttributes(), files::kDirectory);
  EXPECT_EQ(Found(Path(u"folder\\")), "2");
  EXPECT_EQ(Found(Path(u"folder\\*")), "., ..");
  if (!MakeFolderLink(Path(u"link"), Path(u"folder"))) {
    GTEST_SKIP() << "links can't be made here";
  }
  constexpr files::Attributes kLink = files::kDirectory | files::kReparsePoint;
  ASSERT_EQ(search.First(Path(u"link"), &entry), kSuccess);
  EXPECT_TRUE(entry.IsDirectory() && entry.IsLink());
  EXPECT_EQ(entry.GetAttributes() & kLink, kLink);
  EXPECT_EQ(Found(Path(u"link\\*")), "., ..");
}

TEST_F(SearchConformance, FindsWhatTheFolderHeldAtItsStart) {
  Make({u"a", u"b", u"c"});
  Search search;
  SearchEntry entry;
  ASSERT_EQ(search.First(Path(u"*"), &entry), kSuccess);
  while (entry.IsSelfOrParent()) {
    ASSERT_EQ(search.Next(&entry), kSuccess);
  }
  std::string names;
  do {
    names += Utf8(entry.Name());
    EXPECT_EQ(files::Delete(Path(entry.Name())), kSuccess);
    Make({u"d", u"e"});
  } while (search.Next(&entry) == kSuccess);
  EXPECT_EQ(names, "abc");
  search.Close();
  EXPECT_EQ(Found(Path(u"*")), "., .., d, e");
}

TEST_F(SearchConformance, GoesThroughManyNamesAndLongPaths) {
  std::string expected;
  const cvn::String folder = PathOfLength(1000);
  ASSERT_EQ(files::CreateDirectory(folder), kSuccess);
  for (int i = 0; i < 600; ++i) {
    const cvn::String name = cvn::Format(u"file %04d.txt", i);
    WriteContent(Joined(Joined(folder, u"\\"), name), "x");
    expected += (i == 0 ? "" : ", ") + Utf8(name);
  }
  EXPECT_EQ(Found(Joined(folder, u"\\f*")), expected);
}

}  // namespace
}  // namespace platform::test
