#include "platform/signatures.h"

#include <utility>

#include "platform/windows/wintrust_library.h"
// <ntdsapi.h> needs <windows.h> before it.
#include <ntdsapi.h>

namespace platform::signatures {
namespace {

using windows::Wide;
using windows::Wintrust;

constexpr DWORD kEncodings = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
constexpr DWORD kVerifySpecific = 1;     // WSS_VERIFY_SPECIFIC
constexpr DWORD kGetSecondaryCount = 2;  // WSS_GET_SECONDARY_SIG_COUNT

// The text of CertNameToStrW and similar functions, which count the closing zero and never fail.
template <typename Call>
cvn::String TextOf(Call call) {
  std::vector<wchar_t> buffer(call(nullptr, 0));
  const DWORD size = call(buffer.data(), static_cast<DWORD>(buffer.size()));
  return size <= 1 ? cvn::String() : cvn::String(windows::ViewOf(buffer.data(), size - 1));
}

cvn::String NameText(CERT_NAME_BLOB* name) {
  return TextOf([name](wchar_t* buffer, DWORD size) {
    return ::CertNameToStrW(X509_ASN_ENCODING, name, CERT_X500_NAME_STR, buffer, size);
  });
}

std::int64_t SecondsOf(const FILETIME& time) {
  constexpr std::int64_t kSecondsFrom1601To1970 = 11'644'473'600;
  constexpr std::uint64_t kTicksPerSecond = 10'000'000;
  const std::uint64_t ticks = std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
  return static_cast<std::int64_t>(ticks / kTicksPerSecond) - kSecondsFrom1601To1970;
}

Certificate Read(const CERT_CONTEXT& context) {
  CERT_INFO* info = context.pCertInfo;
  const auto* serial = reinterpret_cast<const std::byte*>(info->SerialNumber.pbData);
  return {.issuer = NameText(&info->Issuer),
          .subject = NameText(&info->Subject),
          .serial = {serial, serial + info->SerialNumber.cbData},
          .validFrom = SecondsOf(info->NotBefore),
          .validUntil = SecondsOf(info->NotAfter)};
}

// The gravest of what CERT_TRUST_STATUS has against a certificate.
Fault FaultOf(DWORD errors, const CERT_CONTEXT& context) {
  constexpr DWORD kWeakSignature = 0x00100000;     // CERT_TRUST_HAS_WEAK_SIGNATURE
  constexpr DWORD kExplicitDistrust = 0x04000000;  // CERT_TRUST_IS_EXPLICIT_DISTRUST
  constexpr std::pair<DWORD, Fault> kFaults[] = {
      {CERT_TRUST_IS_NOT_SIGNATURE_VALID, Fault::BadSignature},
      {kWeakSignature, Fault::WeakDigest},
      {kExplicitDistrust, Fault::Distrusted},
      {CERT_TRUST_IS_REVOKED, Fault::Revoked},
      {CERT_TRUST_IS_UNTRUSTED_ROOT, Fault::UntrustedRoot},
      {CERT_TRUST_IS_PARTIAL_CHAIN, Fault::IssuerMissing},
      {CERT_TRUST_IS_NOT_VALID_FOR_USAGE, Fault::WrongPurpose},
      {CERT_TRUST_IS_NOT_TIME_VALID, Fault::Expired},
      {CERT_TRUST_INVALID_BASIC_CONSTRAINTS, Fault::NoAuthority},
  };
  for (const auto& [error, fault] : kFaults) {
    if ((errors & error) != 0) {
      const bool isEarly =
          fault == Fault::Expired && ::CertVerifyTimeValidity(nullptr, context.pCertInfo) < 0;
      return isEarly ? Fault::NotYetValid : fault;
    }
  }
  return Fault::None;
}

// The way up that Windows chose.
Chain Read(const CRYPT_PROVIDER_SGNR& signer) {
  Chain chain;
  if (signer.pChainContext == nullptr || signer.pChainContext->cChain == 0) {
    return chain;
  }
  const CERT_SIMPLE_CHAIN& way = *signer.pChainContext->rgpChain[0];
  // That a chain is partial is told of the chain alone, and its last certificate makes it so.
  const DWORD partial = way.TrustStatus.dwErrorStatus & CERT_TRUST_IS_PARTIAL_CHAIN;
  for (DWORD i = 0; i < way.cElement; ++i) {
    const CERT_CHAIN_ELEMENT& element = *way.rgpElement[i];
    const DWORD errors = element.TrustStatus.dwErrorStatus | (i + 1 == way.cElement ? partial : 0);
    const Fault fault = FaultOf(errors, *element.pCertContext);
    if (fault < chain.fault) {
      chain.fault = fault;
      chain.faulty = i;
    }
    chain.certificates.push_back(Read(*element.pCertContext));
  }
  return chain;
}

}  // namespace

// --- Verifier

struct Verifier::State {
  State(cvn::StringView filePath, const files::File& file)
      : path(windows::PathForCall(filePath)), isBroken(windows::IsBrokenImage(file)) {
    fileInfo.cbStruct = sizeof fileInfo;
    fileInfo.pcwszFilePath = Wide(path);
    fileInfo.hFile = reinterpret_cast<HANDLE>(file.Handle());
    settings.cbStruct = sizeof settings;
    settings.dwFlags = kVerifySpecific | kGetSecondaryCount;
    data.base.pFile = &fileInfo;
    data.pSignatureSettings = &settings;
  }

  CRYPT_PROVIDER_DATA* ProviderData() const {
    return Wintrust() == nullptr || data.base.hWVTStateData == nullptr
               ? nullptr
               : Wintrust()->provDataFromStateData(data.base.hWVTStateData);
  }

  CRYPT_PROVIDER_SGNR* Signer() const {
    CRYPT_PROVIDER_DATA* provider = ProviderData();
    return provider == nullptr ? nullptr
                               : Wintrust()->getProvSignerFromChain(provider, 0, FALSE, 0);
  }

  // The first counter-signer of timestamp kind; null when there is none.
  const CRYPT_PROVIDER_SGNR* Stamper() const {
    const CRYPT_PROVIDER_SGNR* signer = Signer();
    for (DWORD i = 0; signer != nullptr && i < signer->csCounterSigners; ++i) {
      const CRYPT_PROVIDER_SGNR* counterSigner =
          Wintrust()->getProvSignerFromChain(ProviderData(), 0, TRUE, i);
      if (counterSigner != nullptr && counterSigner->dwSignerType == SGNR_TYPE_TIMESTAMP) {
        return counterSigner;
      }
    }
    return nullptr;
  }

  cvn::PathString path;
  bool isBroken;
  WINTRUST_FILE_INFO fileInfo{};
  windows::SignatureSettings settings{};
  windows::TrustData data = windows::SilentTrustData(WTD_CHOICE_FILE, WTD_REVOKE_WHOLECHAIN, 0);
};

Verifier::Verifier(cvn::StringView path, const files::File& file)
    : state_(std::make_unique<State>(path, file)) {}

Verifier::~Verifier() { Close(); }

TrustStatus Verifier::Verify(std::uint32_t index, bool online) {
  Close();
  if (state_->isBroken) {
    return kBadImage;
  }
  state_->settings.dwIndex = index;
  state_->data.base.dwStateAction = WTD_STATEACTION_VERIFY;
  state_->data.base.dwProvFlags = online ? 0 : WTD_CACHE_ONLY_URL_RETRIEVAL;
  // INVALID_HANDLE_VALUE says that there is no interactive user (WinVerifyTrust's documentation).
  HWND window = online ? static_cast<HWND>(INVALID_HANDLE_VALUE) : nullptr;
  return windows::VerifyTrust(window, &state_->data);
}

void Verifier::Close() {
  if (state_->data.base.dwStateAction == WTD_STATEACTION_VERIFY) {
    state_->data.base.dwStateAction = WTD_STATEACTION_CLOSE;
    windows::VerifyTrust(static_cast<HWND>(INVALID_HANDLE_VALUE), &state_->data);
    state_->data.base.hWVTStateData = nullptr;
  }
}

std::uint32_t Verifier::SecondaryCount() const { return state_->settings.cSecondarySigs; }

bool Verifier::HasProviderData() const { return state_->ProviderData() != nullptr; }

bool Verifier::HasSigner() const { return state_->Signer() != nullptr; }

bool Verifier::SignerCertificate(Certificate* certificate) const {
  const CRYPT_PROVIDER_CERT* leaf = Wintrust()->getProvCertFromChain(state_->Signer(), 0);
  if (leaf == nullptr || leaf->pCert == nullptr) {
    return false;
  }
  *certificate = Read(*leaf->pCert);
  return true;
}

Chain Verifier::SignerChain() const {
  const CRYPT_PROVIDER_SGNR* signer = state_->Signer();
  if (signer == nullptr) {
    return Chain();
  }
  Chain chain = Read(*signer);
  // A timestamp that counts is the time that the chain was judged by.
  const CRYPT_PROVIDER_SGNR* stamper = state_->Stamper();
  const bool isKept =
      stamper != nullptr && ::CompareFileTime(&stamper->sftVerifyAsOf, &signer->sftVerifyAsOf) == 0;
  if (!chain.certificates.empty() && !isKept) {
    chain.goodUntil = FirstEndOf(chain);
  }
  return chain;
}

Chain Verifier::StamperChain() const {
  const CRYPT_PROVIDER_SGNR* stamper = state_->Stamper();
  return stamper == nullptr ? Chain() : Read(*stamper);
}

Timestamp Verifier::SigningTime(std::uint64_t* time) const {
  if (const CRYPT_PROVIDER_SGNR* stamper = state_->Stamper()) {
    const FILETIME& when = stamper->sftVerifyAsOf;
    *time = std::uint64_t{when.dwHighDateTime} << 32 | when.dwLowDateTime;
    return Timestamp::Found;
  }
  return state_->Signer()->csCounterSigners == 0 ? Timestamp::None : Timestamp::OtherCounterSigner;
}

// --- Without a chain of trust

TrustStatus VerifyDigestOnly(cvn::StringView path) {
  const cvn::PathString text = windows::PathForCall(path);
  files::File file;
  if (files::Open(path, files::Access::Read, files::Share::ReadWrite,
                  files::Disposition::OpenExisting, &file) == kSuccess &&
      windows::IsBrokenImage(file)) {
    return kBadImage;
  }
  WINTRUST_FILE_INFO fileInfo{};
  fileInfo.cbStruct = sizeof fileInfo;
  fileInfo.pcwszFilePath = Wide(text);
  if (file.IsOpen()) {
    fileInfo.hFile = reinterpret_cast<HANDLE>(file.Handle());
  }
  windows::TrustData data = windows::SilentTrustData(
      WTD_CHOICE_FILE, WTD_REVOKE_NONE, WTD_HASH_ONLY_FLAG | WTD_CACHE_ONLY_URL_RETRIEVAL);
  data.base.pFile = &fileInfo;
  return windows::VerifyTrust(nullptr, &data);
}

namespace {

// A signed message, and the certificates in it.
class SignedMessage {
 public:
  explicit SignedMessage(cvn::StringView path) {
    const cvn::PathString text = windows::PathForCall(path);
    ::CryptQueryObject(
        CERT_QUERY_OBJECT_FILE, Wide(text),
        CERT_QUERY_CONTENT_FLAG_PKCS7_SIGNED_EMBED | CERT_QUERY_CONTENT_FLAG_PKCS7_SIGNED,
        CERT_QUERY_FORMAT_FLAG_BINARY, 0, nullptr, nullptr, nullptr, &store_, &message_, nullptr);
  }
  SignedMessage(const SignedMessage&) = delete;
  SignedMessage& operator=(const SignedMessage&) = delete;
  ~SignedMessage() {
    if (message_ != nullptr) {
      ::CryptMsgClose(message_);
    }
    if (store_ != nullptr) {
      ::CertCloseStore(store_, 0);
    }
  }

  // The certificate of the first signer, which the caller frees; null when there is none.
  PCCERT_CONTEXT SignerCertificate() const {
    DWORD size = 0;
    if (message_ == nullptr ||
        ::CryptMsgGetParam(message_, CMSG_SIGNER_INFO_PARAM, 0, nullptr, &size) == 0) {
      return nullptr;
    }
    std::vector<std::byte> data(size);
    if (::CryptMsgGetParam(message_, CMSG_SIGNER_INFO_PARAM, 0, data.data(), &size) == 0) {
      return nullptr;
    }
    const auto* signer = reinterpret_cast<const CMSG_SIGNER_INFO*>(data.data());
    CERT_INFO wanted{};
    wanted.Issuer = signer->Issuer;
    wanted.SerialNumber = signer->SerialNumber;
    return ::CertFindCertificateInStore(store_, kEncodings, 0, CERT_FIND_SUBJECT_CERT, &wanted,
                                        nullptr);
  }

 private:
  HCERTSTORE store_ = nullptr;
  HCRYPTMSG message_ = nullptr;
};

}  // namespace

cvn::String SignerName(cvn::StringView path) {
  windows::LastErrorKeeper lastError;
  const SignedMessage message(path);
  PCCERT_CONTEXT certificate = message.SignerCertificate();
  if (certificate == nullptr) {
    return cvn::String();
  }
  cvn::String name = TextOf([certificate](wchar_t* buffer, DWORD size) {
    return ::CertGetNameStringW(certificate, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr, buffer,
                                size);
  });
  ::CertFreeCertificateContext(certificate);
  return name;
}

// --- Distinguished names

RdnReader::RdnReader() {
  windows::LastErrorKeeper lastError;
  library_ = ::LoadLibraryW(L"Ntdsapi.dll");
}

RdnReader::~RdnReader() {
  if (library_ != nullptr) {
    ::FreeLibrary(static_cast<HMODULE>(library_));
  }
}

namespace {

// Windows' DsGetRdnW, or null without the library. Wine names the function without having it, and
// ends a process that calls it.
auto* FindGetRdn(void* library) {
  windows::LastErrorKeeper lastError;
  return library == nullptr ? nullptr
                            : reinterpret_cast<decltype(&::DsGetRdnW)>(reinterpret_cast<void*>(
                                  ::GetProcAddress(static_cast<HMODULE>(library), "DsGetRdnW")));
}

}  // namespace

bool RdnReader::IsAvailable() const { return FindGetRdn(library_) != nullptr; }

Code RdnReader::Next(cvn::StringView* name, cvn::String* key, cvn::String* value) const {
  const auto getRdn = FindGetRdn(library_);
  if (getRdn == nullptr) {
    return kProcNotFound;
  }
  auto* rest = reinterpret_cast<const wchar_t*>(name->data());
  auto restLength = static_cast<DWORD>(name->size());
  const wchar_t* keyText = nullptr;
  DWORD keyLength = 0;
  const wchar_t* valueText = nullptr;
  DWORD valueLength = 0;
  const Code code = getRdn(&rest, &restLength, &keyText, &keyLength, &valueText, &valueLength);
  if (code == kSuccess) {
    *name = windows::ViewOf(rest, restLength);
    *key = windows::ViewOf(keyText, keyLength);
    *value = windows::ViewOf(valueText, valueLength);
  }
  return code;
}

}  // namespace platform::signatures
