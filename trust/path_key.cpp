#include "trust/path_key.h"

#include <algorithm>
#include <string>

#include "platform/final_path.h"

namespace tessel {
namespace {

constexpr cvn::StringView kBlanks = u"\n\t ";
constexpr cvn::StringView kObjectPrefix = u"\\??\\";
constexpr cvn::StringView kDevicePrefix = u"\\\\?\\";
constexpr cvn::StringView kSharePrefix = u"\\\\?\\UNC\\";
constexpr cvn::StringView kKernelPrefix = u"\\\\?\\GLOBALROOT";

bool IsLetter(char16_t unit) {
  return (unit >= u'A' && unit <= u'Z') || (unit >= u'a' && unit <= u'z');
}

cvn::StringView Trimmed(cvn::StringView text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  return first == cvn::StringView::npos
             ? cvn::StringView()
             : text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// Empty when there is nothing at the path.
cvn::String FinalPathOf(const cvn::String& tidied) {
  cvn::String text;
  platform::paths::VolumeName volume{};
  if (tidied.Empty() ||
      platform::paths::GetFinalPath(tidied, &text, &volume) != platform::kSuccess) {
    return {};
  }
  if (volume == platform::paths::VolumeName::Dos) {
    return WithoutDevicePrefix(text);
  }
  cvn::String whole(kKernelPrefix);
  whole.Append(text);
  return whole;
}

}  // namespace

cvn::String NormalizePathKey(cvn::StringView path) {
  cvn::String key = FinalPathOf(TidyPath(path));
  LowerCase(&key);
  return key;
}

cvn::String TidyPath(cvn::StringView path) {
  const cvn::String folded = platform::paths::FoldForFinalPath(path);
  std::u16string text(folded.AsView());
  std::replace(text.begin(), text.end(), u'/', u'\\');
  text = Trimmed(text);
  const bool hasOneSlash = text.size() >= 2 && text[0] == u'\\' && text[1] != u'\\';
  const auto end = std::unique(text.begin(), text.end(), [](char16_t left, char16_t right) {
    return left == u'\\' && right == u'\\';
  });
  text.erase(end, text.end());
  if (text.starts_with(u'\\') && !text.starts_with(kObjectPrefix) && !hasOneSlash) {
    text.insert(0, 1, u'\\');
  }
  if (text.size() >= 2 && text.back() == u':') {
    text.push_back(u'\\');
  }
  return cvn::String(text);
}

void LowerCase(cvn::String* text) {
  std::u16string lower(text->AsView());
  std::transform(lower.begin(), lower.end(), lower.begin(), [](char16_t unit) {
    return unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit + 32) : unit;
  });
  text->Assign(lower);
}

cvn::String WithoutDevicePrefix(cvn::StringView finalPath) {
  const cvn::StringView rest = finalPath.substr(std::min(finalPath.size(), kDevicePrefix.size()));
  if (finalPath.starts_with(kDevicePrefix) && rest.size() >= 2 && IsLetter(rest[0]) &&
      rest[1] == u':') {
    return rest;
  }
  if (!finalPath.starts_with(kSharePrefix)) {
    return finalPath;
  }
  cvn::String share(u"\\\\");
  share.Append(finalPath.substr(kSharePrefix.size()));
  return share;
}

}  // namespace tessel
