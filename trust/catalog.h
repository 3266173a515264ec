// The catalog beside an external patch, and what it says of the patch's files.
#pragma once

#include <cstdint>
#include <functional>

#include "platform/catalogs.h"
#include "platform/error.h"
#include "support/containers.h"
#include "support/string.h"

namespace tessel {

using CatalogFunctions = platform::catalogs::Functions;

// A member of the catalog that names a file and has its SHA-256 digest.
struct CatalogEntry {
  cvn::String path;  // in lower case, as the catalog's base folder and the member's name give it
  cvn::String hash;  // 64 lower-case hexadecimal digits
  cvn::String tag;   // the reference tag
};

// Answers of CheckCatalog, numbered as the system errors that they resemble.
inline constexpr std::int32_t kCatalogPassed = 0;
inline constexpr std::int32_t kCatalogNotFound = 2;
inline constexpr std::int32_t kInvolvedFileMismatch = 13;
inline constexpr std::int32_t kPatchFileMismatch = 323;
inline constexpr std::int32_t kInvalidCatalog = 1006;
inline constexpr std::int32_t kSignatureRefused = 1643;

// Proves that "patch.cat" beside the patch is the publisher's, that it lists the patch file with
// its hash, and that the other files that it lists are there with theirs. On the way those are
// copied to the protected folder; where that can't be done, the patch passes all the same.
//
// `contentHash` is the SHA-256 digest, in lower-case hexadecimal digits, of the patch's bytes as
// they were read to be run: a file that was replaced since then isn't the one that is proved.
// `reasonText` tells why a patch was refused.
std::int32_t CheckCatalog(cvn::StringView patchPath, cvn::StringView contentHash,
                          cvn::String* reasonText);

// Binds the functions that older platforms lack.
void BindCatalogFunctions(CatalogFunctions* functions);

// The SHA-256 digest of a file as a catalog has it, in lower-case hexadecimal digits. 0 or the
// platform's code.
platform::Code CalcFileHash(const CatalogFunctions& functions, cvn::StringView path,
                            cvn::String* hashText);

// True for a path that is to be taken.
using PathFilter = std::function<bool(cvn::StringView path)>;

// Fills the list with the usable members of a catalog, in the order of their paths. Names count
// from `baseFolder`, or from the program's folder when that is empty. `filter` may be empty. 0,
// 1168 when there is no catalog, or the platform's code.
platform::Code ReadCatalogEntries(cvn::List<CatalogEntry>* entries, cvn::StringView catalogPath,
                                  cvn::StringView baseFolder, const PathFilter& filter);

// Whether one of the entries is the patch file, with the hash that it has. 0; 1627 when it can't be
// hashed; 1168 when no entry fits, or the file isn't the one with `contentHash`.
platform::Code CheckPatchFileInCatalog(cvn::StringView patchPath, cvn::StringView contentHash,
                                       const cvn::List<CatalogEntry>& entries);

}  // namespace tessel
