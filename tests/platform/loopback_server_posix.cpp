#include "tests/platform/loopback_server.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "support/format.h"
#include "support/utf.h"

namespace platform::test {
namespace {

using Socket = int;
using SendSize = std::size_t;
using SocketLength = socklen_t;
constexpr int kNoSignal = MSG_NOSIGNAL;

void OpenSockets() {}
void CloseSocket(Socket number) { close(number); }

}  // namespace
}  // namespace platform::test

#include "tests/platform/loopback_server.inc"
