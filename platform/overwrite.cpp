#include "platform/overwrite.h"

#include <algorithm>
#include <span>
#include <vector>

namespace platform {
namespace {

Code CopyRange(files::File* from, files::File* to, std::uint64_t begin, std::uint64_t end) {
  constexpr std::size_t kPiece = std::size_t{256} << 10;
  std::vector<std::byte> buffer(
      static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, end - begin)));
  Code code = from->Seek(begin);
  if (code == kSuccess) {
    code = to->Seek(begin);
  }
  for (std::uint64_t at = begin; code == kSuccess && at < end;) {
    const std::uint64_t wanted = std::min<std::uint64_t>(buffer.size(), end - at);
    std::size_t count = 0;
    code = from->Read(std::span(buffer).first(static_cast<std::size_t>(wanted)), &count);
    if (code == kSuccess && count == 0) {
      code = kReadFault;  // it has become shorter
    }
    if (code == kSuccess) {
      code = to->Write(std::span(buffer).first(count));
    }
    at += count;
  }
  return code;
}

}  // namespace

Code OverwriteContent(files::File* from, files::File* to) {
  std::uint64_t before = 0;
  std::uint64_t after = 0;
  Code code = to->Size(&before);
  if (code == kSuccess) {
    code = from->Size(&after);
  }
  if (code == kSuccess && after > before) {
    code = CopyRange(from, to, before, after);
    if (code == kSuccess) {
      code = to->Flush();  // what is written late may find the disk full late
    }
    if (code != kSuccess) {
      IgnoreError(to->SetSize(before));  // why it failed counts
      return code;
    }
  }
  if (code == kSuccess) {
    code = CopyRange(from, to, 0, std::min(before, after));
  }
  if (code == kSuccess && after < before) {
    code = to->SetSize(after);
  }
  return code == kSuccess ? to->Flush() : code;
}

}  // namespace platform
