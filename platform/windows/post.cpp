#include "platform/post.h"

#include "platform/fetch.h"

namespace platform {

std::int32_t Post(const PostRequest& /*request*/, std::string* /*reply*/) {
  return ResultOf(kNotSupported);
}

}  // namespace platform
