#include "platform/posix/machine.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <vector>

#include "platform/posix/error_map.h"
#include "platform/posix/names.h"

namespace platform::posix {
namespace {

constexpr const char* kSkeleton[] = {
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

std::error_code MakeSkeleton(const std::filesystem::path& folder) {
  std::vector<std::string> below(std::begin(kSkeleton), std::end(kSkeleton));
  std::string temporary;
  AppendHostText(TemporaryFolder().AsView().substr(3), &temporary);
  std::replace(temporary.begin(), temporary.end(), '\\', '/');
  below.push_back(temporary);
  std::error_code error;
  for (const std::string& name : below) {
    std::filesystem::create_directories(folder / name, error);
    if (error) {
      break;
    }
  }
  return error;
}

// Makes the machine's folder under another name first, so that nobody ever finds half of it.
std::error_code MakeMachine(const std::filesystem::path& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder.parent_path(), error);
  std::string fresh = folder.string() + ".XXXXXX";
  if (error || mkdtemp(fresh.data()) == nullptr) {
    return error ? error : std::error_code(errno, std::generic_category());
  }
  constexpr mode_t kForAllToRead = 0755;  // mkdtemp keeps others out
  chmod(fresh.c_str(), kForAllToRead);
  error = MakeSkeleton(fresh);
  if (!error) {
    std::filesystem::rename(fresh, folder, error);
  }
  if (error) {
    std::error_code ignored;
    std::filesystem::remove_all(fresh, ignored);
    // Another process may have been faster with the same.
    return std::filesystem::is_directory(folder, ignored) ? std::error_code() : error;
  }
  return error;
}

std::filesystem::path FolderToUse(std::error_code* error) {
  std::filesystem::path folder = VariableOr("TESSEL_MACHINE", std::string());
  folder = std::filesystem::absolute(folder.empty() ? DefaultFolder() : folder, *error);
  folder = folder.lexically_normal();
  return folder.has_filename() ? folder : folder.parent_path();
}

}  // namespace

Machine::Machine() {
  std::error_code error;
  const std::filesystem::path folder = FolderToUse(&error);
  if (!error && !std::filesystem::exists(folder, error) && !error) {
    error = MakeMachine(folder);
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
