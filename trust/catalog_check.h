// The check of the catalog beside an external patch.
#pragma once

#include <cstdint>
#include <vector>

#include "support/containers.h"
#include "support/string.h"
#include "trust/patch_folder.h"
#include "trust/protected_folder.h"
#include "trust/signature_words.h"

namespace tessel {

// Answers of CheckCatalog besides kInvolvedFileMismatch, numbered as the system errors that they
// resemble.
inline constexpr std::int32_t kCatalogPassed = 0;
inline constexpr std::int32_t kCatalogNotFound = 2;
inline constexpr std::int32_t kPatchFileMismatch = 323;
inline constexpr std::int32_t kInvalidCatalog = 1006;
inline constexpr std::int32_t kSignatureRefused = 1643;

// Proves that "patch.cat" beside the patch is the publisher's, that it lists the patch file with
// its hash, and that the other files that it lists are there with theirs. On the way those are
// copied to the protected folder. Without an install folder, or when a file lies outside the
// patch's folder, the patch passes all the same. When they can't be copied for another reason, it
// passes on Windows; on Linux it is refused, with kInvolvedFileMismatch.
//
// `contentHash` is the SHA-256 digest, in lower-case hexadecimal digits, of the patch's bytes as
// they were read to be run: a file that was replaced since then isn't the one that is proved.
// `reasonText` tells why a patch was refused.
std::int32_t CheckCatalog(cvn::StringView patchPath, cvn::StringView contentHash,
                          cvn::String* reasonText);

// What there is to say of a catalog and the files in it.
struct CatalogJudgement {
  struct ListedFile {
    cvn::String name;  // as the catalog spells it
    FileState state = FileState::Genuine;
    bool isPatch = false;
  };

  std::int32_t answer = kCatalogNotFound;    // as CheckCatalog gives it
  cvn::String reasonText;                    // likewise
  std::vector<SignatureFinding> signatures;  // as far as the catalog could be read
  cvn::List<ListedFile> files;               // when the signature is good, the files up to the end
  // Whether the run would work on copies that no other account can change, and why not. Asked when
  // all else is good.
  bool isProtected = false;
  cvn::String whyUnprotected;
};

// The same judgement, without a copy: nothing is made or changed. Each listed file is looked at,
// also behind one that is refused. What shows only when the protected folder is made, as a disk
// that is full, isn't foreseen.
CatalogJudgement JudgeCatalog(cvn::StringView patchPath, cvn::StringView contentHash);

}  // namespace tessel
