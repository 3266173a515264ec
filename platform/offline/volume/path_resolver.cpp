#include <algorithm>
#include <cerrno>
#include <optional>

#include "platform/formats/names.h"
#include "platform/formats/windows_path.h"
#include "platform/linux/error_map.h"
#include "platform/offline/volume/directory_index.h"
#include "platform/offline/volume/path_draft.h"
#include "platform/offline/volume/stand_in.h"
#include "platform/offline/volume/volume.h"

namespace platform::posix {
namespace {

int Inspect(const std::string& path, struct stat* entry) {
  return lstat(path.empty() ? "/" : path.c_str(), entry) == 0 ? 0 : errno;
}

DirectoryIndex& Index() {
  static DirectoryIndex index;
  return index;
}

// Respells the last name of `path`, the one after `slash`, as its folder has it.
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
Code FindEntry(const PathDraft& draft, HostPath* host) {
  host->path = draft.path;
  const std::size_t last = draft.path.rfind('/');
  // In a folder that is being filled most names are new, and the index knows so without the disk.
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
  PathDraft draft;
  const Code drafted = DraftPath(path, &draft);
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
  const std::optional<std::string> back = BackFromStandIn(hostPath);
  hostPath = back ? std::string_view(*back) : hostPath;
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

}  // namespace platform::posix
