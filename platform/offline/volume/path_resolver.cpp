#include "platform/offline/volume/path_resolver.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "platform/formats/names.h"
#include "platform/linux/error_map.h"
#include "platform/offline/volume/directory_index.h"
#include "platform/offline/volume/machine.h"

namespace platform::posix {
namespace {

constexpr char16_t kMachineDrive = u'C';
constexpr char16_t kHostDrive = u'Z';

// A host path under construction. Nothing of its first `root` bytes, the drive's own, is ever cut.
struct Draft {
  std::string path;
  std::size_t root = 0;
  bool onMachine = false;
};

bool IsLetter(char16_t c) { return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z'); }
char16_t DriveOf(char16_t letter) { return static_cast<char16_t>(letter & ~0x20); }
bool HasDrive(cvn::StringView path) {
  return path.size() >= 2 && IsLetter(path[0]) && path[1] == u':';
}

bool IsWithin(std::string_view path, std::string_view folder) {
  return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

// True for "\\?\" and its older spelling "\??\": what follows is taken literally.
bool IsLiteral(cvn::StringView path) {
  return path.starts_with(u"\\\\?\\") || path.starts_with(u"\\??\\");
}

// True for "\\.\" and "//?/": what follows is a device, such as a drive.
bool IsDevice(cvn::StringView path) {
  return path.size() >= 4 && IsSeparator(path[0]) && IsSeparator(path[1]) &&
         (path[2] == u'.' || path[2] == u'?') && IsSeparator(path[3]);
}

Code StartAtDrive(char16_t letter, Draft* draft) {
  const char16_t drive = DriveOf(letter);
  if (drive == kHostDrive) {
    *draft = Draft();
    return kSuccess;
  }
  if (drive != kMachineDrive) {
    return kPathNotFound;
  }
  const Machine& machine = Machine::Get();
  *draft = {machine.Root(), machine.Root().size(), true};
  return machine.State();
}

Code StartAtCurrentDirectory(Draft* draft) {
  std::string directory = HostCurrentDirectory();
  if (directory.empty()) {
    return kPathNotFound;
  }
  const Machine& machine = Machine::Get();
  const bool onMachine = machine.State() == kSuccess && IsWithin(directory, machine.Root());
  if (directory == "/") {
    directory.clear();
  }
  *draft = {std::move(directory), onMachine ? machine.Root().size() : 0, onMachine};
  return kSuccess;
}

// What follows "\\?\", "\??\" or "\\.\". Of all devices only drives exist, and they are named with
// their root.
Code TakeDevice(cvn::StringView* rest, Draft* draft) {
  rest->remove_prefix(4);
  if (rest->starts_with(u"UNC\\")) {
    return kBadNetPath;
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
Code TakeDrive(cvn::StringView* rest, Draft* draft) {
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
Code TakeStart(cvn::StringView* rest, Draft* draft) {
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

bool IsRefused(cvn::StringView name, const Draft& draft) {
  constexpr std::size_t kLongestName = 255;
  if (!draft.onMachine) {
    return name.find(u'/') != cvn::StringView::npos;
  }
  return name.size() > kLongestName || std::any_of(name.begin(), name.end(), [](char16_t c) {
           return c < 0x20 || cvn::StringView(u"/<>:\"|?*").find(c) != cvn::StringView::npos;
         });
}

Code AppendName(cvn::StringView name, bool literal, bool endsPath, Draft* draft) {
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

Code MakeDraft(cvn::StringView path, Draft* draft) {
  const bool literal = IsLiteral(path);
  const Code code = TakeStart(&path, draft);
  if (code != kSuccess) {
    return code;
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
  return kSuccess;
}

int Inspect(const std::string& path, struct stat* entry) {
  return lstat(path.empty() ? "/" : path.c_str(), entry) == 0 ? 0 : errno;
}

DirectoryIndex& Index() {
  static DirectoryIndex index;
  return index;
}

// Respells the last name of `path`, the one behind `slash`, as its folder has it.
Code Respell(std::string* path, std::size_t slash, struct stat* entry) {
  const std::string folder = slash == 0 ? "/" : path->substr(0, slash);
  std::string spelled;
  const Code code = Index().Find(folder, std::string_view(*path).substr(slash + 1), &spelled);
  if (code == kAccessDenied) {
    return kFileNotFound;  // a folder that can't be listed has exact names only
  }
  if (code != kSuccess) {
    return code;
  }
  path->replace(slash + 1, std::string::npos, spelled);
  return CodeOf(Inspect(*path, entry));
}

// Respells the names of `draft` as the disk has them. The part that exists as it is spelled is
// found from the end, because mostly it is all of the path, or all but what is about to be made.
Code FindEntry(const Draft& draft, HostPath* host) {
  host->path = draft.path;
  const std::size_t last = draft.path.rfind('/');
  if (draft.path.size() > draft.root && last != 0 &&
      Index().IsMissed(std::string_view(draft.path).substr(0, last),
                       std::string_view(draft.path).substr(last + 1))) {
    return kFileNotFound;
  }
  int error = Inspect(host->path, &host->entry);
  if (error != ENOENT) {
    return CodeOf(error);
  }
  std::size_t known = draft.path.size();
  if (known > draft.root) {
    const Code code = Respell(&host->path, last, &host->entry);
    if (code != kPathNotFound) {
      return code;
    }
  }
  while (error == ENOENT && known > draft.root) {
    known = draft.path.rfind('/', known - 1);
    error = Inspect(draft.path.substr(0, known), &host->entry);
  }
  host->path.resize(known);
  for (bool isMissing = true; known < draft.path.size(); isMissing = false) {
    const std::size_t end = std::min(draft.path.find('/', known + 1), draft.path.size());
    const std::size_t slash = host->path.size();
    host->path.append(draft.path, known, end - known);
    known = end;
    error = isMissing ? ENOENT : Inspect(host->path, &host->entry);
    const Code code = error == ENOENT ? Respell(&host->path, slash, &host->entry) : CodeOf(error);
    if (code != kSuccess) {
      host->path.append(draft.path, end);
      return code == kFileNotFound && end < draft.path.size() ? kPathNotFound : code;
    }
  }
  return kSuccess;
}

}  // namespace

bool HostPath::IsFolder() const {
  struct stat target {};
  return S_ISDIR(entry.st_mode) ||
         (S_ISLNK(entry.st_mode) && stat(path.c_str(), &target) == 0 && S_ISDIR(target.st_mode));
}

Code Resolve(cvn::StringView path, HostPath* host) {
  *host = HostPath();
  path = UpToZero(path);
  if (path.empty()) {
    return kPathNotFound;
  }
  Draft draft;
  const Code drafted = MakeDraft(path, &draft);
  if (drafted != kSuccess) {
    return drafted;
  }
  host->endsInSeparator = IsSeparator(path.back());
  host->onMachine = draft.onMachine;
  host->isRoot = draft.path.size() == draft.root;
  host->name = draft.path.substr(draft.path.rfind('/') + 1);
  const Code code = FindEntry(draft, host);
  if (host->path.empty()) {
    host->path = "/";
  }
  if (code != kSuccess) {
    host->entry = {};
    return code;
  }
  return host->endsInSeparator && !host->IsFolder() ? kInvalidName : kSuccess;
}

cvn::String ToMachinePath(std::string_view hostPath) {
  const Machine& machine = Machine::Get();
  const bool onMachine = machine.State() == kSuccess && IsWithin(hostPath, machine.Root());
  if (onMachine) {
    hostPath.remove_prefix(machine.Root().size());
  }
  std::string text(onMachine ? "C:" : "Z:");
  text += hostPath.empty() ? "/" : hostPath;
  std::replace(text.begin(), text.end(), '/', '\\');
  return ToWide(text);
}

std::string HostCurrentDirectory() {
  char buffer[PATH_MAX];
  const char* directory = getcwd(buffer, sizeof(buffer));
  return directory != nullptr && directory[0] == '/' ? directory : "";
}

bool IsSeparator(char16_t character) { return character == u'\\' || character == u'/'; }

std::size_t RootLength(cvn::StringView path) {
  const std::size_t device = IsLiteral(path) || IsDevice(path) ? 4 : 0;
  if (HasDrive(path.substr(device))) {
    const std::size_t drive = device + 2;
    return drive < path.size() && IsSeparator(path[drive]) ? drive + 1 : drive;
  }
  const bool slash = !path.empty() && IsSeparator(path[0]);
  return slash && path.size() >= 2 && IsSeparator(path[1]) ? 2 : (slash ? 1 : 0);
}

}  // namespace platform::posix
