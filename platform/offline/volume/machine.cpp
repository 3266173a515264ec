#include "platform/machine.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <system_error>

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

}  // namespace

Machine::Machine(const std::string& folder) {
  std::error_code error;
  root_ = std::filesystem::canonical(folder, error).string();
  if (!error && !std::filesystem::is_directory(root_, error) && !error) {
    error = std::make_error_code(std::errc::not_a_directory);
  }
  // 3 and not 2: every path on the drive lacks a folder on its way.
  state_ = error == std::errc::no_such_file_or_directory ? kPathNotFound : CodeOf(error.value());
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
  return own.state_;
}

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

Code DefaultMachineFolder(std::string* host) {
  const std::string named = VariableOr("TESSEL_MACHINE", std::string());
  return Tidy(named.empty() ? FolderInDataHome() : std::filesystem::path(named), host);
}

}  // namespace platform::posix

namespace platform::machine {

Code Use(cvn::StringView folder) {
  std::string host;
  const Code code = posix::HostFolder(folder, &host);
  if (code != kSuccess) {
    return code;
  }
  const posix::Machine machine(host);
  return machine.State() == kSuccess ? posix::Machine::Open(machine) : kPathNotFound;
}

Code UseDefault() {
  std::string folder;
  const Code code = posix::DefaultMachineFolder(&folder);
  return posix::Machine::Open(code == kSuccess ? posix::Machine(folder)
                                               : posix::Machine::Failed(code));
}

}  // namespace platform::machine
