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

  // The names that a pattern finds in the folder, or the code of the failure.
  std::string Find(cvn::StringView pattern) const {
    Search search;
    SearchEntry entry;
    const Outcome start = Observe([&] { return search.First(Path(pattern), &entry); });
    EXPECT_EQ(start, Expected(start.code)) << Utf8(pattern);
    if (start.code != kSuccess) {
      return std::to_string(start.code);
    }
    std::string names;
    Outcome step{};
    do {
      names += (names.empty() ? "" : ", ") + Utf8(entry.Name());
      step = Observe([&] { return search.Next(&entry); });
    } while (step == Expected(kSuccess));
    EXPECT_EQ(step, Expected(kNoMoreFiles)) << Utf8(pattern);
    return names;
  }
};

TEST_F(SearchConformance, FindsByPattern) {
  Make({u"a", u"a.txt", u"b.TXT", u"ab.txt", u"abc.text", u"x.y.z", u".dot"});
  const std::pair<cvn::StringView, const char*> kCases[] = {
      {u"*", "., .., .dot, a, a.txt, ab.txt, abc.text, b.TXT, x.y.z"},
      {u"*.*", "., .., .dot, a, a.txt, ab.txt, abc.text, b.TXT, x.y.z"},
      {u"a", "a"},
      {u"A.TXT", "a.txt"},
      {u"*.txt", "a.txt, ab.txt, b.TXT"},
      {u"?.txt", "a.txt, b.TXT"},
      {u"a*", "a, a.txt, ab.txt, abc.text"},
      {u"*b*", "ab.txt, abc.text, b.TXT"},
      {u"*.y.*", "x.y.z"},
      {u"*z", "x.y.z"},
      {u"none*", "2"},
      {u"none", "2"},
      {u"none\\*", "3"},
      {u"no*ne\\a", "123"},
  };
  for (const auto& [pattern, expected] : kCases) {
    EXPECT_EQ(Find(pattern), expected) << Utf8(pattern);
  }
}

// The rules that Windows has kept from the times of 8.3.
TEST_F(SearchConformance, FindsByOldPatterns) {
  if (RunsUnderWine()) {
    GTEST_SKIP() << "Wine lets a '?' stand for one character only, and has other codes";
  }
  Make({u"a", u"ab", u"a.txt", u"abc.text"});
  const std::pair<cvn::StringView, const char*> kCases[] = {
      {u"*.", "., .., a, ab"}, {u"a??", "a, ab"},
      {u"a.*", "a, a.txt"},    {u"a???", "a, ab"},
      {u"a?.txt", "a.txt"},    {u"a\\*", "267"},
      {u"n|o*", "123"},        {u"a??.*", "a, a.txt, ab, abc.text"},
  };
  for (const auto& [pattern, expected] : kCases) {
    EXPECT_EQ(Find(pattern), expected) << Utf8(pattern);
  }
}

TEST_F(SearchConformance, ListsByUpperCaseAndKeepsAnyName) {
  Make({u"_under", u"Zeta", u"alpha", u"Beta", u"\u00E9t\u00E9", u"\u00C9T\u00C8", u"\u65E5\u672C",
        u"with blank", u"[x]"});
  EXPECT_EQ(Find(u"*"),
            "., .., alpha, Beta, with blank, Zeta, [x], _under, \u00C9T\u00C8, \u00E9t\u00E9, "
            "\u65E5\u672C");
  EXPECT_EQ(Find(u"\u00C9*\u00E9"), "\u00E9t\u00E9");
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
  EXPECT_TRUE(entry.IsDirectory());
  EXPECT_FALSE(entry.IsLink());
  EXPECT_EQ(entry.GetAttributes(), files::kDirectory);
  EXPECT_EQ(Find(u"folder\\"), "2");
  EXPECT_EQ(Find(u"folder\\*"), "., ..");
}

TEST_F(SearchConformance, TellsALinkFromAFolder) {
  ASSERT_EQ(files::CreateDirectory(Path(u"folder")), kSuccess);
  Make({u"folder\\in"});
  if (!MakeFolderLink(Path(u"link"), Path(u"folder"))) {
    GTEST_SKIP() << "links can't be made here";
  }
  Search search;
  SearchEntry entry;
  ASSERT_EQ(search.First(Path(u"link"), &entry), kSuccess);
  EXPECT_TRUE(entry.IsDirectory() && entry.IsLink());
  EXPECT_EQ(entry.GetAttributes() & (files::kDirectory | files::kReparsePoint),
            files::kDirectory | files::kReparsePoint);
  EXPECT_EQ(Find(u"link\\*"), "., .., in");
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
  EXPECT_EQ(Find(u"*"), "., .., d, e");
}

TEST_F(SearchConformance, GoesThroughManyNamesAndLongPaths) {
  for (int i = 0; i < 600; ++i) {
    Make({cvn::Format(u"file %04d.txt", i)});
  }
  const std::string names = Find(u"*.txt");
  EXPECT_EQ(names.size(), 600 * std::string("file 0000.txt").size() + 599 * 2);
  EXPECT_TRUE(names.starts_with("file 0000.txt, file 0001.txt"));
  EXPECT_TRUE(names.ends_with(", file 0599.txt"));

  const cvn::String folder = PathOfLength(1000);
  ASSERT_EQ(files::CreateDirectory(folder), kSuccess);
  WriteContent(Joined(folder, u"\\in"), "x");
  Search search;
  SearchEntry entry;
  ASSERT_EQ(search.First(Joined(folder, u"\\i*"), &entry), kSuccess);
  EXPECT_EQ(Utf8(entry.Name()), "in");
}

}  // namespace
}  // namespace platform::test
