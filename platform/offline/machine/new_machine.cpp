#include "platform/offline/machine/new_machine.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <vector>

#include "platform/formats/names.h"
#include "platform/linux/error_map.h"
#include "platform/offline/environment/environment.h"
#include "platform/offline/machine/new_registry.h"
#include "platform/volume_state.h"

namespace platform::posix {
namespace {

using machine::Description;

constexpr const char* kFolders[] = {
    "Program Files/Common Files",
    "Program Files (x86)/Common Files",
    "ProgramData",
    "Users/Default",
    "Users/Public",
    "Windows/Logs",
    "Windows/System32/config/systemprofile/AppData/Local",
    "Windows/System32/config/systemprofile/AppData/Roaming",
    "Windows/System32/drivers/etc",
    "Windows/SysWOW64",
    "Windows/Temp",
};

// A path on drive C: as one below the machine's folder; empty for any other.
std::string BelowMachine(cvn::StringView path) {
  std::string host;
  if (path.size() > 3 && Folded(path.substr(0, 3)) == u"C:\\") {
    AppendHostText(path.substr(3), &host);
    std::replace(host.begin(), host.end(), '\\', '/');
  }
  return host;
}

// The machine's folders, below its own.
std::vector<std::string> FoldersOf(const Description& description) {
  std::vector<std::string> folders(std::begin(kFolders), std::end(kFolders));
  folders.push_back(BelowMachine(TemporaryFolder()));
  if (description.product) {
    folders.push_back(BelowMachine(description.product->installFolder));
  }
  return folders;
}

// Makes the folders of the path `below` that are missing.
Code MakeFolders(const std::string& folder, const std::string& below) {
  constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  constexpr mode_t kPermissions = 0777;
  Descriptor place(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (std::size_t begin = 0; place.Get() >= 0 && begin < below.size();) {
    const std::size_t end = std::min(below.find('/', begin), below.size());
    const std::string name = below.substr(begin, end - begin);
    const Code code = MakeFolder({place.Get(), name.c_str()}, kPermissions);
    if (code != kSuccess && code != kAlreadyExists) {
      return code;
    }
    place.Reset(openat(place.Get(), name.c_str(), kFlags));
    begin = end + 1;
  }
  return place.Get() < 0 ? CodeOf(errno) : kSuccess;
}

Code Fill(const std::string& folder, const Description& description) {
  Code code = kSuccess;
  for (const std::string& below : FoldersOf(description)) {
    code = code == kSuccess ? MakeFolders(folder, below) : code;
  }
  return code == kSuccess ? WriteNewRegistry(folder, description) : code;
}

// A volume is mounted here, so the folder can't be put into its place.
bool IsMountPoint(const std::string& folder) {
  struct statx status {};
  return statx(AT_FDCWD, folder.c_str(), 0, STATX_TYPE, &status) == 0 &&
         (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

Code FillVolume(const std::string& folder, const Description& description) {
  const Code code = Fill(folder, description);
  if (code != kSuccess) {
    std::error_code error;
    for (const std::string& below : FoldersOf(description)) {
      std::filesystem::remove_all(folder + '/' + below.substr(0, below.find('/')), error);
    }
  }
  return code;
}

}  // namespace

Code MakeMachine(const std::string& folder, const Description& description) {
  std::error_code error;
  const std::filesystem::path path(folder);
  if (std::filesystem::exists(path, error) && !std::filesystem::is_empty(path, error) && !error) {
    return kDirNotEmpty;
  }
  if (IsMountPoint(folder)) {
    return FillVolume(folder, description);
  }
  std::filesystem::create_directories(path.parent_path(), error);
  std::string fresh = folder + ".XXXXXX";
  if (error || mkdtemp(fresh.data()) == nullptr) {
    return CodeOf(error ? error.value() : errno);
  }
  constexpr mode_t kForAllToRead = 0755;  // mkdtemp keeps others out
  chmod(fresh.c_str(), kForAllToRead);
  Code code = Fill(fresh, description);
  if (code == kSuccess && rename(fresh.c_str(), folder.c_str()) != 0) {
    // Another process may have been faster.
    code = errno == EEXIST ? kDirNotEmpty : CodeOf(errno);
  }
  if (code != kSuccess) {
    std::filesystem::remove_all(fresh, error);
  }
  return code;
}

Machine DefaultMachine(const Description& description) {
  std::string folder;
  bool isNamed = false;
  Code code = DefaultMachineFolder(&folder, &isNamed);
  std::error_code error;
  if (code == kSuccess && !isNamed && !std::filesystem::exists(folder, error) && !error) {
    code = MakeMachine(folder, description);
    // Another process may have been faster with the same.
    code = code == kDirNotEmpty ? kSuccess : code;
  }
  return code == kSuccess ? Machine(folder) : Machine::Failed(code);
}

}  // namespace platform::posix

namespace platform::machine {

Code Create(cvn::StringView folder, const Description& description) {
  std::string host;
  const Code code = posix::HostFolder(folder, &host);
  return code == kSuccess ? posix::MakeMachine(host, description) : code;
}

Code UseOrCreateDefault(const Description& description) {
  const Code code = posix::Machine::Open(posix::DefaultMachine(description));
  VolumeState state;
  if (code == kSuccess && LookAtVolume(&state) == kSuccess && state.isHibernated) {
    posix::Machine::Close(kHibernated);
    return kHibernated;
  }
  return code;
}

}  // namespace platform::machine
