#include "commands/documents/xml_shield.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <utility>

#include "commands/documents/xml_entities.h"
#include "commands/documents/xml_marks.h"
#include "commands/documents/xml_name.h"
#include "support/utf.h"

namespace tessel {
namespace {

constexpr std::string_view kSectionStart = "<![CDATA[";
constexpr std::string_view kSectionEnd = "]]>";
constexpr std::string_view kNoBreakSpace = "\xEF\xBB\xBF";
constexpr char kSpecialLead = '\xEF';

constexpr bool IsHighSurrogate(std::uint32_t code) { return code >= 0xD800 && code < 0xDC00; }
constexpr bool IsLowSurrogate(std::uint32_t code) { return code >= 0xDC00 && code < 0xE000; }

class Shielder {
 public:
  // Without `out`, nothing is made.
  Shielder(std::string_view text, XmlPart part, ShieldedXml* out)
      : text_(text), part_(part), out_(out) {}

  // On success `out->text` is only filled when it differs from the text.
  bool Run() {
    while (at_ < text_.size() && elementEnd_ == 0) {
      if (text_[at_] == '<' ? !Markup() : !Text()) {
        return false;
      }
    }
    // Behind an element, and where an element isn't closed, the parser decides.
    if (out_ != nullptr) {
      out_->size = (elementEnd_ == 0 ? text_.size() : elementEnd_) + grown_;
      out_->text.append(text_.substr(copied_ == 0 ? text_.size() : copied_));
    }
    return true;
  }

 private:
  enum class Where { Text, Attribute };

  bool LooksAt(std::string_view token) const { return text_.substr(at_).starts_with(token); }

  bool SkipPast(std::string_view end, std::size_t from) {
    const std::size_t found = text_.find(end, from);
    at_ = found + end.size();
    return found != std::string_view::npos;
  }

  // Puts something in the place of what lies between `from` and `to`.
  void Replace(std::size_t from, std::size_t to, std::string_view by) {
    if (out_ == nullptr) {
      return;
    }
    out_->text.append(text_.substr(copied_, from - copied_)).append(by);
    grown_ += by.size() - (to - from);  // wraps where it shrinks
    copied_ = to;
  }

  bool Markup() {
    const std::size_t start = at_;
    if (LooksAt("<!--")) {
      return SkipPast("-->", at_ + 4);
    }
    if (LooksAt(kSectionStart)) {
      return depth_ != 0 && Sections();
    }
    if (LooksAt("<?")) {
      return Instruction();
    }
    if (LooksAt("<!DOCTYPE")) {
      return !std::exchange(isTypeOver_, true) && SkipDocumentType() && Keep(start);
    }
    if (LooksAt("</")) {
      return depth_ != 0 && SkipPast(">", at_) && Close();
    }
    return at_ + 1 < text_.size() && StartsXmlName(text_[at_ + 1]) && StartTag();
  }

  // The declaration stays for the parser; nothing else may be called like it.
  bool Instruction() {
    const std::size_t start = at_;
    const std::size_t target = start + 2;
    const std::size_t targetEnd = text_.find_first_of(" \t\n\r?", target);
    if (!SkipPast("?>", target)) {
      return false;
    }
    std::string name(text_.substr(target, targetEnd - target));
    std::ranges::transform(name, name.begin(), [](char c) {
      return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    });
    if (name != "xml") {
      return Keep(start);
    }
    // It stands at the start, and the parser finds nothing to replace in it.
    const std::string_view words = text_.substr(target, at_ - 2 - target);
    return start == text_.find_first_not_of(kXmlBlanks) &&
           words.find_first_of("&<>?") == std::string_view::npos;
  }

  bool Keep(std::size_t start) {
    if (out_ != nullptr) {
      out_->kept.emplace_back(text_.substr(start + 1, at_ - start - 2));
      Replace(start, at_, "<?kept?>");
    }
    return true;
  }

  bool Sections() {
    while (SkipPast(kSectionEnd, at_ + kSectionStart.size())) {
      if (!LooksAt(kSectionStart)) {
        return true;
      }
      Replace(at_ - kSectionEnd.size(), at_ + kSectionStart.size(), {&kSectionMark, 1});
    }
    return false;
  }

  // Quotation marks, comments and instructions in a document type may hold any character.
  bool SkipDocumentType() {
    const std::size_t start = at_;
    std::size_t open = 0;
    bool isInSubset = false;
    while ((at_ = text_.find_first_of("<>[]\"'", at_)) != std::string_view::npos) {
      const char c = text_[at_];
      if (LooksAt("<!--") || LooksAt("<?")) {
        if (!SkipPast(text_[at_ + 1] == '?' ? "?>" : "-->", at_ + 2)) {
          return false;
        }
      } else if (c == '"' || c == '\'') {
        if (!SkipPast({&c, 1}, at_ + 1)) {
          return false;
        }
      } else {
        ++at_;
        open += c == '<' ? 1 : 0;
        open -= c == '>' ? 1 : 0;
        isInSubset = c == '[' || (isInSubset && c != ']');
        if (open == 0 && !isInSubset) {
          entities_.Declare(text_.substr(start, at_ - start));
          return true;
        }
      }
    }
    return false;
  }

  bool StartTag() {
    isTypeOver_ = true;
    std::size_t attributes = 0;
    while (++at_ < text_.size()) {
      const char c = text_[at_];
      if (c == '>') {
        ++at_;
        ++depth_;
        return text_[at_ - 2] != '/' || Close();
      }
      if (c == '"' || c == '\'') {
        ++at_;
        if (++attributes > kMostXmlAttributes || !Characters(c, Where::Attribute)) {
          return false;
        }
      }
    }
    return false;
  }

  bool Close() {
    if (--depth_ == 0 && part_ == XmlPart::Element) {
      elementEnd_ = at_;
    }
    return true;
  }

  bool Text() {
    if (depth_ != 0) {
      return Characters('<', Where::Text) || at_ == text_.size();
    }
    at_ = std::min(text_.find_first_not_of(kXmlBlanks, at_), text_.size());
    return at_ == text_.size() || text_[at_] == '<';
  }

  // Moves to the next `end`. False when there is none, or at what can't be kept.
  bool Characters(char end, Where where) {
    for (; at_ < text_.size() && text_[at_] != end; ++at_) {
      const char c = text_[at_];
      if ((c == '&' && !Reference(where)) || (c == kSpecialLead && !SpecialCharacter())) {
        return false;
      }
    }
    return at_ < text_.size();
  }

  // Three characters begin with this byte that TinyXML takes for blanks; two of them aren't any.
  bool SpecialCharacter() {
    if (LooksAt(kNoBreakSpace)) {
      Replace(at_, at_ + kNoBreakSpace.size(), {&kNoBreakSpaceMark, 1});
      at_ += kNoBreakSpace.size() - 1;
    }
    return !LooksAt("\xEF\xBF\xBE") && !LooksAt("\xEF\xBF\xBF");
  }

  // From a '&' to its ';'.
  bool Reference(Where where) {
    const std::size_t start = at_;
    const std::size_t end = text_.find(';', at_);
    if (end == std::string_view::npos) {
      return false;
    }
    const std::string_view name = text_.substr(at_ + 1, end - at_ - 1);
    at_ = end;
    if (name.starts_with('#')) {
      return CharacterReference(name.substr(1), start, where);
    }
    constexpr std::string_view kPredefined[] = {"amp", "lt", "gt", "quot", "apos"};
    if (std::ranges::find(kPredefined, name) != std::end(kPredefined)) {
      return true;
    }
    if (part_ == XmlPart::Element || name.empty() || !StartsXmlName(name[0]) ||
        !std::ranges::all_of(name, IsInXmlName) || !entities_.MayHave(name)) {
      return false;
    }
    Replace(start, start + 1, {&kReferenceMark, 1});
    return true;
  }

  bool CharacterReference(std::string_view digits, std::size_t start, Where where) {
    const std::uint32_t code = ReadCode(digits);
    if (IsHighSurrogate(code) && text_.substr(at_ + 1).starts_with("&#")) {
      const std::size_t lowStart = at_ + 3;
      const std::size_t lowEnd = text_.find(';', lowStart);
      const std::uint32_t low = ReadCode(text_.substr(lowStart, lowEnd - lowStart));
      if (lowEnd == std::string_view::npos || !IsLowSurrogate(low)) {
        return false;
      }
      const char16_t pair[] = {static_cast<char16_t>(code), static_cast<char16_t>(low)};
      at_ = lowEnd;
      Replace(start, at_ + 1, cvn::WideToUtf8({pair, 2}));
      return true;
    }
    if (where == Where::Text && code < 0x80 && IsXmlBlank(static_cast<char>(code))) {
      for (const XmlMark& mark : kXmlMarks) {
        if (mark.plain.size() == 1 && mark.plain[0] == static_cast<char>(code)) {
          Replace(start, at_ + 1, {&mark.mark, 1});
        }
      }
      return true;
    }
    return code != 0 && code <= 0x10FFFF && !IsHighSurrogate(code) && !IsLowSurrogate(code) &&
           code != 0xFFFE && code != 0xFFFF;
  }

  // Of the digits of a character reference; 0 when they aren't any.
  static std::uint32_t ReadCode(std::string_view digits) {
    const bool isHexadecimal = digits.starts_with('x');
    digits.remove_prefix(isHexadecimal ? 1 : 0);
    std::uint32_t code = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), code,
                                              isHexadecimal ? 16 : 10);
    return error == std::errc() && end == digits.data() + digits.size() ? code : 0;
  }

  std::string_view text_;
  XmlPart part_;
  ShieldedXml* out_;
  XmlEntities entities_;
  std::size_t at_ = 0;
  std::size_t copied_ = 0;  // what lies before is in the result
  std::size_t grown_ = 0;   // by which the result is longer
  std::size_t depth_ = 0;
  std::size_t elementEnd_ = 0;
  bool isTypeOver_ = false;  // no document type may follow
};

// The one that follows in the document.
TiXmlNode* NextNode(TiXmlNode* node) {
  if (node->FirstChild() != nullptr) {
    return node->FirstChild();
  }
  while (node != nullptr && node->NextSibling() == nullptr) {
    node = node->Parent();
  }
  return node == nullptr ? nullptr : node->NextSibling();
}

}  // namespace

bool ShieldXml(std::string text, XmlPart part, ShieldedXml* shielded) {
  if (!Shielder(text, part, shielded).Run()) {
    return false;
  }
  if (shielded->text.empty()) {
    shielded->text = std::move(text);
  }
  return true;
}

bool IsShieldableXml(std::string_view text, XmlPart part) {
  return Shielder(text, part, nullptr).Run();
}

void RestoreKept(const ShieldedXml& shielded, TiXmlDocument* document) {
  auto piece = shielded.kept.begin();
  TiXmlNode* node = document->FirstChild();
  for (; node != nullptr && piece != shielded.kept.end(); node = NextNode(node)) {
    if (node->ToUnknown() != nullptr) {
      node->SetValue(*piece++);
    }
  }
}

std::string SplitIntoSections(std::string_view text) {
  std::string split;
  std::size_t end = 0;
  while ((end = text.find(kSectionEnd)) != std::string_view::npos) {
    split.append(text.substr(0, end + 2)).append(1, kSectionMark);
    text.remove_prefix(end + 2);
  }
  return split.append(text);
}

}  // namespace tessel
