// One transfer by libcurl.
//
// A server that takes more than a minute to be reached, or then sends nothing for a minute, has
// failed. TLS trusts what the host trusts. Proxies are those of the host's environment, but never
// for the host itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>

#include "platform/fetch.h"
#include "platform/linux/curl_library.h"
#include "support/string.h"

namespace platform::posix {

class CurlTransfer {
 public:
  // Takes what the server sends; gives 0, or the result that ends the transfer.
  using Sink = std::function<std::int32_t(std::span<const std::byte>)>;

  // Prepares a transfer of `url` by one of the protocols, "http,https". 0, or a TransferResult.
  std::int32_t Open(cvn::StringView url, const char* protocols);
  // The rest is for an open one.
  bool IsSecure() const { return isSecure_; }
  template <typename Value>
  void Set(CURLoption option, Value value) {
    CurlLibrary::Get()->easySetopt(transfer_.get(), option, value);
  }
  // 0, a TransferResult, or what the sink gave.
  std::int32_t Perform(const Sink& sink);
  // The status of the server's answer.
  long Status() const;

 private:
  struct Deleter {
    void operator()(CURL* transfer) const;
    void operator()(CURLU* url) const;
  };

  std::int32_t ResultOfTransfer(CURLcode code) const;

  std::unique_ptr<CURL, Deleter> transfer_;
  std::unique_ptr<CURLU, Deleter> url_;
  bool isSecure_ = false;
};

}  // namespace platform::posix
