// What the reader of signatures tells of a file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>

#include "support/containers.h"
#include "support/string.h"

namespace cvn {

struct NameKeyHash {
  std::size_t operator()(const String& key) const {
    std::uint32_t hash = 5381;
    for (const char16_t unit : key.AsView()) {
      hash = hash * 33 + unit;
    }
    return hash;
  }
};

// The parts of a distinguished name: for each key, such as "CN" or "O", its values in their order.
using NameParts = std::unordered_map<String, List<String>, NameKeyHash>;

// Takes distinguished names apart. Where the platform can't, a name has no parts.
class DistinguishedNameBuilder {
 public:
  static NameParts Build(StringView name);
};

}  // namespace cvn

namespace cvn::amsdk::AntivirusScan::ObjectInfo::SignatureInfo {

// One verified signature.
struct Chain {
  struct Certificate {
    String issuer;               // "C=RO, O=Example, CN=Example"
    String subject;              // likewise
    String serial;               // lower-case hexadecimal digits, two for each byte
    std::int64_t timestamp = 0;  // when it was signed, in seconds since 1970; 0 when nobody vouches
    NameParts issuerParts;
    NameParts subjectParts;
  };

  List<Certificate> certificates;
};

}  // namespace cvn::amsdk::AntivirusScan::ObjectInfo::SignatureInfo
