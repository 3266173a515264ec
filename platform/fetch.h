// The transfer of a download, which each platform does in its own way.
#pragma once

#include <cstdint>

#include "platform/error.h"
#include "support/string.h"

namespace platform {

// A code as an HRESULT; 0 stays 0.
constexpr std::int32_t ResultOf(Code code) {
  return static_cast<std::int32_t>(code == kSuccess ? 0 : 0x8007'0000 | (code & 0xFFFF));
}

// Why a transfer failed, as urlmon documents it ("URL Moniker Error Codes").
enum class TransferResult : std::uint32_t {
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
  Cancelled = 0x800704C7,  // the program was asked to stop
};

inline std::int32_t NumberOf(TransferResult result) { return static_cast<std::int32_t>(result); }

// Fetches `url` into the file at `path`, which is there and empty; after a failure it may hold
// anything. Gives an HRESULT.
std::int32_t Fetch(cvn::StringView url, cvn::StringView path);

}  // namespace platform
