#include "platform/offline/authenticode/authenticode.h"

#include <array>

#include "platform/clock.h"
#include "platform/file_digest.h"
#include "platform/offline/authenticode/catalog_file.h"

namespace platform::posix {
namespace {

using signatures::kBadDigest;
using signatures::kBadImage;
using signatures::kBadTimestamp;
using signatures::kNoSignature;
using signatures::kNoSignerCertificate;
using signatures::kSubjectFormUnknown;
using signatures::kTrusted;
using signatures::Timestamp;
using signatures::TrustStatus;

// SPC_PE_IMAGE_DATA_OBJID, and szOID_NESTED_SIGNATURE: an unsigned attribute with more signatures.
constexpr ObjectId kImageData(1, 3, 6, 1, 4, 1, 311, 2, 1, 15);
constexpr ObjectId kNestedSignature(1, 3, 6, 1, 4, 1, 311, 2, 4, 1);
constexpr std::size_t kMostSignatures = 32;

TrustStatus CheckSigner(SignedFile* file, const SignedData& data, X509* certificate) {
  TrustStatus status = file->CheckContent(data);
  if (status == kTrusted && certificate == nullptr) {
    status = kNoSignerCertificate;
  }
  if (status == kTrusted) {
    status = CheckMessageDigest(*data.signer, data.contentType, data.content.value);
  }
  return status == kTrusted ? CheckSignature(*data.signer, certificate) : status;
}

}  // namespace

SignedFile::SignedFile(const ByteSource& source) : source_(source) {
  image_ = ReadPeImage(source);
  if (image_) {
    form_ = SubjectForm::Image;
    ReadImage();
  } else if (IsBrokenPeImage(source)) {
    form_ = SubjectForm::BrokenImage;
  } else {
    ReadCatalog();
  }
}

TrustStatus SignedFile::CheckForm() const {
  switch (form_) {
    case SubjectForm::Unknown:
      return kSubjectFormUnknown;
    case SubjectForm::BrokenImage:
      return kBadImage;
    default:
      return kTrusted;
  }
}

void SignedFile::ReadImage() {
  constexpr std::uint64_t kLargestTable = 64 << 20;
  const Range table = image_->certificates;
  bytes_.resize(table.size <= kLargestTable ? table.size : 0);
  if (bytes_.empty() || !source_.Read(table.offset, bytes_)) {
    return;
  }
  for (const Range& entry : image_->signedData) {
    if (signatures_.size() < kMostSignatures) {
      Add(Der(bytes_).subspan(entry.offset - table.offset, entry.size));
    }
  }
}

void SignedFile::ReadCatalog() {
  bytes_ = ReadSequenceFile(source_);
  const std::optional<SignedData> data = ParseSignedData(bytes_);
  if (data && IsCatalog(*data)) {
    form_ = SubjectForm::Catalog;
    Add(bytes_);
  }
}

void SignedFile::Add(Der bytes) {
  const std::size_t first = signatures_.size();
  signatures_.push_back(ParseSignedData(bytes));
  if (!signatures_[first] || !signatures_[first]->signer) {
    return;
  }
  DerReader nested(FindAttribute(signatures_[first]->signer->unsignedAttributes, kNestedSignature));
  while (!nested.AtEnd() && signatures_.size() < kMostSignatures) {
    signatures_.push_back(ParseSignedData(nested.Take().whole));
  }
}

const SignedData* SignedFile::At(std::size_t index) const {
  return index < signatures_.size() && signatures_[index] ? &*signatures_[index] : nullptr;
}

TrustStatus SignedFile::CheckContent(const SignedData& data) {
  if (form_ == SubjectForm::Image) {
    return CheckImage(data);
  }
  // A catalog is its own content; the digest over it is the signer's.
  if (!IsCatalog(data) || !IsStrictCatalog(data)) {
    return kNoSignature;
  }
  CatalogReader reader(data);
  for (CatalogEntry entry; reader.Next(&entry);) {
  }
  return reader.IsGood() ? kTrusted : kNoSignature;
}

TrustStatus SignedFile::CheckImage(const SignedData& data) {
  const auto indirect = ParseIndirectData(data.content.value);
  if (!(kIndirectData == data.contentType) || data.content.tag != DerTag::Sequence || !indirect ||
      !(kImageData == indirect->type)) {
    return kNoSignature;
  }
  const EVP_MD* algorithm = DigestNamed(indirect->algorithm);
  if (algorithm == nullptr) {
    return kBadDigest;
  }
  Bytes& digest = digests_[algorithm];
  if (digest.empty()) {
    const auto digests = ImageDigest(source_, *image_, std::array{algorithm});
    if (!digests) {
      return kBadDigest;
    }
    digest = digests->front();
  }
  return AreEqual(digest, indirect->digest) ? kTrusted : kBadDigest;
}

Verdict VerifySignature(SignedFile* file, std::size_t index, const CertificateStore& store,
                        Revocation revocation) {
  Verdict verdict;
  if (file->CheckForm() != kTrusted) {
    verdict.status = file->CheckForm();
    return verdict;
  }
  const SignedData* data = file->At(index);
  if (data == nullptr || !data->signer) {
    return verdict;
  }
  const auto certificates = ReadCertificates(*data);
  verdict.hasSigner = true;
  X509* certificate = FindSigner(certificates, *data->signer);
  verdict.signer = Shared(certificate);
  verdict.status = CheckSigner(file, *data, certificate);
  if (verdict.status != kTrusted) {
    return verdict;
  }
  verdict.timestamp = FindTimestamp(store, *data->signer, certificates, revocation);
  if (verdict.timestamp.kind == Timestamp::Found && !verdict.timestamp.isGood) {
    verdict.status = kBadTimestamp;
    return verdict;
  }
  const auto lists = ReadRevocationLists(*data);
  verdict.isKeptByTimestamp = verdict.timestamp.isGood && !EndsWithCertificate(certificate);
  const auto now = static_cast<std::time_t>(clock::NowTicks() / clock::kTicksPerSecond);
  verdict.chain =
      VerifyChain(store, {.certificate = certificate,
                          .others = certificates,
                          .lists = lists,
                          .purpose = Purpose::CodeSigning,
                          .revocation = revocation,
                          .at = verdict.isKeptByTimestamp ? verdict.timestamp.time : now});
  verdict.status = verdict.chain.status;
  return verdict;
}

}  // namespace platform::posix
