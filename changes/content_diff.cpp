#include "changes/content_diff.h"

#include <algorithm>

#include "changes/content_form.h"
#include "support/numbers.h"

namespace tessel {
namespace {

struct Content {
  ContentForm form = ContentForm::Binary;
  std::string text;  // what is compared
};

bool IsIni(cvn::StringView path) {
  const cvn::StringView ending = path.substr(std::min(path.rfind(u'.'), path.size()));
  return cvn::EqualNoCase(ending, u".ini") || cvn::EqualNoCase(ending, u".inf");
}

Content ContentOf(cvn::StringView path, const std::string& bytes) {
  std::optional<std::string> text = TextOfBytes(bytes);
  const std::size_t first = text ? text->find_first_not_of(" \t\r\n") : std::string::npos;
  const char start = first == std::string::npos ? '\0' : (*text)[first];
  // What declares another encoding is known to the parser only by the bytes.
  if (start == '<' || (!text && bytes.starts_with('<'))) {
    if (auto printed = CanonicalXml(bytes)) {
      return {ContentForm::Xml, std::move(*printed)};
    }
  }
  if (!text) {
    return {};
  }
  if (start == '{' || start == '[') {
    if (auto printed = CanonicalJson(*text)) {
      return {ContentForm::Json, std::move(*printed)};
    }
  }
  return IsIni(path) ? Content{ContentForm::Ini, CanonicalIni(*text)}
                     : Content{ContentForm::Text, std::move(*text)};
}

// How both are compared: as documents of one form, else as texts.
ContentForm CommonForm(Content* before, Content* after, const std::string& bytesBefore,
                       const std::string& bytesAfter) {
  if (before->form == after->form || before->form == ContentForm::Binary ||
      after->form == ContentForm::Binary) {
    return before->form == after->form ? before->form : ContentForm::Binary;
  }
  before->text = TextOfBytes(bytesBefore).value_or(std::string());
  after->text = TextOfBytes(bytesAfter).value_or(std::string());
  return ContentForm::Text;
}

bool IsTooLarge(const std::optional<std::string>& bytes) {
  return bytes && bytes->size() > kLargestDiffed;
}

// Two texts of few different lines, and many of them, take seconds to be compared.
bool HasTooManyLines(std::string_view text) {
  constexpr std::ptrdiff_t kMostLines = 50'000;
  return std::ranges::count(text, '\n') > kMostLines;
}

}  // namespace

ContentDiff DiffContent(cvn::StringView path, const std::optional<std::string>& before,
                        const std::optional<std::string>& after) {
  ContentDiff diff;
  diff.isTooLarge = IsTooLarge(before) || IsTooLarge(after);
  if (diff.isTooLarge) {
    return diff;
  }
  Content was = before ? ContentOf(path, *before) : Content();
  Content is = after ? ContentOf(path, *after) : Content();
  if (before && after) {
    diff.form = CommonForm(&was, &is, *before, *after);
  } else {
    diff.form = before ? was.form : is.form;
  }
  if (diff.form == ContentForm::Binary) {
    return diff;
  }
  diff.isLayoutOnly = before && after && was.text == is.text;
  diff.isTooLarge = HasTooManyLines(was.text) || HasTooManyLines(is.text);
  if (!diff.isLayoutOnly && !diff.isTooLarge) {
    auto lines = DiffLines(was.text, is.text);
    diff.isTooLarge = !lines;
    diff.lines = std::move(lines).value_or(cvn::List<DiffLine>());
  }
  return diff;
}

}  // namespace tessel
