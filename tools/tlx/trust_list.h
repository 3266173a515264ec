// A catalog's content, the list of files. The form is that of catalogs which Windows itself makes:
// the first version's list, with SHA-256 digests.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "support/string.h"

namespace tlx {

struct ListedFile {
  cvn::String name;               // relative to the catalog's folder, with backslashes
  std::vector<std::byte> digest;  // SHA-256: an image's Authenticode digest, else that of all bytes
  bool isImage = false;           // a PE image
};

// What a list has of its own, whatever it lists. Both are elements in DER.
struct ListOrigin {
  std::string identifier;
  std::string time;  // when it was made
};

struct TrustList {
  ListOrigin origin;
  std::vector<std::string> entries;  // elements in DER, one a file
};

// A new identifier, and the present time. Nothing when OpenSSL gives no random bytes or no time.
std::optional<ListOrigin> MakeOrigin();

// The entries of `files`, in their order.
std::vector<std::string> EncodeEntries(std::span<const ListedFile> files);

// The list as one element in DER.
std::string BuildTrustList(const TrustList& list);

// Undoes BuildTrustList, of the element's content. What a list holds besides the above is lost, so
// that only building it again tells whether it was the same. Nothing when the content is malformed.
std::optional<TrustList> ParseTrustList(std::string_view content);

}  // namespace tlx
