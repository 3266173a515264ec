#include "platform/volume_state.h"

#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>

#include "platform/files.h"
#include "platform/linux/error_map.h"
#include "platform/offline/volume/volume.h"

namespace platform::machine {
namespace {

// The file begins with a signature: of a state that is complete, or that Windows was going on from
// when it was interrupted. Any other ("wake", zeroes) says that there is nothing to go on from.
bool HoldsWindows() {
  constexpr std::string_view kLive[] = {"hibr", "rstr"};
  files::File file;
  Code code = files::Open(u"C:\\hiberfil.sys", files::Access::Read, files::Share::ReadWriteDelete,
                          files::Disposition::OpenExisting, &file);
  if (code != kSuccess) {
    return code != kFileNotFound;
  }
  std::array<char, 4> signature{};
  std::size_t count = 0;
  code = file.Read(std::as_writable_bytes(std::span(signature)), &count);
  std::ranges::transform(signature, signature.begin(),
                         [](char c) { return static_cast<char>(c | 0x20); });
  const std::string_view text(signature.data(), count);
  return code != kSuccess || std::ranges::find(kLive, text) != std::end(kLive);
}

}  // namespace

Code LookAtVolume(VolumeState* state) {
  struct statvfs volume {};
  if (fstatvfs(posix::Machine::Get().Folder()->Get(), &volume) != 0) {
    return posix::Fail(posix::CodeOf(errno));
  }
  state->isHibernated = HoldsWindows();
  state->isReadOnly = (volume.f_flag & ST_RDONLY) != 0;
  const bool isRoot = geteuid() == 0;  // for whom a file system may keep some room
  // Some file systems don't count files.
  const bool canMakeFiles = volume.f_files == 0 || (isRoot ? volume.f_ffree : volume.f_favail) != 0;
  const std::uint64_t blocks = isRoot ? volume.f_bfree : volume.f_bavail;
  state->freeBytes = canMakeFiles ? blocks * volume.f_frsize : 0;
  return kSuccess;
}

}  // namespace platform::machine
