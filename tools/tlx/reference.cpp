#include <algorithm>
#include <span>
#include <string>

#include "engine/command_registry.h"
#include "engine/loop_lowering.h"
#include "files/path_text.h"
#include "platform/paths.h"
#include "platform/streams.h"
#include "platform/whole_file.h"
#include "support/format.h"
#include "support/utf.h"
#include "tools/tlx/commands.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/reference.h"
#include "tools/tlx/reference_text.h"

namespace tlx {
namespace {

using tessel::AttributeDescription;
using tessel::AttributeForm;
using tessel::CommandDescription;
using tessel::FailureDescription;
using tessel::FunctionKind;
using tessel::Presence;

constexpr OptionSpec kOptions[] = {
    {u"--examples", u"DIR", false, u"A folder with an example for each command, COMMAND.xml"},
};

// A command or a loop.
struct Topic {
  cvn::StringView name;
  const CommandDescription* description;
  FunctionKind kind;
};

// A family of commands, or the loops.
struct Section {
  cvn::StringView title;
  cvn::StringView introduction;
  cvn::StringView sample;
  cvn::List<Topic> topics;
};

Section LoopSection() {
  Section section{u"Loops", kLoopsIntroduction, {}, {}};
  for (const tessel::LoopRecord& loop : tessel::AllLoops()) {
    section.topics.push_back({loop.name, &loop.description, FunctionKind::Plain});
  }
  return section;
}

cvn::List<Section> Sections() {
  // The loops stand behind the families that belong to the language itself.
  constexpr std::size_t kLoopPlace = 2;
  cvn::List<Section> sections;
  for (const tessel::CommandFamily* family : tessel::AllFamilies()) {
    if (sections.size() == kLoopPlace) {
      sections.push_back(LoopSection());
    }
    Section section{family->title, family->introduction, family->sample, {}};
    for (const tessel::CommandRecord& command : family->commands) {
      section.topics.push_back({command.name, command.description, command.kind});
    }
    sections.push_back(std::move(section));
  }
  return sections;
}

// A text that may hold bars, for a cell of a table.
cvn::String Cell(cvn::StringView text) {
  cvn::String cell;
  for (const char16_t c : text) {
    cell.Append(c == u'|' ? u"\\|" : cvn::StringView(&c, 1));
  }
  return cell;
}

cvn::String FormOf(const AttributeDescription& attribute) {
  switch (attribute.form) {
    case AttributeForm::Text:
      return u"as written";
    case AttributeForm::Expanded:
      return u"expanded";
    case AttributeForm::Number:
      return u"number";
    case AttributeForm::Flag:
      return u"flag";
    case AttributeForm::Pattern:
      return u"pattern";
    case AttributeForm::Label:
      return u"label";
    case AttributeForm::Variable:
      return u"variable";
    case AttributeForm::Handle:
      return u"handle";
    case AttributeForm::Choice:
      break;
  }
  cvn::String words;
  for (const cvn::StringView choice : attribute.choices) {
    words.Append(words.Empty() ? u"one of `" : u", `");
    words.Append(choice);
    words.Append(u"`");
  }
  return words;
}

cvn::String PresenceOf(const AttributeDescription& attribute) {
  if (attribute.presence == Presence::NonEmpty || attribute.refusesOthers) {
    return u"**required**";
  }
  if (attribute.presence == Presence::Required) {
    return u"**required**, may be empty";
  }
  return attribute.fallback.empty() ? cvn::String(u"empty")
                                    : cvn::Format(u"`%s`", attribute.fallback);
}

// The page, line by line, as it grows.
class Page {
 public:
  explicit Page(cvn::StringView examples) : examples_(platform::paths::OfCaller(examples)) {}

  // Gives the exit code.
  int Write();
  const cvn::String& Text() const { return text_; }

 private:
  void WriteIndex(std::span<const Section> sections);
  int WriteSection(const Section& section);
  int WriteTopic(const Topic& topic);
  void WriteHandlers(const Topic& topic);
  void WriteAttributes(std::span<const AttributeDescription> attributes);
  void WriteFailures(std::span<const FailureDescription> failures);
  int WriteExample(cvn::StringView name);
  int WriteSample(cvn::StringView name);
  // Reads a file of the examples' folder; the exit code of a failure that it told.
  int ReadExample(cvn::StringView name, cvn::String* path, std::string* text) const;
  void WriteCode(std::string_view text, std::size_t margin);

  void Line(cvn::StringView text = {}) {
    text_.Append(text);
    text_.Append(u'\n');
  }

  const cvn::String examples_;  // empty for none
  cvn::String text_;
};

int Page::Write() {
  const cvn::List<Section> sections = Sections();
  text_.Append(kReferenceIntroduction);
  WriteIndex(sections);
  int exitCode = kExitDone;
  for (const Section& section : sections) {
    exitCode = std::max(exitCode, WriteSection(section));
  }
  return exitCode;
}

void Page::WriteIndex(std::span<const Section> sections) {
  Line(u"\n## The commands\n\n| | |\n|---|---|");
  for (const Section& section : sections) {
    cvn::String links;
    for (const Topic& topic : section.topics) {
      cvn::String anchor;
      for (const char16_t c : topic.name) {
        anchor.Append(c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + 32) : c);
      }
      links.Append(
          cvn::Format(links.Empty() ? u"[`%s`](#%s)" : u", [`%s`](#%s)", topic.name, anchor));
    }
    Line(cvn::Format(u"| %s | %s |", section.title, links));
  }
}

int Page::WriteSection(const Section& section) {
  Line(cvn::Format(u"\n## %s", section.title));
  text_.Append(section.introduction);
  int exitCode = section.sample.empty() ? kExitDone : WriteSample(section.sample);
  for (const Topic& topic : section.topics) {
    exitCode = std::max(exitCode, WriteTopic(topic));
  }
  return exitCode;
}

int Page::WriteTopic(const Topic& topic) {
  const CommandDescription& description = *topic.description;
  Line(cvn::Format(u"\n### %s\n", topic.name));
  Line(description.purpose);
  WriteHandlers(topic);
  WriteAttributes(description.attributes);
  WriteFailures(description.failures);
  if (!description.notes.empty()) {
    Line();
    Line(description.notes);
  }
  return WriteExample(topic.name);
}

void Page::WriteHandlers(const Topic& topic) {
  if (topic.kind == FunctionKind::BoolResult) {
    Line(u"A condition, with `onTrue` and `onFalse`.");
  } else if (topic.kind == FunctionKind::ErrorResult) {
    Line(topic.description->failures.empty() ? u"Handler: `onsuccess`."
                                             : u"Handlers: `onsuccess`, `onerrorspec`, `onerror`.");
  }
}

void Page::WriteAttributes(std::span<const AttributeDescription> attributes) {
  if (attributes.empty()) {
    Line(u"\nIt has no attributes.");
    return;
  }
  Line(u"\n| Attribute | Form | When missing | Meaning |\n|---|---|---|---|");
  for (const AttributeDescription& attribute : attributes) {
    Line(cvn::Format(u"| `%s` | %s | %s | %s |", attribute.name, FormOf(attribute),
                     PresenceOf(attribute), Cell(attribute.meaning)));
  }
}

void Page::WriteFailures(std::span<const FailureDescription> failures) {
  if (failures.empty()) {
    return;
  }
  Line(u"\n| Failure | Cause |\n|---|---|");
  for (const FailureDescription& failure : failures) {
    const cvn::String text =
        failure.text.empty() ? cvn::String(u"other") : cvn::Format(u"`%s`", failure.text);
    Line(cvn::Format(u"| %s | %s |", text, Cell(failure.meaning)));
  }
}

int Page::ReadExample(cvn::StringView name, cvn::String* path, std::string* text) const {
  *path = tessel::JoinPath(examples_, name);
  const platform::Code code = platform::ReadWholeFile(*path, text);
  if (code != platform::kSuccess) {
    return FailToRead(*path, code);
  }
  std::erase(*text, '\r');
  return kExitDone;
}

int Page::WriteSample(cvn::StringView name) {
  if (examples_.Empty()) {
    return kExitDone;
  }
  cvn::String path;
  std::string text;
  const int exitCode = ReadExample(cvn::Format(u"files\\%s", name), &path, &text);
  if (exitCode == kExitDone) {
    Line(cvn::Format(u"\nThe examples open `%s`, which their patch brought along:\n", name));
    WriteCode(text, 0);
  }
  return exitCode;
}

// Shows what is in the element `script`.
int Page::WriteExample(cvn::StringView name) {
  if (examples_.Empty()) {
    return kExitDone;
  }
  constexpr std::string_view kBegin = "  <script>\n";
  constexpr std::string_view kEnd = "  </script>\n";
  constexpr std::size_t kMargin = 4;
  cvn::String path;
  std::string text;
  const int exitCode = ReadExample(cvn::Format(u"%s.xml", name), &path, &text);
  if (exitCode != kExitDone) {
    return exitCode;
  }
  const std::size_t begin = text.find(kBegin);
  const std::size_t end = text.rfind(kEnd);
  if (begin == std::string::npos || end == std::string::npos || end < begin + kBegin.size()) {
    return FailOnFile(path, u"there is no 'script' on lines of its own, indented by two blanks");
  }
  Line();
  const std::string_view script(text);
  WriteCode(script.substr(begin + kBegin.size(), end - begin - kBegin.size()), kMargin);
  return kExitDone;
}

// Leaves out up to `margin` blanks at the beginning of each line.
void Page::WriteCode(std::string_view text, std::size_t margin) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    line.remove_prefix(std::min({line.find_first_not_of(' '), margin, line.size()}));
    Line(line.empty() ? cvn::String() : cvn::Format(u"    %s", cvn::Utf8ToWide(line)));
  }
}

int PrintReference(const Options& options) {
  cvn::String text;
  const int exitCode = LanguageReference(options.Value(u"--examples"), &text);
  if (exitCode == kExitDone) {
    text.Truncate(text.Length() - 1);
    platform::streams::WriteLine(platform::streams::Output::Out, text);
  }
  return exitCode;
}

}  // namespace

int LanguageReference(cvn::StringView examples, cvn::String* text) {
  Page page(examples);
  const int exitCode = page.Write();
  *text = page.Text();
  return exitCode;
}

const CommandSpec kReferenceCommand = {
    u"reference",
    u"Print the reference of the language",
    u"Prints a page in Markdown: how scripts are written, and each command with its attributes, "
    u"its failures\nand, with --examples, an example.\n",
    kOptions,
    PrintReference,
};

}  // namespace tlx
