// Manual pages in roff, with the macros of man(7).
#pragma once

#include "support/string.h"

namespace tlx {

// A page that grows from its top. Texts may have the inline marks of Markdown: `code`, **strong**
// and [links](page.md), of which the words stay.
class ManualPage {
 public:
  // "tlx-pack", 1, and what it does in a few words.
  ManualPage(cvn::StringView name, int section, cvn::StringView summary);

  void Heading(cvn::StringView text);
  void Subheading(cvn::StringView text);
  void Paragraph(cvn::StringView text);
  // What is typed stands before its meaning.
  void Item(cvn::StringView tag, cvn::StringView text);
  // The same for an entry of a list: "1." or "-".
  void Point(cvn::StringView mark, cvn::StringView text);
  // A line of what is printed as it is, between BeginCode and EndCode.
  void BeginCode();
  void Code(cvn::StringView line);
  void EndCode();
  // Adds a page in Markdown, as far as our own pages use it: headings, paragraphs, tables, lists
  // and code that is indented by four blanks. Its title is left out.
  void Markdown(cvn::StringView page);

  const cvn::String& Text() const { return text_; }

 private:
  void Line(cvn::StringView line);
  void BeginParagraph();

  cvn::String text_;
  bool isBelowHeading_ = false;
};

// A text with the inline marks above as roff, without a line end.
cvn::String RoffOf(cvn::StringView text);

}  // namespace tlx
