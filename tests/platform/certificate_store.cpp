#include "tests/platform/certificate_store.h"

#include <gtest/gtest.h>

#include "platform/registry.h"
#include "support/format.h"
#include "support/utf.h"
#include "tests/platform/fixture.h"
#include "tests/platform/signing.h"

namespace platform::test {
void AddToStore(const char* place, std::uint32_t property, const std::string& encoded) {
  constexpr cvn::StringView kStores = u"SOFTWARE\\Microsoft\\SystemCertificates\\";
  const std::uint32_t header[] = {property, 1, static_cast<std::uint32_t>(encoded.size())};
  const std::string blob = std::string(reinterpret_cast<const char*>(header), 12) + encoded;
  const cvn::String path = cvn::Format(u"%s%s\\%s", kStores, cvn::Utf8ToWide(place),
                                       cvn::Utf8ToWide(Hex(DigestOf(encoded, EVP_sha1()))));
  registry::Key key;
  ASSERT_EQ(registry::CreateKey(registry::Key(registry::Root::LocalMachine), path, false,
                                registry::kSetValue, &key),
            kSuccess);
  ASSERT_EQ(registry::SetValue(key, u"Blob", registry::kTypeBinary, BytesOf(blob)), kSuccess);
}

}  // namespace platform::test
