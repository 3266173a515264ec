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

  // Moves behind the next `end`; false when the text has none, which no parser accepts.
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
    if (LooksAt("</")) {
      if (depth_ == 0) {
        return false;
      }
      --depth_;
      return SkipPast(">");
    }
    if (at_ + 1 < text_.size() && StartsName(text_[at_ + 1])) {
      ++at_;
      return SkipStartTag();
    }
    if (LooksAt("<?")) {
      ++at_;
      return SkipAttributes();
    }
    return SkipPast(">");
  }

  bool SkipStartTag() {
    const bool closed = SkipAttributes();
    if (closed && text_[at_ - 2] != '/') {
      ++depth_;
    }
    return closed;
  }

  // Moves behind the '>' that ends a tag; one within a quoted value does not.
  bool SkipAttributes() {
    while ((at_ = text_.find_first_of(">=", at_)) != kEnd) {
      if (text_[at_++] == '>') {
        return true;
      }
      while (at_ < text_.size() && IsBlank(text_[at_])) {
        ++at_;
      }
      if (at_ < text_.size() && (text_[at_] == '"' || text_[at_] == '\'')) {
        const char quote = text_[at_++];
        if (!SkipPast(std::string_view(&quote, 1))) {
          return false;
        }
      }
    }
    return false;
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
