#include "platform/catalogs.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "platform/byte_source.h"
#include "platform/file_digest.h"
#include "platform/file_search.h"
#include "platform/formats/pe_image.h"
#include "platform/linux/error_map.h"
#include "platform/offline/authenticode/authenticode.h"
#include "platform/offline/authenticode/catalog_file.h"
#include "platform/version.h"

namespace platform::catalogs {
namespace {

using posix::CatalogEntry;
using posix::CatalogReader;
using posix::Fail;
using posix::SignedData;

// Where Windows installs catalogs: the database of system components and drivers.
constexpr cvn::StringView kFolder =
    u"C:\\Windows\\System32\\CatRoot\\{F750E6C3-38EE-11D1-85E5-00C04FC295EE}\\";

Bytes ReadFileAt(cvn::StringView path) {
  files::File file;
  const Code code = files::Open(path, files::Access::Read, files::Share::ReadWrite,
                                files::Disposition::OpenExisting, &file);
  return code == kSuccess ? posix::ReadSequenceFile(ByteSource(file)) : Bytes();
}

// The catalogs that the machine has installed. An index of all that they list, by SHA-1 and
// SHA-256, is made by the first question and kept until the process ends. Whether a catalog is good
// is found out when a file first needs it.
class SystemCatalogs {
 public:
  static SystemCatalogs& Get();

  // Whether a catalog lists the file's digest, and verifies.
  bool IsVouchedFor(const ByteSource& file);
  // The path of the first one that lists it; empty when none does.
  cvn::String FirstThatLists(const ByteSource& file) const;

 private:
  struct Catalog {
    cvn::String path;
    Bytes digest;  // of the catalog itself, when its entries were read
    std::optional<bool> isGood;
  };
  // Of a SHA-256 digest, as many bytes as a SHA-1 digest has.
  using Listed = std::array<std::byte, 20>;
  struct Entry {
    Listed digest;
    std::uint32_t catalog;
    // The check takes the zero in what the compiler makes of this for a null pointer.
    auto operator<=>(const Entry&) const = default;  // NOLINT(modernize-use-nullptr)
  };

  SystemCatalogs();
  void Read(const cvn::String& path);
  // The numbers of the catalogs that list the file.
  std::vector<std::uint32_t> Listing(const ByteSource& file) const;
  bool IsGood(Catalog* catalog);

  std::vector<Catalog> catalogs_;
  std::vector<Entry> entries_;  // in order
};

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
  const std::optional<SignedData> data = posix::ParseSignedData(bytes);
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
    posix::SignedFile file(source);
    catalog->isGood =
        Digest(bytes, EVP_sha256()) == catalog->digest &&
        posix::VerifySignature(&file, 0, posix::ReadMachineStore(), posix::Revocation::NotAsked)
                .status == signatures::kTrusted;
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

// Stands for the functions that only newer versions of Windows have, and that are built in here.
void BuiltIn() {}

}  // namespace

std::optional<Support> GetSupport() {
  constexpr std::pair<std::uint32_t, std::uint32_t> kWindows8{6, 2};
  const auto version = version::Get();
  if (!version) {
    return std::nullopt;
  }
  return std::pair(version->major, version->minor) >= kWindows8 ? Support::Full
                                                                : Support::NoFunctions;
}

void Functions::Bind() {
  acquireContext2_ = calcHash2_ = GetSupport() == Support::Full ? &BuiltIn : nullptr;
}

Code Functions::Hash(files::File* file, std::vector<std::byte>* digest) const {
  if (acquireContext2_ == nullptr || calcHash2_ == nullptr) {
    return Fail(kProcNotFound);
  }
  if (!file->IsOpen()) {
    return Fail(kInvalidHandle);
  }
  const ByteSource source(*file);
  const std::array<const EVP_MD*, 1> algorithms = {EVP_sha256()};
  auto digests = CatalogDigest(source, algorithms);
  if (!digests) {
    return Fail(IsBrokenPeImage(source) ? kBadExeFormat : kReadFault);
  }
  *digest = std::move(digests->front());
  return kSuccess;
}

Code ReadMembers(cvn::StringView catalogPath, cvn::List<Member>* members) {
  files::File file;
  const Code opened = files::Open(catalogPath, files::Access::Read, files::Share::ReadWrite,
                                  files::Disposition::OpenExisting, &file);
  if (opened != kSuccess) {
    return opened;
  }
  const Code code = posix::ReadCatalog(posix::ReadSequenceFile(ByteSource(file)), members);
  return code == kSuccess ? code : Fail(code);
}

bool IsListedBySystem(cvn::StringView /*path*/, files::File* file) {
  return file->IsOpen() && SystemCatalogs::Get().IsVouchedFor(ByteSource(*file));
}

cvn::String FindSystemCatalog(cvn::StringView path) {
  files::File file;
  if (files::Open(path, files::Access::Read, files::Share::ReadWrite,
                  files::Disposition::OpenExisting, &file) != kSuccess) {
    return {};
  }
  return SystemCatalogs::Get().FirstThatLists(ByteSource(file));
}

}  // namespace platform::catalogs
