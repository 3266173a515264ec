// Markdown as manual pages have it.
#include <algorithm>

#include "support/containers.h"
#include "support/format.h"
#include "tools/tlx/roff.h"

namespace tlx {
namespace {

constexpr cvn::StringView kCodeMargin = u"    ";

// The cells of a row of a table, "| a | b |", without blanks around them.
cvn::List<cvn::StringView> CellsOf(cvn::StringView row) {
  cvn::List<cvn::StringView> cells;
  row.remove_prefix(1);
  while (!row.empty()) {
    std::size_t end = row.find(u'|');
    while (end != cvn::StringView::npos && end > 0 && row[end - 1] == u'\\') {
      end = row.find(u'|', end + 1);
    }
    cvn::StringView cell = row.substr(0, end);
    row.remove_prefix(std::min(cell.size() + 1, row.size()));
    cell.remove_prefix(std::min(cell.find_first_not_of(u' '), cell.size()));
    cells.push_back(cell.substr(0, cell.find_last_not_of(u' ') + 1));
  }
  return cells;
}

// What a line begins that is an entry of a list, "1." or "-"; empty for any other.
cvn::StringView MarkOf(cvn::StringView line) {
  const std::size_t digits = std::min(line.find_first_not_of(u"0123456789"), line.size());
  if (digits > 0 && line.substr(digits).starts_with(u". ")) {
    return line.substr(0, digits + 1);
  }
  return line.starts_with(u"- ") ? line.substr(0, 1) : cvn::StringView();
}

class MarkdownReader {
 public:
  MarkdownReader(cvn::StringView text, ManualPage* page) : rest_(text), page_(page) {}

  void Read() {
    while (!rest_.empty()) {
      ReadBlock();
    }
  }

 private:
  cvn::StringView Peek() const { return rest_.substr(0, rest_.find(u'\n')); }

  cvn::StringView Take() {
    const cvn::StringView line = Peek();
    rest_.remove_prefix(std::min(line.size() + 1, rest_.size()));
    return line;
  }

  void ReadBlock() {
    const cvn::StringView line = Peek();
    if (line.empty() || line.starts_with(u"# ")) {
      Take();
    } else if (line.starts_with(u"### ")) {
      page_->Subheading(Take().substr(4));
    } else if (line.starts_with(u"## ")) {
      page_->Heading(Take().substr(3));
    } else if (line.starts_with(kCodeMargin)) {
      ReadCode();
    } else if (line.starts_with(u'|')) {
      ReadTable();
    } else if (const cvn::StringView mark = MarkOf(line); !mark.empty()) {
      page_->Point(mark, TakeParagraph().AsView().substr(mark.size() + 1));
    } else {
      page_->Paragraph(TakeParagraph());
    }
  }

  // The lines of a paragraph or of an entry of a list, as one.
  cvn::String TakeParagraph() {
    cvn::String text = Take();
    while (!Peek().empty() && MarkOf(Peek()).empty() && !Peek().starts_with(u'|')) {
      cvn::StringView line = Take();
      line.remove_prefix(line.find_first_not_of(u' '));
      text.Append(u' ');
      text.Append(line);
    }
    return text;
  }

  // Blank lines within code belong to it.
  void ReadCode() {
    page_->BeginCode();
    std::size_t blankLines = 0;
    while (!rest_.empty() && (Peek().empty() || Peek().starts_with(kCodeMargin))) {
      const cvn::StringView line = Take();
      if (line.empty()) {
        ++blankLines;
        continue;
      }
      for (; blankLines > 0; --blankLines) {
        page_->Code({});
      }
      page_->Code(line.substr(kCodeMargin.size()));
    }
    page_->EndCode();
  }

  // Each row becomes an item: the first cell is its tag, the last one its text, and those between
  // stand behind the tag, under the names of their columns.
  void ReadTable() {
    const cvn::List<cvn::StringView> names = CellsOf(Take());
    Take();
    if (!names.front().empty()) {
      page_->Paragraph(cvn::Format(u"%s:", names.front()));
    }
    while (Peek().starts_with(u'|')) {
      const cvn::List<cvn::StringView> cells = CellsOf(Take());
      cvn::String tag = cells.front();
      for (std::size_t i = 1; i + 1 < cells.size() && i < names.size(); ++i) {
        tag.Append(cvn::Format(u"%s%s: %s", i == 1 ? u" (" : u"; ", Lower(names[i]), cells[i]));
      }
      tag.Append(cells.size() > 2 ? cvn::StringView(u")") : cvn::StringView());
      page_->Item(tag, cells.size() > 1 ? cells.back() : cvn::StringView());
    }
  }

  static cvn::String Lower(cvn::StringView name) {
    cvn::String text;
    for (const char16_t c : name) {
      text.Append(c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + 32) : c);
    }
    return text;
  }

  cvn::StringView rest_;
  ManualPage* page_;
};

}  // namespace

void ManualPage::Markdown(cvn::StringView page) { MarkdownReader(page, this).Read(); }

}  // namespace tlx
