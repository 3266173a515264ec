#include "platform/formats/short_name.h"

#include <algorithm>

namespace platform::posix {
namespace {

constexpr std::size_t kLongestStem = 8;
constexpr std::size_t kLongestExtension = 3;

bool AreLegal(cvn::StringView characters) {
  return std::none_of(characters.begin(), characters.end(), [](char16_t unit) {
    return unit < u' ' ||
           cvn::StringView(u"\"*+,/:;<=>?[\\]|.").find(unit) != cvn::StringView::npos;
  });
}

bool IsPart(cvn::StringView part, std::size_t longest) {
  return !part.empty() && part.size() <= longest && part.back() != u' ' && AreLegal(part);
}

std::size_t LiteralCount(cvn::StringView part) {
  return static_cast<std::size_t>(std::count_if(part.begin(), part.end(), [](char16_t unit) {
    return cvn::StringView(u"*?<>\"").find(unit) == cvn::StringView::npos;
  }));
}

}  // namespace

bool IsShortForm(cvn::StringView name) {
  const std::size_t dot = name.find(u'.');
  return IsPart(name.substr(0, dot), kLongestStem) &&
         (dot == cvn::StringView::npos || IsPart(name.substr(dot + 1), kLongestExtension));
}

bool MayMatchShortForm(cvn::StringView pattern) {
  const std::size_t dot = pattern.rfind(u'.');
  const cvn::StringView stem = pattern.substr(0, dot);
  return LiteralCount(stem) <= kLongestStem + 1 + kLongestExtension &&
         (dot == cvn::StringView::npos ||
          LiteralCount(pattern.substr(dot + 1)) <= kLongestExtension);
}

}  // namespace platform::posix
