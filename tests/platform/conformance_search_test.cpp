#include "platform/file_search.h"
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
      {u"none*", "2"},
      {u"none\\*", "3"},
  };
  Check(kCases);
  // Wine lets a '?' stand for one character only, knows none of '<', '>' and '"', doesn't look for
  // the folder that ends a path, and has other codes.
  constexpr std::pair<cvn::StringView, const char*> kOldCases[] = {
      {u"a??.*", "a, a.txt, ab.txt, abc.text"},
      {u"?", "., .., a"},
      {u"??", "., .., a"},
      {u"..?", "., .."},
      {u"..<", "2"},
      {u"*..*", "., .."},
      {u"<.>>>", "., .., .dot, a.txt, ab.txt, b.TXT, x.y.z"},
      {u"a\"*", "a, a.txt"},
      {u"a\\*", "267"},
      {u"a\\", "267"},
      {u"none\\", "3"},
      {u"n|o*", "123"},
  };
  Check(std::span(kOldCases).first(RunsUnderWine() ? 0 : std::size(kOldCases)));
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

}  // namespace
}  // namespace platform::test
