#include "tools/tlx/tool.h"

#include <algorithm>

#include "platform/streams.h"
#include "support/format.h"
#include "tools/tlx/commands.h"
#include "tools/tlx/completion.h"
#include "tools/tlx/file_io.h"
#include "tools/tlx/messages.h"
#include "version.h"

namespace tlx {
namespace {

using platform::streams::Output;
using platform::streams::WriteLine;

const CommandSpec* const kCommands[] = {
    &kKeygenCommand,        &kLintCommand,        &kGraphCommand,        &kInspectCommand,
    &kPackCommand,          &kUnpackCommand,      &kCatalogCommand,      &kVerifyCommand,
    &kRehearseCommand,      &kApplyCommand,       &kUndoCommand,         &kChangesCommand,
    &kMachineCreateCommand, &kMachineShowCommand, &kMachineCheckCommand, &kEventsCommand,
    &kReferenceCommand,     &kSchemaCommand,      &kManCommand,          &kCompletionCommand};

bool IsHelp(cvn::StringView argument) { return argument == u"--help" || argument == u"-h"; }

// Whether commands of two words begin with this one.
bool IsGroup(cvn::StringView word) {
  return std::ranges::any_of(kCommands, [word](const CommandSpec* command) {
    return command->name.starts_with(word) && command->name.substr(word.size()).starts_with(u' ');
  });
}

cvn::String ToolUsage() {
  cvn::String text = u"Usage: tlx COMMAND [options]\n\nCommands:\n";
  for (const CommandSpec* command : kCommands) {
    text.Append(cvn::Format(u"  %-15s %s\n", command->name, command->summary));
  }
  text.Append(
      u"\n'tlx COMMAND --help' tells more, 'tlx --version' which release this is. For a file, '-' "
      u"is\n"
      u"standard input or standard output.");
  return text;
}

int RefuseUsage(cvn::StringView problem, cvn::StringView usage) {
  WriteLine(Output::Error, cvn::Format(u"tlx: error: %s", problem));
  WriteLine(Output::Error, usage);
  return kExitBadUsage;
}

}  // namespace

std::span<const CommandSpec* const> AllCommands() { return kCommands; }

int RunTool(std::span<const cvn::String> arguments) {
  if (arguments.empty()) {
    WriteLine(Output::Error, ToolUsage());
    return kExitBadUsage;
  }
  cvn::String name = arguments.front();
  arguments = arguments.subspan(1);
  if (name == u"--complete") {
    PrintCandidates(arguments);
    return kExitDone;
  }
  if (IsGroup(name) && !arguments.empty()) {
    name = IsHelp(arguments.front()) ? arguments.front()
                                     : cvn::Format(u"%s %s", name, arguments.front());
    arguments = arguments.subspan(1);
  }
  if (IsHelp(name)) {
    WriteLine(Output::Out, ToolUsage());
    return kExitDone;
  }
  if (name == u"--version") {
    WriteLine(Output::Out, u"tlx " TESSEL_VERSION_TEXT);
    return kExitDone;
  }
  const auto found = std::ranges::find(kCommands, name.AsView(), &CommandSpec::name);
  if (found == std::end(kCommands)) {
    return RefuseUsage(cvn::Format(u"unknown command '%s'", name), ToolUsage());
  }
  const CommandSpec& command = **found;
  Options options;
  cvn::String problem;
  ForgetReadFiles();
  switch (ParseOptions(command, arguments, &options, &problem)) {
    case ParseOutcome::Run:
      return command.run(options);
    case ParseOutcome::Help:
      WriteLine(Output::Out, HelpOf(command));
      return kExitDone;
    case ParseOutcome::BadUsage:
      break;
  }
  return RefuseUsage(problem, UsageOf(command));
}

}  // namespace tlx
