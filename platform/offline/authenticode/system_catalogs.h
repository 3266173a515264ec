// The catalogs that the machine has installed, below Windows\System32\CatRoot.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "platform/byte_source.h"
#include "platform/openssl.h"
#include "support/string.h"

namespace platform::posix {

// An index of all that they list, by SHA-1 and SHA-256, made by the first question and kept until
// the process ends. Whether a catalog is good is found out when a file first needs it.
class SystemCatalogs {
 public:
  static SystemCatalogs& Get();

  // Whether a catalog lists the file's digest, and verifies.
  bool IsVouchedFor(const ByteSource& file);
  // The path of the first one that lists it; empty when none does.
  cvn::String FirstThatLists(const ByteSource& file) const;

 private:
  struct Catalog {
    cvn::String path;
    Bytes digest;  // of the catalog itself, when its entries were read
    std::optional<bool> isGood;
  };
  // Of a SHA-256 digest, as many bytes as a SHA-1 digest has.
  using Listed = std::array<std::byte, 20>;
  struct Entry {
    Listed digest;
    std::uint32_t catalog;
    // The check takes the zero in what the compiler makes of this for a null pointer.
    auto operator<=>(const Entry&) const = default;  // NOLINT(modernize-use-nullptr)
  };

  SystemCatalogs();
  void Read(const cvn::String& path);
  // The numbers of the catalogs that list the file.
  std::vector<std::uint32_t> Listing(const ByteSource& file) const;
  bool IsGood(Catalog* catalog);

  std::vector<Catalog> catalogs_;
  std::vector<Entry> entries_;  // in order
};

}  // namespace platform::posix
