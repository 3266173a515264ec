#include "platform/private_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "platform/formats/names.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/error_map.h"
#include "platform/linux/open_below.h"
#include "platform/linux/other_accounts.h"
#include "platform/linux/own_folder.h"
#include "platform/offline/volume/attributes.h"
#include "platform/offline/volume/copy.h"
#include "platform/offline/volume/path_draft.h"
#include "platform/offline/volume/stand_in.h"
#include "platform/offline/volume/volume.h"

namespace platform::files {
namespace {

using posix::CodeOf;
using posix::Descriptor;

constexpr mode_t kOwnersMode = S_IRWXU;

std::u16string Folded(const std::string& path) {
  std::u16string folded;
  posix::AppendFolded(path, &folded);
  return folded;
}

// Gives the copy what it has besides content. Its permissions are for its owner alone.
Code TakeOver(int from, const struct stat& entry, int to) {
  Attributes attributes = 0;
  const Code code = posix::ReadAttributes(from, entry, &attributes);
  return code == kSuccess ? posix::MarkCopy(attributes, entry, true, to) : code;
}

// What the path leads to, unless it is none that may hold the folders of runs.
Code OpenPlace(const posix::HostPath& place, Descriptor* found, bool* isOwn) {
  found->Reset(place.Open(O_PATH | O_NOFOLLOW));
  struct stat entry {};
  if (found->Get() < 0 || fstat(found->Get(), &entry) != 0) {
    return CodeOf(errno);
  }
  if (!S_ISDIR(entry.st_mode)) {
    return S_ISLNK(entry.st_mode) ? kIsLink : platform::kDirectory;
  }
  *isOwn = entry.st_uid == geteuid();
  return *isOwn || entry.st_uid == 0 ? kSuccess : kForeignPlace;
}

}  // namespace

struct PrivateFolder::State {
  // A file's place in the folder: of the folders on the way, and of the name in them.
  struct Place {
    std::string folders;
    std::string name;
  };

  Code Locate(cvn::StringView name, Place* place) const;
  Code MakeFolders(const std::string& below, std::string* spelled);

  Descriptor folder;
  cvn::String path;                               // as scripts know it
  std::string hostPath;                           // of a stand-in
  std::map<std::u16string, std::string> folders;  // those made in it, by their folded paths
  std::set<std::u16string> files;                 // folded
};

bool PrivateFolder::IsRequired() { return true; }

Code PrivateFolder::MakePlace(cvn::StringView place) {
  posix::HostPath host;
  const Code code = posix::Resolve(place, &host);
  if (code != kSuccess && code != kFileNotFound) {
    return posix::Fail(code);
  }
  // Where others can put something else in the way nothing is made: Make finds another place.
  const bool isOpenToOthers = posix::CanOthersRedirect(host.spelling);
  if (code == kFileNotFound) {
    if (isOpenToOthers) {
      return kSuccess;
    }
    if (mkdirat(host.At().folder, host.At().name, kOwnersMode) != 0 && errno != EEXIST) {
      return posix::Fail(CodeOf(errno));
    }
  }
  Descriptor found;
  bool isOwn = false;
  if (const Code judged = OpenPlace(host, &found, &isOwn); judged != kSuccess) {
    return posix::Fail(judged);
  }
  const Descriptor folder(isOpenToOthers ? -1
                                         : posix::OpenFound(found.Get(), O_RDONLY | O_DIRECTORY));
  if (folder.Get() >= 0 && isOwn) {
    fchmod(folder.Get(), kOwnersMode);  // what came of it is looked at by Make
  }
  return kSuccess;
}

Code PrivateFolder::CheckPlace(cvn::StringView place) {
  posix::HostPath host;
  const Code code = posix::Resolve(place, &host);
  if (code == kSuccess) {
    Descriptor found;
    bool isOwn = false;
    if (const Code judged = OpenPlace(host, &found, &isOwn); judged != kSuccess) {
      return judged;
    }
  } else if (code != kFileNotFound) {
    return code;
  }
  // Where others can put something in the way, the files go to the host.
  const bool isUsed = !posix::CanOthersRedirect(host.spelling);
  const char* written = code == kSuccess ? host.At().name : ".";
  return isUsed && faccessat(host.At().folder, written, W_OK | X_OK, 0) != 0 ? CodeOf(errno)
                                                                             : kSuccess;
}

cvn::List<cvn::String> PrivateFolder::FindAbandoned(cvn::StringView place) {
  posix::HostPath host;
  std::string hostPlace;
  if (posix::Resolve(place, &host) == kSuccess &&
      posix::FinalHostPath(host, &hostPlace) != kSuccess) {
    hostPlace.clear();
  }
  cvn::List<cvn::String> paths;
  for (const std::string& path : posix::FindAbandonedFolders(hostPlace)) {
    paths.push_back(posix::ToMachinePath(path));
  }
  return paths;
}

PrivateFolder::PrivateFolder() = default;
PrivateFolder::PrivateFolder(PrivateFolder&&) noexcept = default;
PrivateFolder& PrivateFolder::operator=(PrivateFolder&&) noexcept = default;
PrivateFolder::~PrivateFolder() = default;

Code PrivateFolder::Make(cvn::StringView place, cvn::StringView name) {
  state_.reset();
  auto state = std::make_unique<State>();
  state->path = place;
  state->path.Append(u'\\');
  state->path.Append(name);
  posix::HostPath host;
  Code code = posix::Resolve(place, &host);
  if (code != kSuccess && code != kFileNotFound) {
    return posix::Fail(code);
  }
  std::string path = host.spelling + '/';
  posix::AppendHostText(name, &path);
  // What a link on the way means to the host counts for nothing: such a place is as good as none.
  std::string straight;
  code = posix::FinalHostPath(host, &straight) == kSuccess && straight == host.spelling
             ? posix::MakeOwnFolder(path, &state->folder)
             : kNotPrivate;
  if (code == kNotPrivate) {
    code = posix::MakeOwnFolderOnHost(&state->folder, &state->hostPath);
    posix::SetStandIn(std::move(path), state->hostPath);
  }
  if (code != kSuccess) {
    return posix::Fail(code);
  }
  // What comes of it, only a search would tell.
  IgnoreError(posix::ClearAttributes(state->folder.Get()));
  state_ = std::move(state);
  return kSuccess;
}

Code PrivateFolder::State::Locate(cvn::StringView name, Place* place) const {
  posix::PathDraft top;
  posix::PathDraft draft;
  cvn::String whole = path;
  Code code = posix::DraftPath(whole, &top);
  whole.Append(u'\\');
  whole.Append(name);
  code = code == kSuccess ? posix::DraftPath(whole, &draft) : code;
  if (code != kSuccess) {
    return code;
  }
  if (!posix::IsWithin(draft.path, top.path) || draft.path.size() == top.path.size() ||
      draft.device != posix::Device::None) {
    return kInvalidName;
  }
  const std::string below = draft.path.substr(top.path.size() + 1);
  const std::size_t slash = below.rfind('/');
  *place = slash == std::string::npos ? Place{"", below}
                                      : Place{below.substr(0, slash), below.substr(slash + 1)};
  return kSuccess;
}

// Finds, or makes, the folders of `below`. `*spelled` is that path, with its slash, in the case in
// which they were made.
Code PrivateFolder::State::MakeFolders(const std::string& below, std::string* spelled) {
  for (std::size_t begin = 0; begin < below.size();) {
    const std::size_t end = std::min(below.find('/', begin), below.size());
    const auto [known, isNew] = folders.try_emplace(Folded(below.substr(0, end)));
    if (isNew) {
      known->second = *spelled + below.substr(begin, end - begin) + '/';
      if (mkdirat(folder.Get(), known->second.c_str(), kOwnersMode) != 0) {
        folders.erase(known);
        return CodeOf(errno);
      }
      const Descriptor made(openat(folder.Get(), known->second.c_str(),
                                   O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
      IgnoreError(posix::ClearAttributes(made.Get()));  // as above
    }
    *spelled = known->second;
    begin = end + 1;
  }
  return kSuccess;
}

cvn::String PrivateFolder::PathOnHost() const {
  std::string path = state_ == nullptr || state_->hostPath.empty() ? "" : "Z:" + state_->hostPath;
  std::replace(path.begin(), path.end(), '/', '\\');
  return posix::ToWide(path);
}

Code PrivateFolder::MakeFoldersFor(cvn::StringView name) {
  State::Place place;
  std::string spelled;
  Code code = state_ == nullptr ? kInvalidHandle : state_->Locate(name, &place);
  if (code == kSuccess) {
    code = state_->MakeFolders(place.folders, &spelled);
  }
  return posix::Report(code);
}

Code PrivateFolder::Copy(const File& from, cvn::StringView name, File* copy) {
  const int source = static_cast<int>(from.Handle());
  State::Place place;
  std::string path;
  struct stat entry {};
  Code code = state_ == nullptr ? kInvalidHandle : state_->Locate(name, &place);
  if (code == kSuccess) {
    code = state_->MakeFolders(place.folders, &path);
  }
  path += place.name;
  if (code == kSuccess && !state_->files.insert(Folded(path)).second) {
    code = kFileExists;
  }
  if (code == kSuccess && fstat(source, &entry) != 0) {
    code = CodeOf(errno);
  }
  if (code != kSuccess) {
    return posix::Fail(code);
  }
  const int made =
      openat(state_->folder.Get(), path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
             S_IRUSR | S_IWUSR | (entry.st_mode & S_IXUSR));
  if (made < 0) {
    return posix::Fail(CodeOf(errno));
  }
  *copy = File(made);
  code = posix::CopyContent(source, entry, made);
  if (code == kSuccess) {
    code = TakeOver(source, entry, made);
  }
  if (code != kSuccess) {
    copy->Close();
    unlinkat(state_->folder.Get(), path.c_str(), 0);
  }
  return posix::Report(code);
}

}  // namespace platform::files
