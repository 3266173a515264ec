#include "trust/catalog_check.h"

#include "files/path_text.h"
#include "platform/held_file.h"
#include "platform/paths.h"
#include "trace/trace.h"
#include "trust/catalog.h"
#include "trust/digital_signature.h"

namespace tessel {
namespace {

constexpr cvn::StringView kCatalogName = u"patch.cat";

// Reads the catalog while nobody can change it, so that what was signed is what is walked.
std::int32_t LoadSignedCatalog(cvn::StringView catalog, cvn::StringView folder,
                               cvn::List<CatalogEntry>* entries, cvn::String* reasonText) {
  platform::files::HeldFile held;
  // A catalog that can't be held is judged by its path, where the backend gives one.
  platform::IgnoreError(held.Hold(catalog));
  if (!VerifyPublisherSignature(catalog, held.Path(), true)) {
    *reasonText = u"invalid digital signature";
    TraceLine(u"Can't verify digital signature of catalog file: %s", catalog);
    return kSignatureRefused;
  }
  const platform::Code code = ReadCatalogEntries(entries, held.Path(), folder, PathFilter());
  if (code != platform::kSuccess) {
    TraceLine(u"error loading catalog file: %d", code);
    *reasonText = u"failed to load catalog";
    return kInvalidCatalog;
  }
  return kCatalogPassed;
}

}  // namespace

std::int32_t CheckCatalog(cvn::StringView patchPath, cvn::StringView contentHash,
                          cvn::String* reasonText) {
  const cvn::String folder = GetParentFolder(patchPath);
  TraceLine(u"Current folder %s", folder);
  const cvn::String catalog = JoinPath(folder, kCatalogName);
  if (!platform::paths::Exists(catalog)) {
    TraceLine(u"Can't find catalog file: %s", catalog);
    *reasonText = u"catalog not found";
    return kCatalogNotFound;
  }
  cvn::List<CatalogEntry> entries;
  const std::int32_t loaded = LoadSignedCatalog(catalog, folder, &entries, reasonText);
  if (loaded != kCatalogPassed) {
    return loaded;
  }
  const platform::Code listed = CheckPatchFileInCatalog(patchPath, contentHash, entries);
  if (listed != platform::kSuccess) {
    TraceLine(u"error comparing current file (%s): %d", patchPath, listed);
    *reasonText = u"file hash mismatch";
    return kPatchFileMismatch;
  }
  const std::int32_t copied = CopyToProtectedFolder(entries, patchPath);
  if (copied != kFilesCopied) {
    CleanupProtectedFolder();
  }
  // Files that could not be copied don't make the patch a bad one: its script then works on those
  // beside it.
  if (copied == kInvolvedFileMismatch) {
    TraceLine(u"Integrity check of the catalog files failed: %d", copied);
    *reasonText = u"file hash mismatch";
    return kInvolvedFileMismatch;
  }
  return kCatalogPassed;
}

}  // namespace tessel
