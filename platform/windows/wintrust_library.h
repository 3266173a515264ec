// Wintrust.dll, bound at run time: the program starts without it. Where it is missing, or lacks a
// function, every verification gives TRUST_E_PROVIDER_UNKNOWN.
#pragma once

// clang-format off
#include "platform/windows/wide.h"
// These need <windows.h> before them, and each what stands above it.
#include <wincrypt.h>
#include <mscat.h>
#include <wintrust.h>
#include <softpub.h>
// clang-format on

#include "platform/files.h"
#include "platform/libraries.h"

namespace platform::windows {

// What newer platforms have of the records of wintrust.h.
struct SignatureSettings {
  DWORD cbStruct;
  DWORD dwIndex;
  DWORD dwFlags;
  DWORD cSecondarySigs;
  DWORD dwVerifiedSigIndex;
  const void* pCryptoPolicy;
};
struct TrustData {
  WINTRUST_DATA base;
  SignatureSettings* pSignatureSettings;
};
static_assert(sizeof(SignatureSettings) == 32);
static_assert(sizeof(TrustData) == 88);
static_assert(sizeof(WINTRUST_CATALOG_INFO) == 72);
static_assert(sizeof(CATALOG_INFO) == 524);

// A record for WinVerifyTrust that shows the user nothing. The rest is for the caller to fill in.
TrustData SilentTrustData(DWORD choice, DWORD revocationChecks, DWORD providerFlags);

// Loads Wintrust.dll from the system folder.
Code LoadWintrust(libraries::Library* library);

// The functions that every platform has which is supported at all.
struct WintrustFunctions {
  decltype(&::WinVerifyTrust) winVerifyTrust;
  decltype(&::WTHelperProvDataFromStateData) provDataFromStateData;
  decltype(&::WTHelperGetProvSignerFromChain) getProvSignerFromChain;
  decltype(&::WTHelperGetProvCertFromChain) getProvCertFromChain;
  decltype(&::CryptCATOpen) catOpen;
  decltype(&::CryptCATClose) catClose;
  decltype(&::CryptCATEnumerateMember) catEnumerateMember;
  decltype(&::CryptCATGetAttrInfo) catGetAttrInfo;
  decltype(&::CryptCATAdminAcquireContext) adminAcquireContext;
  decltype(&::CryptCATAdminReleaseContext) adminReleaseContext;
  decltype(&::CryptCATAdminCalcHashFromFileHandle) adminCalcHashFromFileHandle;
  decltype(&::CryptCATAdminEnumCatalogFromHash) adminEnumCatalogFromHash;
  decltype(&::CryptCATAdminReleaseCatalogContext) adminReleaseCatalogContext;
  decltype(&::CryptCATCatalogInfoFromContext) catalogInfoFromContext;
};

// All of them, bound when they are first asked for and to the end of the process; null when the
// library or one of them is missing.
const WintrustFunctions* Wintrust();

// WinVerifyTrust with the generic action; TRUST_E_PROVIDER_UNKNOWN where Wintrust() is null.
LONG VerifyTrust(HWND window, TrustData* data);

// Whether the file is an image that does not hold together (platform/formats/pe_image.h), which
// Windows takes in part. Its position stays.
bool IsBrokenImage(const files::File& file);

}  // namespace platform::windows
