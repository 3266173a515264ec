#include "platform/offline/machine/new_machine.h"

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

std::error_code MakeFolders(const std::filesystem::path& folder, const Description& description) {
  std::vector<std::string> below(std::begin(kFolders), std::end(kFolders));
  below.push_back(BelowMachine(TemporaryFolder()));
  if (description.product) {
    below.push_back(BelowMachine(description.product->installFolder));
  }
  std::error_code error;
  for (const std::string& name : below) {
    if (!error) {
      std::filesystem::create_directories(folder / name, error);
    }
  }
  return error;
}

Code Fill(const std::string& folder, const Description& description) {
  const std::error_code error = MakeFolders(folder, description);
  return error ? CodeOf(error.value()) : WriteNewRegistry(folder, description);
}

}  // namespace

Code MakeMachine(const std::string& folder, const Description& description) {
  std::error_code error;
  const std::filesystem::path path(folder);
  if (std::filesystem::exists(path, error) && !std::filesystem::is_empty(path, error) && !error) {
    return kDirNotEmpty;
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
