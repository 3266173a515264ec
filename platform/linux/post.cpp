#include "platform/post.h"

#include "platform/linux/curl_transfer.h"

namespace platform {
namespace {

constexpr long kMostSeconds = 60;
constexpr long kStatusOk = 200;

struct FreeHeaders {
  void operator()(curl_slist* headers) const { posix::CurlLibrary::Get()->slistFreeAll(headers); }
};

}  // namespace

std::int32_t Post(const PostRequest& request, std::string* reply) {
  posix::CurlTransfer transfer;
  const std::int32_t opened = transfer.Open(request.url, "http,https");
  if (opened != 0) {
    return opened;
  }
  const std::string type = std::string("Content-Type: ") + request.contentType;
  const std::unique_ptr<curl_slist, FreeHeaders> headers(
      posix::CurlLibrary::Get()->slistAppend(nullptr, type.c_str()));
  if (headers == nullptr) {
    return NumberOf(TransferResult::OutOfMemory);
  }
  transfer.Set(CURLOPT_HTTPHEADER, headers.get());
  transfer.Set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
  transfer.Set(CURLOPT_POSTFIELDS, request.body.data());
  transfer.Set(CURLOPT_TIMEOUT, kMostSeconds);
  reply->clear();
  const std::int32_t result = transfer.Perform([&](std::span<const std::byte> bytes) {
    reply->append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    return reply->size() > request.largestReply ? NumberOf(TransferResult::DownloadFailure) : 0;
  });
  return result == 0 && transfer.Status() != kStatusOk ? NumberOf(TransferResult::DataNotAvailable)
                                                       : result;
}

}  // namespace platform
