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

// Sends a body, and gives that of the reply. Takes no more than a minute or so, and follows no
// redirect. Gives an HRESULT: 0, or a TransferResult, of which DataNotAvailable is another status
// than 200, and DownloadFailure a reply that is too long.
std::int32_t Post(const PostRequest& request, std::string* reply);

}  // namespace platform
