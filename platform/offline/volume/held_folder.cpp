#include "platform/held_folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/formats/names.h"
#include "platform/formats/windows_path.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/error_map.h"
#include "platform/linux/open_below.h"
#include "platform/offline/volume/share_locks.h"
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

Code ReadNames(const Descriptor& folder, Names* names) {
  const int descriptor =
      folder.Get() < 0 ? -1 : posix::OpenFound(folder.Get(), O_RDONLY | O_DIRECTORY);
  DIR* listing = descriptor < 0 ? nullptr : fdopendir(descriptor);
  if (listing == nullptr) {
    const Code code = CodeOf(errno);
    if (descriptor >= 0) {
      close(descriptor);
    }
    return code;
  }
  while (const dirent* entry = names->size() > kMostNames ? nullptr : readdir(listing)) {
    names->emplace(FoldedName(entry->d_name), entry->d_name);
  }
  closedir(listing);
  return names->size() > kMostNames ? kNotEnoughMemory : kSuccess;
}

}  // namespace

struct HeldFolder::State {
  explicit State(int descriptor) : folder(descriptor) {}

  // The path of the folder's own as the disk spells it. An exact spelling comes first.
  Code Spell(const std::vector<std::string>& names, std::string* spelled);
  Code FindAlike(const std::string& below, const std::string& name, std::string* spelled);

  Descriptor folder;
  // Of the folders below that were asked for another spelling: each is read once.
  std::map<std::string, Names> listed;
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
  const auto [known, isNew] = listed.try_emplace(below);
  if (isNew) {
    const Code code = ReadNames(
        Descriptor(posix::FindBelow(folder.Get(), below.empty() ? "." : below)), &known->second);
    if (code != kSuccess) {
      listed.erase(known);
      return code;
    }
  }
  const auto [first, last] = known->second.equal_range(FoldedName(name));
  if (first == last) {
    return kFileNotFound;
  }
  if (std::next(first) != last) {
    return kAmbiguousName;
  }
  *spelled = Below(below, first->second);
  return kSuccess;
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
