// Attributes that several commands on files and folders describe alike.
#pragma once

#include "engine/command_description.h"

namespace tessel {

inline constexpr AttributeDescription kIgnoreErrorsAttribute = {
    u"ignoreErrors", AttributeForm::Flag, Presence::Optional,
    u"Whether to go on after a failure. The command still ends with the first one.", u"false"};

inline constexpr AttributeDescription kCopyFailIfExistsAttribute = {
    u"failIfExists", AttributeForm::Flag, Presence::Optional,
    u"Whether a target that is there already is a failure (80), and not replaced.", u"true"};

inline constexpr AttributeDescription kDiffLWTOnlyAttribute = {
    u"diffLWTOnly", AttributeForm::Flag, Presence::Optional,
    u"Whether to leave out a file whose target has the same last-write time. Does nothing unless "
    u"`failIfExists` is off.",
    u"false"};

inline constexpr AttributeDescription kFindAttributes[] = {
    {u"dir", AttributeForm::Expanded, Presence::NonEmpty, u"The folder to search."},
    {u"pattern", AttributeForm::Expanded, Presence::NonEmpty,
     u"The names to find, with the wildcards `*` and `?`. It holds in each folder that is "
     u"searched."},
    {u"var", AttributeForm::Variable, Presence::NonEmpty,
     u"Receives the paths; an empty text when nothing matches."},
    {u"delim", AttributeForm::Text, Presence::NonEmpty,
     u"Stands between the paths. Each of its characters is cut off the end of the list."},
    {u"depth", AttributeForm::Number, Presence::Optional,
     u"How many levels of folders below `dir` are searched too; below 0, not even `dir` is.", u"0"},
};

inline constexpr AttributeDescription kRenameIfFailsAttribute = {
    u"renameIfFails", AttributeForm::Flag, Presence::Optional,
    u"Whether a file that can't be deleted is renamed to `deleted_`, a number, `_` and its name "
    u"instead. A renamed file counts as deleted.",
    u"false"};

inline constexpr AttributeDescription kAfterRebootIfFailsAttribute = {
    u"afterRebootIfFails", AttributeForm::Flag, Presence::Optional,
    u"Whether a file that can't be deleted, under its new name if it was renamed, is deleted when "
    u"the system starts again. Without `renameIfFails`, the command ends with the failure all the "
    u"same.",
    u"false"};

}  // namespace tessel
