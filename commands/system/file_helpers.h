// What the file and the directory commands share.
#pragma once

#include <cstdint>

#include "engine/command_declaration.h"
#include "engine/function_base.h"
#include "files/delete_tree.h"
#include "platform/file_search.h"
#include "support/string.h"

namespace tessel {

// Whether the link at `path` leads to a folder that a walk is in already: one that `path` itself
// goes through, from the top of the walk, whose path has the length `top`, to the link. A link that
// leads nowhere counts as one that leads back.
bool LeadsBack(cvn::StringView path, std::size_t top);

// Makes a folder with its missing parents. True when something is at `path` afterwards.
bool EnsureDirectory(cvn::StringView path);

// A command that lists what is in a folder, and in the folders below it down to `depth`, in a
// variable.
struct FunctionWithFind : FunctionRetError {
  // Finds the entries that have an attribute of `mask`.
  void Find(cvn::StringView directory, cvn::StringView wanted, platform::files::Attributes mask);

  cvn::String dir;
  cvn::String pattern;
  cvn::String var;
  cvn::String delim;
  std::int32_t depth;
};

// `kFound` is what it lists.
template <Subject kFound>
inline constexpr AttributeDescription kFindAttributes[] = {
    Expanded<&FunctionWithFind::dir>(u"dir", Presence::NonEmpty, u"The folder to search."),
    Naming(
        Following(Expanded<&FunctionWithFind::pattern>(u"pattern", Presence::NonEmpty,
                                                       u"The names to find, with the wildcards `*` "
                                                       u"and `?`. It holds in each folder that is "
                                                       u"searched."),
                  u"dir"),
        kFound, Use::Read),
    Variable<&FunctionWithFind::var>(u"var", Presence::NonEmpty,
                                     u"Receives the paths; an empty text when nothing matches."),
    Text<&FunctionWithFind::delim>(
        u"delim", Presence::NonEmpty,
        u"Stands between the paths. Each of its characters is cut off the end of the list."),
    Number<&FunctionWithFind::depth>(
        u"depth", Presence::Optional,
        u"How many levels of folders below `dir` are searched too; below 0, not even `dir` is.",
        u"0"),
};

template <typename Class>
inline constexpr AttributeDescription kIgnoreErrors = Flag<&Class::ignoreErrors>(
    u"ignoreErrors",
    u"Whether to go on after a failure. The command still ends with the first one.", u"false");

// A command that copies files.
struct FunctionWithCopy : FunctionRetError {
  cvn::String src;
  cvn::String dest;
  bool failIfExists;
  bool ignoreErrors;  // not of a single file
  bool diffLWTOnly;
};

inline constexpr AttributeDescription kFailIfExists = Flag<&FunctionWithCopy::failIfExists>(
    u"failIfExists", u"Whether a target that is there already is a failure (80), and not replaced.",
    u"true");

inline constexpr AttributeDescription kDiffLWTOnly = Flag<&FunctionWithCopy::diffLWTOnly>(
    u"diffLWTOnly",
    u"Whether to leave out a file whose target has the same last-write time. Does nothing unless "
    u"`failIfExists` is off.",
    u"false");

// A command that deletes files.
struct FunctionWithDelete : FunctionRetError {
  DeleteFallbacks Fallbacks() const { return {renameIfFails, afterRebootIfFails}; }

  cvn::String path;
  bool ignoreErrors;
  bool renameIfFails;
  bool afterRebootIfFails;
};

inline constexpr AttributeDescription kRenameIfFails = Flag<&FunctionWithDelete::renameIfFails>(
    u"renameIfFails",
    u"Whether a file that can't be deleted is renamed to `deleted_`, a number, `_` and its name "
    u"instead. A renamed file counts as deleted.",
    u"false");

inline constexpr AttributeDescription kAfterRebootIfFails =
    Deferring(Flag<&FunctionWithDelete::afterRebootIfFails>(
        u"afterRebootIfFails",
        u"Whether a file that can't be deleted, under its new name if it was renamed, is deleted "
        u"when the system starts again. Without `renameIfFails`, the command ends with the failure "
        u"all the same.",
        u"false"));

}  // namespace tessel
