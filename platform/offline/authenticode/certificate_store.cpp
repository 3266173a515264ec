#include "platform/offline/authenticode/certificate_store.h"

#include <utility>

#include "platform/formats/little_endian.h"
#include "platform/offline/authenticode/signed_data.h"
#include "platform/registry.h"

namespace platform::posix {
namespace {

using registry::Key;
using View = std::span<const std::byte>;

// Identifiers of a certificate context's properties, as wincrypt.h numbers them.
constexpr std::uint32_t kUsageProperty = 9;              // CERT_ENHKEY_USAGE_PROP_ID
constexpr std::uint32_t kCertificateProperty = 32;       // CERT_CERT_PROP_ID
constexpr std::uint32_t kRevocationListProperty = 33;    // CERT_CRL_PROP_ID
constexpr std::uint32_t kDisallowedSinceProperty = 104;  // CERT_DISALLOWED_FILETIME_PROP_ID

// The places that Windows reads as one store.
constexpr cvn::StringView kRootPlaces[] = {
    u"SOFTWARE\\Microsoft\\SystemCertificates\\ROOT",
    u"SOFTWARE\\Microsoft\\SystemCertificates\\AuthRoot",
    u"SOFTWARE\\Microsoft\\EnterpriseCertificates\\Root",
    u"SOFTWARE\\Policies\\Microsoft\\SystemCertificates\\Root",
};
constexpr cvn::StringView kAuthorityPlaces[] = {
    u"SOFTWARE\\Microsoft\\SystemCertificates\\CA",
    u"SOFTWARE\\Microsoft\\EnterpriseCertificates\\CA",
    u"SOFTWARE\\Policies\\Microsoft\\SystemCertificates\\CA",
};
constexpr cvn::StringView kDisallowedPlaces[] = {
    u"SOFTWARE\\Microsoft\\SystemCertificates\\Disallowed",
    u"SOFTWARE\\Microsoft\\EnterpriseCertificates\\Disallowed",
    u"SOFTWARE\\Policies\\Microsoft\\SystemCertificates\\Disallowed",
};

// Calls `visit` with the name and the property list of each entry of a store.
template <typename Visit>
void ForEach(cvn::StringView store, cvn::StringView kind, const Visit& visit) {
  constexpr std::size_t kLongestName = 256;
  cvn::String path(store);
  path.Append(kind);
  Key key;
  if (registry::OpenKey(Key(registry::Root::LocalMachine), path, registry::kEnumerateSubKeys,
                        &key) != kSuccess) {
    return;
  }
  cvn::String name;
  for (std::uint32_t i = 0; registry::EnumerateKey(key, i, kLongestName, &name) == kSuccess; ++i) {
    Key entry;
    std::uint32_t type = 0;
    Bytes list;
    if (registry::OpenKey(key, name, registry::kQueryValue, &entry) == kSuccess &&
        registry::QueryValue(entry, u"Blob", &type, &list) == kSuccess) {
      visit(name, View(list));
    }
  }
}

OpenSsl<X509> CertificateIn(View list) {
  return Decoded<d2i_X509>(FindProperty(list, kCertificateProperty).value_or(View()));
}

void ReadRevocationLists(cvn::StringView store, CertificateStore* out) {
  ForEach(store, u"\\CRLs", [out](cvn::StringView, View list) {
    const View encoded = FindProperty(list, kRevocationListProperty).value_or(View());
    if (auto read = Decoded<d2i_X509_CRL>(encoded)) {
      out->revocationLists.push_back(std::move(read));
    }
  });
}

// The digits of a thumbprint as its bytes; empty when they are none.
Bytes ReadThumbprint(cvn::StringView digits) {
  Bytes bytes;
  for (std::size_t at = 0; at + 1 < digits.size(); at += 2) {
    unsigned value = 0;
    for (const char16_t digit : digits.substr(at, 2)) {
      const char16_t lower = digit | 0x20;
      const bool isNumber = digit >= u'0' && digit <= u'9';
      if (!isNumber && (lower < u'a' || lower > u'f')) {
        return {};
      }
      value = value * 16 + (isNumber ? digit - u'0' : lower - u'a' + 10u);
    }
    bytes.push_back(static_cast<std::byte>(value));
  }
  return bytes;
}

}  // namespace

std::optional<View> FindProperty(View list, std::uint32_t id) {
  constexpr std::size_t kHeader = 12;  // identifier, a number that is 1, size
  while (list.size() >= kHeader) {
    const std::size_t size = NumberAt<std::uint32_t>(list, 8);
    if (size > list.size() - kHeader) {
      return std::nullopt;
    }
    if (NumberAt<std::uint32_t>(list, 0) == id) {
      return list.subspan(kHeader, size);
    }
    list = list.subspan(kHeader + size);
  }
  return std::nullopt;
}

CertificateStore ReadMachineStore() {
  CertificateStore store;
  for (const cvn::StringView place : kRootPlaces) {
    ForEach(place, u"\\Certificates", [&store](cvn::StringView, View list) {
      auto certificate = CertificateIn(list);
      // A root with a date of distrust counts as distrusted, whatever the date.
      if (certificate && !FindProperty(list, kDisallowedSinceProperty)) {
        const View usages = FindProperty(list, kUsageProperty).value_or(View());
        store.roots.push_back({std::move(certificate), {usages.begin(), usages.end()}});
      }
    });
  }
  for (const cvn::StringView place : kAuthorityPlaces) {
    ForEach(place, u"\\Certificates", [&store](cvn::StringView, View list) {
      if (auto certificate = CertificateIn(list)) {
        store.authorities.push_back(std::move(certificate));
      }
    });
    ReadRevocationLists(place, &store);
  }
  for (const cvn::StringView place : kDisallowedPlaces) {
    // Some entries have the digest alone, and it is every entry's name.
    ForEach(place, u"\\Certificates", [&store](cvn::StringView name, View) {
      store.disallowed.insert(ReadThumbprint(name));
    });
    ReadRevocationLists(place, &store);
  }
  return store;
}

Bytes ThumbprintOf(const X509* certificate) {
  Bytes digest(static_cast<std::size_t>(EVP_MD_get_size(EVP_sha1())));
  X509_digest(certificate, EVP_sha1(), AsUnsigned(digest), nullptr);
  return digest;
}

}  // namespace platform::posix
