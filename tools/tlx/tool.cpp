#include "tools/tlx/tool.h"

#include <algorithm>

#include "platform/streams.h"
#include "support/format.h"
#include "tools/tlx/commands.h"
#include "tools/tlx/messages.h"

namespace tlx {
namespace {

using platform::streams::Output;
using platform::streams::WriteLine;

const CommandSpec* const kCommands[] = {&kKeygenCommand, &kPackCommand, &kUnpackCommand};

cvn::String ToolUsage() {
  cvn::String text = u"Usage: tlx COMMAND [options]\n\nCommands:\n";
  for (const CommandSpec* command : kCommands) {
    text.Append(cvn::Format(u"  %-8s %s\n", command->name, command->summary));
  }
  text.Append(u"\n'tlx COMMAND --help' tells more.");
  return text;
}

int RefuseUsage(cvn::StringView problem, cvn::StringView usage) {
  WriteLine(Output::Error, cvn::Format(u"tlx: error: %s", problem));
  WriteLine(Output::Error, usage);
  return kExitBadUsage;
}

}  // namespace

int RunTool(std::span<const cvn::String> arguments) {
  if (arguments.empty()) {
    WriteLine(Output::Error, ToolUsage());
    return kExitBadUsage;
  }
  const cvn::StringView name = arguments.front();
  if (name == u"--help" || name == u"-h") {
    WriteLine(Output::Out, ToolUsage());
    return kExitDone;
  }
  const auto found = std::ranges::find(kCommands, name, &CommandSpec::name);
  if (found == std::end(kCommands)) {
    return RefuseUsage(cvn::Format(u"unknown command '%s'", name), ToolUsage());
  }
  const CommandSpec& command = **found;
  Options options;
  cvn::String problem;
  switch (ParseOptions(command, arguments.subspan(1), &options, &problem)) {
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
