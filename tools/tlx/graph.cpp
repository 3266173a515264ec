#include <optional>
#include <utility>

#include "tools/tlx/commands.h"
#include "tools/tlx/file_io.h"
#include "tools/tlx/flow_dot.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/rehearsal_json.h"
#include "tools/tlx/script_check.h"

namespace tlx {
namespace {

constexpr OptionSpec kOptions[] = {
    {u"--visited", u"REHEARSAL.json", false,
     u"Paint the road that a rehearsal took, of which 'tlx rehearse --json' told"},
    {u"--out", u"FILE.dot", false, u"The file to write; without it, standard output"},
};
constexpr OperandSpec kOperands[] = {
    {u"SCRIPT.xml", true, u"The script, in UTF-8"},
};

// The road of a rehearsal of this script. The exit code of a failure that it told.
int ReadRoad(cvn::StringView path, const std::string& script, std::size_t commands,
             FlowRoad* road) {
  std::string json;
  const platform::Code code = ReadInput(path, &json);
  if (code != platform::kSuccess) {
    return FailToRead(path, code);
  }
  std::optional<RehearsedScript> rehearsed = ReadRehearsedScript(json);
  if (!rehearsed) {
    return FailOnFile(path, u"it is no rehearsal of a script, as 'tlx rehearse --json' prints one");
  }
  if (rehearsed->digest != ScriptDigest(script) || rehearsed->road.visits.size() != commands) {
    return FailOnFile(path, u"it is a rehearsal of another script, or of another version of it");
  }
  *road = std::move(rehearsed->road);
  return kExitDone;
}

int Graph(const Options& options) {
  TiXmlDocument document;
  std::string script;
  int exitCode = ReadScript(options.Operand(0), &document, &script);
  if (exitCode != kExitDone) {
    return exitCode;
  }
  const ScriptFlow flow(*document.RootElement()->FirstChildElement("script"));
  const bool isPainted = options.Has(u"--visited");
  FlowRoad road;
  if (isPainted) {
    exitCode = ReadRoad(options.Value(u"--visited"), script, flow.Commands().size(), &road);
  }
  return exitCode == kExitDone
             ? WriteText(options.Value(u"--out"), DotOf(flow, isPainted ? &road : nullptr))
             : exitCode;
}

}  // namespace

const CommandSpec kGraphCommand = {
    u"graph",
    u"Draw the flow of a script",
    u"Writes what may run after what in a script, as a graph for 'dot' of Graphviz: commands with "
    u"their handlers\n"
    u"and jumps, loops as they are written, exits with their codes, in gray what no run comes "
    u"to. Dashed edges\n"
    u"lead to where an onErrorGoTo takes a failure that has no handler. With --visited, what a "
    u"rehearsal entered is\n"
    u"filled and has its count, the edges that it took are thick, and what it never entered is "
    u"dotted.\n",
    kOptions,
    Graph,
    kOperands,
};

}  // namespace tlx
