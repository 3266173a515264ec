// Downloads by libcurl. The results are those that urlmon documents for the same cause ("URL
// Moniker Error Codes").
//
// Up to kMostRedirects redirects are followed, to http and https only, and from https to https
// only. A server that takes more than kConnectSeconds to be reached, or then sends nothing for
// kSilentSeconds, has failed. TLS trusts what the host trusts. Proxies are those of the host's
// environment, but never for the host itself. Names in file: URLs are the machine's, as everywhere
// in a script.
#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/fetch.h"
#include "platform/files.h"
#include "platform/formats/names.h"
#include "platform/formats/windows_path.h"
#include "platform/linux/curl_library.h"
#include "support/utf.h"

namespace platform {
namespace {

enum class Result : std::uint32_t {
  InvalidUrl = 0x800C0002,
  CannotConnect = 0x800C0004,
  ResourceNotFound = 0x800C0005,
  ObjectNotFound = 0x800C0006,
  DataNotAvailable = 0x800C0007,
  DownloadFailure = 0x800C0008,
  AuthenticationRequired = 0x800C0009,
  ConnectionTimeout = 0x800C000B,
  UnknownProtocol = 0x800C000D,
  SecurityProblem = 0x800C000E,
  RedirectFailed = 0x800C0014,
  InvalidCertificate = 0x800C0019,
  OutOfMemory = 0x8007000E,
};

std::int32_t NumberOf(Result result) { return static_cast<std::int32_t>(result); }

constexpr long kMostRedirects = 10;
constexpr long kConnectSeconds = 60;
constexpr long kSilentSeconds = 60;

struct Meaning {
  CURLcode code;
  Result result;
};

constexpr Meaning kMeanings[] = {
    {CURLE_URL_MALFORMAT, Result::InvalidUrl},
    {CURLE_UNSUPPORTED_PROTOCOL, Result::UnknownProtocol},
    {CURLE_COULDNT_RESOLVE_HOST, Result::ResourceNotFound},
    {CURLE_COULDNT_RESOLVE_PROXY, Result::ResourceNotFound},
    {CURLE_COULDNT_CONNECT, Result::CannotConnect},
    {CURLE_OPERATION_TIMEDOUT, Result::ConnectionTimeout},
    {CURLE_TOO_MANY_REDIRECTS, Result::RedirectFailed},
    {CURLE_LOGIN_DENIED, Result::AuthenticationRequired},
    {CURLE_REMOTE_ACCESS_DENIED, Result::ObjectNotFound},
    {CURLE_REMOTE_FILE_NOT_FOUND, Result::ObjectNotFound},
    {CURLE_FTP_COULDNT_RETR_FILE, Result::ObjectNotFound},
    {CURLE_SSL_CONNECT_ERROR, Result::SecurityProblem},
    {CURLE_SSL_CACERT_BADFILE, Result::SecurityProblem},
    {CURLE_PEER_FAILED_VERIFICATION, Result::InvalidCertificate},
    {CURLE_OUT_OF_MEMORY, Result::OutOfMemory},
};

Result ResultOfStatus(long status) {
  switch (status) {
    case 401:
    case 407:
      return Result::AuthenticationRequired;
    case 404:
    case 410:
      return Result::ObjectNotFound;
    default:
      return Result::DataNotAvailable;
  }
}

// Only after FetchFromServer has seen that the library is there.
const posix::CurlLibrary& Curl() { return *posix::CurlLibrary::Get(); }

struct CurlDeleter {
  void operator()(CURL* transfer) const { Curl().easyCleanup(transfer); }
  void operator()(CURLU* url) const { Curl().urlCleanup(url); }
  void operator()(char* text) const { Curl().free(text); }
};

using Transfer = std::unique_ptr<CURL, CurlDeleter>;
using Url = std::unique_ptr<CURLU, CurlDeleter>;

struct Target {
  files::File file;
  Code code = kSuccess;  // of a write that failed
};

std::size_t WriteToTarget(char* bytes, std::size_t unit, std::size_t count, void* target) {
  auto* to = static_cast<Target*>(target);
  to->code = to->file.Write(std::as_bytes(std::span(bytes, unit * count)));
  return to->code == kSuccess ? unit * count : 0;
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
    return NumberOf(Result::UnknownProtocol);
  }
  char* scheme = nullptr;
  if (code != CURLUE_OK || Curl().urlGet(url, CURLUPART_SCHEME, &scheme, 0) != CURLUE_OK) {
    return NumberOf(Result::InvalidUrl);
  }
  const std::unique_ptr<char, CurlDeleter> owner(scheme);
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

void Prepare(CURL* transfer, CURLU* url, bool isSecure, Target* target) {
  Curl().easySetopt(transfer, CURLOPT_CURLU, url);
  Curl().easySetopt(transfer, CURLOPT_PROTOCOLS_STR, "http,https,ftp");
  Curl().easySetopt(transfer, CURLOPT_REDIR_PROTOCOLS_STR, isSecure ? "https" : "http,https");
  Curl().easySetopt(transfer, CURLOPT_NOPROXY, WithoutProxy().c_str());
  Curl().easySetopt(transfer, CURLOPT_FOLLOWLOCATION, 1L);
  Curl().easySetopt(transfer, CURLOPT_MAXREDIRS, kMostRedirects);
  Curl().easySetopt(transfer, CURLOPT_FAILONERROR, 1L);
  Curl().easySetopt(transfer, CURLOPT_CONNECTTIMEOUT, kConnectSeconds);
  Curl().easySetopt(transfer, CURLOPT_LOW_SPEED_LIMIT, 1L);
  Curl().easySetopt(transfer, CURLOPT_LOW_SPEED_TIME, kSilentSeconds);
  Curl().easySetopt(transfer, CURLOPT_NOSIGNAL, 1L);
  Curl().easySetopt(transfer, CURLOPT_USERAGENT, "Tessel");
  Curl().easySetopt(transfer, CURLOPT_WRITEFUNCTION, WriteToTarget);
  Curl().easySetopt(transfer, CURLOPT_WRITEDATA, target);
}

std::int32_t ResultOfTransfer(CURLcode code, CURL* transfer, const Target& target) {
  if (code == CURLE_OK) {
    return 0;
  }
  if (target.code != kSuccess) {
    return ResultOf(target.code);
  }
  long redirects = 0;
  Curl().easyGetinfo(transfer, CURLINFO_REDIRECT_COUNT, &redirects);
  const bool isUrlBad = code == CURLE_UNSUPPORTED_PROTOCOL || code == CURLE_URL_MALFORMAT;
  if (isUrlBad && redirects > 0) {
    return NumberOf(Result::RedirectFailed);
  }
  if (code == CURLE_HTTP_RETURNED_ERROR) {
    long status = 0;
    Curl().easyGetinfo(transfer, CURLINFO_RESPONSE_CODE, &status);
    return NumberOf(ResultOfStatus(status));
  }
  for (const Meaning& meaning : kMeanings) {
    if (meaning.code == code) {
      return NumberOf(meaning.result);
    }
  }
  return NumberOf(Result::DownloadFailure);
}

std::int32_t FetchFromServer(cvn::StringView url, Target* target) {
  if (posix::CurlLibrary::Get() == nullptr) {
    return NumberOf(Result::DownloadFailure);
  }
  const Url parsed(Curl().url());
  const Transfer transfer(Curl().easyInit());
  if (parsed == nullptr || transfer == nullptr) {
    return NumberOf(Result::OutOfMemory);
  }
  bool isSecure = false;
  const std::int32_t read = ReadUrl(url, parsed.get(), &isSecure);
  if (read != 0) {
    return read;
  }
  Prepare(transfer.get(), parsed.get(), isSecure, target);
  return ResultOfTransfer(Curl().easyPerform(transfer.get()), transfer.get(), *target);
}

int DigitOf(char digit) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  const char lower = static_cast<char>(digit >= 'A' && digit <= 'F' ? digit | 0x20 : digit);
  const std::size_t value = kDigits.find(lower);
  return value == std::string_view::npos ? -1 : static_cast<int>(value);
}

cvn::String WithoutEscapes(cvn::StringView text) {
  const std::string bytes = cvn::WideToUtf8(text);
  std::string plain;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const bool isEscape = bytes[i] == '%' && i + 2 < bytes.size() && DigitOf(bytes[i + 1]) >= 0 &&
                          DigitOf(bytes[i + 2]) >= 0;
    plain +=
        isEscape ? static_cast<char>(DigitOf(bytes[i + 1]) << 4 | DigitOf(bytes[i + 2])) : bytes[i];
    i += isEscape ? 2 : 0;
  }
  return cvn::Utf8ToWide(plain);
}

// The path that a URL without a server names; nothing when it is of another kind. A path is a URL
// of this kind itself.
std::optional<cvn::String> FilePathOf(cvn::StringView url) {
  constexpr cvn::StringView kScheme = u"FILE:";
  if (posix::HasDrive(url)) {
    return cvn::String(url);
  }
  if (posix::Folded(url.substr(0, kScheme.size())) != kScheme) {
    return std::nullopt;
  }
  cvn::StringView path = url.substr(kScheme.size());
  if (path.starts_with(u"//")) {
    path.remove_prefix(2);
    if (posix::Folded(path.substr(0, 10)) == u"LOCALHOST/") {
      path.remove_prefix(9);
    }
    if (!path.starts_with(u'/') && !posix::HasDrive(path)) {
      path = url.substr(kScheme.size());  // a server's name: a path with a server
    }
  }
  if (path.starts_with(u'/') && posix::HasDrive(path.substr(1))) {
    path.remove_prefix(1);
  }
  return WithoutEscapes(path);
}

std::int32_t FetchFile(cvn::StringView path, Target* target) {
  files::File source;
  Code code = files::Open(path, files::Access::Read, files::Share::Read,
                          files::Disposition::OpenExisting, &source);
  if (code == kFileNotFound || code == kPathNotFound) {
    return NumberOf(Result::ResourceNotFound);
  }
  std::array<std::byte, 65536> buffer;
  std::size_t count = 1;
  while (code == kSuccess && count != 0) {
    code = source.Read(buffer, &count);
    if (code == kSuccess) {
      code = target->file.Write(std::span(buffer).first(count));
    }
  }
  return ResultOf(code);
}

}  // namespace

std::int32_t Fetch(cvn::StringView url, cvn::StringView path) {
  Target target;
  const Code code = files::Open(path, files::Access::Write, files::Share::None,
                                files::Disposition::OpenExisting, &target.file);
  if (code != kSuccess) {
    return ResultOf(code);
  }
  url = posix::UpToZero(url);
  const std::optional<cvn::String> file = FilePathOf(url);
  return file ? FetchFile(*file, &target) : FetchFromServer(url, &target);
}

}  // namespace platform
