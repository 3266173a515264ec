// What can be asked of a file besides its content: its identity, its final path, and the company
// that made it.
#include <sys/stat.h>

#include <string>

#include "platform/byte_source.h"
#include "platform/file_identity.h"
#include "platform/files.h"
#include "platform/final_path.h"
#include "platform/formats/version_resource.h"
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
  const Code found = host.Target(&target);
  if (found == kSuccess) {
    *identity = {target.st_dev, target.st_ino};
  }
  return posix::Report(found);
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

Code GetFinalPath(cvn::StringView path, cvn::String* finalPath, VolumeName* volume) {
  posix::HostPath host;
  const Code resolved = posix::Resolve(path, &host);
  if (resolved != kSuccess) {
    return posix::Fail(resolved);
  }
  std::string name;
  const Code found = posix::FinalHostPath(host, &name);
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
