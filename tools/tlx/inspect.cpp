#include <algorithm>

#include "files/path_text.h"
#include "platform/clock.h"
#include "platform/paths.h"
#include "platform/streams.h"
#include "support/format.h"
#include "support/utf.h"
#include "tools/tlx/commands.h"
#include "tools/tlx/folder_listing.h"
#include "tools/tlx/inspection.h"
#include "tools/tlx/json_output.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/patch_operand.h"
#include "tools/tlx/script_check.h"
#include "tools/tlx/script_lint.h"
#include "trust/path_key.h"

namespace tlx {
namespace {

namespace paths = platform::paths;

constexpr OptionSpec kOptions[] = {
    {u"--key", u"PUB.pem", false,
     u"The public key that deciphers the patch; without it, this program's own"},
    {u"--machine", u"DIR", false,
     u"The machine that the catalog is judged on; without it, the one that tessel takes"},
    {u"--json", u"", false, u"Print one line of JSON, as docs/inspect.schema.json describes it"},
};

constexpr OperandSpec kOperands[] = {
    {u"PATCH", true, u"A patch file or a folder with one, a script, or '-'"},
};

// The exit code of a failure that it told.
int ReadScriptOf(cvn::StringView file, Inspection* inspection) {
  TiXmlDocument document;
  const std::string& text = inspection->input.script;
  if (const auto fault = CheckScript(text, &document)) {
    return FailAt(file, fault->position, fault->text);
  }
  inspection->header.content = cvn::Utf8ToWide(text);
  tessel::ExtractPatchMetaData(&inspection->header);
  const TiXmlElement& root = *document.RootElement();
  inspection->dates =
      tessel::CheckPatchExpiry(root.FirstChildElement("header"), platform::clock::NowTicks());
  for (const Finding& finding : LintScript(document)) {
    if (finding.isError) {
      inspection->faults.push_back(finding);
    }
  }
  inspection->reading =
      ReadScriptElement(*root.FirstChildElement("script"), !inspection->faults.empty());
  return kExitDone;
}

// Why there is nothing to be judged; empty when there is.
cvn::String WhyNoCatalog(cvn::StringView patch, const Inspection& inspection) {
  if (inspection.input.blocks == 0) {
    return u"a script has none before it is packed and signed";
  }
  if (patch == u"-") {
    return u"a patch is judged by where it lies, and this one came from standard input";
  }
  cvn::String folder = tessel::TidyPath(patch);
  paths::RemoveFileSpec(&folder);
  return paths::Exists(tessel::JoinPath(folder, kCatalogName))
             ? cvn::String()
             : cvn::Format(u"there is no %s beside the patch", kCatalogName);
}

void JudgeCatalogOf(const cvn::String& patch, cvn::StringView machine, Inspection* inspection) {
  inspection->whyNotJudged = WhyNoCatalog(patch, *inspection);
  if (!inspection->whyNotJudged.Empty()) {
    return;
  }
  Verification verification;
  verification.patch = patch;
  platform::Code opened = platform::kSuccess;
  if (const auto problem = OpenMachineToJudge(machine, &verification, &opened)) {
    inspection->whyNotJudged = cvn::Format(u"%s: %s", problem->place, problem->text);
    return;
  }
  JudgePatch(opened, &verification);
  if (verification.header && verification.header->content != inspection->header.content) {
    inspection->whyNotJudged = u"the patch was changed in the meantime";
    return;
  }
  inspection->verification = std::move(verification);
}

int Inspect(const Options& options) {
  Inspection inspection;
  inspection.file = options.Operand(0);
  inspection.keyFile = options.Value(u"--key");
  cvn::String patch = inspection.file;
  int exitCode = patch == u"-" ? kExitDone : FindPatch(patch, &patch);
  if (exitCode == kExitDone) {
    exitCode = ReadPatchInput(patch, inspection.file, inspection.keyFile, &inspection.input);
  }
  if (exitCode == kExitDone) {
    exitCode = ReadScriptOf(inspection.file, &inspection);
  }
  if (exitCode != kExitDone) {
    return exitCode;
  }
  JudgeCatalogOf(patch, options.Value(u"--machine"), &inspection);
  if (options.Has(u"--json")) {
    PrintJson(InspectionJson(inspection));
    return kExitDone;
  }
  for (const cvn::String& line : DescribeInspection(inspection)) {
    platform::streams::WriteLine(platform::streams::Output::Out, line);
  }
  return kExitDone;
}

}  // namespace

const CommandSpec kInspectCommand = {
    u"inspect",
    u"Tell what a patch or a script may touch, without running it",
    u"Reads a patch or a script, and runs nothing: its key, its header, the files, registry keys, "
    u"services, programs\n"
    u"and downloads that some run of it may touch, the variables that it expects from /var, and "
    u"its exit codes. Names\n"
    u"are shown as the script has them; where a variable or the machine decides on one, that is "
    u"said. The catalog\n"
    u"beside a patch is judged as 'tlx verify' does it, if there is a machine to judge on. The "
    u"exit code is 1 only for\n"
    u"what is neither a patch nor a script.\n",
    kOptions,
    Inspect,
    kOperands,
};

}  // namespace tlx
