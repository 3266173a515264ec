// Signatures over a list of files that were made elsewhere: by a signing service, by `openssl cms`,
// or by a tool that signs catalogs.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "support/string.h"
#include "tools/tlx/catalog_signature.h"

namespace tlx {

struct ForeignSignature {
  CatalogSignature signature;
  Certificates certificates;           // those that it brings along
  std::optional<std::string> content;  // of the list, where it brings that along too
};

// Reads signed data, PKCS #7 or CMS, in DER or PEM form. Nothing on failure, with `*problem` saying
// why.
std::optional<ForeignSignature> ParseForeignSignature(std::string_view bytes, cvn::String* problem);

// The certificate among `certificates` whose key made the signature, over a list with this content.
// Null on failure, with `*problem` saying why.
platform::OpenSsl<X509> VerifyForeignSignature(const CatalogSignature& signature,
                                               std::string_view content,
                                               const Certificates& certificates,
                                               cvn::String* problem);

}  // namespace tlx
