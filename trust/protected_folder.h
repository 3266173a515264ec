// The folder in which the files of an external patch are used: a copy that nobody else can change.
#pragma once

#include <cstdint>

#include "support/containers.h"
#include "support/string.h"
#include "trust/catalog.h"

namespace tessel {

// Answers of the two operations, numbered as the system errors that they resemble.
inline constexpr std::int32_t kFilesCopied = 0;
inline constexpr std::int32_t kNoInstallFolder = 2;
inline constexpr std::int32_t kInvolvedFileMismatch = 13;  // a file isn't what the catalog says
inline constexpr std::int32_t kNotAllCopied = 1627;

// The folder of this run; empty while there is none.
cvn::String& ProtectedFolderPath();

// Makes the folder of this run below the product's install folder, which only privileged accounts
// can write. kFilesCopied, kNoInstallFolder or kNotAllCopied.
std::int32_t PrepareProtectedFolder();

// Verifies the files that the catalog lists, the patch file apart, and copies them to a new
// protected folder, where they keep their places below the patch's folder. A file that lies outside
// that has no place and isn't copied. kFilesCopied, kInvolvedFileMismatch, or kNotAllCopied, which
// a lack of the folder gives too.
std::int32_t CopyToProtectedFolder(const cvn::List<CatalogEntry>& entries,
                                   cvn::StringView patchPath);

// Removes this run's folder, if there is one.
void CleanupProtectedFolder();

}  // namespace tessel
