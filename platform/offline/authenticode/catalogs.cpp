#include "platform/catalogs.h"

#include <array>
#include <utility>

#include "platform/byte_source.h"
#include "platform/file_digest.h"
#include "platform/formats/pe_image.h"
#include "platform/linux/error_map.h"
#include "platform/offline/authenticode/catalog_file.h"
#include "platform/offline/authenticode/system_catalogs.h"
#include "platform/version.h"

namespace platform::catalogs {
namespace {

using posix::Fail;

// Stands for the functions that this home has built in.
void BuiltIn() {}

}  // namespace

Support GetSupport() {
  constexpr std::pair<std::uint32_t, std::uint32_t> kWindows8{6, 2};
  const auto version = version::Get();
  return version && std::pair(version->major, version->minor) >= kWindows8 ? Support::Full
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
  return file->IsOpen() && posix::SystemCatalogs::Get().IsVouchedFor(ByteSource(*file));
}

cvn::String FindSystemCatalog(cvn::StringView path) {
  files::File file;
  if (files::Open(path, files::Access::Read, files::Share::ReadWrite,
                  files::Disposition::OpenExisting, &file) != kSuccess) {
    return {};
  }
  return posix::SystemCatalogs::Get().FirstThatLists(ByteSource(file));
}

}  // namespace platform::catalogs
