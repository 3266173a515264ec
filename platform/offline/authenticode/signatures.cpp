#include "platform/signatures.h"

#include <algorithm>
#include <ctime>
#include <memory>
#include <optional>

#include "platform/byte_source.h"
#include "platform/linux/error_map.h"
#include "platform/offline/authenticode/authenticode.h"
#include "platform/offline/authenticode/certificate_store.h"
#include "platform/offline/authenticode/distinguished_name.h"

namespace platform::signatures {
namespace {

using posix::SignedData;
using posix::SignedFile;

Code OpenFile(cvn::StringView path, files::File* file) {
  return files::Open(path, files::Access::Read, files::Share::ReadWrite,
                     files::Disposition::OpenExisting, file);
}

std::int64_t SecondsOf(const ASN1_TIME* time) {
  std::tm moment{};
  return time != nullptr && ASN1_TIME_to_tm(time, &moment) == 1 ? timegm(&moment) : 0;
}

Certificate Read(const X509* from) {
  Certificate certificate{.issuer = posix::X500Text(X509_get_issuer_name(from)),
                          .subject = posix::X500Text(X509_get_subject_name(from)),
                          .serial = posix::SerialOf(from),
                          .validFrom = SecondsOf(X509_get0_notBefore(from)),
                          .validUntil = SecondsOf(X509_get0_notAfter(from))};
  // The interface has the lowest byte first, as Windows has.
  std::ranges::reverse(certificate.serial);
  return certificate;
}

Chain Read(const posix::ChainVerdict& verdict) {
  Chain chain;
  for (const auto& certificate : verdict.certificates) {
    chain.certificates.push_back(Read(certificate.get()));
  }
  if (!chain.certificates.empty()) {
    chain.fault = verdict.fault;
    chain.faulty = verdict.faulty;
  }
  return chain;
}

}  // namespace

struct Verifier::State {
  explicit State(const files::File& opened) : source(opened) {}

  ByteSource source;
  std::optional<SignedFile> file;
  posix::CertificateStore store;
  std::optional<posix::Verdict> verdict;
};

Verifier::Verifier(cvn::StringView /*path*/, const files::File& file)
    : state_(std::make_unique<State>(file)) {}

Verifier::~Verifier() = default;

TrustStatus Verifier::Verify(std::uint32_t index, bool /*online*/) {
  if (!state_->file) {
    state_->file.emplace(state_->source);
    if (state_->file->Count() > 0) {
      state_->store = posix::ReadMachineStore();
    }
  }
  state_->verdict =
      posix::VerifySignature(&*state_->file, index, state_->store, posix::Revocation::OnHand);
  return state_->verdict->status;
}

void Verifier::Close() { state_->verdict.reset(); }

std::uint32_t Verifier::SecondaryCount() const {
  const std::size_t count = state_->file ? state_->file->Count() : 0;
  return static_cast<std::uint32_t>(count - std::min<std::size_t>(count, 1));
}

bool Verifier::HasProviderData() const { return state_->verdict.has_value(); }

bool Verifier::HasSigner() const { return HasProviderData() && state_->verdict->hasSigner; }

bool Verifier::SignerCertificate(Certificate* certificate) const {
  if (!HasSigner() || !state_->verdict->signer) {
    return false;
  }
  *certificate = Read(state_->verdict->signer.get());
  return true;
}

Chain Verifier::SignerChain() const {
  Chain chain = HasProviderData() ? Read(state_->verdict->chain) : Chain();
  if (!chain.certificates.empty() && !state_->verdict->isKeptByTimestamp) {
    chain.goodUntil = FirstEndOf(chain);
  }
  return chain;
}

Chain Verifier::StamperChain() const {
  return HasProviderData() ? Read(state_->verdict->timestamp.chain) : Chain();
}

Timestamp Verifier::SigningTime(std::uint64_t* time) const {
  if (!HasSigner()) {
    return Timestamp::None;
  }
  constexpr std::int64_t kSecondsFrom1601To1970 = 11'644'473'600;
  constexpr std::int64_t kTicks = 10'000'000;
  const posix::TimestampFound& found = state_->verdict->timestamp;
  if (found.kind == Timestamp::Found) {
    const std::int64_t seconds = found.time + kSecondsFrom1601To1970;
    *time = static_cast<std::uint64_t>(std::max<std::int64_t>(seconds, 0) * kTicks);
  }
  return found.kind;
}

TrustStatus VerifyDigestOnly(cvn::StringView path) {
  constexpr auto kFileError = static_cast<TrustStatus>(0x80092003);  // CRYPT_E_FILE_ERROR
  files::File opened;
  if (OpenFile(path, &opened) != kSuccess) {
    return kFileError;
  }
  const ByteSource source(opened);
  SignedFile file(source);
  if (file.CheckForm() != kTrusted) {
    return file.CheckForm();
  }
  const SignedData* data = file.At(0);
  if (data == nullptr || !data->signer) {
    return kNoSignature;
  }
  const TrustStatus status = file.CheckContent(*data);
  return status == kTrusted
             ? posix::CheckMessageDigest(*data->signer, data->contentType, data->content.value)
             : status;
}

cvn::String SignerName(cvn::StringView path) {
  files::File opened;
  if (OpenFile(path, &opened) != kSuccess) {
    return {};
  }
  const ByteSource source(opened);
  const SignedFile file(source);
  const SignedData* data = file.At(0);
  if (data == nullptr || !data->signer) {
    return {};
  }
  const auto certificates = posix::ReadCertificates(*data);
  X509* signer = posix::FindSigner(certificates, *data->signer);
  return signer == nullptr ? cvn::String() : posix::SimpleDisplayName(signer);
}

RdnReader::RdnReader() = default;
RdnReader::~RdnReader() = default;

bool RdnReader::IsAvailable() const { return true; }

Code RdnReader::Next(cvn::StringView* name, cvn::String* key, cvn::String* value) const {
  return posix::TakeRdn(name, key, value);
}

}  // namespace platform::signatures
