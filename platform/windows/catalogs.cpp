#include "platform/catalogs.h"

#include <cwchar>
#include <string>

#include "platform/windows/wintrust_library.h"

namespace platform::catalogs {
namespace {

using windows::Wide;
using windows::Wintrust;
using windows::WintrustFunctions;

using AcquireContext2 = decltype(&::CryptCATAdminAcquireContext2);
using CalcHash2 = decltype(&::CryptCATAdminCalcHashFromFileHandle2);

constexpr DWORD kOpenExisting = 2;
constexpr DWORD kCatalogVersion = 0x10001;

HANDLE HandleOf(const files::File& file) { return reinterpret_cast<HANDLE>(file.Handle()); }

template <typename Function>
Function As(libraries::Address address) {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(address));
}

// The digest that `call(&size, buffer)` writes. The first call asks for the size only, and
// `isSizeTold(result)` says whether it got that.
template <typename Call, typename Judge>
Code ReadDigest(Call call, Judge isSizeTold, std::vector<std::byte>* digest) {
  windows::LastErrorKeeper lastError;
  DWORD size = 0;
  ::SetLastError(ERROR_SUCCESS);
  if (!isSizeTold(call(&size, nullptr))) {
    const Code code = lastError.Outcome(false);
    return code == kSuccess ? kGenFailure : code;
  }
  digest->resize(size);
  return lastError.Outcome(call(&size, reinterpret_cast<BYTE*>(digest->data())) != 0);
}

bool IsBufferTooSmall() { return ::GetLastError() == ERROR_INSUFFICIENT_BUFFER; }

// --- The system's catalogs

cvn::StringView PathOf(const CATALOG_INFO& info) {
  return windows::ViewOf(info.wszCatalogFile, ::wcsnlen(info.wszCatalogFile, MAX_PATH));
}

// Gives `visit` the paths of the system's catalogs that list the file's SHA-1 digest, until it
// returns false.
template <typename Visit>
void VisitSystemCatalogs(const WintrustFunctions& wintrust, HANDLE file,
                         std::vector<std::byte>* hash, Visit visit) {
  HCATADMIN context = nullptr;
  if (ReadDigest(
          [&wintrust, file](DWORD* size, BYTE* buffer) {
            return wintrust.adminCalcHashFromFileHandle(file, size, buffer, 0);
          },
          [](BOOL result) { return result != 0 || IsBufferTooSmall(); }, hash) != kSuccess ||
      wintrust.adminAcquireContext(&context, nullptr, 0) == 0) {
    return;
  }
  HCATINFO catalog = nullptr;
  bool wantsMore = true;
  while (wantsMore && (catalog = wintrust.adminEnumCatalogFromHash(
                           context, reinterpret_cast<BYTE*>(hash->data()),
                           static_cast<DWORD>(hash->size()), 0, &catalog)) != nullptr) {
    CATALOG_INFO info{};
    info.cbStruct = sizeof info;
    wantsMore = wintrust.catalogInfoFromContext(catalog, &info, 0) == 0 || visit(PathOf(info));
  }
  if (catalog != nullptr) {
    wintrust.adminReleaseCatalogContext(context, catalog, 0);
  }
  wintrust.adminReleaseContext(context, 0);
}

bool VerifiesInCatalog(cvn::StringView catalog, cvn::StringView path, HANDLE file,
                       std::vector<std::byte>* hash) {
  const cvn::PathString catalogText(catalog);
  const cvn::PathString pathText(path);
  WINTRUST_CATALOG_INFO info{};
  info.cbStruct = sizeof info;
  info.pcwszCatalogFilePath = Wide(catalogText);
  info.pcwszMemberFilePath = Wide(pathText);
  info.hMemberFile = file;
  info.pbCalculatedFileHash = reinterpret_cast<BYTE*>(hash->data());
  info.cbCalculatedFileHash = static_cast<DWORD>(hash->size());
  windows::TrustData data = windows::SilentTrustData(WTD_CHOICE_CATALOG, WTD_REVOKE_NONE,
                                                     WTD_SAFER_FLAG | WTD_CACHE_ONLY_URL_RETRIEVAL);
  data.base.pCatalog = &info;
  return windows::VerifyTrust(nullptr, &data) == ERROR_SUCCESS;
}

// --- Members

std::optional<cvn::String> FileAttribute(const WintrustFunctions& wintrust, HANDLE catalog,
                                         CRYPTCATMEMBER* member) {
  std::wstring name = L"File";
  const CRYPTCATATTRIBUTE* attribute = wintrust.catGetAttrInfo(catalog, member, name.data());
  if (attribute == nullptr || attribute->pbValue == nullptr) {
    return std::nullopt;
  }
  return cvn::String(windows::ViewOf(reinterpret_cast<const wchar_t*>(attribute->pbValue),
                                     attribute->cbValue / sizeof(wchar_t)));
}

Member MemberOf(const WintrustFunctions& wintrust, HANDLE catalog, CRYPTCATMEMBER* member) {
  const CRYPT_HASH_BLOB& digest = member->pIndirectData->Digest;
  const auto* bytes = reinterpret_cast<const std::byte*>(digest.pbData);
  const wchar_t* tag = member->pwszReferenceTag;
  return {tag == nullptr ? cvn::String() : cvn::String(windows::ViewOf(tag, ::wcslen(tag))),
          {bytes, bytes + digest.cbData},
          FileAttribute(wintrust, catalog, member)};
}

}  // namespace

std::optional<Support> GetSupport() {
  libraries::Library library;
  if (windows::LoadWintrust(&library) != kSuccess) {
    return Support::NoLibrary;
  }
  return libraries::FindSymbol(library, "CryptCATAdminAcquireContext2") == nullptr
             ? Support::NoFunctions
             : Support::Full;
}

void Functions::Bind() {
  library_.Free();
  acquireContext2_ = nullptr;
  calcHash2_ = nullptr;
  if (windows::LoadWintrust(&library_) == kSuccess) {
    acquireContext2_ = libraries::FindSymbol(library_, "CryptCATAdminAcquireContext2");
    calcHash2_ = libraries::FindSymbol(library_, "CryptCATAdminCalcHashFromFileHandle2");
  }
}

Code Functions::Hash(files::File* file, std::vector<std::byte>* digest) const {
  const WintrustFunctions* wintrust = Wintrust();
  if (acquireContext2_ == nullptr || calcHash2_ == nullptr || wintrust == nullptr) {
    return kProcNotFound;
  }
  windows::LastErrorKeeper lastError;
  if (windows::IsBrokenImage(*file)) {
    return kBadExeFormat;
  }
  const GUID action = DRIVER_ACTION_VERIFY;
  HCATADMIN context = nullptr;
  Code code = lastError.Outcome(
      As<AcquireContext2>(acquireContext2_)(&context, &action, L"SHA256", nullptr, 0) == TRUE);
  if (code != kSuccess) {
    return code;
  }
  const auto calcHash2 = As<CalcHash2>(calcHash2_);
  code = ReadDigest(
      [context, calcHash2, file](DWORD* size, BYTE* buffer) {
        return calcHash2(context, HandleOf(*file), size, buffer, 0);
      },
      [](BOOL) { return IsBufferTooSmall(); }, digest);
  wintrust->adminReleaseContext(context, 0);
  return code;
}

Code ReadMembers(cvn::StringView catalogPath, cvn::List<Member>* members) {
  const WintrustFunctions* wintrust = Wintrust();
  if (wintrust == nullptr) {
    return kProcNotFound;
  }
  windows::LastErrorKeeper lastError;
  cvn::PathString path = windows::PathForCall(catalogPath);
  const HANDLE catalog =
      wintrust->catOpen(const_cast<wchar_t*>(Wide(path)), kOpenExisting, 0, kCatalogVersion, 0);
  const Code code = lastError.Outcome(catalog != INVALID_HANDLE_VALUE);
  if (code != kSuccess) {
    return code;
  }
  CRYPTCATMEMBER* member = nullptr;
  while ((member = wintrust->catEnumerateMember(catalog, member)) != nullptr) {
    if (member->pIndirectData != nullptr) {
      members->push_back(MemberOf(*wintrust, catalog, member));
    }
  }
  wintrust->catClose(catalog);
  return kSuccess;
}

bool IsListedBySystem(cvn::StringView path, files::File* file) {
  const WintrustFunctions* wintrust = Wintrust();
  if (wintrust == nullptr || windows::IsBrokenImage(*file)) {
    return false;
  }
  windows::LastErrorKeeper lastError;
  bool isListed = false;
  std::vector<std::byte> hash;
  VisitSystemCatalogs(*wintrust, HandleOf(*file), &hash, [&](cvn::StringView catalog) {
    isListed = VerifiesInCatalog(catalog, path, HandleOf(*file), &hash);
    return !isListed;
  });
  return isListed;
}

cvn::String FindSystemCatalog(cvn::StringView path) {
  cvn::String found;
  const WintrustFunctions* wintrust = Wintrust();
  files::File file;
  windows::LastErrorKeeper lastError;
  if (wintrust == nullptr || files::Open(path, files::Access::Read, files::Share::ReadWrite,
                                         files::Disposition::OpenExisting, &file) != kSuccess) {
    return found;
  }
  std::vector<std::byte> hash;
  VisitSystemCatalogs(*wintrust, HandleOf(file), &hash, [&found](cvn::StringView catalog) {
    found = catalog;
    return false;
  });
  return found;
}

}  // namespace platform::catalogs
