#include "platform/offline/volume/path_draft.h"

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <optional>
#include <utility>

#include "platform/formats/names.h"
#include "platform/formats/windows_path.h"
#include "platform/offline/volume/stand_in.h"
#include "platform/offline/volume/volume.h"
#include "platform/version.h"

namespace platform::posix {
namespace {

constexpr char16_t kMachineDrive = u'C';
constexpr char16_t kHostDrive = u'Z';

char16_t DriveOf(char16_t letter) { return static_cast<char16_t>(letter & ~0x20); }

Code StartAtDrive(char16_t letter, PathDraft* draft) {
  const char16_t drive = DriveOf(letter);
  if (drive == kHostDrive) {
    *draft = PathDraft();
    return kSuccess;
  }
  if (drive != kMachineDrive) {
    return kPathNotFound;
  }
  const Machine& machine = Machine::Get();
  *draft = {machine.Root(), machine.Root().size(), true};
  return machine.State();
}

// The device that the machine's Windows takes a path on C: for. The registry, which tells the
// version, is asked only where it matters; its own files have no such names.
Device DeviceOnMachine(cvn::StringView path) {
  const Device device = DeviceOf(path);
  if (device == Device::None || DeviceSinceWindows11(path) == device) {
    return device;
  }
  return version::IsBuildAtLeast(kBuildOfWindows11) ? Device::None : device;
}

// What follows "\\?\", "\??\" or "\\.\". Of all devices only drives exist, which are named with
// their root, and those of every Windows.
Code TakeDevice(cvn::StringView* rest, PathDraft* draft) {
  rest->remove_prefix(4);
  if (rest->starts_with(u"UNC\\")) {
    return kBadNetPath;
  }
  if (const Device device = DeviceOf(*rest);
      device != Device::None && DeviceNameIn(*rest).size() == rest->size()) {
    *draft = PathDraft();
    draft->device = device;
    *rest = {};
    return kSuccess;
  }
  if (!HasDrive(*rest) || (rest->size() > 2 && !IsSeparator((*rest)[2]))) {
    return kPathNotFound;
  }
  const char16_t letter = rest->front();
  rest->remove_prefix(2);
  return StartAtDrive(letter, draft);
}

// "C:" with what follows. Windows remembers a current directory for each drive; here there is only
// the one.
Code TakeDrive(cvn::StringView* rest, PathDraft* draft) {
  const char16_t letter = rest->front();
  rest->remove_prefix(2);
  if (rest->empty() || !IsSeparator(rest->front())) {
    const Code code = StartAtCurrentDirectory(draft);
    if (code != kSuccess || DriveOf(letter) == (draft->onMachine ? kMachineDrive : kHostDrive)) {
      return code;
    }
  }
  return StartAtDrive(letter, draft);
}

// Takes the drive, or what else says where the path starts, off the front of `*rest`, which is not
// empty.
Code TakeStart(cvn::StringView* rest, PathDraft* draft) {
  if (IsLiteral(*rest) || IsDevice(*rest)) {
    return TakeDevice(rest, draft);
  }
  if (HasDrive(*rest)) {
    return TakeDrive(rest, draft);
  }
  const bool rooted = IsSeparator(rest->front());
  if (rooted && rest->size() >= 2 && IsSeparator((*rest)[1])) {
    return kBadNetPath;
  }
  const Code code = StartAtCurrentDirectory(draft);
  if (code == kSuccess && rooted) {
    draft->path.resize(draft->root);
  }
  return code;
}

// Windows cuts every dot and blank at the very end of a path, and a single dot at the end of a name
// before that.
cvn::StringView WithoutIgnoredEnd(cvn::StringView name, bool endsPath) {
  if (endsPath) {
    const std::size_t last = name.find_last_not_of(u". ");
    return name.substr(0, last == cvn::StringView::npos ? 0 : last + 1);
  }
  const bool endsInOneDot = name.ends_with(u'.') && !name.ends_with(u"..");
  return endsInOneDot ? name.substr(0, name.size() - 1) : name;
}

bool IsRefused(cvn::StringView name, const PathDraft& draft) {
  constexpr std::size_t kLongestName = 255;
  if (!draft.onMachine) {
    return name.find(u'/') != cvn::StringView::npos;
  }
  return name.size() > kLongestName || std::any_of(name.begin(), name.end(), [](char16_t c) {
           return c < 0x20 || cvn::StringView(u"/<>:\"|?*").find(c) != cvn::StringView::npos;
         });
}

Code AppendName(cvn::StringView name, bool literal, bool endsPath, PathDraft* draft) {
  const bool isDots = name == u"." || name == u"..";
  if (literal && (isDots || name.empty())) {
    return kInvalidName;
  }
  if (name == u"..") {
    if (draft->path.size() > draft->root) {
      draft->path.resize(draft->path.rfind('/'));
    }
    return kSuccess;
  }
  if (draft->onMachine && !literal && !isDots) {
    name = WithoutIgnoredEnd(name, endsPath);
  }
  if (isDots || name.empty()) {
    return kSuccess;
  }
  if (IsRefused(name, *draft)) {
    return kInvalidName;
  }
  draft->path += '/';
  AppendHostText(name, &draft->path);
  return kSuccess;
}

}  // namespace

Code StartAtCurrentDirectory(PathDraft* draft) {
  std::string directory = HostCurrentDirectory();
  if (directory.empty()) {
    return kPathNotFound;
  }
  directory = BackFromStandIn(directory).value_or(directory);
  const Machine& machine = Machine::Get();
  const bool onMachine = machine.State() == kSuccess && IsWithin(directory, machine.Root());
  if (directory == "/") {
    directory.clear();
  }
  *draft = {std::move(directory), onMachine ? machine.Root().size() : 0, onMachine};
  return kSuccess;
}

bool LeadsOut(cvn::StringView path, const PathDraft& folder) {
  if (HasDrive(path) || path.find(u'\\') != cvn::StringView::npos) {
    return false;
  }
  auto depth = std::count(folder.path.begin() + static_cast<std::ptrdiff_t>(folder.root),
                          folder.path.end(), '/');
  while (!path.empty() && depth >= 0) {
    const cvn::StringView name = path.substr(0, path.find(u'/'));
    depth += name == u".." ? -1 : (name.empty() || name == u"." ? 0 : 1);
    path.remove_prefix(std::min(name.size() + 1, path.size()));
  }
  return depth < 0;
}

Code DraftPath(cvn::StringView path, PathDraft* draft) {
  const bool literal = IsLiteral(path);
  const cvn::StringView whole = path;
  const Code code = TakeStart(&path, draft);
  if (code != kSuccess) {
    return code;
  }
  if (draft->onMachine && !literal && !IsDevice(whole)) {
    draft->device = DeviceOnMachine(whole);
    if (draft->device != Device::None) {
      path.remove_suffix(path.size() - (path.find_last_of(u"\\/") + 1));
    }
  }
  if (!path.empty() && IsSeparator(path.front())) {
    path.remove_prefix(1);
  }
  draft->path.reserve(draft->path.size() + 1 + path.size());
  while (!path.empty()) {
    const auto end = std::find_if(path.begin(), path.end(), [literal](char16_t c) {
      return c == u'\\' || (c == u'/' && !literal);
    });
    const bool endsPath = end == path.end();
    const auto length = static_cast<std::size_t>(end - path.begin());
    const Code appended = AppendName(path.substr(0, length), literal, endsPath, draft);
    if (appended != kSuccess) {
      return appended;
    }
    path.remove_prefix(endsPath ? length : length + 1);
  }
  if (draft->onMachine) {
    if (std::optional<std::string> through = ThroughStandIn(draft->path)) {
      *draft = {std::move(*through), 0, false};
    }
  }
  return kSuccess;
}

std::string HostCurrentDirectory() {
  char buffer[PATH_MAX];
  const char* directory = getcwd(buffer, sizeof(buffer));
  return directory != nullptr && directory[0] == '/' ? directory : "";
}

}  // namespace platform::posix
