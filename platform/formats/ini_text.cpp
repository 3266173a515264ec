#include "platform/formats/ini_text.h"

#include <algorithm>
#include <initializer_list>

#include "platform/formats/names.h"

namespace platform::posix {
namespace {

constexpr cvn::StringView kLineEnd = u"\r\n";

cvn::StringView WithoutBlanks(cvn::StringView text) {
  constexpr cvn::StringView kBlanks = u" \t\v\f";
  const std::size_t start = text.find_first_not_of(kBlanks);
  return start == cvn::StringView::npos
             ? cvn::StringView()
             : text.substr(start, text.find_last_not_of(kBlanks) + 1 - start);
}

struct Line {
  cvn::StringView content;  // without blanks around it
  std::size_t start = 0;
  std::size_t contentEnd = 0;  // where the line end begins
  std::size_t end = 0;         // after the line end; the same when there is none
};

Line LineAt(cvn::StringView text, std::size_t start) {
  Line line;
  line.start = start;
  line.contentEnd = std::min(text.find_first_of(kLineEnd, start), text.size());
  line.content = WithoutBlanks(text.substr(start, line.contentEnd - start));
  const bool isPair = text.substr(line.contentEnd, kLineEnd.size()) == kLineEnd;
  line.end = std::min(line.contentEnd + (isPair ? 2 : 1), text.size());
  return line;
}

// The name, when the line begins a section.
std::optional<cvn::StringView> SectionOf(const Line& line) {
  if (!line.content.starts_with(u'[')) {
    return std::nullopt;
  }
  const std::size_t end = line.content.rfind(u']');
  return end == cvn::StringView::npos
             ? std::nullopt
             : std::optional(WithoutBlanks(line.content.substr(1, end - 1)));
}

// A section name or key to look for.
class Name {
 public:
  explicit Name(cvn::StringView name) : folded_(Folded(WithoutBlanks(name))) {}
  bool operator==(cvn::StringView other) const {
    return other.size() == folded_.size() && Folded(other) == folded_;
  }

 private:
  std::u16string folded_;
};

cvn::StringView KeyOf(const Line& line) {
  return WithoutBlanks(line.content.substr(0, line.content.find(u'=')));
}

struct Place {
  bool hasSection = false;
  std::size_t sectionEnd = 0;  // after the last line of the section that is not blank
  std::optional<Line> line;    // the key's
};

Place Find(cvn::StringView text, cvn::StringView section, cvn::StringView key, bool needsValue) {
  const Name wantedSection(section);
  const Name wantedKey(key);
  Place place;
  for (std::size_t at = 0; at < text.size();) {
    const Line line = LineAt(text, at);
    at = line.end;
    if (const std::optional<cvn::StringView> name = SectionOf(line)) {
      if (place.hasSection) {
        break;
      }
      place.hasSection = wantedSection == *name;
    } else if (place.hasSection && !line.content.starts_with(u';') && wantedKey == KeyOf(line) &&
               !(needsValue && line.content.find(u'=') == cvn::StringView::npos)) {
      place.line = line;
      break;
    }
    if (place.hasSection && !line.content.empty()) {
      place.sectionEnd = line.end;
    }
  }
  return place;
}

bool EndsInLineEnd(cvn::StringView text) {
  return text.empty() || kLineEnd.find(text.back()) != cvn::StringView::npos;
}

void Append(std::u16string* text, std::initializer_list<cvn::StringView> pieces) {
  for (const cvn::StringView piece : pieces) {
    text->append(piece);
  }
}

}  // namespace

std::optional<cvn::StringView> FindValue(cvn::StringView text, cvn::StringView section,
                                         cvn::StringView key) {
  const Place place = Find(text, section, key, true);
  if (!place.line) {
    return std::nullopt;
  }
  const cvn::StringView content = place.line->content;
  return WithoutBlanks(content.substr(content.find(u'=') + 1));
}

Edit EditForValue(cvn::StringView text, cvn::StringView section, cvn::StringView key,
                  cvn::StringView value) {
  const Place place = Find(text, section, key, false);
  Edit edit{};
  if (place.line) {
    const Line& line = *place.line;
    edit.offset = line.start;
    edit.length = line.contentEnd - line.start;
    const bool isUnended = line.contentEnd == text.size();
    Append(&edit.replacement, {KeyOf(line), u"=", value, isUnended ? kLineEnd : u""});
    return edit;
  }
  edit.offset = place.hasSection ? place.sectionEnd : text.size();
  if (!EndsInLineEnd(text.substr(0, edit.offset))) {
    edit.replacement = kLineEnd;
  }
  if (!place.hasSection) {
    Append(&edit.replacement, {u"[", WithoutBlanks(section), u"]", kLineEnd});
  }
  Append(&edit.replacement, {WithoutBlanks(key), u"=", value, kLineEnd});
  return edit;
}

std::size_t ByteOffset(std::string_view bytes, cvn::StringView text, std::size_t offset) {
  constexpr std::string_view kByteEnds = "\r\n";
  const auto isEnd = [](char16_t unit) { return kLineEnd.find(unit) != cvn::StringView::npos; };
  const cvn::StringView before = text.substr(0, offset);
  std::size_t at = 0;
  for (auto ends = std::count_if(before.begin(), before.end(), isEnd); ends > 0; --ends) {
    at = bytes.find_first_of(kByteEnds, at) + 1;
  }
  return EndsInLineEnd(before) ? at : std::min(bytes.find_first_of(kByteEnds, at), bytes.size());
}

}  // namespace platform::posix
