// Questions to a server, by HTTP's POST.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "support/string.h"

namespace platform {

struct PostRequest {
  cvn::StringView url;      // http or https
  const char* contentType;  // of the body
  std::string_view body;
  std::size_t largestReply;  // in bytes; a longer one is a failure
};

// Sends a body, and gives that of the reply. Takes no more than a minute, and follows no redirect.
// Gives an HRESULT as DownloadToFile does: 0, or a negative number such as 0x800C0005 (no such
// server), 0x800C0007 (another status than 200) or 0x800C0008 (the reply is too long).
// 0x80070032 on Windows, which asks no servers yet.
std::int32_t Post(const PostRequest& request, std::string* reply);

}  // namespace platform
