#include "tools/tlx/reference_text.h"

namespace tlx {

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

constinit const cvn::StringView kLoopsIntroduction =
    uR"md(
A loop is rewritten into plain commands when the script is loaded. So its body is part of the list that it stands in: a
`goto` leads into and out of it, and a variable means the same inside and outside. A handler can't stand right in a
loop. The fetches of `xmlForEach` and `jsonForEach` are commands that stay failed once they have: that is why such a
loop within another one doesn't start again.
)md";

}  // namespace tlx
