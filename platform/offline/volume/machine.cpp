#include "platform/offline/volume/machine.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <vector>

#include "platform/formats/names.h"
#include "platform/linux/error_map.h"
#include "platform/machine.h"
#include "platform/offline/registry/machine_image.h"

namespace platform::posix {
namespace {

struct Account {
  std::string name;
  std::string home;
};

// The host's user. An account that the user database does not know has its number for a name.
Account HostAccount() {
  std::vector<char> buffer(16384);
  passwd record{};
  passwd* found = nullptr;
  getpwuid_r(geteuid(), &record, buffer.data(), buffer.size(), &found);
  if (found == nullptr) {
    return {std::to_string(geteuid()), std::string()};
  }
  return {record.pw_name, record.pw_dir};
}

std::string VariableOr(const char* name, const std::string& otherwise) {
  const char* value = std::getenv(name);
  return value == nullptr || *value == '\0' ? otherwise : value;
}

std::filesystem::path DefaultFolder() {
  const std::filesystem::path home = VariableOr("HOME", HostAccount().home);
  std::filesystem::path data = VariableOr("XDG_DATA_HOME", std::string());
  if (!data.is_absolute()) {
    data = home / ".local/share";
  }
  return data / "tessel/machine";
}

// What Use chose, in place of what the environment names.
std::string& ChosenFolder() {
  static std::string folder;
  return folder;
}

// Absolute, and without a slash at the end.
std::string Tidy(const std::filesystem::path& folder, std::error_code* error) {
  const std::filesystem::path whole = std::filesystem::absolute(folder, *error).lexically_normal();
  return whole.has_filename() ? whole.string() : whole.parent_path().string();
}

std::string FolderToUse(std::error_code* error) {
  if (!ChosenFolder().empty()) {
    return ChosenFolder();
  }
  const std::string named = VariableOr("TESSEL_MACHINE", std::string());
  return Tidy(named.empty() ? DefaultFolder() : std::filesystem::path(named), error);
}

}  // namespace

Machine::Machine() {
  std::error_code error;
  const std::string folder = FolderToUse(&error);
  if (!error && !std::filesystem::exists(folder, error) && !error) {
    const Code made = MakeMachine(folder, machine::Description());
    // Another process may have been faster with the same.
    if (made != kSuccess && made != kDirNotEmpty) {
      state_ = made;
      return;
    }
  }
  if (!error) {
    root_ = std::filesystem::canonical(folder, error).string();
  }
  if (!error && !std::filesystem::is_directory(root_, error) && !error) {
    error = std::make_error_code(std::errc::not_a_directory);
  }
  state_ = error ? CodeOf(error.value()) : kSuccess;
  if (root_ == "/") {
    root_.clear();
  }
}

const Machine& Machine::Get() {
  static const Machine kMachine;
  return kMachine;
}

// Without the resolver, which would look for the very machine that is about to be made or chosen.
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
  if (text.empty()) {
    return kPathNotFound;
  }
  std::error_code error;
  *host = Tidy(text, &error);
  return CodeOf(error.value());
}

cvn::String UserName() {
  const std::string name = HostAccount().name;
  return ToWide(name.substr(name.rfind('\\') + 1));
}

cvn::String UserProfile() {
  if (geteuid() == 0) {
    return u"C:\\Windows\\system32\\config\\systemprofile";
  }
  cvn::String profile = u"C:\\Users\\";
  profile.Append(UserName());
  return profile;
}

cvn::String TemporaryFolder() {
  if (geteuid() == 0) {
    return u"C:\\Windows\\Temp";
  }
  cvn::String folder = UserProfile();
  folder.Append(u"\\AppData\\Local\\Temp");
  return folder;
}

}  // namespace platform::posix

namespace platform::machine {

Code Use(cvn::StringView folder) {
  std::string host;
  const Code code = posix::HostFolder(folder, &host);
  if (code != kSuccess) {
    return code;
  }
  std::error_code error;
  const std::filesystem::path root = std::filesystem::canonical(host, error);
  if (error || !std::filesystem::is_directory(root, error)) {
    return kPathNotFound;
  }
  posix::ChosenFolder() = root.string();
  const posix::Machine& machine = posix::Machine::Get();
  const bool isChosen = (machine.Root().empty() ? "/" : machine.Root()) == root;
  return machine.State() == kSuccess && !isChosen ? kBusy : machine.State();
}

}  // namespace platform::machine
