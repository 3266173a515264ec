#include "platform/offline/process/program_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/linux/error_map.h"
#include "platform/linux/file_names.h"
#include "platform/linux/same_file.h"
#include "platform/offline/process/file_place.h"
#include "platform/offline/volume/volume.h"
#include "platform/process.h"

namespace platform::posix {
namespace {

constexpr int kMostLinks = 40;  // as the kernel follows

std::string OpenPathOf(int descriptor) { return "/proc/self/fd/" + std::to_string(descriptor); }

// Asked of the environment that this process was started with, and once: what a run changes later
// doesn't count.
bool AreVolumeProgramsAllowed() {
  static const bool kAllowed = [] {
    const char* value = std::getenv("TESSEL_RUN_VOLUME_PROGRAMS");
    return value != nullptr && std::string_view(value) == "1";
  }();
  return kAllowed;
}

Descriptor& TrustedFolder() {
  static Descriptor folder;
  return folder;
}

// The names of a path, the last one first.
std::vector<std::string> NamesFromEnd(std::string_view path) {
  std::vector<std::string> names;
  while (!path.empty()) {
    const std::size_t slash = path.rfind('/');
    const std::size_t begin = slash == std::string_view::npos ? 0 : slash + 1;
    const std::string_view name = path.substr(begin);
    if (!name.empty() && name != ".") {
      names.emplace_back(name);
    }
    path = path.substr(0, slash == std::string_view::npos ? 0 : slash);
  }
  return names;
}

// Whether the way along an absolute path goes through `folder`, by links too. What a link of the
// volume leads to was the volume's choice, wherever it lies.
bool GoesThrough(const std::string& path, const std::string& folder) {
  std::vector<std::string> names = NamesFromEnd(path);
  std::string done;
  int links = 0;
  while (!names.empty()) {
    const std::string name = std::move(names.back());
    names.pop_back();
    if (name == "..") {
      done.resize(done.empty() ? 0 : done.rfind('/'));
      continue;
    }
    std::string next = done;
    next.append("/").append(name);
    if (IsWithin(next, folder)) {
      return true;
    }
    char target[PATH_MAX];
    const ssize_t length = readlink(next.c_str(), target, sizeof(target));
    if (length < 0) {
      done = next;
      continue;
    }
    const std::string_view link(target, static_cast<std::size_t>(length));
    if (++links > kMostLinks) {
      return true;
    }
    const std::vector<std::string> more = NamesFromEnd(link);
    names.insert(names.end(), more.begin(), more.end());
    done = link.starts_with('/') ? std::string() : done;
  }
  return false;
}

// Whether the open file at `place` is found below the trusted folder, going from that folder itself
// and along no link: its path alone could be another folder's by now.
bool IsInTrustedFolder(int file, const FilePlace& place) {
  FilePlace trusted;
  if (TrustedFolder().Get() < 0 || !PlaceOf(TrustedFolder().Get(), &trusted) ||
      !IsWithin(place.path, trusted.path)) {
    return false;
  }
  std::vector<std::string> names =
      NamesFromEnd(std::string_view(place.path).substr(trusted.path.size()));
  Descriptor at(fcntl(TrustedFolder().Get(), F_DUPFD_CLOEXEC, 0));
  while (!names.empty() && at.Get() >= 0) {
    at.Reset(openat(at.Get(), names.back().c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    names.pop_back();
  }
  struct stat found {};
  struct stat judged {};
  return at.Get() >= 0 && fstat(at.Get(), &found) == 0 && fstat(file, &judged) == 0 &&
         IsSameFile(found, judged);
}

// Whether what the way of `path` led to is the volume's.
bool IsOfVolume(const std::string& path, const FilePlace& place) {
  const Machine& machine = Machine::Get();
  if (machine.State() != kSuccess) {
    return false;
  }
  FilePlace root;
  return !PlaceOf(machine.Folder()->Get(), &root) || IsSameOrBelow(place, root) ||
         IsWithin(place.path, machine.Root()) || GoesThrough(path, machine.Root());
}

}  // namespace

Code ProgramFile::Open(const std::string& path) {
  const posix::Descriptor found(open(path.c_str(), O_PATH | O_CLOEXEC));
  struct stat status {};
  if (found.Get() < 0 || fstat(found.Get(), &status) != 0) {
    return CodeOf(errno);
  }
  if (!S_ISREG(status.st_mode)) {
    return kAccessDenied;
  }
  FilePlace place;
  if (!PlaceOf(found.Get(), &place)) {
    return kBadExeFormat;
  }
  if (!AreVolumeProgramsAllowed() && !IsInTrustedFolder(found.Get(), place) &&
      IsOfVolume(path, place)) {
    return kBadExeFormat;
  }
  path_ = place.path;
  file_.Reset(open(OpenPathOf(found.Get()).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  return file_.Get() < 0 ? CodeOf(errno) : kSuccess;
}

std::string ProgramFile::Head(std::size_t size) const {
  std::string head(size, '\0');
  const ssize_t got = pread(file_.Get(), head.data(), head.size(), 0);
  head.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
  return head;
}

std::string ProgramFile::OpenPath() const { return OpenPathOf(file_.Get()); }

}  // namespace platform::posix

namespace platform::process {

Code TrustFolder(cvn::StringView folder) {
  posix::TrustedFolder().Reset(-1);
  if (folder.empty()) {
    return kSuccess;
  }
  posix::HostPath host;
  const Code code = posix::Resolve(folder, &host);
  if (code != kSuccess) {
    return posix::Fail(code);
  }
  posix::TrustedFolder().Reset(host.Open(O_PATH | O_DIRECTORY | O_NOFOLLOW));
  return posix::TrustedFolder().Get() < 0 ? posix::Fail(posix::CodeOf(errno)) : Code(kSuccess);
}

}  // namespace platform::process
