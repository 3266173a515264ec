#include "platform/held_file.h"

#include <fcntl.h>
#include <sys/mman.h>

#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include "platform/formats/names.h"
#include "platform/linux/error_map.h"
#include "platform/offline/volume/volume.h"

namespace platform::files {
namespace {

constexpr std::uint64_t kLargest = std::uint64_t{256} << 20;
constexpr int kSeals = F_SEAL_WRITE | F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL;

Code CopyContent(File* from, File* to) {
  std::vector<std::byte> buffer(std::size_t{64} << 10);
  std::uint64_t total = 0;
  for (;;) {
    std::size_t count = 0;
    Code code = from->Read(buffer, &count);
    if (code != kSuccess || count == 0) {
      return code;
    }
    total += count;
    code =
        total > kLargest ? posix::Fail(kFileTooLarge) : to->Write(std::span(buffer).first(count));
    if (code != kSuccess) {
      return code;
    }
  }
}

}  // namespace

Code HeldFile::Hold(File original, cvn::StringView /*path*/) {
  const int descriptor = memfd_create("tessel", MFD_CLOEXEC | MFD_ALLOW_SEALING);
  if (descriptor < 0) {
    return posix::Fail(posix::CodeOf(errno));
  }
  File copy(descriptor);
  const Code copied = CopyContent(&original, &copy);
  if (copied != kSuccess) {
    return copied;
  }
  if (fcntl(descriptor, F_ADD_SEALS, kSeals) != 0) {
    return posix::Fail(posix::CodeOf(errno));
  }
  file_ = std::move(copy);
  // Never on C:, where no link of /proc is followed, even when the machine is the host's root.
  path_ = u"Z:\\proc\\self\\fd\\";
  path_.Append(posix::ToWide(std::to_string(descriptor)));
  return kSuccess;
}

}  // namespace platform::files
