#include "tools/tlx/commands.h"
#include "tools/tlx/file_io.h"
#include "tools/tlx/script_schema.h"

namespace tlx {
namespace {

constexpr OptionSpec kOptions[] = {
    {u"--out", u"FILE.xsd", false, u"The file to write; without it, standard output"},
};

int Schema(const Options& options) { return WriteText(options.Value(u"--out"), ScriptSchema()); }

}  // namespace

const CommandSpec kSchemaCommand = {
    u"schema",
    u"Print the XML Schema of scripts",
    u"Writes the language of scripts as an XML Schema (XSD 1.0): every command with its "
    u"attributes, and what\n"
    u"they mean. Editors complete and check scripts with it. It is narrower than the runner, "
    u"which takes any\n"
    u"word for a number or a flag; 'lint' tells what the runner refuses.\n",
    kOptions,
    Schema,
};

}  // namespace tlx
