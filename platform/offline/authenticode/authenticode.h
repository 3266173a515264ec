// Authenticode: the signatures of PE images and catalogs. The layers above see this part through
// platform/signatures.h and platform/catalogs.h; its other headers are its own.
//
// Checked of each signature:
// - it is strict DER, with exactly one signer, whose signed attributes are sorted as a SET OF;
// - its content is indirect data of an image, or a trust list of files, that stands under the
//   content's [0] as it is and in no octet string; of a catalog, whose certificates are sorted too;
// - the image's digest is the one in the indirect data;
// - the signed attributes hold the content's type, and the digest of its value without tag and
//   length;
// - the signature is made by the key of the certificate that the signer names, with RSA (PKCS #1
//   v1.5), ECDSA or DSA over a digest of the SHA family;
// - the certificate's chain: certificate_chain.h. It has to be valid at the time of the timestamp,
//   if there is one, which then has to be good itself; else now.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <vector>

#include "platform/formats/pe_image.h"
#include "platform/offline/authenticode/certificate_chain.h"
#include "platform/offline/authenticode/signed_data.h"
#include "platform/offline/authenticode/timestamp.h"

namespace platform::posix {

// A broken image has the magic numbers of one, but headers that do not hold together.
enum class SubjectForm { Unknown, BrokenImage, Image, Catalog };

// What a file holds of signatures.
class SignedFile {
 public:
  // `source` outlives this.
  explicit SignedFile(const ByteSource& source);
  SignedFile(const SignedFile&) = delete;
  SignedFile& operator=(const SignedFile&) = delete;

  // kTrusted for an image and a catalog; why there can be no signature for all else.
  signatures::TrustStatus CheckForm() const;
  // The first signature, then those nested in it, then further ones of the certificate table with
  // those nested in them; 32 at most.
  std::size_t Count() const { return signatures_.size(); }
  // Null for one that is malformed, and behind the last.
  const SignedData* At(std::size_t index) const;

  // Whether the file's content is what the signature says: kTrusted, kBadDigest, or kNoSignature
  // for a signature that is not one of such a file. The image is read once for each algorithm.
  signatures::TrustStatus CheckContent(const SignedData& data);

 private:
  void ReadImage();
  void ReadCatalog();
  void Add(Der bytes);
  signatures::TrustStatus CheckImage(const SignedData& data);

  const ByteSource& source_;
  SubjectForm form_ = SubjectForm::Unknown;
  std::optional<PeImage> image_;
  Bytes bytes_;  // the certificate table, or the catalog
  std::vector<std::optional<SignedData>> signatures_;
  std::map<const EVP_MD*, Bytes> digests_;
};

struct Verdict {
  signatures::TrustStatus status = signatures::kNoSignature;
  bool hasSigner = false;
  OpenSsl<X509> signer;  // null when the certificate isn't there
  TimestampFound timestamp;
  bool isKeptByTimestamp = false;  // the chain was judged as of the timestamp
  ChainVerdict chain;  // when that much of the signature was good; else it has no certificates
};

Verdict VerifySignature(SignedFile* file, std::size_t index, const CertificateStore& store,
                        Revocation revocation);

}  // namespace platform::posix
