#include "platform/signatures.h"

#include <algorithm>
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
  const X509* signer = state_->verdict->signer.get();
  certificate->issuer = posix::X500Text(X509_get_issuer_name(signer));
  certificate->subject = posix::X500Text(X509_get_subject_name(signer));
  // The interface has the lowest byte first, as Windows has.
  certificate->serial = posix::SerialOf(signer);
  std::ranges::reverse(certificate->serial);
  return true;
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
