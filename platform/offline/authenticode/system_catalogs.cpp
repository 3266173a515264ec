#include "platform/offline/authenticode/system_catalogs.h"

#include <algorithm>

#include "platform/file_digest.h"
#include "platform/file_search.h"
#include "platform/offline/authenticode/authenticode.h"
#include "platform/offline/authenticode/catalog_file.h"

namespace platform::posix {
namespace {

constexpr cvn::StringView kFolder =
    u"C:\\Windows\\System32\\CatRoot\\{F750E6C3-38EE-11D1-85E5-00C04FC295EE}\\";

Bytes ReadFileAt(cvn::StringView path) {
  files::File file;
  const Code code = files::Open(path, files::Access::Read, files::Share::ReadWrite,
                                files::Disposition::OpenExisting, &file);
  return code == kSuccess ? ReadSequenceFile(ByteSource(file)) : Bytes();
}

}  // namespace

SystemCatalogs& SystemCatalogs::Get() {
  static SystemCatalogs catalogs;
  return catalogs;
}

SystemCatalogs::SystemCatalogs() {
  const Code before = LastError();
  cvn::String pattern(kFolder);
  pattern.Append(u"*.cat");
  files::Search search;
  files::SearchEntry found;
  for (Code code = search.First(pattern, &found); code == kSuccess; code = search.Next(&found)) {
    cvn::String path(kFolder);
    path.Append(found.Name());
    Read(path);
  }
  std::ranges::sort(entries_);
  SetLastError(before);
}

void SystemCatalogs::Read(const cvn::String& path) {
  const Bytes bytes = ReadFileAt(path);
  const std::optional<SignedData> data = ParseSignedData(bytes);
  if (!data) {
    return;
  }
  const auto number = static_cast<std::uint32_t>(catalogs_.size());
  catalogs_.push_back({path, Digest(bytes, EVP_sha256()), std::nullopt});
  CatalogReader reader(*data);
  for (CatalogEntry entry; reader.Next(&entry);) {
    Entry listed{.digest = {}, .catalog = number};
    if (entry.digest && entry.digest->size() >= listed.digest.size()) {
      std::ranges::copy(entry.digest->first(listed.digest.size()), listed.digest.begin());
      entries_.push_back(listed);
    }
  }
}

std::vector<std::uint32_t> SystemCatalogs::Listing(const ByteSource& file) const {
  std::vector<std::uint32_t> catalogs;
  if (entries_.empty()) {
    return catalogs;
  }
  const auto digests = CatalogDigest(file, std::array{EVP_sha1(), EVP_sha256()});
  for (const Bytes& digest : digests.value_or(std::vector<Bytes>())) {
    Entry wanted{.digest = {}, .catalog = 0};
    std::copy_n(digest.begin(), wanted.digest.size(), wanted.digest.begin());
    for (auto at = std::ranges::lower_bound(entries_, wanted);
         at != entries_.end() && at->digest == wanted.digest; ++at) {
      catalogs.push_back(at->catalog);
    }
  }
  return catalogs;
}

bool SystemCatalogs::IsGood(Catalog* catalog) {
  if (!catalog->isGood) {
    // Not if it is another one by now.
    const Bytes bytes = ReadFileAt(catalog->path);
    const ByteSource source(bytes);
    SignedFile file(source);
    catalog->isGood = Digest(bytes, EVP_sha256()) == catalog->digest &&
                      VerifySignature(&file, 0, ReadMachineStore(), Revocation::NotAsked).status ==
                          signatures::kTrusted;
  }
  return *catalog->isGood;
}

bool SystemCatalogs::IsVouchedFor(const ByteSource& file) {
  return std::ranges::any_of(Listing(file),
                             [this](std::uint32_t number) { return IsGood(&catalogs_[number]); });
}

cvn::String SystemCatalogs::FirstThatLists(const ByteSource& file) const {
  const std::vector<std::uint32_t> catalogs = Listing(file);
  return catalogs.empty() ? cvn::String() : catalogs_[catalogs.front()].path;
}

}  // namespace platform::posix
