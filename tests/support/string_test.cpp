#include "support/string.h"

#include <gtest/gtest.h>

#include <string>

namespace cvn {
namespace {

using Small = StringT<char16_t, 4>;

std::u16string Letters(std::size_t count) {
  std::u16string text;
  for (std::size_t i = 0; i < count; ++i) {
    text.push_back(static_cast<char16_t>(u'a' + i % 26));
  }
  return text;
}

// Every operation, at lengths on both sides of the inline capacity, against std::u16string.
TEST(String, BehavesAsAPlainTextAtEveryLength) {
  for (std::size_t length = 0; length <= 12; ++length) {
    for (std::size_t from = 0; from <= length + 1; ++from) {
      for (std::size_t count = 0; count <= length + 1; ++count) {
        std::u16string model = Letters(length);
        Small text(model);
        const Small shared(text);
        text.Erase(from, count);
        if (from < model.size()) {
          model.erase(from, count);
        }
        ASSERT_EQ(text.AsView(), model) << length << ' ' << from << ' ' << count;
        text.Append(text);
        text.Append(u'!');
        model = model + model + u"!";
        ASSERT_EQ(text.AsView(), model);
        ASSERT_EQ(text.CStr()[text.Length()], u'\0');
        text.Truncate(count);
        ASSERT_EQ(text.AsView(), model.substr(0, count));
        ASSERT_EQ(shared.AsView(), Letters(length)) << "a copy must not see changes";
      }
    }
  }
}

TEST(String, WipesTheMemoryOfItsOwn) {
  Small text(Letters(4));
  const char16_t* const place = text.CStr();
  text.Append(u"behind it");  // moves out, and leaves the letters where they were
  text.Wipe();
  EXPECT_TRUE(text.Empty());
  EXPECT_EQ(std::u16string(place, 5), std::u16string(5, u'\0'));
  Small shared(Letters(100));
  const Small owner(shared);
  shared.Wipe();
  EXPECT_EQ(owner.AsView(), Letters(100));
}

TEST(String, SurvivesItsOwnAssignmentAndMoves) {
  String text(Letters(100));
  String& same = text;
  text = same;
  String moved(std::move(text));
  EXPECT_TRUE(text.Empty());  // NOLINT(bugprone-use-after-move): a moved-from text is empty
  text = std::move(moved);
  EXPECT_EQ(text.AsView(), Letters(100));
  // A surrogate is below, unlike its character.
  EXPECT_LT(String(u"\U0001F600"), String(u"\uFF5E"));
}

TEST(FindUnit, FindsWhatTheViewsOwnSearchFinds) {
  for (std::size_t length = 0; length < 50; ++length) {
    for (std::size_t place = 0; place <= length; ++place) {
      // One more behind the end, which is none of the text.
      std::u16string text(length + 1, u'\u0A0A');
      text[place] = u'\n';
      text.back() = u'\n';
      const StringView view(text.data(), length);
      for (std::size_t from = 0; from <= length + 1; ++from) {
        ASSERT_EQ(FindUnit(view, u'\n', from), view.find(u'\n', from)) << length << ' ' << place;
      }
    }
  }
}

TEST(StringDeathTest, EndsTheProcessOnADamagedGuardWord) {
  const auto damage = [](std::ptrdiff_t unit) {
    StringT<char16_t, 4> text(Letters(20));
    const_cast<char16_t*>(text.CStr())[unit] = u'!';
  };
  // The guard words stand directly before the text and behind its terminator.
  EXPECT_DEATH(damage(-1), "");
  EXPECT_DEATH(damage(21), "");
}

}  // namespace
}  // namespace cvn
