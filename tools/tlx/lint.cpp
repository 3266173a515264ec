#include <algorithm>

#include "platform/whole_file.h"
#include "tools/tlx/commands.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/script_check.h"
#include "tools/tlx/script_lint.h"

namespace tlx {
namespace {

constexpr OptionSpec kOptions[] = {
    {u"--strict", u"", false, u"Let warnings count as errors do"},
};
constexpr OperandSpec kOperands[] = {
    {u"SCRIPT.xml", true, u"The script, in UTF-8"},
};

int Lint(const Options& options) {
  const cvn::StringView path = options.Operand(0);
  TiXmlDocument document;
  const int exitCode = ReadScript(path, &document);
  if (exitCode != kExitDone) {
    return exitCode;
  }
  const cvn::List<Finding> findings = LintScript(document);
  for (const Finding& finding : findings) {
    if (finding.isError) {
      FailAt(path, finding.position, finding.text);
    } else {
      WarnAt(path, finding.position, finding.text);
    }
  }
  const bool isRefused = options.Has(u"--strict")
                             ? !findings.empty()
                             : std::ranges::any_of(findings, &Finding::isError);
  return isRefused ? kExitBadInput : kExitDone;
}

}  // namespace

const CommandSpec kLintCommand = {
    u"lint",
    u"Check a script before it is packed",
    u"Tells of everything in a script that the runner refuses to load, as errors, and of what "
    u"surely doesn't\n"
    u"do what it seems to, as warnings: FILE:LINE:COLUMN: error: ... Exits with 1 when there are "
    u"errors. A\n"
    u"script that is not well-formed or has no commands to look at ends with its first error.\n",
    kOptions,
    Lint,
    kOperands,
};

}  // namespace tlx
