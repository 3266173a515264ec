#include "trust/catalog_check.h"

#include <cstddef>
#include <utility>

#include "files/path_text.h"
#include "platform/held_file.h"
#include "platform/paths.h"
#include "trace/trace.h"
#include "trust/catalog.h"
#include "trust/digital_signature.h"
#include "trust/patch_folder.h"

namespace tessel {
namespace {

constexpr cvn::StringView kCatalogName = u"patch.cat";

// Reads the catalog while nobody can change it, so that what was signed is what is walked.
std::int32_t LoadSignedCatalog(PatchFolder* files, cvn::StringView catalog, cvn::StringView folder,
                               cvn::List<CatalogEntry>* entries, cvn::String* reasonText) {
  platform::files::File file;
  platform::files::HeldFile held;
  platform::Code code = files->OpenUnlisted(kCatalogName, &file);
  if (code == platform::kSuccess) {
    code = held.Hold(std::move(file), catalog);
  }
  if (code == platform::kSuccess && !VerifyPublisherSignature(catalog, held.Path(), true)) {
    *reasonText = u"invalid digital signature";
    TraceLine(u"Can't verify digital signature of catalog file: %s", catalog);
    return kSignatureRefused;
  }
  if (code == platform::kSuccess) {
    code = ReadCatalogEntries(entries, held.Path(), folder, PathFilter());
  }
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
  PatchFolder files;
  if (files.Hold(patchPath) != platform::kSuccess || !platform::paths::Exists(catalog)) {
    TraceLine(u"Can't find catalog file: %s", catalog);
    *reasonText = u"catalog not found";
    return kCatalogNotFound;
  }
  cvn::List<CatalogEntry> entries;
  const std::int32_t loaded = LoadSignedCatalog(&files, catalog, folder, &entries, reasonText);
  if (loaded != kCatalogPassed) {
    return loaded;
  }
  platform::Code listed = platform::kSuccess;
  const std::size_t own = files.FindPatch(entries, patchPath, contentHash, &listed);
  if (listed != platform::kSuccess) {
    TraceLine(u"error comparing current file (%s): %d", patchPath, listed);
    *reasonText = u"file hash mismatch";
    return kPatchFileMismatch;
  }
  cvn::String obstacle;
  const std::int32_t copied = CopyToProtectedFolder(entries, own, &files, &obstacle);
  if (copied != kFilesCopied) {
    CleanupProtectedFolder();
  }
  // A file that has no place in the folder, or no install folder, doesn't make the patch a bad one:
  // its script then works on the files beside it.
  const bool isUnprotected = !obstacle.Empty() && platform::files::PrivateFolder::IsRequired();
  if (copied == kInvolvedFileMismatch || isUnprotected) {
    TraceLine(u"Integrity check of the catalog files failed: %d", copied);
    *reasonText = copied == kInvolvedFileMismatch ? u"file hash mismatch" : obstacle.AsView();
    return kInvolvedFileMismatch;
  }
  return kCatalogPassed;
}

}  // namespace tessel
