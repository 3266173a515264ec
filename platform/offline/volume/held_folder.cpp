#include "platform/held_folder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/formats/names.h"
#include "platform/formats/short_name.h"
#include "platform/formats/windows_path.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/directory_stream.h"
#include "platform/linux/error_map.h"
#include "platform/linux/open_below.h"
#include "platform/linux/volume_traits.h"
#include "platform/offline/volume/share_locks.h"
#include "platform/offline/volume/short_names.h"
#include "platform/offline/volume/volume.h"

namespace platform::files {
namespace {

using posix::CodeOf;
using posix::Descriptor;

// So many names of one folder are kept at most.
constexpr std::size_t kMostNames = 1'000'000;

// Names by what they fold to.
using Names = std::unordered_multimap<std::u16string, std::string>;

std::u16string FoldedName(std::string_view name) {
  std::u16string folded;
  posix::AppendFolded(name, &folded);
  return folded;
}

// The names in `name` as the host writes them.
Code SplitName(cvn::StringView name, std::vector<std::string>* names) {
  name = posix::UpToZero(name);
  while (!name.empty()) {
    const auto end = std::find_if(name.begin(), name.end(), posix::IsSeparator);
    std::string& one = names->emplace_back();
    posix::AppendHostText(cvn::StringView(name.begin(), end), &one);
    if (one.empty() || one == "." || one == "..") {
      return kInvalidName;
    }
    name.remove_prefix(static_cast<std::size_t>(end - name.begin()));
    name.remove_prefix(name.empty() ? 0 : 1);
  }
  return names->empty() ? kInvalidName : kSuccess;
}

std::string Below(const std::string& folder, const std::string& name) {
  return folder.empty() ? name : folder + '/' + name;
}

// Opens for reading what `found` stands for.
Code OpenRegularFile(const Descriptor& found, File* file) {
  struct stat entry {};
  if (found.Get() < 0 || fstat(found.Get(), &entry) != 0) {
    return CodeOf(errno);
  }
  if (!S_ISREG(entry.st_mode)) {
    return S_ISDIR(entry.st_mode) ? kAccessDenied : kNoRegularFile;
  }
  const int descriptor = posix::OpenFound(found.Get(), O_RDONLY);
  if (descriptor < 0) {
    return CodeOf(errno);
  }
  *file = File(descriptor);
  const Code code = posix::TakeShare(descriptor, Access::Read, Share::Read);
  if (code != kSuccess) {
    file->Close();
  }
  return code;
}

// All of them, or none: one that is missing might be another spelling of one that is there.
Code ReadNames(const Descriptor& folder, Names* names) {
  bool areTooMany = false;
  const int error = posix::ForEachEntry({folder.Get(), "."}, 0, [&](const dirent& entry) {
    areTooMany = names->size() >= kMostNames;
    if (!areTooMany) {
      names->emplace(FoldedName(entry.d_name), entry.d_name);
    }
    return !areTooMany;
  });
  return areTooMany ? kNotEnoughMemory : CodeOf(error, kReadFault);
}

// The same names by their short names, where the volume has any.
Names ShortNamesOf(const Descriptor& folder, const Names& names) {
  Names byShort;
  if (posix::HasShortNames(folder.Get())) {
    for (const auto& [folded, name] : names) {
      if (auto shortName = posix::ShortNameOf({folder.Get(), name.c_str()})) {
        byShort.emplace(std::move(*shortName), name);
      }
    }
  }
  return byShort;
}

// Finds the one name that stands for `folded`.
Code FindOne(const Names& names, const std::u16string& folded, std::string* name) {
  const auto [first, last] = names.equal_range(folded);
  if (first == last) {
    return kFileNotFound;
  }
  *name = first->second;
  return std::next(first) == last ? kSuccess : kAmbiguousName;
}

}  // namespace

struct HeldFolder::State {
  explicit State(int descriptor) : folder(descriptor) {}

  // The path of the folder's own as the disk spells it. An exact spelling comes first.
  Code Spell(const std::vector<std::string>& names, std::string* spelled);
  Code FindAlike(const std::string& below, const std::string& name, std::string* spelled);

  // The names in a folder. Their short names are read when one may be meant.
  struct Listed {
    Names names;
    std::optional<Names> shortNames;
  };

  Descriptor folder;
  // Of the folders below that were asked for another spelling: each is read once.
  std::map<std::string, Listed> listed;
};

Code HeldFolder::State::Spell(const std::vector<std::string>& names, std::string* spelled) {
  for (const std::string& name : names) {
    std::string next = Below(*spelled, name);
    if (Descriptor(posix::FindBelow(folder.Get(), next)).Get() < 0) {
      const Code code = errno == ENOENT ? FindAlike(*spelled, name, &next) : CodeOf(errno);
      if (code != kSuccess) {
        const bool isLast = &name == &names.back();
        return code == kFileNotFound && !isLast ? kPathNotFound : code;
      }
    }
    *spelled = std::move(next);
  }
  return kSuccess;
}

Code HeldFolder::State::FindAlike(const std::string& below, const std::string& name,
                                  std::string* spelled) {
  const Descriptor parent(posix::FindBelow(folder.Get(), below.empty() ? "." : below));
  const auto [known, isNew] = listed.try_emplace(below);
  if (isNew) {
    const Code code = parent.Get() < 0 ? CodeOf(errno) : ReadNames(parent, &known->second.names);
    if (code != kSuccess) {
      listed.erase(known);
      return code;
    }
  }
  auto& [names, shortNames] = known->second;
  const std::u16string folded = FoldedName(name);
  std::string found;
  Code code = FindOne(names, folded, &found);
  if (code == kFileNotFound && posix::IsShortForm(folded)) {
    if (!shortNames) {
      shortNames = ShortNamesOf(parent, names);
    }
    code = FindOne(*shortNames, folded, &found);
  }
  if (code == kSuccess) {
    *spelled = Below(below, found);
  }
  return code;
}

HeldFolder::HeldFolder() = default;
HeldFolder::HeldFolder(HeldFolder&&) noexcept = default;
HeldFolder& HeldFolder::operator=(HeldFolder&&) noexcept = default;
HeldFolder::~HeldFolder() = default;

Code HeldFolder::Hold(cvn::StringView path) {
  state_.reset();
  posix::HostPath host;
  Code code = posix::Resolve(path, &host);
  if (code == kSuccess) {
    code = posix::FollowToOpen(&host);
  }
  if (code != kSuccess) {
    return posix::Fail(code);
  }
  const int descriptor = host.Open(O_PATH | O_DIRECTORY);
  if (descriptor < 0) {
    return posix::Fail(errno == ENOTDIR ? platform::kDirectory : CodeOf(errno));
  }
  state_ = std::make_unique<State>(descriptor);
  return kSuccess;
}

Code HeldFolder::ForEach(const std::function<bool(Entry)>& take) const {
  if (state_ == nullptr) {
    return posix::Fail(kInvalidHandle);
  }
  const int folder = state_->folder.Get();
  return posix::Report(CodeOf(posix::ForEachEntry({folder, "."}, 0, [&](const dirent& entry) {
    unsigned char type = entry.d_type;
    struct stat status {};
    if (type == DT_UNKNOWN && fstatat(folder, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0) {
      type = static_cast<unsigned char>(IFTODT(status.st_mode));
    }
    return take({posix::ToWide(entry.d_name), type == DT_DIR, type == DT_LNK});
  })));
}

Code HeldFolder::LookAt(Look* look) const {
  struct stat status {};
  if (state_ == nullptr || fstat(state_->folder.Get(), &status) != 0) {
    return posix::Fail(state_ == nullptr ? kInvalidHandle : CodeOf(errno));
  }
  constexpr std::uint64_t kNanosecondsPerSecond = 1'000'000'000;
  look->identity = {status.st_dev, status.st_ino};
  look->changed = static_cast<std::uint64_t>(status.st_mtim.tv_sec) * kNanosecondsPerSecond +
                  static_cast<std::uint64_t>(status.st_mtim.tv_nsec);
  return kSuccess;
}

Code HeldFolder::OpenEntry(cvn::StringView name, File* file) const {
  if (state_ == nullptr) {
    return posix::Fail(kInvalidHandle);
  }
  std::string host;
  posix::AppendHostText(name, &host);
  const Descriptor found(
      openat(state_->folder.Get(), host.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  return posix::Report(OpenRegularFile(found, file));
}

Code HeldFolder::OpenFile(cvn::StringView name, File* file) {
  if (state_ == nullptr) {
    return posix::Fail(kInvalidHandle);
  }
  std::vector<std::string> names;
  Code code = SplitName(name, &names);
  if (code != kSuccess) {
    return posix::Fail(code);
  }
  std::string spelled;
  for (const std::string& one : names) {
    spelled = Below(spelled, one);
  }
  code = OpenRegularFile(Descriptor(posix::FindBelow(state_->folder.Get(), spelled)), file);
  if (code == kFileNotFound) {
    spelled.clear();
    code = state_->Spell(names, &spelled);
    if (code == kSuccess) {
      code = OpenRegularFile(Descriptor(posix::FindBelow(state_->folder.Get(), spelled)), file);
    }
  }
  return posix::Report(code);
}

Code OpenRegular(cvn::StringView path, File* file) {
  posix::HostPath host;
  Code code = posix::Resolve(path, &host);
  if (code == kSuccess) {
    code = posix::FollowToOpen(&host);
  }
  return posix::Report(code == kSuccess ? OpenRegularFile(Descriptor(host.Open(O_PATH)), file)
                                        : code);
}

}  // namespace platform::files
