#include "trust/catalog.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "files/path_text.h"
#include "platform/files.h"
#include "platform/held_file.h"
#include "platform/paths.h"
#include "support/format.h"
#include "trace/trace.h"
#include "trust/digital_signature.h"
#include "trust/path_key.h"
#include "trust/protected_folder.h"

namespace tessel {
namespace {

namespace files = platform::files;
namespace paths = platform::paths;

constexpr cvn::StringView kCatalogName = u"patch.cat";
constexpr std::size_t kHashLength = 64;

constexpr platform::Code kFunctionFailed = 1627;

cvn::String HexText(const std::vector<std::byte>& bytes) {
  constexpr cvn::StringView kDigits = u"0123456789abcdef";
  cvn::String text;
  text.Reserve(2 * bytes.size());
  for (const std::byte byte : bytes) {
    text.Append(kDigits[std::to_integer<std::size_t>(byte >> 4)]);
    text.Append(kDigits[std::to_integer<std::size_t>(byte & std::byte{0xF})]);
  }
  return text;
}

// Reads the catalog while nobody can change it, so that what was signed is what is walked.
std::int32_t LoadSignedCatalog(cvn::StringView catalog, cvn::StringView folder,
                               cvn::List<CatalogEntry>* entries, cvn::String* reasonText) {
  files::HeldFile held;
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
  if (!paths::Exists(catalog)) {
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

void BindCatalogFunctions(CatalogFunctions* functions) { functions->Bind(); }

platform::Code CalcFileHash(const CatalogFunctions& functions, cvn::StringView path,
                            cvn::String* hashText) {
  files::File file;
  std::vector<std::byte> digest;
  platform::Code code = files::Open(path, files::Access::Read, files::Share::Read,
                                    files::Disposition::OpenExisting, &file);
  if (code == platform::kSuccess) {
    code = functions.Hash(&file, &digest);
  }
  if (code == platform::kSuccess) {
    *hashText = HexText(digest);
  }
  return code;
}

platform::Code ReadCatalogEntries(cvn::List<CatalogEntry>* entries, cvn::StringView catalogPath,
                                  cvn::StringView baseFolder, const PathFilter& filter) {
  if (!paths::Exists(catalogPath)) {
    return platform::kNotFound;
  }
  cvn::List<platform::catalogs::Member> members;
  const platform::Code code = platform::catalogs::ReadMembers(catalogPath, &members);
  if (code != platform::kSuccess) {
    return code;
  }
  const cvn::String base = baseFolder.empty() ? GetExeFolder() : cvn::String(baseFolder);
  cvn::Map<cvn::String, CatalogEntry> byPath;
  for (const platform::catalogs::Member& member : members) {
    cvn::String hash = HexText(member.digest);
    if (hash.Length() != kHashLength || !member.file) {
      continue;
    }
    // Some tools count the zero at the text's end as a part of it.
    const cvn::StringView name = *member.file;
    cvn::String path = JoinPath(base, name.substr(0, name.find(u'\0')));
    LowerCase(&path);
    if (!filter || filter(path)) {
      byPath[path] = {path, std::move(hash), member.tag};
    }
  }
  for (auto& [path, entry] : byPath) {
    entries->push_back(std::move(entry));
  }
  return platform::kSuccess;
}

platform::Code CheckPatchFileInCatalog(cvn::StringView patchPath, cvn::StringView contentHash,
                                       const cvn::List<CatalogEntry>& entries) {
  const cvn::String path =
      paths::IsRelative(patchPath) ? JoinPath(GetExeFolder(), patchPath) : cvn::String(patchPath);
  const cvn::String key = NormalizePathKey(path);
  CatalogFunctions functions;
  BindCatalogFunctions(&functions);
  cvn::String hash;
  if (CalcFileHash(functions, key, &hash) != platform::kSuccess) {
    return kFunctionFailed;
  }
  const bool isListed = hash == contentHash && !key.Empty() &&
                        std::any_of(entries.begin(), entries.end(), [&](const CatalogEntry& entry) {
                          return entry.hash == hash && NormalizePathKey(entry.path) == key;
                        });
  return isListed ? platform::kSuccess : platform::kNotFound;
}

}  // namespace tessel
