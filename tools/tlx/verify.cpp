#include "platform/streams.h"
#include "tools/tlx/commands.h"
#include "tools/tlx/json_output.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/patch_operand.h"
#include "tools/tlx/verification.h"

namespace tlx {
namespace {

using platform::streams::Output;
using platform::streams::WriteLine;

constexpr OptionSpec kOptions[] = {
    {u"--machine", u"DIR", false, u"The machine's folder; without it, the one that tessel takes"},
    {u"--json", u"", false, u"Print one line of JSON, as docs/verify.schema.json describes it"},
};

constexpr OperandSpec kOperands[] = {
    {u"PATCH", true, u"The patch file, or a folder with one"},
};

cvn::String FaultOf(const Options& options) {
  return options.Operand(0) == u"-"
             ? cvn::String(u"PATCH can't be standard input: a patch is judged by where it lies")
             : cvn::String();
}

int Verify(const Options& options) {
  Verification verification;
  platform::Code opened = platform::kSuccess;
  if (const auto problem =
          OpenMachineToJudge(options.Value(u"--machine"), &verification, &opened)) {
    return FailOnFile(problem->place, problem->text);
  }
  const int exitCode = FindPatch(options.Operand(0), &verification.patch);
  if (exitCode != kExitDone) {
    return exitCode;
  }
  JudgePatch(opened, &verification);
  if (options.Has(u"--json")) {
    PrintJson(VerificationJson(verification));
  } else {
    for (const cvn::String& line : DescribeVerification(verification)) {
      WriteLine(Output::Out, line);
    }
  }
  return verification.Starts() ? kExitDone : kExitBadInput;
}

}  // namespace

const CommandSpec kVerifyCommand = {
    u"verify",
    u"Tell whether a patch would run, and what stands in its way",
    u"Judges a patch and the files that come with it as tessel does, without running it: who "
    u"signed "
    u"it and until\n"
    u"when that is good, each listed file, and the exit code and events of a refusal. Nothing is "
    u"changed. The exit\n"
    u"code is 0 only when the script would be started. A patch in the product's folders is judged "
    u"as if the update\n"
    u"service started it.\n",
    kOptions,
    Verify,
    kOperands,
    FaultOf,
};

}  // namespace tlx
