#include "tools/tlx/reference_sections.h"

namespace tlx {
namespace {

constexpr cvn::StringView kFlow =
    uR"md(
What steers a run, and what tells of it.
)md";

constexpr cvn::StringView kFlowCommands[] = {u"exit",  u"goto",  u"onErrorGoTo", u"nothing",
                                             u"sleep", u"trace", u"traceSetFile"};

constexpr cvn::StringView kVariables =
    uR"md(
All but `test` can't fail: text that is no number counts as 0, and a variable that isn't there as empty.
)md";

constexpr cvn::StringView kVariablesCommands[] = {u"assign",      u"addInt",       u"addString",
                                                  u"stringGet",   u"stringDelete", u"stringTrim",
                                                  u"assignToken", u"test"};

constexpr cvn::StringView kLoops =
    uR"md(
A loop is rewritten into plain commands when the script is loaded. So its body is part of the list that it stands in: a
`goto` leads into and out of it, and a variable means the same inside and outside. A handler can't stand right in a
loop. The fetches of `xmlForEach` and `jsonForEach` are commands that stay failed once they have: that is why such a
loop within another one doesn't start again.
)md";

constexpr cvn::StringView kLoopsCommands[] = {u"for", u"xmlForEach", u"jsonForEach"};

constexpr cvn::StringView kFiles =
    uR"md(
Slashes and backslashes both separate folders. Only a name may have wildcards, and those are the system's: `*` and `?`.
Where a command goes on after a failure (`ignoreErrors`), the first one is the one that is told.

`fileDownload` gives the low half of an Internet code. The codes here are those of Linux, after the documentation of
Windows, which itself gives what its urlmon makes of the cause.
)md";

constexpr cvn::StringView kFilesCommands[] = {
    u"fileExists",        u"fileCreate",   u"fileCopySingle", u"fileCopyPattern", u"fileMove",
    u"fileDeletePattern", u"fileDownload", u"fileFind",       u"fileIsSigned"};

constexpr cvn::StringView kFolders =
    uR"md(
Links to folders are followed by a copy and by a search, but never by `dirDeleteRec`. A tree may be as deep as paths can
be long.
)md";

constexpr cvn::StringView kFoldersCommands[] = {u"dirExists", u"dirCreate",  u"dirMove",
                                                u"dirFind",   u"dirCopyRec", u"dirDeleteRec"};

constexpr cvn::StringView kRegistry =
    uR"md(
All keys are those of the system's 64-bit view. A key's path has backslashes between its names, and case doesn't count.

| `type` | `data`, and what `regRead` gives |
|---|---|
| `REG_SZ` | the text |
| `REG_EXPAND_SZ` | the text; references to the environment are expanded when it is read |
| `REG_DWORD`, `REG_QWORD` | a signed decimal number; one out of range is cut to the nearest that fits |
| `REG_MULTI_SZ` | texts with bars between them: `a\|b`; an empty one ends the list when it is read |
| `REG_BINARY` | hexadecimal digits; an odd last one counts for nothing |
)md";

constexpr cvn::StringView kRegistryCommands[] = {u"regExistsKey", u"regCreateKey",  u"regRead",
                                                 u"regWrite",     u"regGetKeys",    u"regGetValues",
                                                 u"regDeleteKey", u"regDeleteValue"};

constexpr cvn::StringView kServices =
    uR"md(
On Linux services are keys of the machine's registry, kept as the service manager keeps them, and nothing runs:
`serviceRunning` is false, `serviceStop` finds every service stopped, and `serviceStart` fails with `1058` for a
disabled service, with `1075` when one that it needs is missing, otherwise with `50`. A patch that has to succeed there
too handles `50`. A deleted service is gone at once. A service that a patch makes by `regCreateKey` and `regWrite`
counts at once, on Windows after the next boot.
)md";

constexpr cvn::StringView kServicesCommands[] = {u"serviceInstalled", u"serviceRunning",
                                                 u"serviceStart",     u"serviceStop",
                                                 u"serviceCreate",    u"serviceDelete"};

constexpr cvn::StringView kPrograms =
    uR"md(
On Linux the processes are those of the host, and nothing of the machine's Windows runs. `processRun` starts programs of
the host, also from `C:`, and gives `193` for a Windows program unless the host can run one; a patch that has to succeed
there too handles `193`. A file needs its execute permission (`5`). `args` is split as Windows programs split it, and
passed on as it is: a program of the host doesn't know paths like `C:\x`, so set `wkdir` and use relative ones. It has
the host's environment with its `PATH`, and in `TESSEL_MACHINE` the folder that is `C:`; a bare name in `path` is looked
for as on Windows, so not in the host's `PATH`. A killed program ends by a signal, and so has no exit code. A script's
process goes by the name of its interpreter. `processImpersonateUser` fails with `50`.
)md";

constexpr cvn::StringView kProgramsCommands[] = {u"processRun",          u"processWait",
                                                 u"processKill",         u"processImpersonateUser",
                                                 u"processRevertToSelf", u"processEntrypoint"};

constexpr cvn::StringView kProduct =
    uR"md(
These reach the running product through its own libraries: `runlevelbroker.dll` beside the program, and
`cvn.integration.comm.dll` in the parent of the program's folder. They have no codes, so match the words. On Linux the
libraries are shared objects under those same names; without them, a rehearsal goes the way of a missing product.
)md";

constexpr cvn::StringView kProductCommands[] = {u"amStart", u"amStop", u"applyHqPolicies"};

constexpr cvn::StringView kIni =
    uR"md(
Case doesn't count, and of several sections or keys of one name the first does. The rest of the file stays as it is. A
file with the mark of UTF-16LE keeps that; any other is ANSI: a character that the code page lacks is written as the
nearest one, or `?`. On Linux the code page is always windows-1252.
)md";

constexpr cvn::StringView kIniCommands[] = {u"iniGetValue", u"iniSetValue"};

constexpr cvn::StringView kXml =
    uR"md(
A document is opened under a handle, a name that is used as written; handles and arrays must not share names. Nothing is
saved without `xmlSave`. A handle whose document or element is gone answers as an unknown one.

XPath is version 1.0, seen from the root element, or from the element of the handle: `server/@port`, and not
`settings/server/@port`. `string-length`, `substring` and `translate` work on the bytes of UTF-8, so they count a letter
beyond ASCII more than once.
)md";

constexpr cvn::StringView kXmlCommands[] = {u"xmlOpen",       u"xmlSave",     u"xmlClose",
                                            u"xmlGetValue",   u"xmlSetValue", u"xmlSetCDataValue",
                                            u"xmlGetElement", u"xmlAddChild", u"xmlRemoveChild"};

constexpr cvn::StringView kJson =
    uR"md(
Handles are as for XML documents. Nothing is saved without `jsonSave`.

A path has names between `/` or `\`, and indices in brackets, behind which the next name follows without a separator:
`list[0]name`, and `list[0][1]`. A name can't hold one of these characters. Where a command makes what is missing, the
elements of an array below a new one become nulls.
)md";

constexpr cvn::StringView kJsonCommands[] = {
    u"jsonOpen",           u"jsonSave",        u"jsonClose",        u"jsonGetValue",
    u"jsonSetStringValue", u"jsonSetIntValue", u"jsonSetBoolValue", u"jsonGetElement",
    u"jsonAddChild",       u"jsonRemoveChild"};

constexpr ReferenceSection kSections[] = {
    {u"Flow and trace", kFlowCommands, kFlow},
    {u"Variables and text", kVariablesCommands, kVariables},
    {u"Loops", kLoopsCommands, kLoops},
    {u"Files", kFilesCommands, kFiles},
    {u"Folders", kFoldersCommands, kFolders},
    {u"Registry", kRegistryCommands, kRegistry},
    {u"Services", kServicesCommands, kServices},
    {u"Programs", kProgramsCommands, kPrograms},
    {u"The product", kProductCommands, kProduct},
    {u"INI files", kIniCommands, kIni},
    {u"XML documents", kXmlCommands, kXml, u"settings.xml"},
    {u"JSON documents", kJsonCommands, kJson, u"settings.json"},
};

}  // namespace

constinit const cvn::StringView kReferenceIntroduction =
    uR"md(# The language of patches

What a script may say, and what comes of it. How a patch is packed, signed and shipped is told in
[writing-patches.md](writing-patches.md), where it may come from and what its run leaves behind in
[running-patches.md](running-patches.md). `tlx lint` checks a script against all of this.

## A patch

    <patch version="1.0">
      <header>
        <property name="id" value="fix-4711"/>
        <property name="patchType" value="external"/>
        <property name="created" value="1795000000"/>
        <property name="expires" value="30"/>
      </header>
      <script>
        <assign var="count" value="7"/>
        <test left="%count%" operator="==" right="7" type="number">
          <onFalse><exit code="5"/></onFalse>
        </test>
        <exit code="0"/>
      </script>
    </patch>

The document is in UTF-8. The root element may have any name; only the major number of its `version` counts, and must be
1. `created` is in seconds since 1970, `expires` in days (none, or 0, means 90): outside that time the patch is refused,
unless it is an `update`. `script` holds the commands. Its attribute `log`, if there is one, names a file that the trace
goes on in.

The names of elements and attributes are exact, also in case. A command that doesn't exist refuses the whole patch, and
so does one without an attribute that it needs. Attributes that a command doesn't know are passed over, and so are texts
between commands, comments, and handlers that a command can't have. In an attribute `<` is written `&lt;`, `&` is
`&amp;`, and a quote `&quot;`.

## Attributes

How an attribute is read stands in the second column of each command's table:

| Form | The value is |
|---|---|
| expanded | a text whose `%references%` are replaced each time the command runs |
| as written | a text that is used as it stands |
| number | a decimal number, as written: digits behind an optional sign; anything else is 0 |
| flag | true for exactly `true` or `1`, and false for anything else |
| one of ... | one of these words, as written |
| pattern | a regular expression, as written; a malformed one refuses the patch |
| label | the `id` of a command, as written |
| variable | the name of a variable, as written but for the index of an array's element |
| handle | the name of an open document or of a part of one, as written |

The third column says what a missing attribute means. A **required** one that is missing or empty refuses the patch;
some may be empty. For another one it gives what counts in its place.

The attribute `data` may also be an element of that name in the command: `<data>text</data>`. The attribute goes first.

Patterns are ECMAScript's, matched against the whole text, unit by unit: `\d`, `\w` and `\s` know ASCII only. Where a
group repeats, it keeps what it took in an earlier round. A search that would take too many steps counts as no match.

## Variables

All values are text, and there is one set of variables for the whole script. `%name%` is replaced by

1. the variable `name`, even if it is empty;
2. else, for `random` in any case, a new number from 0 to 49999;
3. else the variable of the environment, and where that is a path that exists, its long form;
4. else nothing: an unknown reference stays as it is, with its percent signs.

`%%` is one percent sign, and so is one that nothing closes. What was put in isn't looked at again.

`name[index]` is an element of an array; its index may hold references: `%color[%i%]%`. `1`, `01` and `001` are one
element. An array has no length; count for yourself.

Set from the start:

| Variable | Holds |
|---|---|
| `scriptdir` | the folder with the files that the patch brought along; put a backslash behind it |
| `currentdir` | the current folder |
| `enginedir`, `enginefname` | the folder of the program, with a backslash at the end, and its file name |
| `arch` | `x64`, `x86` or `arm64` |
| `os` | `10.0`, `8.1`, `8`, `7`, `2008R2`, `10.0Server` and so on |
| `error` | `0`, and then the text of the last failure |

The command line sets more (`/var name value`), and replaces any of these but `scriptdir`.

## Handlers, labels and jumps

Commands run one after the other. There are three ways to leave that order: a handler, a jump, and `exit`.

A command that can fail has three handlers. The first of these that holds is entered:

1. without a failure, `onsuccess`;
2. an `onerrorspec` whose `err` is exactly the text of the failure;
3. `onerror`;
4. the label of the last [`onErrorGoTo`](#onerrorgoto) that ran;
5. none: the run goes on with the next command.

A failure is a text, most often the system's code in decimal digits; each command's table has those to expect. The variable
`error` receives it before a handler is entered, and keeps it until the next failure.

    <fileDeletePattern path="C:\Example\*.tmp">
      <onerrorspec err="3"><trace value="There is no such folder."/></onerrorspec>
      <onerror><exit code="1"/></onerror>
    </fileDeletePattern>

A condition has `onTrue` and `onFalse`. All other commands have no handlers. A handler holds commands, which may have
handlers. When its list ends, the run goes on behind the command that it belongs to.

**A command that has failed once goes on reporting that failure** each time it is reached again, even when its work
succeeds. So in a loop, look at what it should have done, such as the variable that it sets, and not at its handlers.
Only [`xmlSetCDataValue`](#xmlsetcdatavalue) forgets.

Any command may have a label, its attribute `id`, and all labels are of one kind: [`goto`](#goto) jumps to any of them,
into and out of handlers, and never comes back by itself. A label that is missing, or there twice, refuses the patch.

## The end

[`exit`](#exit) ends the script. The program's exit code is then 0, or the code made negative: 5 gives -5. A script that
runs off its end gives -1. Nothing limits how long a script runs. When it has ended, documents that are still open are
closed without being saved. A patch that is refused gives a positive code:
[running-patches.md](running-patches.md#exit-codes) has them all.
)md";

std::span<const ReferenceSection> ReferenceSections() { return kSections; }

}  // namespace tlx
