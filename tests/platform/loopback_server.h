// An HTTP server on the loopback address, with answers as a test writes them.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <thread>

#include "support/string.h"

namespace platform::test {

class LoopbackServer {
 public:
  // The bytes to send for the path of a request, headers included. The connection is closed behind
  // them.
  using Answer = std::function<std::string(std::string_view path)>;

  explicit LoopbackServer(Answer answer);
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;
  // From then on, connections are refused.
  ~LoopbackServer();

  cvn::String Url(std::string_view path) const;

 private:
  void Serve();

  Answer answer_;
  std::intptr_t listener_;
  std::uint16_t port_ = 0;
  std::thread thread_;
};

}  // namespace platform::test
