#include "platform/machine.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

#include "platform/formats/names.h"
#include "platform/linux/account.h"
#include "platform/linux/error_map.h"
#include "platform/offline/volume/volume.h"

namespace platform::posix {
namespace {

std::string VariableOr(const char* name, const std::string& otherwise) {
  const char* value = std::getenv(name);
  return value == nullptr || *value == '\0' ? otherwise : value;
}

std::filesystem::path FolderInDataHome() {
  const std::filesystem::path home = VariableOr("HOME", HostAccount().home);
  std::filesystem::path data = VariableOr("XDG_DATA_HOME", std::string());
  // XDG_DATA_HOME counts only when it is absolute.
  if (!data.is_absolute()) {
    data = home / ".local/share";
  }
  return data / "tessel/machine";
}

// Absolute, and without a slash at the end.
Code Tidy(const std::filesystem::path& folder, std::string* tidy) {
  std::error_code error;
  const std::filesystem::path whole = std::filesystem::absolute(folder, error).lexically_normal();
  *tidy = whole.has_filename() ? whole.string() : whole.parent_path().string();
  return CodeOf(error.value());
}

Machine& MachineOfProcess() {
  static Machine machine;
  return machine;
}

// Whether the opened machine is a Windows system volume: that is where its registry lies.
bool HasRegistryFolder() {
  HostPath config;
  return Resolve(u"C:\\Windows\\System32\\config", &config) == kSuccess && config.IsFolder();
}

}  // namespace

Machine::Machine(const std::string& folder) {
  auto held = std::make_shared<Descriptor>(open(folder.c_str(), O_PATH | O_CLOEXEC));
  struct stat entry {};
  const int error =
      held->Get() < 0 || fstat(held->Get(), &entry) != 0 ? errno : PathOfOpen(held->Get(), &root_);
  // 3 and not 2: every path on the drive lacks a folder on its way.
  state_ = error == ENOENT ? kPathNotFound : CodeOf(error);
  if (state_ == kSuccess && !S_ISDIR(entry.st_mode)) {
    state_ = kDirectory;
  }
  folder_ = std::move(held);
  if (root_ == "/") {
    root_.clear();
  }
}

Machine Machine::Failed(Code state) {
  Machine machine;
  machine.state_ = state;
  return machine;
}

const Machine& Machine::Get() { return MachineOfProcess(); }

Code Machine::Open(const Machine& machine) {
  Machine& own = MachineOfProcess();
  // What was found through one machine is kept, and would be wrong on another.
  if (own.state_ == kSuccess && own.root_ != machine.root_) {
    return kBusy;
  }
  own = machine;
  if (own.state_ == kSuccess && !HasRegistryFolder()) {
    own.state_ = machine::kUnrecognizedVolume;
  }
  return own.state_;
}

void Machine::Close(Code state) { MachineOfProcess().state_ = state; }

void Machine::Forget() { MachineOfProcess() = Machine(); }

// Without Resolve, which would look for the very machine that is about to be made or opened.
Code HostFolder(cvn::StringView folder, std::string* host) {
  folder = UpToZero(folder);
  if (folder.size() >= 2 && folder[1] == u':') {
    if (folder[0] != u'Z' && folder[0] != u'z') {
      return kInvalidDrive;
    }
    folder.remove_prefix(2);
  }
  std::string text;
  AppendHostText(folder, &text);
  std::replace(text.begin(), text.end(), '\\', '/');
  return text.empty() ? kPathNotFound : Tidy(text, host);
}

Code DefaultMachineFolder(std::string* host, bool* isNamed) {
  const char* named = std::getenv("TESSEL_MACHINE");
  *isNamed = named != nullptr;
  if (*isNamed && *named == '\0') {
    return kPathNotFound;
  }
  return Tidy(*isNamed ? std::filesystem::path(named) : FolderInDataHome(), host);
}

}  // namespace platform::posix

namespace platform::machine {

Code Use(cvn::StringView folder) {
  std::string host;
  const Code code = posix::HostFolder(folder, &host);
  if (code != kSuccess) {
    return code;
  }
  return posix::Machine::Open(posix::Machine(host));
}

cvn::String DefaultFolder() {
  std::string folder;
  bool isNamed = false;
  const Code code = posix::DefaultMachineFolder(&folder, &isNamed);
  return code == kSuccess ? posix::ToWide(folder) : cvn::String();
}

Code UseDefault() {
  std::string folder;
  bool isNamed = false;
  const Code code = posix::DefaultMachineFolder(&folder, &isNamed);
  return posix::Machine::Open(code == kSuccess ? posix::Machine(folder)
                                               : posix::Machine::Failed(code));
}

}  // namespace platform::machine
