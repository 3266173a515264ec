#include "trust/catalog.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "files/path_text.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "support/format.h"
#include "trust/path_key.h"

namespace tessel {
namespace {

namespace files = platform::files;
namespace paths = platform::paths;

constexpr std::size_t kHashLength = 64;

constexpr platform::Code kFunctionFailed = 1627;

}  // namespace

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
    *hashText = cvn::HexText(digest);
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
    cvn::String hash = cvn::HexText(member.digest);
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
