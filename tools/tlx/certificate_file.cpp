#include "tools/tlx/certificate_file.h"

#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "platform/openssl.h"
#include "tools/tlx/file_io.h"
#include "tools/tlx/messages.h"

namespace tlx {
namespace {

constexpr std::string_view kBegin = "-----BEGIN CERTIFICATE-----";
constexpr std::string_view kEnd = "-----END CERTIFICATE-----";

// The DER form of a certificate in PEM form; empty when it is none.
std::vector<std::byte> DerOf(std::string_view pem) {
  const platform::OpenSsl<BIO> bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  const platform::OpenSsl<X509> certificate(
      bio == nullptr ? nullptr : PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
  return certificate == nullptr ? platform::Bytes()
                                : platform::Encoded<i2d_X509>(certificate.get());
}

TextPosition LineAt(std::string_view text, std::size_t offset) {
  const auto lines =
      std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(offset), '\n');
  return {static_cast<std::size_t>(lines) + 1, 0};
}

}  // namespace

int ReadCertificates(cvn::StringView path, cvn::List<std::vector<std::byte>>* certificates) {
  std::string bytes;
  const platform::Code code = ReadInput(path, &bytes);
  if (code != platform::kSuccess) {
    return FailToRead(path, code);
  }
  const std::string_view text = bytes;
  std::size_t begin = text.find(kBegin);
  if (begin == std::string_view::npos) {
    return FailAt(path, {1, 0}, u"there is no certificate in PEM form in it");
  }
  while (begin != std::string_view::npos) {
    const std::size_t end = text.find(kEnd, begin);
    if (end == std::string_view::npos) {
      return FailAt(path, LineAt(text, begin), u"the certificate that begins here has no end");
    }
    std::vector<std::byte> der = DerOf(text.substr(begin, end + kEnd.size() - begin));
    if (der.empty()) {
      return FailAt(path, LineAt(text, begin), u"the certificate that begins here is damaged");
    }
    certificates->push_back(std::move(der));
    begin = text.find(kBegin, end);
  }
  return kExitDone;
}

}  // namespace tlx
