#include "tools/tlx/roff.h"

#include "support/format.h"
#include "version.h"

namespace tlx {
namespace {

// Adds a character so that roff neither reads it as its own nor prettifies it: what is printed can
// be typed.
void AddCharacter(char16_t c, cvn::String* text) {
  switch (c) {
    case u'\\':
      text->Append(u"\\e");
      break;
    case u'-':
      text->Append(u"\\-");
      break;
    case u'\'':
      text->Append(u"\\(aq");
      break;
    case u'`':
      text->Append(u"\\(ga");
      break;
    case u'^':
      text->Append(u"\\(ha");
      break;
    case u'~':
      text->Append(u"\\(ti");
      break;
    case u'\n':
      text->Append(u' ');
      break;
    default:
      text->Append(c);
  }
}

cvn::String Verbatim(cvn::StringView text) {
  cvn::String line;
  // A line that begins with a dot would be a request.
  line.Append(text.starts_with(u'.') ? cvn::StringView(u"\\&") : cvn::StringView());
  for (const char16_t c : text) {
    AddCharacter(c, &line);
  }
  return line;
}

// The length of the link that the text begins with, "[words](target)", and its words; 0 for none.
std::size_t LinkAt(cvn::StringView text, cvn::StringView* words) {
  const std::size_t middle = text.find(u"](");
  const std::size_t end = text.find(u')', middle);
  if (!text.starts_with(u'[') || middle == cvn::StringView::npos || end == cvn::StringView::npos ||
      text.substr(1, middle).find(u'[') != cvn::StringView::npos) {
    return 0;
  }
  *words = text.substr(1, middle - 1);
  return end + 1;
}

}  // namespace

cvn::String RoffOf(cvn::StringView text) {
  cvn::String roff;
  roff.Append(text.starts_with(u'.') ? cvn::StringView(u"\\&") : cvn::StringView());
  const auto between = [&text](cvn::StringView mark) {
    const std::size_t end = text.find(mark, mark.size());
    const bool isMarked = text.starts_with(mark) && end != cvn::StringView::npos;
    return isMarked ? text.substr(mark.size(), end - mark.size()) : cvn::StringView();
  };
  while (!text.empty()) {
    cvn::StringView words;
    if (words = between(u"`"); !words.empty()) {
      roff.Append(cvn::Format(u"\\fB%s\\fR", Verbatim(words)));
      text.remove_prefix(words.size() + 2);
    } else if (words = between(u"**"); !words.empty()) {
      roff.Append(cvn::Format(u"\\fB%s\\fR", RoffOf(words)));
      text.remove_prefix(words.size() + 4);
    } else if (const std::size_t length = LinkAt(text, &words); length != 0) {
      roff.Append(RoffOf(words));
      text.remove_prefix(length);
    } else {
      const bool isEscaped = text.starts_with(u"\\|");
      AddCharacter(isEscaped ? u'|' : text.front(), &roff);
      text.remove_prefix(isEscaped ? 2 : 1);
    }
  }
  return roff;
}

ManualPage::ManualPage(cvn::StringView name, int section, cvn::StringView summary) {
  cvn::String title;
  for (const char16_t c : name) {
    title.Append(c >= u'a' && c <= u'z' ? static_cast<char16_t>(c - 32) : c);
  }
  Line(cvn::Format(u".TH %s %d \"\" \"Tessel " TESSEL_VERSION_TEXT u"\" \"Tessel\"",
                   Verbatim(title), section));
  Heading(u"NAME");
  Line(cvn::Format(u"%s \\- %s", Verbatim(name), RoffOf(summary)));
}

void ManualPage::Line(cvn::StringView line) {
  text_.Append(line);
  text_.Append(u'\n');
  isBelowHeading_ = line.starts_with(u".SH ") || line.starts_with(u".SS ");
}

// The macros of headings begin a paragraph themselves.
void ManualPage::BeginParagraph() {
  if (!isBelowHeading_) {
    Line(u".PP");
  }
}

void ManualPage::Heading(cvn::StringView text) { Line(cvn::Format(u".SH \"%s\"", RoffOf(text))); }

void ManualPage::Subheading(cvn::StringView text) {
  Line(cvn::Format(u".SS \"%s\"", RoffOf(text)));
}

void ManualPage::Paragraph(cvn::StringView text) {
  BeginParagraph();
  Line(RoffOf(text));
}

void ManualPage::Item(cvn::StringView tag, cvn::StringView text) {
  Line(u".TP");
  Line(RoffOf(tag));
  Line(RoffOf(text));
}

void ManualPage::Point(cvn::StringView mark, cvn::StringView text) {
  Line(cvn::Format(u".IP %s 4", mark == u"-" ? cvn::StringView(u"\\(bu") : mark));
  Line(RoffOf(text));
}

void ManualPage::BeginCode() {
  BeginParagraph();
  Line(u".RS 4\n.nf");
}

void ManualPage::Code(cvn::StringView line) { Line(Verbatim(line)); }

void ManualPage::EndCode() { Line(u".fi\n.RE"); }

}  // namespace tlx
