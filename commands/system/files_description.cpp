#include "commands/system/file_attributes.h"
#include "commands/system/files.h"

namespace tessel {
namespace {

constexpr AttributeDescription kFileExistsAttributes[] = {
    {u"path", AttributeForm::Expanded, Presence::NonEmpty, u"The file to look for."},
};

constexpr AttributeDescription kFileCopySingleAttributes[] = {
    {u"src", AttributeForm::Expanded, Presence::NonEmpty, u"The file to copy."},
    {u"dest", AttributeForm::Expanded, Presence::NonEmpty,
     u"The copy's path, with its name. Its folder must be there."},
    kCopyFailIfExistsAttribute,
    kDiffLWTOnlyAttribute,
};

constexpr FailureDescription kFileCopySingleFailures[] = {
    {u"2", u"there is no file at `src`"},
    {u"3", u"a folder of `src` or `dest` is missing"},
    {u"5", u"access is denied, `dest` is read-only, or one of the two is a folder"},
    {u"32", u"another program uses the file"},
    {u"80", u"`dest` is there, and `failIfExists` is on"},
    {u"112", u"the disk is full"},
    {u"", u"any other code of the system"},
};

constexpr AttributeDescription kFileDownloadAttributes[] = {
    {u"file", AttributeForm::Expanded, Presence::NonEmpty,
     u"Where the download goes. A file that is there is replaced, once all has arrived."},
    {u"url", AttributeForm::Expanded, Presence::NonEmpty,
     u"What to fetch: an http, https, ftp or file URL."},
};

// Low halves of the Internet codes, and codes of the file.
constexpr FailureDescription kFileDownloadFailures[] = {
    {u"2", u"`url` isn't a URL"},
    {u"3", u"the folder of `file` is missing"},
    {u"4", u"the server refuses the connection"},
    {u"5", u"there is no such server, no such file at a file URL, or `file` can't be written"},
    {u"6", u"the server has no such file (404, 410)"},
    {u"7", u"the server gives no data (any other status from 400 on)"},
    {u"8", u"the transfer broke off"},
    {u"9", u"the server wants a login (401, 407)"},
    {u"11", u"the server fell silent, on Linux for a minute"},
    {u"13", u"the protocol is unknown"},
    {u"14", u"no safe connection came about"},
    {u"20", u"too many redirects, or one that may not be followed"},
    {u"25", u"the server's certificate isn't trusted"},
    {u"112", u"the disk is full"},
    {u"", u"any other code of the system, or the low half of an Internet one"},
};

constexpr AttributeDescription kFileMoveAttributes[] = {
    {u"src", AttributeForm::Expanded, Presence::NonEmpty, u"The file or folder to move."},
    {u"dest", AttributeForm::Expanded, Presence::NonEmpty,
     u"Its new path, with its new name. The folder of that must be there."},
    {u"failIfExists", AttributeForm::Flag, Presence::Optional,
     u"Whether a file at `dest` is a failure (183), and not replaced. A folder never replaces "
     u"anything.",
     u"true"},
    {u"afterReboot", AttributeForm::Flag, Presence::Optional,
     u"Whether the move is only noted, for when the system starts again.", u"false"},
};

constexpr FailureDescription kFileMoveFailures[] = {
    {u"3", u"the folder of `dest` is missing"},
    {u"5", u"access is denied"},
    {u"17",
     u"`src` is a folder, and `dest` is on another drive, or one of them doesn't begin with a "
     u"drive "
     u"and a backslash"},
    {u"32", u"another program uses the file"},
    {u"183", u"`dest` is there, and isn't replaced"},
    {u"1168", u"there is nothing at `src`"},
    {u"", u"any other code of the system"},
};

constexpr AttributeDescription kFileCopyPatternAttributes[] = {
    {u"src", AttributeForm::Expanded, Presence::NonEmpty,
     u"The files to copy: a path whose name may have the wildcards `*` and `?`. Folders are left "
     u"out."},
    {u"dest", AttributeForm::Expanded, Presence::NonEmpty,
     u"The folder that they go to. It must be there."},
    kCopyFailIfExistsAttribute,
    kIgnoreErrorsAttribute,
    kDiffLWTOnlyAttribute,
};

constexpr FailureDescription kFileCopyPatternFailures[] = {
    {u"2", u"nothing matches `src`"},
    {u"3", u"`dest`, or the folder of `src`, is missing"},
    {u"5", u"access is denied, or a file at the target is read-only"},
    {u"32", u"another program uses a file"},
    {u"80", u"a file is at the target, and `failIfExists` is on"},
    {u"112", u"the disk is full"},
    {u"", u"any other code of the system"},
};

constexpr AttributeDescription kFileDeletePatternAttributes[] = {
    {u"path", AttributeForm::Expanded, Presence::NonEmpty,
     u"The files to delete: a path whose name may have the wildcards `*` and `?`."},
    kIgnoreErrorsAttribute,
    kRenameIfFailsAttribute,
    kAfterRebootIfFailsAttribute,
};

constexpr FailureDescription kFileDeletePatternFailures[] = {
    {u"3", u"the folder of `path` is missing"},
    {u"5", u"access is denied, or a folder matches"},
    {u"32", u"another program uses a file"},
    {u"", u"any other code of the system"},
};

constexpr AttributeDescription kFileCreateAttributes[] = {
    {u"path", AttributeForm::Expanded, Presence::NonEmpty,
     u"The file to make. Its folder must be there."},
};

constexpr FailureDescription kFileCreateFailures[] = {
    {u"3", u"the folder is missing"},
    {u"5", u"access is denied"},
    {u"80", u"there is a file or a folder of that name"},
    {u"", u"any other code of the system"},
};

}  // namespace

constinit const CommandDescription FunctionFileExists::kDescription = {
    .purpose = u"Tells whether a path is that of a file. A folder isn't one.",
    .attributes = kFileExistsAttributes,
    .notes = u"Whatever keeps the path from being looked at makes the answer a no.",
};

constinit const CommandDescription FunctionFileCopySingle::kDescription = {
    .purpose = u"Copies one file.",
    .attributes = kFileCopySingleAttributes,
    .failures = kFileCopySingleFailures,
    .notes =
        u"With `diffLWTOnly` only equal times count: an older file replaces a newer one. "
        u"When `dest` is missing, the file is always copied.",
};

constinit const CommandDescription FunctionFileDownload::kDescription = {
    .purpose = u"Fetches a file.",
    .attributes = kFileDownloadAttributes,
    .failures = kFileDownloadFailures,
    .notes =
        u"The error is the low half of the system's code, so an Internet code and a file's "
        u"can look alike. There is one attempt, and nothing checks what has arrived. In the "
        u"trace, the line that ends the command names `fileCopySingle`.",
};

constinit const CommandDescription FunctionFileMoveSingle::kDescription = {
    .purpose =
        u"Moves a file, also to another drive, or a folder with all that is in it within "
        u"its drive.",
    .attributes = kFileMoveAttributes,
    .failures = kFileMoveFailures,
    .notes =
        u"`fileMove` and `dirMove` are one command under two names: either takes files and "
        u"folders. With `afterReboot` the command ends with success as soon as the move is "
        u"noted; whether it comes about shows when the system starts again, and it can't lead "
        u"to another drive then.",
};

constinit const CommandDescription FunctionFileCopyPattern::kDescription = {
    .purpose = u"Copies the files that match into a folder.",
    .attributes = kFileCopyPatternAttributes,
    .failures = kFileCopyPatternFailures,
    .notes =
        u"That nothing matches is a failure here, unlike in `fileDeletePattern`. Slashes in "
        u"`src` count as backslashes.",
};

constinit const CommandDescription FunctionFileDeletePattern::kDescription = {
    .purpose = u"Deletes the files that match, read-only ones too.",
    .attributes = kFileDeletePatternAttributes,
    .failures = kFileDeletePatternFailures,
    .notes =
        u"That nothing matches is a success. A folder that matches fails with `5`, and so do "
        u"the entries `.` and `..` under the pattern `*`: give the pattern an ending, or "
        u"`ignoreErrors` and an `onerrorspec` for `5`. Slashes in `path` count as "
        u"backslashes.",
};

constinit const CommandDescription FunctionFileCreate::kDescription = {
    .purpose = u"Makes an empty file.",
    .attributes = kFileCreateAttributes,
    .failures = kFileCreateFailures,
};

constinit const CommandDescription FunctionFileFind::kDescription = {
    .purpose = u"Lists the files that match, in a folder and below it.",
    .attributes = kFindAttributes,
    .notes =
        u"Never fails: a folder that is missing has no files. A folder that has an attribute "
        u"besides being one (hidden, read-only and so on) counts as a file. Links to folders "
        u"are followed. In the trace, the line that ends the command names "
        u"`fileDeletePattern`.",
};

}  // namespace tessel
