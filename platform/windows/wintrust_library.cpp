#include "platform/windows/wintrust_library.h"

#include <optional>

#include "platform/byte_source.h"
#include "platform/formats/pe_image.h"
#include "platform/paths.h"

namespace platform::windows {
namespace {

struct Binding {
  libraries::Library library;
  std::optional<WintrustFunctions> functions;
};

template <typename Function>
bool BindOne(const libraries::Library& library, const char* name, Function* function) {
  *function =
      reinterpret_cast<Function>(reinterpret_cast<void*>(libraries::FindSymbol(library, name)));
  return *function != nullptr;
}

bool BindAll(const libraries::Library& library, WintrustFunctions* f) {
  return BindOne(library, "WinVerifyTrust", &f->winVerifyTrust) &&
         BindOne(library, "WTHelperProvDataFromStateData", &f->provDataFromStateData) &&
         BindOne(library, "WTHelperGetProvSignerFromChain", &f->getProvSignerFromChain) &&
         BindOne(library, "WTHelperGetProvCertFromChain", &f->getProvCertFromChain) &&
         BindOne(library, "CryptCATOpen", &f->catOpen) &&
         BindOne(library, "CryptCATClose", &f->catClose) &&
         BindOne(library, "CryptCATEnumerateMember", &f->catEnumerateMember) &&
         BindOne(library, "CryptCATGetAttrInfo", &f->catGetAttrInfo) &&
         BindOne(library, "CryptCATAdminAcquireContext", &f->adminAcquireContext) &&
         BindOne(library, "CryptCATAdminReleaseContext", &f->adminReleaseContext) &&
         BindOne(library, "CryptCATAdminCalcHashFromFileHandle", &f->adminCalcHashFromFileHandle) &&
         BindOne(library, "CryptCATAdminEnumCatalogFromHash", &f->adminEnumCatalogFromHash) &&
         BindOne(library, "CryptCATAdminReleaseCatalogContext", &f->adminReleaseCatalogContext) &&
         BindOne(library, "CryptCATCatalogInfoFromContext", &f->catalogInfoFromContext);
}

Binding Bind() {
  LastErrorKeeper lastError;
  Binding binding;
  WintrustFunctions functions{};
  if (LoadWintrust(&binding.library) == kSuccess && BindAll(binding.library, &functions)) {
    binding.functions = functions;
  }
  return binding;
}

}  // namespace

TrustData SilentTrustData(DWORD choice, DWORD revocationChecks, DWORD providerFlags) {
  TrustData data{};
  data.base.cbStruct = sizeof data;
  data.base.dwUIChoice = WTD_UI_NONE;
  data.base.fdwRevocationChecks = revocationChecks;
  data.base.dwUnionChoice = choice;
  data.base.dwProvFlags = providerFlags;
  return data;
}

Code LoadWintrust(libraries::Library* library) {
  cvn::String path = paths::SystemDirectory();
  path.Append(u"\\Wintrust.dll");
  return libraries::Load(path, libraries::kAlteredSearchPath, library);
}

const WintrustFunctions* Wintrust() {
  static const Binding binding = Bind();
  return binding.functions ? &*binding.functions : nullptr;
}

LONG VerifyTrust(HWND window, TrustData* data) {
  GUID action = WINTRUST_ACTION_GENERIC_VERIFY_V2;
  const WintrustFunctions* wintrust = Wintrust();
  if (wintrust == nullptr) {
    return TRUST_E_PROVIDER_UNKNOWN;
  }
  LastErrorKeeper lastError;
  const LONG status = wintrust->winVerifyTrust(window, &action, data);
  lastError.Settle(status == ERROR_SUCCESS);
  return status;
}

bool IsBrokenImage(const files::File& file) {
  LastErrorKeeper lastError;
  const auto handle = reinterpret_cast<HANDLE>(file.Handle());
  LARGE_INTEGER position{};
  if (::SetFilePointerEx(handle, {}, &position, FILE_CURRENT) == 0) {
    return false;  // no file on a disk, which nothing takes for an image
  }
  const bool isBroken = IsBrokenPeImage(ByteSource(file));
  return ::SetFilePointerEx(handle, position, nullptr, FILE_BEGIN) == 0 || isBroken;
}

}  // namespace platform::windows
