#include "trust/catalog.h"

#include <utility>
#include <vector>

#include "files/path_text.h"
#include "platform/paths.h"
#include "support/format.h"
#include "trust/path_key.h"

namespace tessel {
namespace {

constexpr std::size_t kHashLength = 64;

}  // namespace

void BindCatalogFunctions(CatalogFunctions* functions) { functions->Bind(); }

platform::Code CalcFileHash(const CatalogFunctions& functions, platform::files::File* file,
                            cvn::String* hashText) {
  std::vector<std::byte> digest;
  const platform::Code code = functions.Hash(file, &digest);
  if (code == platform::kSuccess) {
    *hashText = cvn::HexText(digest);
  }
  return code;
}

platform::Code ReadCatalogEntries(cvn::List<CatalogEntry>* entries, cvn::StringView catalogPath,
                                  cvn::StringView baseFolder, const PathFilter& filter) {
  if (!platform::paths::Exists(catalogPath)) {
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
    cvn::StringView name = *member.file;
    name = name.substr(0, name.find(u'\0'));
    cvn::String path = JoinPath(base, name);
    LowerCase(&path);
    if (!filter || filter(path)) {
      byPath[path] = {path, name, std::move(hash), member.tag};
    }
  }
  for (auto& [path, entry] : byPath) {
    entries->push_back(std::move(entry));
  }
  return platform::kSuccess;
}

}  // namespace tessel
