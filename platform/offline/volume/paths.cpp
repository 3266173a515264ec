#include "platform/paths.h"

#include <unistd.h>

#include <algorithm>
#include <climits>

#include "platform/formats/names.h"
#include "platform/formats/windows_path.h"
#include "platform/linux/error_map.h"
#include "platform/offline/volume/path_draft.h"
#include "platform/offline/volume/volume.h"

namespace platform::paths {
namespace {

using posix::IsSeparator;

constexpr cvn::StringView kSeparators = u"\\/";

bool Find(cvn::StringView path, posix::HostPath* host) {
  const Code code = posix::Resolve(path, host);
  if (code != kSuccess) {
    SetLastError(code);
  }
  return code == kSuccess;
}

// The drive with its separator, or the server and the share, that a path begins with; empty when
// there is none, as for a '/' after a drive on Windows. In upper case.
std::u16string RootOf(cvn::StringView path) {
  std::size_t length = posix::RootLength(path);
  const bool hasDrive = length >= 3 && path[length - 2] == u':' && path[length - 1] == u'\\';
  if (length == 2 && IsSeparator(path[0])) {
    const std::size_t server = path.find_first_of(kSeparators, length);
    length = server == cvn::StringView::npos ? 0 : path.find_first_of(kSeparators, server + 1);
  } else if (!hasDrive) {
    length = 0;
  }
  std::u16string root = posix::Folded(path.substr(0, length));
  std::replace(root.begin(), root.end(), u'/', u'\\');
  return root;
}

}  // namespace

bool Exists(cvn::StringView path) {
  posix::HostPath host;
  return Find(path, &host);
}

bool IsDirectory(cvn::StringView path) {
  posix::HostPath host;
  return Find(path, &host) && host.IsFolder();
}

bool IsSameRoot(cvn::StringView left, cvn::StringView right) {
  const std::u16string root = RootOf(left);
  return !root.empty() && root == RootOf(right);
}

void RemoveBackslash(cvn::String* path) {
  const cvn::StringView text = path->AsView();
  if (text.size() > posix::RootLength(text) && IsSeparator(text.back())) {
    path->Truncate(text.size() - 1);
  }
}

bool RemoveFileSpec(cvn::String* path) {
  const cvn::StringView text = path->AsView();
  const std::size_t root = posix::RootLength(text);
  if (text.size() <= root) {
    return false;
  }
  std::size_t last = text.find_last_of(kSeparators);
  if (last == cvn::StringView::npos) {
    last = 0;
  } else if (last != 0 && IsSeparator(text[last - 1])) {
    --last;  // of two separators both go, as PathCchRemoveFileSpec has it
  }
  path->Truncate(std::max(last, root));
  return true;
}

void AddBackslash(cvn::String* path) {
  const cvn::StringView text = path->AsView();
  const bool ofHost = !posix::HasDrive(text) && text.find(u'/') != cvn::StringView::npos &&
                      text.find(u'\\') == cvn::StringView::npos;
  const char16_t separator = ofHost ? u'/' : u'\\';
  if (!text.empty() && text.back() != separator) {
    path->Append(separator);
  }
}

cvn::StringView FindFileName(cvn::StringView path) {
  std::size_t start = 0;
  for (std::size_t i = 0; i + 1 < path.size(); ++i) {
    const bool ends = IsSeparator(path[i]) || (i == 1 && path[i] == u':');
    if (ends && !IsSeparator(path[i + 1])) {
      start = i + 1;
    }
  }
  return path.substr(start);
}

cvn::StringView FindExtension(cvn::StringView path) {
  const std::size_t last = path.find_last_of(u".\\/ ");
  return last != cvn::StringView::npos && path[last] == u'.' ? path.substr(last)
                                                             : path.substr(path.size());
}

bool IsRelative(cvn::StringView path) { return posix::RootLength(path) == 0; }

cvn::String LongName(cvn::StringView path) {
  path = posix::UpToZero(path);
  std::size_t at = posix::RootLength(path);
  cvn::String longName(path.substr(0, at));
  posix::HostPath host;
  Code code = posix::Resolve(path, &host);
  while (code == kSuccess && at < path.size()) {
    const std::size_t end = std::min(path.find_first_of(kSeparators, at), path.size());
    const cvn::StringView name = path.substr(at, end - at);
    if (name.find_first_not_of(u". ") == cvn::StringView::npos) {
      longName.Append(name);
    } else {
      code = posix::Resolve(path.substr(0, end), &host);
      longName.Append(
          posix::ToWide(std::string_view(host.spelling).substr(host.spelling.rfind('/') + 1)));
    }
    longName.Append(path.substr(end, 1));
    at = end + 1;
  }
  if (code != kSuccess) {
    SetLastError(code);
    longName.Clear();
  }
  return longName;
}

cvn::String ModuleFileName() {
  // As on Windows, where the program was when it started.
  static const std::string program = [] {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof(path));
    return std::string(path, length <= 0 ? 0 : static_cast<std::size_t>(length));
  }();
  return program.empty() ? cvn::String() : posix::ToMachinePath(program);
}

cvn::String SystemDirectory() { return u"C:\\Windows\\System32"; }

cvn::String OfCaller(cvn::StringView path) {
  posix::PathDraft directory;
  const Code code = posix::StartAtCurrentDirectory(&directory);
  const bool isRooted = path.starts_with(u'/');
  if (code == kSuccess && !directory.onMachine) {
    return path;
  }
  cvn::String host = u"Z:";
  if (!isRooted) {
    if (code != kSuccess || !posix::LeadsOut(path, directory)) {
      return path;
    }
    host.Append(posix::ToWide(directory.path));
    host.Append(u'/');
  }
  host.Append(path);
  return host;
}

cvn::String CurrentDirectory() {
  const std::string directory = posix::HostCurrentDirectory();
  return directory.empty() ? cvn::String() : posix::ToMachinePath(directory);
}

cvn::String CommonApplicationData() { return u"C:\\ProgramData"; }

}  // namespace platform::paths
