// Paths as text, and the process's well-known places.
//
// On Linux a path names a place on the machine (C:) or on the host (Z:); a path without a drive
// that starts with a slash is a host path when the current directory lies outside the machine. '/'
// separates there as '\' does, and a path that starts with one is absolute.
#pragma once

#include "support/string.h"

namespace platform::paths {

// True when the path names a file or a folder that exists, as PathFileExistsW. Sets the last error
// on false.
bool Exists(cvn::StringView path);

// True when the path names a folder, as PathIsDirectoryW.
bool IsDirectory(cvn::StringView path);

// True when both have the same drive or share at their beginning, as PathIsSameRootW; false when
// either has none.
bool IsSameRoot(cvn::StringView left, cvn::StringView right);

// Cuts a separator at the end, as PathRemoveBackslashW: not that of a drive's root.
void RemoveBackslash(cvn::String* path);

// Cuts the last component and the separator before it, or two of them, as PathRemoveFileSpecW:
// "C:\a\b" and "C:\a\\b" give "C:\a", "C:\a" gives "C:\", "a" gives "". True when something was
// removed.
bool RemoveFileSpec(cvn::String* path);

// Adds a backslash at the end unless there is one, or the path is empty, as PathAddBackslashW:
// "C:/a/" gives "C:/a/\". On Linux a path of the host, one without a drive and with '/' alone, gets
// a '/'.
void AddBackslash(cvn::String* path);

// The last component with the separators that end the path, if any, as PathFindFileNameW; the whole
// path when no component follows a separator.
cvn::StringView FindFileName(cvn::StringView path);

// The extension with its dot, as PathFindExtensionW: from the last dot of the last component (no
// blank may follow that dot); empty when there is none.
cvn::StringView FindExtension(cvn::StringView path);

// As PathIsRelativeW: false for a path that begins with '\' or has a drive.
bool IsRelative(cvn::StringView path);

// The long form of an existing path, as GetLongPathNameW; on Linux, the names as the disk spells
// them. Empty on failure, with the last error set.
cvn::String LongName(cvn::StringView path);

// The running program's path, as GetModuleFileNameW(null); on Linux in the form Z:\... or C:\....
cvn::String ModuleFileName();

// As GetSystemDirectoryW, without a separator at the end: C:\Windows\System32 or the like.
cvn::String SystemDirectory();

// A path that the program's caller gave, in a form that names here what it names to the caller. On
// Linux a path that begins with '/', or leads out of the machine by "..", is the host's, also when
// the current directory lies on the machine or was removed: it gets the host's drive then. Any
// other path stays as it is.
cvn::String OfCaller(cvn::StringView path);

// As GetCurrentDirectoryW, without a separator at the end unless it is a drive's root.
cvn::String CurrentDirectory();

// The folder for all users' application data, as SHGetFolderPathW with CSIDL_COMMON_APPDATA,
// without a separator at the end. Empty on failure.
cvn::String CommonApplicationData();

}  // namespace platform::paths
