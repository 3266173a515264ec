// The certificate trust list that a catalog signs: one subject for each file.
#pragma once

#include <optional>

#include "platform/byte_source.h"
#include "platform/catalogs.h"
#include "platform/formats/der.h"
#include "platform/offline/authenticode/signed_data.h"
#include "support/string.h"

namespace platform::posix {

// Whether the signed data is that of a catalog: a trust list that lists files, under the content's
// [0] and in no octet string.
bool IsCatalog(const SignedData& data);

// The certificates of a catalog must be sorted as DER demands of a SET OF; Microsoft refuses one
// where they aren't, since October 2020. Programs are free of that.
bool IsStrictCatalog(const SignedData& data);

// What a catalog says of one file. The views lie in the trust list.
struct CatalogEntry {
  Der tag;                      // the subject's identifier
  std::optional<Der> digest;    // of the indirect data
  std::optional<Der> fileName;  // the value of the attribute "File"
};

// Walks a trust list.
class CatalogReader {
 public:
  explicit CatalogReader(const SignedData& data);

  // False behind the last entry, and at one that is malformed: then IsGood is false.
  bool Next(CatalogEntry* entry);
  bool IsGood() const { return good_ && subjects_.IsGood(); }
  // The reference tag: the identifier as zero-ended wide text, or in the second form of catalogs,
  // as the hexadecimal digits of its bytes.
  cvn::String TagOf(const CatalogEntry& entry) const;

 private:
  DerReader subjects_;
  bool tagsAreBytes_ = false;
  bool good_ = true;
};

// The bytes of a file that is one SEQUENCE from its first byte to its last, as a catalog is; empty
// when it isn't, or has more than 128 MiB.
Bytes ReadSequenceFile(const ByteSource& source);

// The whole catalog, in memory. 13 when the bytes are no catalog.
Code ReadCatalog(Der bytes, cvn::List<catalogs::Member>* members);

}  // namespace platform::posix
