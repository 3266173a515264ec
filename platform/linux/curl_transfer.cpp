#include "platform/linux/curl_transfer.h"

#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/stop_request.h"
#include "support/utf.h"

namespace platform::posix {
namespace {

constexpr long kConnectSeconds = 60;
constexpr long kSilentSeconds = 60;

struct Meaning {
  CURLcode code;
  TransferResult result;
};

constexpr Meaning kMeanings[] = {
    {CURLE_URL_MALFORMAT, TransferResult::InvalidUrl},
    {CURLE_UNSUPPORTED_PROTOCOL, TransferResult::UnknownProtocol},
    {CURLE_COULDNT_RESOLVE_HOST, TransferResult::ResourceNotFound},
    {CURLE_COULDNT_RESOLVE_PROXY, TransferResult::ResourceNotFound},
    {CURLE_COULDNT_CONNECT, TransferResult::CannotConnect},
    {CURLE_OPERATION_TIMEDOUT, TransferResult::ConnectionTimeout},
    {CURLE_TOO_MANY_REDIRECTS, TransferResult::RedirectFailed},
    {CURLE_LOGIN_DENIED, TransferResult::AuthenticationRequired},
    {CURLE_REMOTE_ACCESS_DENIED, TransferResult::ObjectNotFound},
    {CURLE_REMOTE_FILE_NOT_FOUND, TransferResult::ObjectNotFound},
    {CURLE_FTP_COULDNT_RETR_FILE, TransferResult::ObjectNotFound},
    {CURLE_SSL_CONNECT_ERROR, TransferResult::SecurityProblem},
    {CURLE_SSL_CACERT_BADFILE, TransferResult::SecurityProblem},
    {CURLE_PEER_FAILED_VERIFICATION, TransferResult::InvalidCertificate},
    {CURLE_OUT_OF_MEMORY, TransferResult::OutOfMemory},
    {CURLE_ABORTED_BY_CALLBACK, TransferResult::Cancelled},
};

TransferResult ResultOfStatus(long status) {
  switch (status) {
    case 401:
    case 407:
      return TransferResult::AuthenticationRequired;
    case 404:
    case 410:
      return TransferResult::ObjectNotFound;
    default:
      return TransferResult::DataNotAvailable;
  }
}

// Only after Open has seen that the library is there.
const CurlLibrary& Curl() { return *CurlLibrary::Get(); }

struct FreeText {
  void operator()(char* text) const { Curl().free(text); }
};

struct Target {
  const CurlTransfer::Sink* sink;
  std::int32_t result = 0;
};

std::size_t WriteToTarget(char* bytes, std::size_t unit, std::size_t count, void* target) {
  auto* to = static_cast<Target*>(target);
  to->result = (*to->sink)(std::as_bytes(std::span(bytes, unit * count)));
  return to->result == 0 ? unit * count : 0;
}

// Ends the transfer when the program is asked to stop; the library asks at least each second.
int EndWhenStopped(void*, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
  return stop::IsAsked() ? 1 : 0;
}

// Reads a URL as urlmon does: blanks and characters beyond ASCII are taken and encoded.
std::int32_t ReadUrl(cvn::StringView text, CURLU* url, bool* isSecure) {
  std::string bytes;
  for (const char byte : cvn::WideToUtf8(text)) {
    byte == ' ' ? bytes.append("%20") : bytes.append(1, byte);
  }
  const CURLUcode code =
      Curl().urlSet(url, CURLUPART_URL, bytes.c_str(), CURLU_URLENCODE | CURLU_NON_SUPPORT_SCHEME);
  if (code == CURLUE_BAD_SCHEME || code == CURLUE_UNSUPPORTED_SCHEME) {
    return NumberOf(TransferResult::UnknownProtocol);
  }
  char* scheme = nullptr;
  if (code != CURLUE_OK || Curl().urlGet(url, CURLUPART_SCHEME, &scheme, 0) != CURLUE_OK) {
    return NumberOf(TransferResult::InvalidUrl);
  }
  const std::unique_ptr<char, FreeText> owner(scheme);
  *isSecure = std::string_view(scheme) == "https";
  return 0;
}

// The places to be reached without a proxy.
std::string WithoutProxy() {
  std::string places = "localhost,127.0.0.1,::1";
  for (const char* name : {"no_proxy", "NO_PROXY"}) {
    const char* more = std::getenv(name);
    if (more != nullptr) {
      places.append(",").append(more);
    }
  }
  return places;
}

}  // namespace

void CurlTransfer::Deleter::operator()(CURL* transfer) const { Curl().easyCleanup(transfer); }
void CurlTransfer::Deleter::operator()(CURLU* url) const { Curl().urlCleanup(url); }

std::int32_t CurlTransfer::Open(cvn::StringView url, const char* protocols) {
  if (CurlLibrary::Get() == nullptr) {
    return NumberOf(TransferResult::DownloadFailure);
  }
  url_.reset(Curl().url());
  transfer_.reset(Curl().easyInit());
  if (url_ == nullptr || transfer_ == nullptr) {
    return NumberOf(TransferResult::OutOfMemory);
  }
  const std::int32_t read = ReadUrl(url, url_.get(), &isSecure_);
  if (read != 0) {
    return read;
  }
  Set(CURLOPT_CURLU, url_.get());
  Set(CURLOPT_PROTOCOLS_STR, protocols);
  Set(CURLOPT_NOPROXY, WithoutProxy().c_str());
  Set(CURLOPT_FAILONERROR, 1L);
  Set(CURLOPT_CONNECTTIMEOUT, kConnectSeconds);
  Set(CURLOPT_LOW_SPEED_LIMIT, 1L);
  Set(CURLOPT_LOW_SPEED_TIME, kSilentSeconds);
  Set(CURLOPT_NOSIGNAL, 1L);
  Set(CURLOPT_USERAGENT, "Tessel");
  Set(CURLOPT_WRITEFUNCTION, WriteToTarget);
  Set(CURLOPT_NOPROGRESS, 0L);
  Set(CURLOPT_XFERINFOFUNCTION, EndWhenStopped);
  return 0;
}

std::int32_t CurlTransfer::Perform(const Sink& sink) {
  Target target = {&sink};
  Set(CURLOPT_WRITEDATA, &target);
  const CURLcode code = Curl().easyPerform(transfer_.get());
  return target.result != 0 ? target.result : ResultOfTransfer(code);
}

long CurlTransfer::Status() const {
  long status = 0;
  Curl().easyGetinfo(transfer_.get(), CURLINFO_RESPONSE_CODE, &status);
  return status;
}

std::int32_t CurlTransfer::ResultOfTransfer(CURLcode code) const {
  if (code == CURLE_OK) {
    return 0;
  }
  long redirects = 0;
  Curl().easyGetinfo(transfer_.get(), CURLINFO_REDIRECT_COUNT, &redirects);
  const bool isUrlBad = code == CURLE_UNSUPPORTED_PROTOCOL || code == CURLE_URL_MALFORMAT;
  if (isUrlBad && redirects > 0) {
    return NumberOf(TransferResult::RedirectFailed);
  }
  if (code == CURLE_HTTP_RETURNED_ERROR) {
    return NumberOf(ResultOfStatus(Status()));
  }
  for (const Meaning& meaning : kMeanings) {
    if (meaning.code == code) {
      return NumberOf(meaning.result);
    }
  }
  return NumberOf(TransferResult::DownloadFailure);
}

}  // namespace platform::posix
