// The only form in which paths are compared.
#pragma once

#include "support/string.h"

namespace tessel {

// The key of the file or folder at `path`: its final path in lower case. All spellings of one
// object, with links, short names, other case or separators, give one key; a folder's has no
// separator at its end, unless it is a drive's root. Empty when there is no such object, and an
// empty key equals nothing.
cvn::String NormalizePathKey(cvn::StringView path);

// A path as NormalizePathKey tidies it before it opens the object.
cvn::String TidyPath(cvn::StringView path);

// Lower case as _wcslwr has it in a program that sets no locale: only A to Z fold.
void LowerCase(cvn::String* text);

// A file's name as scripts see it in place of the one that the system gives: "C:\..." for
// "\\?\C:\...", and "\\server\..." for "\\?\UNC\server\...".
cvn::String WithoutDevicePrefix(cvn::StringView finalPath);

}  // namespace tessel
