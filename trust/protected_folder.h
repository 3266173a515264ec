// The folder in which the files of an external patch are used: a copy that nobody else can change.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/private_folder.h"
#include "support/containers.h"
#include "support/string.h"
#include "trust/catalog.h"
#include "trust/patch_folder.h"

namespace tessel {

// Answers of the two operations, numbered as the system errors that they resemble.
inline constexpr std::int32_t kFilesCopied = 0;
inline constexpr std::int32_t kNoInstallFolder = 2;
inline constexpr std::int32_t kInvolvedFileMismatch = 13;  // a file isn't what the catalog says
inline constexpr std::int32_t kNotAllCopied = 1627;

// The folder of this run; empty while there is none.
cvn::String& ProtectedFolderPath();

// Makes the folder of this run below the product's install folder, as one whose files no other
// account can change, and removes what killed runs have left there. kFilesCopied, kNoInstallFolder,
// or kNotAllCopied, with what stands in the way and how it is got out of the way in `obstacle`.
std::int32_t PrepareProtectedFolder(platform::files::PrivateFolder* folder, cvn::String* obstacle);

// What PrepareProtectedFolder would answer, as far as it shows without making anything.
std::int32_t FindProtectedFolderObstacle(cvn::String* obstacle);

// Verifies the files that the catalog lists, and copies them to a new protected folder, where they
// keep their places below the patch's folder, and the catalog's spelling. The entry number `own`,
// the patch itself, is left out. A file that lies outside the patch's folder has no place and isn't
// copied. kFilesCopied, kInvolvedFileMismatch, or kNotAllCopied, which a lack of the install folder
// gives too. `obstacle` tells of any other reason for kNotAllCopied, and is empty without one.
std::int32_t CopyToProtectedFolder(const cvn::List<CatalogEntry>& entries, std::size_t own,
                                   PatchFolder* patchFolder, cvn::String* obstacle);

// Removes this run's folder, if there is one.
void CleanupProtectedFolder();

}  // namespace tessel
