// A catalog's content, the list of files, and the signature over it. The form is that of catalogs
// which Windows itself makes: the first version's list, with SHA-256 digests.
#pragma once

#include <openssl/types.h>

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "support/containers.h"
#include "support/string.h"

namespace tlx {

struct ListedFile {
  cvn::String name;               // relative to the catalog's folder, with backslashes
  std::vector<std::byte> digest;  // SHA-256: an image's Authenticode digest, else that of all bytes
  bool isImage = false;           // a PE image
};

// The list of `files`, in their order. Empty when OpenSSL gives no random bytes or no time.
std::string BuildTrustList(std::span<const ListedFile> files);

// The list, signed. `certificates` are in DER form, the signer's first. Empty when OpenSSL fails.
std::string SignTrustList(std::string_view list,
                          const cvn::List<std::vector<std::byte>>& certificates, EVP_PKEY* key);

}  // namespace tlx
