#include "support/xml_nesting.h"

#include <algorithm>

namespace cvn {
namespace {

constexpr std::size_t kEnd = std::string_view::npos;

bool IsBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Any byte beyond ASCII counts as a letter, as it does in TinyXML.
bool StartsName(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= 127 || c == '_' || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

class Scanner {
 public:
  explicit Scanner(std::string_view text) : text_(text) {}

  bool Scan(std::size_t* badOffset) {
    while ((at_ = text_.find('<', at_)) != kEnd) {
      const std::size_t start = at_;
      if (!SkipToken()) {
        return true;
      }
      if (depth_ > kDeepestXml) {
        if (badOffset != nullptr) {
          *badOffset = start;
        }
        return false;
      }
    }
    return true;
  }

 private:
  bool LooksAt(std::string_view token) const { return text_.substr(at_).starts_with(token); }

  // Moves past the next `end`; false when the text has none, which no parser accepts.
  bool SkipPast(std::string_view end) {
    const std::size_t found = text_.find(end, at_);
    at_ = found == kEnd ? text_.size() : found + end.size();
    return found != kEnd;
  }

  bool SkipToken() {
    if (LooksAt("<!--")) {
      at_ += 4;
      return SkipPast("-->");
    }
    if (LooksAt("<![CDATA[")) {
      return SkipPast("]]>");
    }
    if (LooksAt("</") && depth_ > 0) {
      --depth_;
      return SkipPast(">");
    }
    if (at_ + 1 < text_.size() && StartsName(text_[at_ + 1])) {
      return SkipStartTag();
    }
    if (IsDeclaration()) {
      return SkipDeclaration();
    }
    return SkipPast(">");
  }

  bool IsDeclaration() const { return LooksAt("<?") && LooksAtNoCase("xml", at_ + 2); }

  bool LooksAtNoCase(std::string_view word, std::size_t at) const {
    return text_.size() - std::min(at, text_.size()) >= word.size() &&
           std::equal(word.begin(), word.end(), text_.begin() + static_cast<std::ptrdiff_t>(at),
                      [](char a, char b) { return a == (b >= 'A' && b <= 'Z' ? b + 32 : b); });
  }

  // TinyXML skips byte-order marks and noncharacters as it skips blanks.
  void SkipBlanks() {
    while (at_ < text_.size()) {
      if (IsBlank(text_[at_])) {
        ++at_;
      } else if (LooksAt("\xEF\xBB\xBF") || LooksAt("\xEF\xBF\xBE") || LooksAt("\xEF\xBF\xBF")) {
        at_ += 3;
      } else {
        return;
      }
    }
  }

  // After a '=': a quoted value may hold any character, including '>'.
  bool SkipQuotedValue() {
    SkipBlanks();
    if (at_ == text_.size() || (text_[at_] != '"' && text_[at_] != '\'')) {
      return true;
    }
    const char quote = text_[at_++];
    return SkipPast(std::string_view(&quote, 1));
  }

  bool SkipStartTag() {
    while ((at_ = text_.find_first_of(">=", at_)) != kEnd) {
      if (text_[at_++] == '>') {
        depth_ += text_[at_ - 2] == '/' ? 0 : 1;
        return true;
      }
      if (!SkipQuotedValue()) {
        return false;
      }
    }
    return false;
  }

  // Only three attributes of a declaration have values; in anything else a quote has no meaning.
  bool SkipDeclaration() {
    at_ += 5;
    while (at_ < text_.size() && text_[at_] != '>') {
      SkipBlanks();
      if (LooksAtNoCase("version", at_) || LooksAtNoCase("encoding", at_) ||
          LooksAtNoCase("standalone", at_)) {
        at_ = std::min(text_.find('=', at_), text_.size() - 1) + 1;
        if (!SkipQuotedValue()) {
          return false;
        }
      } else {
        at_ = std::min(text_.find_first_of("> \t\n\v\f\r", at_), text_.size());
      }
    }
    return SkipPast(">");
  }

  std::string_view text_;
  std::size_t at_ = 0;
  std::size_t depth_ = 0;
};

}  // namespace

bool IsXmlNestingAllowed(std::string_view utf8Text, std::size_t* badOffset) {
  return Scanner(utf8Text).Scan(badOffset);
}

}  // namespace cvn
