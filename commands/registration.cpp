// The families of commands, registered before the program's entry runs, in the order of the
// language's reference.
#include "commands/common/families.h"
#include "commands/documents/ini.h"
#include "commands/documents/json.h"
#include "commands/documents/xml.h"
#include "commands/system/directories.h"
#include "commands/system/files.h"
#include "commands/system/processes.h"
#include "commands/system/product.h"
#include "commands/system/registry.h"
#include "commands/system/services.h"
#include "commands/system/signatures.h"
#include "engine/command_declaration.h"

namespace tessel {
namespace {

constexpr CommandRecord kFilesCommands[] = {
    Command<FunctionFileExists>(u"fileExists", FunctionFileExists::kDescription),
    Command<FunctionFileCreate>(u"fileCreate", FunctionFileCreate::kDescription),
    Command<FunctionFileCopySingle>(u"fileCopySingle", FunctionFileCopySingle::kDescription),
    Command<FunctionFileCopyPattern>(u"fileCopyPattern", FunctionFileCopyPattern::kDescription),
    Command<FunctionFileMoveSingle>(u"fileMove", FunctionFileMoveSingle::kDescription),
    Command<FunctionFileDeletePattern>(u"fileDeletePattern",
                                       FunctionFileDeletePattern::kDescription),
    Command<FunctionFileDownload>(u"fileDownload", FunctionFileDownload::kDescription),
    Command<FunctionFileFind>(u"fileFind", FunctionFileFind::kDescription),
    Command<FunctionFileIsSigned>(u"fileIsSigned", FunctionFileIsSigned::kDescription),
};

constexpr CommandFamily kFilesFamily = {
    .title = u"Files",
    .introduction =
        uR"md(
Slashes and backslashes both separate folders. Only a name may have wildcards, and those are the system's: `*` and `?`.
Where a command goes on after a failure (`ignoreErrors`), the first one is the one that is told.

`fileDownload` gives the low half of an Internet code. The codes here are those of Linux, after the documentation of
Windows, which itself gives what its urlmon makes of the cause.
)md",
    .commands = kFilesCommands,
};

constexpr CommandRecord kFoldersCommands[] = {
    Command<FunctionDirExists>(u"dirExists", FunctionDirExists::kDescription),
    Command<FunctionDirCreate>(u"dirCreate", FunctionDirCreate::kDescription),
    Command<FunctionFileMoveSingle>(u"dirMove", FunctionFileMoveSingle::kDescription),
    Command<FunctionDirFind>(u"dirFind", FunctionDirFind::kDescription),
    Command<FunctionDirCopyRecursive>(u"dirCopyRec", FunctionDirCopyRecursive::kDescription),
    Command<FunctionDirDeleteRecursive>(u"dirDeleteRec", FunctionDirDeleteRecursive::kDescription),
};

constexpr CommandFamily kFoldersFamily = {
    .title = u"Folders",
    .introduction =
        uR"md(
Links to folders are followed by a copy and by a search, but never by `dirDeleteRec`. A tree may be as deep as paths can
be long.
)md",
    .commands = kFoldersCommands,
};

constexpr CommandRecord kRegistryCommands[] = {
    Command<FunctionRegExistsKey>(u"regExistsKey", FunctionRegExistsKey::kDescription),
    Command<FunctionRegCreateKey>(u"regCreateKey", FunctionRegCreateKey::kDescription),
    Command<FunctionRegRead>(u"regRead", FunctionRegRead::kDescription),
    Command<FunctionRegWrite>(u"regWrite", FunctionRegWrite::kDescription),
    Command<FunctionRegGetKeys>(u"regGetKeys", FunctionRegGetKeys::kDescription),
    Command<FunctionRegGetValues>(u"regGetValues", FunctionRegGetValues::kDescription),
    Command<FunctionRegDeleteKey>(u"regDeleteKey", FunctionRegDeleteKey::kDescription),
    Command<FunctionRegDeleteValue>(u"regDeleteValue", FunctionRegDeleteValue::kDescription),
};

constexpr CommandFamily kRegistryFamily = {
    .title = u"Registry",
    .introduction =
        uR"md(
All keys are those of the system's 64-bit view. A key's path has backslashes between its names, and case doesn't count.

| `type` | `data`, and what `regRead` gives |
|---|---|
| `REG_SZ` | the text |
| `REG_EXPAND_SZ` | the text; references to the environment are expanded when it is read |
| `REG_DWORD`, `REG_QWORD` | a signed decimal number; one out of range is cut to the nearest that fits |
| `REG_MULTI_SZ` | texts with bars between them: `a\|b`; an empty one ends the list when it is read |
| `REG_BINARY` | hexadecimal digits; an odd last one counts for nothing |
)md",
    .commands = kRegistryCommands,
};

constexpr CommandRecord kServicesCommands[] = {
    Command<FunctionServiceInstalled>(u"serviceInstalled", FunctionServiceInstalled::kDescription),
    Command<FunctionServiceRunning>(u"serviceRunning", FunctionServiceRunning::kDescription),
    Command<FunctionServiceStart>(u"serviceStart", FunctionServiceStart::kDescription),
    Command<FunctionServiceStop>(u"serviceStop", FunctionServiceStop::kDescription),
    Command<FunctionServiceCreate>(u"serviceCreate", FunctionServiceCreate::kDescription),
    Command<FunctionServiceDelete>(u"serviceDelete", FunctionServiceDelete::kDescription),
};

constexpr CommandFamily kServicesFamily = {
    .title = u"Services",
    .introduction =
        uR"md(
On Linux services are keys of the machine's registry, kept as the service manager keeps them, and nothing runs:
`serviceRunning` is false, `serviceStop` finds every service stopped, and `serviceStart` fails with `1058` for a
disabled service, with `1075` when one that it needs is missing, otherwise with `50`. A patch that has to succeed there
too handles `50`. A deleted service is gone at once. A service that a patch makes by `regCreateKey` and `regWrite`
counts at once, on Windows after the next boot.
)md",
    .commands = kServicesCommands,
};

constexpr CommandRecord kProgramsCommands[] = {
    Command<FunctionProcessStart>(u"processRun", FunctionProcessStart::kDescription),
    Command<FunctionProcessWait>(u"processWait", FunctionProcessWait::kDescription),
    Command<FunctionProcessKill>(u"processKill", FunctionProcessKill::kDescription),
    Command<FunctionProcessImpersonateUser>(u"processImpersonateUser",
                                            FunctionProcessImpersonateUser::kDescription),
    Command<FunctionProcessRevertToSelf>(u"processRevertToSelf",
                                         FunctionProcessRevertToSelf::kDescription),
    Command<FunctionProcessEntrypoint>(u"processEntrypoint",
                                       FunctionProcessEntrypoint::kDescription),
};

constexpr CommandFamily kProgramsFamily = {
    .title = u"Programs",
    .introduction =
        uR"md(
On Linux the processes are those of the host, and nothing of the machine's Windows runs. `processRun` starts programs of
the host, also from `C:`, and gives `193` for a Windows program unless the host can run one; a patch that has to succeed
there too handles `193`. A file needs its execute permission (`5`). `args` is split as Windows programs split it, and
passed on as it is: a program of the host doesn't know paths like `C:\x`, so set `wkdir` and use relative ones. It has
the host's environment with its `PATH`, and in `TESSEL_MACHINE` the folder that is `C:`; a bare name in `path` is looked
for as on Windows, so not in the host's `PATH`. A killed program ends by a signal, and so has no exit code. A script's
process goes by the name of its interpreter. `processImpersonateUser` fails with `50`.
)md",
    .commands = kProgramsCommands,
};

constexpr CommandRecord kProductCommands[] = {
    Command<FunctionAmStart>(u"amStart", FunctionAmStart::kDescription),
    Command<FunctionAmStop>(u"amStop", FunctionAmStop::kDescription),
    Command<FunctionApplyHqPolicies>(u"applyHqPolicies", FunctionApplyHqPolicies::kDescription),
};

constexpr CommandFamily kProductFamily = {
    .title = u"The product",
    .introduction =
        uR"md(
These reach the running product through its own libraries: `runlevelbroker.dll` beside the program, and
`cvn.integration.comm.dll` in the parent of the program's folder. They have no codes, so match the words. On Linux the
libraries are shared objects under those same names; without them, a rehearsal goes the way of a missing product.
)md",
    .commands = kProductCommands,
};

constexpr CommandRecord kIniCommands[] = {
    Command<FunctionIniGetValue>(u"iniGetValue", FunctionIniGetValue::kDescription),
    Command<FunctionIniSetValue>(u"iniSetValue", FunctionIniSetValue::kDescription),
};

constexpr CommandFamily kIniFamily = {
    .title = u"INI files",
    .introduction =
        uR"md(
Case doesn't count, and of several sections or keys of one name the first does. The rest of the file stays as it is. A
file with the mark of UTF-16LE keeps that; any other is ANSI: a character that the code page lacks is written as the
nearest one, or `?`. On Linux the code page is always windows-1252.
)md",
    .commands = kIniCommands,
};

constexpr CommandRecord kXmlCommands[] = {
    Command<FunctionXmlOpen>(u"xmlOpen", FunctionXmlOpen::kDescription),
    Command<FunctionXmlSave>(u"xmlSave", FunctionXmlSave::kDescription),
    Command<FunctionXmlClose>(u"xmlClose", FunctionXmlClose::kDescription),
    Command<FunctionXmlGetValue>(u"xmlGetValue", FunctionXmlGetValue::kDescription),
    Command<FunctionXmlSetValue>(u"xmlSetValue", FunctionXmlSetValue::kDescription),
    Command<FunctionXmlSetCDataValue>(u"xmlSetCDataValue", FunctionXmlSetCDataValue::kDescription),
    Command<FunctionXmlGetElement>(u"xmlGetElement", FunctionXmlGetElement::kDescription),
    Command<FunctionXmlAddChild>(u"xmlAddChild", FunctionXmlAddChild::kDescription),
    Command<FunctionXmlRemoveChild>(u"xmlRemoveChild", FunctionXmlRemoveChild::kDescription),
};

constexpr CommandFamily kXmlFamily = {
    .title = u"XML documents",
    .introduction =
        uR"md(
A document is opened under a handle, a name that is used as written; handles and arrays must not share names. Nothing is
saved without `xmlSave`. A handle whose document or element is gone answers as an unknown one.

XPath is version 1.0, seen from the root element, or from the element of the handle: `server/@port`, and not
`settings/server/@port`. `string-length`, `substring` and `translate` work on the bytes of UTF-8, so they count a letter
beyond ASCII more than once.
)md",
    .commands = kXmlCommands,
    .sample = u"settings.xml",
};

constexpr CommandRecord kJsonCommands[] = {
    Command<FunctionJsonOpen>(u"jsonOpen", FunctionJsonOpen::kDescription),
    Command<FunctionJsonSave>(u"jsonSave", FunctionJsonSave::kDescription),
    Command<FunctionJsonClose>(u"jsonClose", FunctionJsonClose::kDescription),
    Command<FunctionJsonGetValue>(u"jsonGetValue", FunctionJsonGetValue::kDescription),
    Command<FunctionJsonSetStringValue>(u"jsonSetStringValue",
                                        FunctionJsonSetStringValue::kDescription),
    Command<FunctionJsonSetIntValue>(u"jsonSetIntValue", FunctionJsonSetIntValue::kDescription),
    Command<FunctionJsonSetBoolValue>(u"jsonSetBoolValue", FunctionJsonSetBoolValue::kDescription),
    Command<FunctionJsonGetElement>(u"jsonGetElement", FunctionJsonGetElement::kDescription),
    Command<FunctionJsonAddChild>(u"jsonAddChild", FunctionJsonAddChild::kDescription),
    Command<FunctionJsonRemoveChild>(u"jsonRemoveChild", FunctionJsonRemoveChild::kDescription),
};

constexpr CommandFamily kJsonFamily = {
    .title = u"JSON documents",
    .introduction =
        uR"md(
Handles are as for XML documents. Nothing is saved without `jsonSave`.

A path has names between `/` or `\`, and indices in brackets, behind which the next name follows without a separator:
`list[0]name`, and `list[0][1]`. A name can't hold one of these characters. Where a command makes what is missing, the
elements of an array below a new one become nulls.
)md",
    .commands = kJsonCommands,
    .sample = u"settings.json",
};

bool RegisterFamilies() {
  RegisterFamily(kFlowFamily);
  RegisterFamily(kTextFamily);
  RegisterFamily(kFilesFamily);
  RegisterFamily(kFoldersFamily);
  RegisterFamily(kRegistryFamily);
  RegisterFamily(kServicesFamily);
  RegisterFamily(kProgramsFamily);
  RegisterFamily(kProductFamily);
  RegisterFamily(kIniFamily);
  RegisterFamily(kXmlFamily);
  RegisterFamily(kJsonFamily);
  return true;
}

[[maybe_unused]] const bool kRegistered = RegisterFamilies();

}  // namespace
}  // namespace tessel
