// What can be asked of a file besides its content: its identity, its final path, and the company
// that made it.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <string>
#include <string_view>

#include "platform/byte_source.h"
#include "platform/file_identity.h"
#include "platform/files.h"
#include "platform/final_path.h"
#include "platform/formats/version_resource.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/error_map.h"
#include "platform/offline/volume/volume.h"
#include "platform/version_resource.h"

namespace platform::files {

Code GetIdentity(cvn::StringView path, Identity* identity) {
  posix::HostPath host;
  const Code code = posix::Resolve(path, &host);
  if (code != kSuccess) {
    return posix::Fail(code);
  }
  struct stat target {};
  if (stat(host.path.c_str(), &target) != 0) {
    return posix::Fail(posix::CodeOf(errno));
  }
  *identity = {target.st_dev, target.st_ino};
  return kSuccess;
}

Code GetIdentity(const File& file, Identity* identity) {
  struct stat entry {};
  if (fstat(static_cast<int>(file.Handle()), &entry) != 0) {
    return posix::Fail(posix::CodeOf(errno));
  }
  *identity = {entry.st_dev, entry.st_ino};
  return kSuccess;
}

}  // namespace platform::files

namespace platform::paths {
namespace {

// The host's path of an open object. An object that was removed, or renamed just now, has none.
Code PathOfOpen(int descriptor, std::string* path) {
  char name[PATH_MAX];
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  const ssize_t length = readlink(link.c_str(), name, sizeof(name));
  if (length < 0) {
    return posix::CodeOf(errno);
  }
  if (length == ssize_t{sizeof(name)}) {
    return kFilenameExceedsRange;
  }
  path->assign(name, static_cast<std::size_t>(length));
  struct stat opened {};
  struct stat named {};
  const bool isThere = fstat(descriptor, &opened) == 0 && lstat(path->c_str(), &named) == 0 &&
                       opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
  return isThere ? kSuccess : kFileNotFound;
}

}  // namespace

Code GetFinalPath(cvn::StringView path, cvn::String* finalPath, VolumeName* volume) {
  posix::HostPath host;
  const Code resolved = posix::Resolve(path, &host);
  if (resolved != kSuccess) {
    return posix::Fail(resolved);
  }
  const posix::Descriptor object(open(host.path.c_str(), O_PATH | O_CLOEXEC));
  if (object.Get() < 0) {
    return posix::Fail(posix::CodeOf(errno));
  }
  std::string name;
  const Code found = PathOfOpen(object.Get(), &name);
  if (found != kSuccess) {
    return posix::Fail(found);
  }
  if (name.find('\\') != std::string::npos) {
    return posix::Fail(kInvalidName);
  }
  *finalPath = u"\\\\?\\";
  finalPath->Append(posix::ToMachinePath(name));
  *volume = VolumeName::Dos;
  return kSuccess;
}

cvn::String FoldForFinalPath(cvn::StringView path) { return path; }

}  // namespace platform::paths

namespace platform {

bool QueryCompanyName(cvn::StringView path, cvn::String* name) {
  files::File file;
  return files::Open(path, files::Access::Read, files::Share::ReadWrite,
                     files::Disposition::OpenExisting, &file) == kSuccess &&
         posix::CompanyNameOf(ByteSource(file), name);
}

}  // namespace platform
