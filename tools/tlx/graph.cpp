#include "tools/tlx/commands.h"
#include "tools/tlx/file_io.h"
#include "tools/tlx/flow_dot.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/script_check.h"

namespace tlx {
namespace {

constexpr OptionSpec kOptions[] = {
    {u"--out", u"FILE.dot", false, u"The file to write; without it, standard output"},
};
constexpr OperandSpec kOperands[] = {
    {u"SCRIPT.xml", true, u"The script, in UTF-8"},
};

int Graph(const Options& options) {
  TiXmlDocument document;
  const int exitCode = ReadScript(options.Operand(0), &document);
  if (exitCode != kExitDone) {
    return exitCode;
  }
  const ScriptFlow flow(*document.RootElement()->FirstChildElement("script"));
  return WriteText(options.Value(u"--out"), DotOf(flow));
}

}  // namespace

const CommandSpec kGraphCommand = {
    u"graph",
    u"Draw the flow of a script",
    u"Writes what may run after what in a script, as a graph for 'dot' of Graphviz: commands with "
    u"their handlers\n"
    u"and jumps, loops as they are written, exits with their codes, in gray what no run comes "
    u"to. Dashed edges\n"
    u"lead to where an onErrorGoTo takes a failure that has no handler.\n",
    kOptions,
    Graph,
    kOperands,
};

}  // namespace tlx
