#include "tests/platform/loopback_server.h"

#include <gtest/gtest.h>
// <winsock2.h> has to come before <windows.h>.
#include <winsock2.h>

#include <algorithm>
#include <utility>

#include "support/format.h"
#include "support/utf.h"

namespace platform::test {
namespace {

using Socket = SOCKET;
using SendSize = int;
using SocketLength = int;
constexpr int kNoSignal = 0;

void OpenSockets() {
  WSADATA data;
  EXPECT_EQ(::WSAStartup(MAKEWORD(2, 2), &data), 0);
}

void CloseSocket(Socket socket) { ::closesocket(socket); }

}  // namespace
}  // namespace platform::test

#include "tests/platform/loopback_server.inc"
