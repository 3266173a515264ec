#include <algorithm>
#include <span>

#include "support/format.h"
#include "support/utf.h"
#include "tools/tlx/change_report.h"
#include "tools/tlx/machine_text.h"

namespace tlx {
namespace {

using platform::machine::EntryKind;

// As much of a diff as people read in a terminal.
constexpr std::size_t kMostDiffLines = 500;
constexpr std::size_t kLongestLine = 1000;  // in bytes of UTF-8

class TextPrinter {
 public:
  cvn::List<cvn::String> Print(const ChangeReport& report) {
    if (report.IsEmpty()) {
      lines_.emplace_back(u"No changes.");
    }
    Title(report.files.empty(), u"Files:");
    for (const FileNote& note : report.files) {
      PrintFile(note);
    }
    Title(report.services.empty(), u"Services:");
    for (const ServiceNote& note : report.services) {
      lines_.push_back(cvn::Format(u"  %s %s", Word(note.kind), Printable(note.name)));
      PrintKeys(note.keys, u"    ");
    }
    Title(report.keys.empty(), u"Registry:");
    PrintKeys(report.keys, u"  ");
    PrintList(u"At the next boot:", report.atNextBoot);
    PrintList(u"No longer at the next boot:", report.notAtNextBoot);
    Title(report.ownFiles.empty(), u"The run's own traces and events:");
    for (const cvn::String& path : report.ownFiles) {
      lines_.push_back(cvn::Format(u"  added    %s", Printable(path)));
    }
    return std::move(lines_);
  }

 private:
  static cvn::String Word(ChangeKind kind) { return cvn::Format(u"%-8s", Wide(NameOf(kind))); }
  static cvn::String Wide(const char* name) { return cvn::Utf8ToWide(name); }

  void Title(bool isEmpty, cvn::StringView title) {
    if (!isEmpty) {
      lines_.emplace_back(title);
    }
  }

  void PrintList(cvn::StringView title, const cvn::List<cvn::String>& list) {
    Title(list.empty(), title);
    for (const cvn::String& line : list) {
      lines_.push_back(cvn::Format(u"  %s", line));
    }
  }

  void PrintFile(const FileNote& note) {
    cvn::String line = cvn::Format(u"  %s %s", Word(note.kind), Printable(note.path));
    if (note.what != EntryKind::File) {
      line.Append(cvn::Format(u" (%s)", Wide(NameOf(note.what))));
    }
    if (!note.movedFrom.Empty()) {
      line.Append(cvn::Format(u" from %s", Printable(note.movedFrom)));
    }
    if (note.contained != 0) {
      line.Append(cvn::Format(u", with %u in it", note.contained));
    }
    lines_.push_back(std::move(line));
    for (const cvn::String& fact : note.facts) {
      lines_.push_back(cvn::Format(u"      %s", fact));
    }
    if (note.content) {
      PrintDiff(note.content->lines);
    }
  }

  void PrintDiff(const cvn::List<tessel::DiffLine>& lines) {
    const std::size_t shown = std::min(lines.size(), kMostDiffLines);
    for (const tessel::DiffLine& line : std::span(lines).first(shown)) {
      const char16_t sign[] = {static_cast<char16_t>(line.origin), u'\0'};
      const bool isCut = line.text.size() > kLongestLine;
      lines_.push_back(cvn::Format(u"      %s%s%s", line.origin == '@' ? u"" : sign,
                                   Printable(cvn::Utf8ToWide(line.text.substr(0, kLongestLine))),
                                   isCut ? u"..." : u""));
    }
    if (shown < lines.size()) {
      lines_.push_back(cvn::Format(u"      and %u more lines", lines.size() - shown));
    }
  }

  void PrintKeys(const cvn::List<KeyNote>& keys, cvn::StringView indent) {
    for (const KeyNote& key : keys) {
      lines_.push_back(cvn::Format(u"%s%s [%s]", indent, Word(key.kind), Printable(key.path)));
      for (const cvn::String& fact : key.facts) {
        lines_.push_back(cvn::Format(u"%s    %s", indent, fact));
      }
      for (const ValueNote& value : key.values) {
        const cvn::String name =
            value.name.Empty() ? cvn::String(u"@") : cvn::Format(u"\"%s\"", Printable(value.name));
        PrintValue(cvn::Format(u"%s    -%s=", indent, name), value.before);
        PrintValue(cvn::Format(u"%s    +%s=", indent, name), value.after);
      }
    }
  }

  // What follows the first line stands below its type.
  void PrintValue(const cvn::String& start, const cvn::List<cvn::String>& value) {
    const std::u16string blanks(start.Length(), u' ');
    for (const cvn::String& line : value) {
      lines_.push_back(
          cvn::Format(u"%s%s", &line == &value.front() ? start.AsView() : blanks, line));
    }
  }

  cvn::List<cvn::String> lines_;
};

}  // namespace

cvn::List<cvn::String> DescribeReport(const ChangeReport& report) {
  return TextPrinter().Print(report);
}

}  // namespace tlx
