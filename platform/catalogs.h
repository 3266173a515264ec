// Security catalogs: signed lists of files with their digests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "platform/error.h"
#include "platform/files.h"
#include "platform/libraries.h"
#include "platform/signatures.h"
#include "support/containers.h"
#include "support/string.h"

namespace platform::catalogs {

// Whether the platform can hash files as catalogs with SHA-256 need it: whether Wintrust.dll of the
// system folder loads, and has CryptCATAdminAcquireContext2. On Linux it depends on the machine's
// version: that function came with Windows 8 (6.2). Nothing when that version can't be read, which
// says neither: a machine that keeps it from being read must not pass for an old one.
enum class Support { Full, NoLibrary, NoFunctions };
std::optional<Support> GetSupport();

// The functions that an older platform lacks, bound at run time. While they are not bound Hash
// fails.
class Functions {
 public:
  // Loads Wintrust.dll from the system folder and looks the functions up; what was bound before is
  // freed first.
  void Bind();

  // The SHA-256 digest of an open file as a catalog lists it, by CryptCATAdminAcquireContext2 and
  // CryptCATAdminCalcHashFromFileHandle2: a PE image's Authenticode digest, of any other file that
  // of its bytes. The file's position doesn't matter, and is undefined after the call. 127
  // when the functions are not bound, 193 for an image whose headers do not hold together.
  Code Hash(files::File* file, std::vector<std::byte>* digest) const;

 private:
  libraries::Library library_;
  libraries::Address acquireContext2_ = nullptr;
  libraries::Address calcHash2_ = nullptr;
};

// A member of a catalog.
struct Member {
  cvn::String tag;                  // the reference tag; empty when it has none
  std::vector<std::byte> digest;    // of the indirect data
  std::optional<cvn::String> file;  // the attribute "File", as wide text of its bytes
};

// The members that have indirect data, in the catalog's order, as CryptCATOpen,
// CryptCATEnumerateMember and CryptCATGetAttrInfo give them. The signature isn't looked at.
Code ReadMembers(cvn::StringView catalogPath, cvn::List<Member>* members);

// Whether one of the system's catalogs lists the open file's digest (the default of
// CryptCATAdminAcquireContext: SHA-1) and verifies as fileIsSigned asks: WinVerifyTrust with
// WTD_CHOICE_CATALOG, no revocation check, WTD_SAFER_FLAG and WTD_CACHE_ONLY_URL_RETRIEVAL.
// On Linux the system's catalogs are the machine's, below Windows\System32\CatRoot; they are read
// once, and their SHA-256 members count as well.
bool IsListedBySystem(cvn::StringView path, files::File* file);

// The path of the first system catalog that lists the file, verified or not; empty when none does.
cvn::String FindSystemCatalog(cvn::StringView path);

}  // namespace platform::catalogs
