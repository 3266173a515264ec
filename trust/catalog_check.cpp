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

// A catalog whose signature is good and that lists the patch.
struct OpenedCatalog {
  PatchFolder files;
  std::vector<SignatureFinding> signatures;  // also of one that was refused
  cvn::List<CatalogEntry> entries;
  std::size_t own = 0;  // the number of the patch's entry
};

// Reads the catalog while nobody can change it, so that what was signed is what is walked.
std::int32_t LoadSignedCatalog(cvn::StringView catalog, cvn::StringView folder,
                               OpenedCatalog* opened, cvn::String* reasonText) {
  platform::files::File file;
  platform::files::HeldFile held;
  platform::Code code = opened->files.OpenUnlisted(kCatalogName, &file);
  if (code == platform::kSuccess) {
    code = held.Hold(std::move(file), catalog);
  }
  if (code == platform::kSuccess &&
      !VerifyPublisherSignature(catalog, held.Path(), true, &opened->signatures)) {
    *reasonText = u"invalid digital signature";
    TraceLine(u"Can't verify digital signature of catalog file: %s", catalog);
    return kSignatureRefused;
  }
  if (code == platform::kSuccess) {
    code = ReadCatalogEntries(&opened->entries, held.Path(), folder, PathFilter());
  }
  if (code != platform::kSuccess) {
    TraceLine(u"error loading catalog file: %d", code);
    *reasonText = u"failed to load catalog";
    return kInvalidCatalog;
  }
  return kCatalogPassed;
}

// The answer of CheckCatalog as far as it doesn't need the other files.
std::int32_t OpenCatalog(cvn::StringView patchPath, cvn::StringView contentHash,
                         OpenedCatalog* opened, cvn::String* reasonText) {
  const cvn::String folder = GetParentFolder(patchPath);
  TraceLine(u"Current folder %s", folder);
  const cvn::String catalog = JoinPath(folder, kCatalogName);
  if (opened->files.Hold(patchPath) != platform::kSuccess || !platform::paths::Exists(catalog)) {
    TraceLine(u"Can't find catalog file: %s", catalog);
    *reasonText = u"catalog not found";
    return kCatalogNotFound;
  }
  const std::int32_t loaded = LoadSignedCatalog(catalog, folder, opened, reasonText);
  if (loaded != kCatalogPassed) {
    return loaded;
  }
  platform::Code listed = platform::kSuccess;
  opened->own = opened->files.FindPatch(opened->entries, patchPath, contentHash, &listed);
  if (listed != platform::kSuccess) {
    TraceLine(u"error comparing current file (%s): %d", patchPath, listed);
    *reasonText = u"file hash mismatch";
    return kPatchFileMismatch;
  }
  return kCatalogPassed;
}

// The answer of CheckCatalog by what became of the files.
std::int32_t AnswerFor(std::int32_t copied, const cvn::String& obstacle, cvn::String* reasonText) {
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

// Looks at each listed file; kFilesCopied when copies could be made, or the answer of the copying.
std::int32_t JudgeFiles(OpenedCatalog* opened, CatalogJudgement* judgement, cvn::String* obstacle) {
  bool anyOutside = false;
  bool anyRefused = false;
  for (std::size_t number = 0; number < opened->entries.size(); ++number) {
    const CatalogEntry& entry = opened->entries[number];
    const bool isPatch = number == opened->own;
    const FileState state = isPatch ? FileState::Genuine : opened->files.Judge(entry);
    anyRefused = anyRefused || state != FileState::Genuine;
    anyOutside = anyOutside || (!isPatch && PlaceInFolder(entry).Empty());
    judgement->files.push_back({entry.name, state, isPatch});
  }
  if (anyRefused) {
    return kInvolvedFileMismatch;
  }
  const std::int32_t prepared = FindProtectedFolderObstacle(obstacle);
  if (prepared == kNoInstallFolder) {
    judgement->whyUnprotected =
        u"the product isn't installed there, and so has no folder for copies";
  } else if (prepared != kFilesCopied) {
    judgement->whyUnprotected = *obstacle;
  } else if (anyOutside) {
    judgement->whyUnprotected = u"the catalog lists a file outside the patch's folder";
  }
  return judgement->whyUnprotected.Empty() ? kFilesCopied : kNotAllCopied;
}

}  // namespace

std::int32_t CheckCatalog(cvn::StringView patchPath, cvn::StringView contentHash,
                          cvn::String* reasonText) {
  OpenedCatalog opened;
  const std::int32_t answer = OpenCatalog(patchPath, contentHash, &opened, reasonText);
  if (answer != kCatalogPassed) {
    return answer;
  }
  cvn::String obstacle;
  const std::int32_t copied =
      CopyToProtectedFolder(opened.entries, opened.own, &opened.files, &obstacle);
  if (copied != kFilesCopied) {
    CleanupProtectedFolder();
  }
  return AnswerFor(copied, obstacle, reasonText);
}

CatalogJudgement JudgeCatalog(cvn::StringView patchPath, cvn::StringView contentHash) {
  CatalogJudgement judgement;
  OpenedCatalog opened;
  judgement.answer = OpenCatalog(patchPath, contentHash, &opened, &judgement.reasonText);
  judgement.signatures = std::move(opened.signatures);
  if (judgement.answer == kCatalogPassed) {
    cvn::String obstacle;
    const std::int32_t copied = JudgeFiles(&opened, &judgement, &obstacle);
    judgement.answer = AnswerFor(copied, obstacle, &judgement.reasonText);
    judgement.isProtected = copied == kFilesCopied;
  }
  return judgement;
}

}  // namespace tessel
