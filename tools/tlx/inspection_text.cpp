#include <algorithm>
#include <initializer_list>

#include "engine/script_engine.h"
#include "support/format.h"
#include "tools/tlx/inspection.h"
#include "tools/tlx/machine_text.h"
#include "tools/tlx/text_rows.h"

namespace tlx {
namespace {

using tessel::Subject;
using tessel::Use;
using Lines = cvn::List<cvn::String>;

void AddSection(cvn::StringView title, Lines* lines) {
  lines->emplace_back();
  lines->emplace_back(title);
}

cvn::String Joined(const NameSet& names) {
  cvn::String text;
  for (const cvn::String& name : names) {
    text.Append(text.Empty() ? u"" : u", ");
    text.Append(name);
  }
  return text;
}

cvn::String LinesText(const ScriptLines& lines) {
  constexpr std::size_t kMostShown = 5;
  cvn::String text = lines.size() == 1 ? u"line " : u"lines ";
  for (std::size_t i = 0; i < std::min(lines.size(), kMostShown); ++i) {
    text.Append(cvn::Format(i == 0 ? u"%u" : u", %u", lines[i]));
  }
  if (lines.size() > kMostShown) {
    text.Append(cvn::Format(u" and %u more", lines.size() - kMostShown));
  }
  return text;
}

struct Column {
  cvn::StringView text;
  std::size_t width;  // at least; the last column of a row has none
};

cvn::String Row(std::initializer_list<Column> columns) {
  cvn::String row;
  std::size_t missing = 0;  // blanks to the width of the column before
  for (const Column& column : columns) {
    row.Append(cvn::String(std::u16string(missing + 2, u' ')));
    row.Append(column.text);
    missing = column.width - std::min(column.width, column.text.size());
  }
  return row;
}

void AddContainer(const Inspection& inspection, Lines* lines) {
  const PatchInput& input = inspection.input;
  AddRow(u"Kind:",
         input.blocks == 0 ? cvn::String(u"a script as it is, not packed")
                           : cvn::Format(u"a patch (blocks: %u)", input.blocks),
         lines);
  AddRow(u"Size:", cvn::Format(u"%u bytes", input.size), lines);
  AddRow(u"SHA-256:", input.digest, lines);
  if (input.blocks != 0) {
    AddRow(u"Key:",
           inspection.keyFile.Empty() ? cvn::String(u"this program's own")
                                      : cvn::Format(u"that of %s", inspection.keyFile),
           lines);
  }
}

cvn::String ExpiryText(const Inspection& inspection) {
  const cvn::StringView state = StateOf(inspection.dates);
  if (state == u"early") {
    return u"not valid before it was made";
  }
  if (inspection.dates.expiresAt == 0) {
    return u"never, as an update patch";
  }
  const cvn::String moment = UtcText(inspection.dates.expiresAt);
  return state == u"expired" ? cvn::Format(u"%s: it has expired", moment) : moment;
}

void AddHeader(const Inspection& inspection, Lines* lines) {
  const tessel::PatchMetaData& header = inspection.header;
  const auto orNone = [](const cvn::String& text) {
    return text.Empty() ? cvn::StringView(u"(none)") : text.AsView();
  };
  AddRow(u"Id:", orNone(header.id), lines);
  AddRow(u"Type:", orNone(header.patchType), lines);
  cvn::StringView title = u"Tags:";
  for (const cvn::String& tags : header.tags) {
    AddRow(title, tags, lines);
    title = u"";
  }
  AddRow(
      u"Made:",
      inspection.dates.madeAt == 0 ? cvn::String(u"(not told)") : UtcText(inspection.dates.madeAt),
      lines);
  AddRow(u"Expires:", ExpiryText(inspection), lines);
}

// What comes behind the name: where, and who decides.
cvn::String NotesOf(const Touch& touch) {
  cvn::String notes = LinesText(touch.lines);
  if (!touch.deferredBy.empty()) {
    notes.Append(cvn::Format(u"; %s", touch.deferredBy));
  }
  if (!touch.decidedByVariables.empty()) {
    notes.Append(cvn::Format(u"; variable: %s", Joined(touch.decidedByVariables)));
  }
  if (!touch.decidedByMachine.empty()) {
    notes.Append(cvn::Format(u"; machine: %s", Joined(touch.decidedByMachine)));
  }
  return notes;
}

struct Section {
  cvn::StringView title;
  std::initializer_list<Subject> subjects;
};

void AddTouches(const ScriptReading& reading, const Section& section, Lines* lines) {
  constexpr std::size_t kWidestName = 60;
  const auto isOfSection = [&section](const Touch& touch) {
    return std::ranges::find(section.subjects, touch.subject) != section.subjects.end();
  };
  std::size_t width = 0;
  for (const Touch& touch : reading.touches) {
    const std::size_t length = isOfSection(touch) ? Printable(touch.name).Length() : 0;
    width = length <= kWidestName ? std::max(width, length) : width;
  }
  bool isFirst = true;
  for (const Touch& touch : reading.touches) {
    if (!isOfSection(touch)) {
      continue;
    }
    if (isFirst) {
      AddSection(section.title, lines);
      isFirst = false;
    }
    const cvn::String name = Printable(touch.name);
    const cvn::String notes = Printable(NotesOf(touch));
    lines->push_back(
        section.subjects.size() == 1
            ? Row({{NameOf(touch.use), 8}, {name, width}, {notes, 0}})
            : Row({{NameOf(touch.use), 8}, {NameOf(touch.subject), 7}, {name, width}, {notes, 0}}));
  }
}

cvn::String WordsFor(const VariableReading& variable) {
  const cvn::StringView how = variable.isAskedFor ? u"may come" : u"has to come";
  cvn::String words;
  switch (variable.origin) {
    case VariableOrigin::Script:
      words =
          cvn::Format(variable.isAskedFor ? u"may come from /var or the environment, else set in %s"
                                          : u"set in %s",
                      LinesText(variable.setIn));
      if (variable.text) {
        words.Append(cvn::Format(u": %s", *variable.text));
      }
      break;
    case VariableOrigin::Builtin:
      words = u"built in";
      break;
    case VariableOrigin::Machine:
      words = u"from the machine's environment, unless /var gives it";
      break;
    case VariableOrigin::CommandLine:
      words = cvn::Format(u"%s from /var or the environment, read in %s", how,
                          LinesText(variable.readIn));
      break;
  }
  return Printable(words);
}

// Those that have to come from outside first.
void AddVariables(const ScriptReading& reading, Lines* lines) {
  constexpr std::size_t kNameWidth = 20;
  if (!reading.variables.empty()) {
    AddSection(u"Variables", lines);
  }
  for (const VariableOrigin origin : {VariableOrigin::CommandLine, VariableOrigin::Machine,
                                      VariableOrigin::Script, VariableOrigin::Builtin}) {
    for (const auto& [name, variable] : reading.variables) {
      if (variable.origin == origin) {
        lines->push_back(Row({{Printable(name), kNameWidth}, {WordsFor(variable), 0}}));
      }
    }
  }
}

void AddEnds(const ScriptReading& reading, Lines* lines) {
  AddSection(u"Exit codes", lines);
  for (const auto& [code, where] : reading.exits) {
    lines->push_back(Row({{cvn::Format(u"%d", tessel::ProcessCodeOf(code)), 8},
                          {cvn::Format(u"exit %d", code), 12},
                          {LinesText(where), 0}}));
  }
  if (reading.mayRunOffTheEnd) {
    lines->push_back(Row({{cvn::Format(u"%d", tessel::ProcessCodeOf(tessel::kRanOffTheEnd)), 8},
                          {u"it may end without an 'exit'", 0}}));
  }
}

void AddCommands(const ScriptReading& reading, Lines* lines) {
  constexpr std::size_t kFamilyWidth = 20;
  if (!reading.commands.empty()) {
    AddSection(u"Commands", lines);
  }
  for (const auto& [title, commands] : reading.commands) {
    cvn::String list;
    for (const auto& [name, count] : commands) {
      list.Append(list.Empty() ? u"" : u", ");
      list.Append(cvn::Format(u"%s %u", name, count));
    }
    lines->push_back(
        Row({{title.empty() ? u"Unknown" : title, kFamilyWidth}, {Printable(list), 0}}));
  }
  if (reading.unreached != 0) {
    lines->push_back(
        cvn::Format(u"  No run comes to %u of them; they count only here.", reading.unreached));
  }
}

void AddCatalog(const Inspection& inspection, Lines* lines) {
  AddSection(u"Catalog", lines);
  if (!inspection.verification) {
    AddRow(u"Not judged:", inspection.whyNotJudged, lines);
    return;
  }
  const Verification& verification = *inspection.verification;
  if (!verification.examination.machineFolder.Empty()) {
    AddRow(u"Machine:", verification.examination.machineFolder, lines);
  }
  AddRow(u"Would run:",
         verification.Starts() ? cvn::String(u"yes")
                               : cvn::Format(u"no, it would end with %d", verification.exitCode),
         lines);
  cvn::StringView title = u"In the way:";
  for (const cvn::String& obstacle : verification.obstacles) {
    AddRow(title, obstacle, lines);
    title = u"";
  }
  if (const auto& catalog = verification.examination.catalog) {
    AddCatalogInShort(*catalog, lines);
  }
}

void AddFaults(const Inspection& inspection, Lines* lines) {
  if (inspection.faults.empty()) {
    return;
  }
  AddSection(u"The runner refuses this script", lines);
  for (const Finding& fault : inspection.faults) {
    lines->push_back(cvn::Format(u"  line %u, column %u: %s", fault.position.line,
                                 fault.position.column, Printable(fault.text)));
  }
}

}  // namespace

cvn::StringView StateOf(const tessel::ExpiryResult& dates) {
  return dates.valid ? u"valid" : (dates.expiresAt == 0 ? u"early" : u"expired");
}

cvn::StringView NameOf(Subject subject) {
  constexpr cvn::StringView kNames[] = {u"",        u"key",   u"value",     u"file",    u"folder",
                                        u"tree",    u"entry", u"service",   u"process", u"program",
                                        u"library", u"url",   u"component", u"user"};
  return kNames[static_cast<std::size_t>(subject)];
}

cvn::StringView NameOf(Use use) {
  constexpr cvn::StringView kNames[] = {u"read", u"create", u"change",   u"remove", u"start",
                                        u"stop", u"run",    u"register", u"become"};
  return kNames[static_cast<std::size_t>(use)];
}

Lines DescribeInspection(const Inspection& inspection) {
  const Section kSections[] = {
      {u"Files and folders", {Subject::File, Subject::Folder, Subject::Tree, Subject::Entry}},
      {u"Registry", {Subject::RegistryKey, Subject::RegistryValue}},
      {u"Services", {Subject::Service}},
      {u"Programs", {Subject::Program, Subject::Library, Subject::Process}},
      {u"Downloads", {Subject::Url}},
      {u"Components of the product", {Subject::Component}},
      {u"Users", {Subject::User}},
  };
  Lines lines = {Printable(inspection.file)};
  AddContainer(inspection, &lines);
  AddHeader(inspection, &lines);
  AddFaults(inspection, &lines);
  for (const Section& section : kSections) {
    AddTouches(inspection.reading, section, &lines);
  }
  AddVariables(inspection.reading, &lines);
  AddEnds(inspection.reading, &lines);
  AddCommands(inspection.reading, &lines);
  AddCatalog(inspection, &lines);
  return lines;
}

}  // namespace tlx
