#include "tools/tlx/time_stamp.h"

#include <openssl/err.h>
#include <openssl/pkcs7.h>
#include <openssl/rand.h>
#include <openssl/ts.h>

#include <array>
#include <memory>

#include "platform/fetch.h"
#include "platform/file_digest.h"
#include "platform/post.h"
#include "support/format.h"
#include "support/utf.h"
#include "tools/tlx/der_writer.h"

namespace tlx {
namespace {

using platform::Bytes;
using platform::OpenSsl;

// A token has a few certificates of some 2 KB each.
constexpr std::size_t kLargestReply = std::size_t{1024} * 1024;

struct FreeStamp {
  void operator()(TS_REQ* it) const { TS_REQ_free(it); }
  void operator()(TS_RESP* it) const { TS_RESP_free(it); }
  void operator()(TS_MSG_IMPRINT* it) const { TS_MSG_IMPRINT_free(it); }
  void operator()(TS_VERIFY_CTX* it) const { TS_VERIFY_CTX_free(it); }
  void operator()(ASN1_INTEGER* it) const { ASN1_INTEGER_free(it); }
};
template <typename T>
using Owned = std::unique_ptr<T, FreeStamp>;

cvn::String Cause() {
  const char* details = "";
  int flags = 0;
  const unsigned long error = ERR_peek_error_all(nullptr, nullptr, nullptr, &details, &flags);
  const char* text = error == 0 ? nullptr : ERR_reason_error_string(error);
  cvn::String cause = text == nullptr ? cvn::String(u"it can't be read") : cvn::Utf8ToWide(text);
  if ((flags & ERR_TXT_STRING) != 0 && *details != '\0') {
    cause.Append(cvn::Format(u" (%s)", cvn::Utf8ToWide(details)));
  }
  ERR_clear_error();
  return cause;
}

// What was signed, by its digest.
Owned<TS_MSG_IMPRINT> ImprintOf(std::string_view signature) {
  Bytes digest = platform::Digest(std::as_bytes(std::span(signature)), EVP_sha256());
  Owned<TS_MSG_IMPRINT> imprint(TS_MSG_IMPRINT_new());
  const OpenSsl<X509_ALGOR> algorithm(X509_ALGOR_new());
  const bool isMade =
      imprint != nullptr && algorithm != nullptr && !digest.empty() &&
      X509_ALGOR_set0(algorithm.get(), OBJ_nid2obj(NID_sha256), V_ASN1_NULL, nullptr) == 1 &&
      TS_MSG_IMPRINT_set_algo(imprint.get(), algorithm.get()) == 1 &&
      TS_MSG_IMPRINT_set_msg(imprint.get(), platform::AsUnsigned(digest),
                             static_cast<int>(digest.size())) == 1;
  return isMade ? std::move(imprint) : nullptr;
}

// A number that nobody can have guessed, so that no older answer fits.
Owned<ASN1_INTEGER> MakeNonce() {
  std::array<unsigned char, 16> bytes{};
  if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) {
    return nullptr;
  }
  const OpenSsl<BIGNUM> number(BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr));
  return Owned<ASN1_INTEGER>(BN_to_ASN1_INTEGER(number.get(), nullptr));
}

Owned<TS_REQ> MakeRequest(std::string_view signature) {
  Owned<TS_REQ> request(TS_REQ_new());
  const Owned<TS_MSG_IMPRINT> imprint = ImprintOf(signature);
  const Owned<ASN1_INTEGER> nonce = MakeNonce();
  const bool isMade = request != nullptr && imprint != nullptr && nonce != nullptr &&
                      TS_REQ_set_version(request.get(), 1) == 1 &&
                      TS_REQ_set_msg_imprint(request.get(), imprint.get()) == 1 &&
                      TS_REQ_set_nonce(request.get(), nonce.get()) == 1 &&
                      TS_REQ_set_cert_req(request.get(), 1) == 1;
  return isMade ? std::move(request) : nullptr;
}

cvn::String DescribeTransfer(std::int32_t result) {
  using platform::TransferResult;
  switch (static_cast<TransferResult>(result)) {
    case TransferResult::InvalidUrl:
    case TransferResult::UnknownProtocol:
      return u"it is no address of http or https";
    case TransferResult::CannotConnect:
      return u"the server takes no connection";
    case TransferResult::ResourceNotFound:
      return u"there is no such server";
    case TransferResult::ObjectNotFound:
      return u"the server has nothing there";
    case TransferResult::ConnectionTimeout:
      return u"the server doesn't answer in time";
    default:
      return cvn::Format(u"it failed with 0x%08X", static_cast<std::uint32_t>(result));
  }
}

// Trusts the certificates in the token, so that everything but the trust in them is verified.
X509_STORE* StoreOf(const PKCS7& token) {
  OpenSsl<X509_STORE> store(X509_STORE_new());
  const STACK_OF(X509)* certificates = token.d.sign->cert;
  bool isReady =
      store != nullptr && X509_STORE_set_flags(store.get(), X509_V_FLAG_PARTIAL_CHAIN) == 1;
  for (int i = 0; isReady && i < sk_X509_num(certificates); ++i) {
    isReady = X509_STORE_add_cert(store.get(), sk_X509_value(certificates, i)) == 1;
  }
  return isReady ? store.release() : nullptr;
}

bool Verify(TS_REQ* request, TS_RESP* response) {
  const PKCS7* token = TS_RESP_get_token(response);
  const Owned<TS_VERIFY_CTX> context(TS_REQ_to_TS_VERIFY_CTX(request, nullptr));
  X509_STORE* store = token == nullptr || context == nullptr ? nullptr : StoreOf(*token);
  if (context == nullptr) {
    return false;
  }
  // What the request doesn't ask for has no flag of its own yet. The context owns the store.
  TS_VERIFY_CTX_add_flags(context.get(), TS_VFY_VERSION | TS_VFY_SIGNATURE);
  TS_VERIFY_CTX_set_store(context.get(), store);
  return TS_RESP_verify_response(context.get(), response) == 1;
}

}  // namespace

std::optional<TimeStamp> FetchTimeStamp(cvn::StringView url, std::string_view signature,
                                        cvn::String* problem) {
  const Owned<TS_REQ> request = MakeRequest(signature);
  const Bytes question =
      request == nullptr ? Bytes() : platform::Encoded<i2d_TS_REQ>(request.get());
  if (question.empty()) {
    *problem = u"OpenSSL can't ask for a time stamp";
    return std::nullopt;
  }
  std::string reply;
  const std::int32_t result = platform::Post({.url = url,
                                              .contentType = "application/timestamp-query",
                                              .body = der::View(question),
                                              .largestReply = kLargestReply},
                                             &reply);
  if (result != 0) {
    *problem = cvn::Format(u"there is no time stamp: %s", DescribeTransfer(result));
    return std::nullopt;
  }
  ERR_clear_error();
  const auto* at = reinterpret_cast<const unsigned char*>(reply.data());
  const Owned<TS_RESP> response(d2i_TS_RESP(nullptr, &at, static_cast<long>(reply.size())));
  if (response == nullptr || !Verify(request.get(), response.get())) {
    *problem = cvn::Format(u"the server's answer is no good time stamp: %s", Cause());
    return std::nullopt;
  }
  const ASN1_GENERALIZEDTIME* time = TS_TST_INFO_get_time(TS_RESP_get_tst_info(response.get()));
  return TimeStamp{
      std::string(der::View(platform::Encoded<i2d_PKCS7>(TS_RESP_get_token(response.get())))),
      OpenSsl<ASN1_TIME>(ASN1_STRING_dup(time))};
}

}  // namespace tlx
