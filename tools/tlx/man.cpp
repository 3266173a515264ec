#include <algorithm>
#include <string>

#include "files/path_text.h"
#include "launcher/command_line.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "support/format.h"
#include "support/utf.h"
#include "tools/tlx/commands.h"
#include "tools/tlx/file_io.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/reference.h"
#include "tools/tlx/roff.h"

namespace tlx {
namespace {

constexpr OperandSpec kOperands[] = {
    {u"PAGE", false, u"tlx, tlx-COMMAND, tessel or tessel-script; without it, tlx"},
};
constexpr OptionSpec kOptions[] = {
    {u"--out", u"DIR", false, u"Write all pages to a folder, as PAGE.SECTION, and print none"},
};

constexpr cvn::StringView kAboutTool =
    uR"md(tlx makes patches for tessel(1): it checks and draws scripts, packs them, signs their folders, and shows what a
patch would do to a machine before it is run. Each of its commands has a page of its own, tlx-COMMAND(1). For a file,
`-` is standard input or standard output.
)md";

constexpr cvn::StringView kToolEnd =
    uR"md(
## EXIT STATUS

| | |
|---|---|
| 0 | what was asked for is done, and where a judgement was asked for it is a good one |
| 1 | bad input, or a bad judgement; standard error, or the output, tells of it |
| 2 | the command line isn't understood |

## ENVIRONMENT

| | |
|---|---|
| `TESSEL_MACHINE` | the machine's folder where `--machine` names none |
| `PKCS11_MODULE_PATH` | the library that speaks to a token |
)md";

constexpr cvn::StringView kAboutRunner =
    uR"md(tessel runs a patch: it deciphers it, checks where it comes from, verifies its signed catalog, copies its files to a
protected folder, and runs its script. On Linux it works on a Windows volume that isn't running, the machine: the
folder that `TESSEL_MACHINE` names is drive `C:`, and the root of the host is `Z:`.

Keys may begin with `/` or `-`, and are found without regard to case.
)md";

constexpr cvn::StringView kRunnerEnd =
    uR"md(
## EXIT STATUS

A positive code means that the patch was refused; standard error and the trace tell why. A script that ran gives zero or
a negative number. A shell sees the low byte only, and 255 for every code but 0 whose low byte is 0.

## ENVIRONMENT

| | |
|---|---|
| `TESSEL_MACHINE` | the folder of the Windows volume; without it `tessel/machine` in `XDG_DATA_HOME`, or in `~/.local/share` |
| `TESSEL_RUN_VOLUME_PROGRAMS` | 1 allows the patch to start programs of the volume, which hands the host to whoever wrote them |

## FILES

| | |
|---|---|
| `C:\ProgramData\Tessera\ts-*.txt` | the trace of each run |
| `matrix\events` below the install folder | the events of the runs, for `tlx events` |
| `/usr/share/doc/tessel/docs/running-patches.md` | where patches may come from, all exit codes, and what becomes of files and the registry |
)md";

constexpr cvn::StringView kSeeAlso = u"tessel(1), tlx(1), tessel-script(5)";

// A page and its name in the manual.
struct PageFile {
  cvn::String name;
  int section;
  cvn::String text;
};

cvn::String DashedName(const CommandSpec& command) {
  cvn::String name = u"tlx-";
  for (const char16_t c : command.name) {
    name.Append(c == u' ' ? u'-' : c);
  }
  return name;
}

// A summary as the line of a manual has it, "make a patch from a script".
cvn::String SummaryOf(const CommandSpec& command) {
  cvn::String text;
  text.Append(static_cast<char16_t>(command.summary.front() | 32));
  text.Append(command.summary.substr(1));
  return text;
}

void AddSeeAlso(ManualPage* page) {
  page->Heading(u"SEE ALSO");
  page->Paragraph(kSeeAlso);
}

PageFile CommandPage(const CommandSpec& command) {
  PageFile file{DashedName(command), 1, {}};
  ManualPage page(file.name, file.section, SummaryOf(command));
  page.Heading(u"SYNOPSIS");
  cvn::String usage = UsageOf(command);
  usage.RemovePrefix(cvn::StringView(u"Usage: ").size());
  page.Paragraph(usage);
  page.Heading(u"DESCRIPTION");
  page.Markdown(command.details);
  page.Heading(u"OPTIONS");
  for (const OperandSpec& spec : command.operands) {
    page.Item(spec.name.Text(), spec.help);
  }
  for (const OptionSpec& spec : command.options) {
    page.Item(cvn::Format(u"**%s** %s", spec.name, spec.value.Text()), spec.help);
  }
  page.Item(u"**--help**, **-h**", u"Show usage and options");
  AddSeeAlso(&page);
  file.text = page.Text();
  return file;
}

PageFile ToolPage() {
  PageFile file{u"tlx", 1, {}};
  ManualPage page(file.name, file.section, u"make, check, sign, rehearse and apply patches");
  page.Heading(u"SYNOPSIS");
  page.Paragraph(u"**tlx** COMMAND [options]");
  page.Paragraph(u"**tlx** COMMAND **--help**");
  page.Paragraph(u"**tlx --version**");
  page.Heading(u"DESCRIPTION");
  page.Markdown(kAboutTool);
  page.Heading(u"COMMANDS");
  for (const CommandSpec* command : AllCommands()) {
    page.Item(cvn::Format(u"**%s**", command->name),
              cvn::Format(u"%s: %s(1)", command->summary, DashedName(*command)));
  }
  page.Markdown(kToolEnd);
  AddSeeAlso(&page);
  file.text = page.Text();
  return file;
}

PageFile RunnerPage() {
  PageFile file{u"tessel", 1, {}};
  ManualPage page(file.name, file.section, u"run a patch on a Windows volume");
  page.Heading(u"SYNOPSIS");
  cvn::String usage = u"**tessel**";
  for (const tessel::LaunchArgumentSpec& spec : tessel::LaunchArguments()) {
    const bool isRequired = spec.argument == tessel::LaunchArgument::PatchFile;
    const bool isRepeatable = spec.argument == tessel::LaunchArgument::Variable;
    usage.Append(cvn::Format(isRequired ? u" **/%s**%s%s" : u" [**/%s**%s%s]", spec.key,
                             spec.values.empty() ? u"" : u" ", spec.values));
    usage.Append(isRepeatable ? cvn::StringView(u"...") : cvn::StringView());
  }
  page.Paragraph(usage);
  page.Heading(u"DESCRIPTION");
  page.Markdown(kAboutRunner);
  page.Heading(u"OPTIONS");
  for (const tessel::LaunchArgumentSpec& spec : tessel::LaunchArguments()) {
    page.Item(cvn::Format(u"**/%s** %s", spec.key, spec.values), spec.help);
  }
  page.Markdown(kRunnerEnd);
  AddSeeAlso(&page);
  file.text = page.Text();
  return file;
}

PageFile ScriptPage() {
  PageFile file{u"tessel-script", 5, {}};
  ManualPage page(file.name, file.section, u"the language of patches for tessel");
  page.Heading(u"DESCRIPTION");
  cvn::String reference;
  LanguageReference({}, &reference);
  page.Markdown(reference);
  AddSeeAlso(&page);
  file.text = page.Text();
  return file;
}

cvn::List<PageFile> AllPages() {
  cvn::List<PageFile> pages = {ToolPage(), RunnerPage(), ScriptPage()};
  for (const CommandSpec* command : AllCommands()) {
    pages.push_back(CommandPage(*command));
  }
  return pages;
}

int PrintPage(cvn::StringView name) {
  for (const PageFile& page : AllPages()) {
    if (page.name == name) {
      return WriteText({}, cvn::WideToUtf8(page.text));
    }
  }
  return FailOnFile(name, u"there is no such page: 'tlx man --help' tells which there are");
}

int Man(const Options& options) {
  if (!options.Has(u"--out")) {
    return PrintPage(options.Operand(0).empty() ? cvn::StringView(u"tlx") : options.Operand(0));
  }
  const cvn::String folder = platform::paths::OfCaller(options.Value(u"--out"));
  for (const PageFile& page : AllPages()) {
    const cvn::String path =
        tessel::JoinPath(folder, cvn::Format(u"%s.%d", page.name, page.section));
    if (const int exitCode = WriteWholeFile(path, cvn::WideToUtf8(page.text));
        exitCode != kExitDone) {
      return exitCode;
    }
  }
  return kExitDone;
}

cvn::String FaultOf(const Options& options) {
  return options.Has(u"--out") && !options.Operand(0).empty()
             ? cvn::String(u"'--out' writes all pages, and takes no PAGE")
             : cvn::String();
}

}  // namespace

const CommandSpec kManCommand = {
    u"man",
    u"Print a page of the manual",
    u"Prints a page as roff, which 'man -l -' shows: of the tool, of each of its commands, of the "
    u"runner, or of\nthe language of scripts. They say what --help and 'tlx reference' say.\n",
    kOptions,
    Man,
    kOperands,
    FaultOf,
};

}  // namespace tlx
