#include "platform/post.h"

#include "platform/fetch.h"
#include "platform/windows/wide.h"
// <winhttp.h> needs <windows.h> before it.
#include <winhttp.h>

#include <array>
#include <memory>
#include <type_traits>
#include <vector>

#include "support/utf.h"

namespace platform {
namespace {

using windows::Wide;

constexpr int kMostMilliseconds = 60'000;  // of each step, and of reading the whole reply
constexpr DWORD kStatusOk = 200;

struct CloseInternet {
  void operator()(HINTERNET handle) const { ::WinHttpCloseHandle(handle); }
};
using Internet = std::unique_ptr<std::remove_pointer_t<HINTERNET>, CloseInternet>;

std::int32_t ResultOfLastError() {
  switch (const DWORD code = ::GetLastError()) {
    case ERROR_WINHTTP_INVALID_URL:
      return NumberOf(TransferResult::InvalidUrl);
    case ERROR_WINHTTP_UNRECOGNIZED_SCHEME:
      return NumberOf(TransferResult::UnknownProtocol);
    case ERROR_WINHTTP_NAME_NOT_RESOLVED:
      return NumberOf(TransferResult::ResourceNotFound);
    case ERROR_WINHTTP_CANNOT_CONNECT:
      return NumberOf(TransferResult::CannotConnect);
    case ERROR_WINHTTP_TIMEOUT:
      return NumberOf(TransferResult::ConnectionTimeout);
    case ERROR_WINHTTP_SECURE_FAILURE:
      return NumberOf(TransferResult::InvalidCertificate);
    default:
      return code == ERROR_SUCCESS ? NumberOf(TransferResult::DownloadFailure) : ResultOf(code);
  }
}

// What a URL names, in parts.
struct Place {
  cvn::PathString host;
  cvn::PathString path;  // with what is behind a '?'
  INTERNET_PORT port = 0;
  bool isSecure = false;
};

bool ReadUrl(cvn::StringView url, Place* place) {
  URL_COMPONENTS parts{};
  parts.dwStructSize = sizeof parts;
  parts.dwHostNameLength = parts.dwUrlPathLength = parts.dwExtraInfoLength = 1;  // asks for them
  const cvn::PathString text(url);
  if (::WinHttpCrackUrl(Wide(text), 0, 0, &parts) == 0) {
    return false;
  }
  place->host = windows::ViewOf(parts.lpszHostName, parts.dwHostNameLength);
  place->path = windows::ViewOf(parts.lpszUrlPath, parts.dwUrlPathLength);
  place->path.Append(windows::ViewOf(parts.lpszExtraInfo, parts.dwExtraInfoLength));
  place->port = parts.nPort;
  place->isSecure = parts.nScheme == INTERNET_SCHEME_HTTPS;
  return true;
}

bool Send(HINTERNET exchange, const PostRequest& request) {
  DWORD off = WINHTTP_DISABLE_REDIRECTS;
  const cvn::PathString header(
      cvn::Utf8ToWide(std::string("Content-Type: ") + request.contentType));
  const auto size = static_cast<DWORD>(request.body.size());
  return ::WinHttpSetOption(exchange, WINHTTP_OPTION_DISABLE_FEATURE, &off, sizeof off) != 0 &&
         ::WinHttpSendRequest(exchange, Wide(header), static_cast<DWORD>(-1),
                              const_cast<char*>(request.body.data()), size, size, 0) != 0 &&
         ::WinHttpReceiveResponse(exchange, nullptr) != 0;
}

std::int32_t Receive(HINTERNET exchange, std::size_t largest, std::string* reply) {
  DWORD status = 0;
  DWORD statusSize = sizeof status;
  if (::WinHttpQueryHeaders(exchange, WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                            WINHTTP_HEADER_NAME_BY_INDEX, &status, &statusSize,
                            WINHTTP_NO_HEADER_INDEX) == 0) {
    return ResultOfLastError();
  }
  if (status != kStatusOk) {
    return NumberOf(TransferResult::DataNotAvailable);
  }
  const ULONGLONG start = ::GetTickCount64();
  std::array<char, 16384> buffer;
  for (DWORD count = 1; count != 0;) {
    if (::WinHttpReadData(exchange, buffer.data(), static_cast<DWORD>(buffer.size()), &count) ==
        0) {
      return ResultOfLastError();
    }
    reply->append(buffer.data(), count);
    if (reply->size() > largest) {
      return NumberOf(TransferResult::DownloadFailure);
    }
    if (::GetTickCount64() - start > kMostMilliseconds) {
      return NumberOf(TransferResult::ConnectionTimeout);
    }
  }
  return 0;
}

}  // namespace

std::int32_t Post(const PostRequest& request, std::string* reply) {
  reply->clear();
  Place place;
  if (!ReadUrl(request.url, &place)) {
    return ResultOfLastError();
  }
  const Internet session(
      ::WinHttpOpen(L"Tessel", WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, nullptr, nullptr, 0));
  if (session == nullptr ||
      ::WinHttpSetTimeouts(session.get(), kMostMilliseconds, kMostMilliseconds, kMostMilliseconds,
                           kMostMilliseconds) == 0) {
    return ResultOfLastError();
  }
  const Internet server(::WinHttpConnect(session.get(), Wide(place.host), place.port, 0));
  const Internet exchange(server == nullptr
                              ? nullptr
                              : ::WinHttpOpenRequest(server.get(), L"POST", Wide(place.path),
                                                     nullptr, nullptr, nullptr,
                                                     place.isSecure ? WINHTTP_FLAG_SECURE : 0));
  return exchange == nullptr || !Send(exchange.get(), request)
             ? ResultOfLastError()
             : Receive(exchange.get(), request.largestReply, reply);
}

}  // namespace platform
