#include "commands/system/directories.h"
#include "commands/system/file_attributes.h"

namespace tessel {
namespace {

constexpr AttributeDescription kDirExistsAttributes[] = {
    {u"path", AttributeForm::Expanded, Presence::NonEmpty, u"The folder to look for."},
};

constexpr AttributeDescription kDirCreateAttributes[] = {
    {u"path", AttributeForm::Expanded, Presence::NonEmpty,
     u"The folder to make. The one that it lies in must be there."},
};

constexpr FailureDescription kDirCreateFailures[] = {
    {u"3", u"the folder that it lies in is missing"},
    {u"5", u"access is denied"},
    {u"", u"any other code of the system"},
};

constexpr AttributeDescription kDirCopyRecAttributes[] = {
    {u"src", AttributeForm::Expanded, Presence::NonEmpty, u"The folder whose content is copied."},
    {u"dest", AttributeForm::Expanded, Presence::NonEmpty,
     u"The folder that takes the content. It is made with its parents, when a file comes to it."},
    kCopyFailIfExistsAttribute,
    kIgnoreErrorsAttribute,
    kDiffLWTOnlyAttribute,
    {u"include", AttributeForm::Pattern, Presence::Optional,
     u"A pattern of whole paths: what doesn't match is left out, a folder with all below it. "
     u"Empty for no such filter."},
    {u"exclude", AttributeForm::Pattern, Presence::Optional,
     u"A pattern of whole paths: what matches is left out, whatever `include` says. Empty for no "
     u"such filter."},
};

constexpr FailureDescription kDirCopyRecFailures[] = {
    {u"3", u"`src` is missing or a file, or a link below it leads nowhere or back on its own path"},
    {u"5", u"access is denied"},
    {u"32", u"another program uses a file"},
    {u"80", u"a file is at the target, and `failIfExists` is on"},
    {u"112", u"the disk is full"},
    {u"1292", u"a pattern took too many steps; the copy ended there"},
    {u"", u"any other code of the system"},
};

constexpr AttributeDescription kDirDeleteRecAttributes[] = {
    {u"path", AttributeForm::Expanded, Presence::NonEmpty, u"The folder to delete."},
    kIgnoreErrorsAttribute,
    kRenameIfFailsAttribute,
    kAfterRebootIfFailsAttribute,
};

constexpr FailureDescription kDirDeleteRecFailures[] = {
    {u"5", u"access to a file is denied"},
    {u"32", u"another program uses a file"},
    {u"", u"any other code of the system"},
};

}  // namespace

constinit const CommandDescription FunctionDirExists::kDescription = {
    .purpose = u"Tells whether a path is that of a folder. A file isn't one.",
    .attributes = kDirExistsAttributes,
    .notes = u"Whatever keeps the path from being looked at makes the answer a no.",
};

constinit const CommandDescription FunctionDirCreate::kDescription = {
    .purpose = u"Makes a folder.",
    .attributes = kDirCreateAttributes,
    .failures = kDirCreateFailures,
    .notes = u"That something of that name is there already is a success, even if it is a file.",
};

constinit const CommandDescription FunctionDirFind::kDescription = {
    .purpose = u"Lists the folders that match, in a folder and below it.",
    .attributes = kFindAttributes,
    .notes =
        u"Never fails: a folder that is missing has none. A pattern such as `*` also finds "
        u"`.` and `..` in each folder that is searched. Links to folders are followed. In "
        u"the trace, the line that ends the command names `fileDirFind`.",
};

constinit const CommandDescription FunctionDirCopyRecursive::kDescription = {
    .purpose = u"Copies the content of a folder with all that is below it.",
    .attributes = kDirCopyRecAttributes,
    .failures = kDirCopyRecFailures,
    .notes =
        u"Folders are made on the way to a file only: empty ones are not copied. The path of "
        u"a folder ends in a backslash when a pattern is tried on it, so an `include` without "
        u"`|.*\\\\` copies the top folder only; `.*\\\\logs\\\\` as `exclude` leaves out each "
        u"folder of that name. Patterns tell upper from lower case. With `failIfExists` off, "
        u"read-only files are replaced too. Once a copy failed under `ignoreErrors`, the trace "
        u"has `ERROR` for all later ones of that folder.",
};

constinit const CommandDescription FunctionDirDeleteRecursive::kDescription = {
    .purpose = u"Deletes a folder with all that is in it, read-only files too.",
    .attributes = kDirDeleteRecAttributes,
    .failures = kDirDeleteRecFailures,
    .notes =
        u"A `path` that is missing or a file is a success, and nothing is done. That a folder "
        u"couldn't be removed is never a failure, as long as its files could: look with "
        u"`dirExists`. Links to folders are removed, what they lead to stays.",
};

}  // namespace tessel
