#include <algorithm>
#include <iterator>

#include "support/format.h"
#include "support/utf.h"
#include "tools/tlx/change_report.h"
#include "tools/tlx/machine_text.h"

namespace tlx {
namespace {

using platform::machine::EntryKind;

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
      for (const tessel::DiffLine& diff : note.content->lines) {
        const char16_t sign[] = {static_cast<char16_t>(diff.origin), u'\0'};
        lines_.push_back(cvn::Format(u"      %s%s", diff.origin == '@' ? u"" : sign,
                                     Printable(cvn::Utf8ToWide(diff.text))));
      }
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
