#include "platform/file_search.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <string>

#include "platform/formats/names.h"
#include "platform/formats/short_name.h"
#include "platform/formats/wildcards.h"
#include "platform/formats/windows_path.h"
#include "platform/linux/error_map.h"
#include "platform/linux/file_time.h"
#include "platform/linux/same_file.h"
#include "platform/linux/volume_traits.h"
#include "platform/offline/volume/attributes.h"
#include "platform/offline/volume/copies_ahead.h"
#include "platform/offline/volume/copy.h"
#include "platform/offline/volume/file_steps.h"
#include "platform/offline/volume/folder_listing.h"
#include "platform/offline/volume/looks_ahead.h"
#include "platform/offline/volume/path_draft.h"
#include "platform/offline/volume/volume.h"

namespace platform::files {
namespace {

using posix::CodeOf;
using posix::Fail;
using posix::FileAt;
using posix::HostPath;

constexpr struct stat kUnknown {};

// As ToWide, into memory that `*out` may have already.
void SetWide(std::string_view name, cvn::String* out) {
  std::array<char16_t, 256> buffer;
  if (name.size() > buffer.size() || !posix::IsAscii(name)) {
    *out = posix::ToWide(name);
    return;
  }
  std::copy(name.begin(), name.end(), buffer.begin());
  out->Clear();
  out->Append(cvn::StringView(buffer.data(), name.size()));
}

// A path cut in two: the folder to search in, and what to search for.
struct Place {
  cvn::StringView folder;
  cvn::StringView name;
};

Place Split(cvn::StringView path) {
  const std::size_t root = posix::RootLength(path);
  const std::size_t last = path.find_last_of(u"\\/");
  const std::size_t start = last == cvn::StringView::npos ? root : std::max(root, last + 1);
  std::size_t end = start;
  while (end > root && posix::IsSeparator(path[end - 1])) {
    --end;
  }
  return {end == 0 ? cvn::StringView(u".") : path.substr(0, end), path.substr(start)};
}

// Finds the folder of a search. 267 when it is a file.
Code FindFolder(cvn::StringView path, HostPath* host) {
  const Code code = posix::Resolve(path, host);
  if (code == kSuccess) {
    return host->IsFolder() ? kSuccess : platform::kDirectory;
  }
  if (posix::HasWildcards(path.substr(posix::RootLength(path)))) {
    return kInvalidName;
  }
  return code == kFileNotFound ? kPathNotFound : code;
}

}  // namespace

// The folder of a search, without a slash at the end. It is held open unless so many are that a
// deep tree would use up what a process may have open: then it is found anew for each entry.
struct SearchedFolder {
  SearchedFolder(const HostPath& place, std::shared_ptr<const posix::Descriptor> folder)
      : spelling(place.spelling == "/" ? "" : place.spelling), onMachine(place.onMachine) {
    constexpr int kHighestHeld = 256;
    if (folder->Get() <= kHighestHeld) {
      held = std::move(folder);
    }
  }

  std::string spelling;
  bool onMachine;
  std::shared_ptr<const posix::Descriptor> held;
  posix::FolderListing listing;
  posix::CopiesInOrder copies{listing};
  posix::LooksAhead looks{listing};
};

// Where the entry is.
struct SearchEntry::Details {
  std::shared_ptr<SearchedFolder> folder;
  HostPath place;  // its entry, and a folder that isn't held, only when they have been asked for
  bool isCurrent = false;  // the entry's whole status is there

  const HostPath& Place(bool isDirectory) {
    bool isThere = true;
    if (place.device != posix::Device::None) {
      return place;
    }
    if (place.folder == nullptr) {
      isThere = posix::ResolveSpelling(&place) == kSuccess;
    } else if (!isCurrent) {
      const FileAt file = place.At();
      isThere = fstatat(file.folder, file.name, &place.entry, AT_SYMLINK_NOFOLLOW) == 0;
    }
    isCurrent = true;
    if (!isThere) {
      // Gone by now: as it was listed, with nothing special.
      place.entry = {};
      place.entry.st_mode = (isDirectory ? S_IFDIR : S_IFREG) | S_IWUSR;
    }
    return place;
  }

  // The same with what KnownStatus tells of the entry, at least: on ntfs-3g the whole status takes
  // a message of its own. Without a folder when that isn't held.
  const HostPath& Known() {
    if (place.folder != nullptr && place.entry.st_mode == 0) {
      place.entry = posix::KnownStatus(place.At().folder, place.At().name);
    }
    return place;
  }
};

Attributes SearchEntry::GetAttributes() const {
  const HostPath& place = details_->Place(isDirectory_);
  Attributes attributes = 0;
  // What can't be read is listed with the attributes of a new file.
  IgnoreError(posix::ReadAttributes(place.At(), place.entry, isDirectory_, &attributes));
  return attributes;
}

std::uint64_t SearchEntry::LastWriteTime() const {
  return posix::FileTimeOf(details_->Place(isDirectory_).entry.st_mtim);
}

struct Search::State {
  std::shared_ptr<SearchedFolder> folder;

  // Gives what a folder's listing says; `status` when that is known already.
  void Give(std::string_view name, unsigned char type, const struct stat* status,
            SearchEntry* entry) const {
    if (entry->details_ == nullptr || entry->details_.use_count() != 1) {
      entry->details_ = std::make_shared<SearchEntry::Details>();
    }
    SearchEntry::Details& details = *entry->details_;
    details.folder = folder;
    details.place.spelling.assign(folder->spelling).append(1, '/').append(name);
    details.place.onMachine = folder->onMachine;
    details.place.folder = folder->held;
    details.place.entry = status == nullptr ? kUnknown : *status;
    details.isCurrent = status != nullptr;
    if (type == DT_UNKNOWN) {
      type = static_cast<unsigned char>(IFTODT(details.Place(false).entry.st_mode));
    }
    SetWide(name, &entry->name_);
    entry->isLink_ = type == DT_LNK;
    entry->isRegular_ = type == DT_REG;
    entry->isDirectory_ = type == DT_DIR || (type == DT_LNK && details.Place(false).IsFolder());
  }

  Code Read(int searched, const HostPath& host, cvn::StringView text) {
    const posix::Pattern pattern(text, host.onMachine);
    const bool withShort =
        !pattern.MatchesAll() && posix::MayMatchShortForm(text) && posix::HasShortNames(searched);
    return folder->listing.Read(searched, {.withDots = !host.isRoot, .withShortNames = withShort},
                                pattern);
  }

  Code FirstOfMany(cvn::StringView path, const Place& place, SearchEntry* entry) {
    HostPath host;
    Code code = FindFolder(place.folder, &host);
    if (code == kSuccess && !host.onMachine && !posix::HasWildcards(place.name)) {
      return TheOne(path, place, entry);
    }
    if (code == kSuccess && host.onMachine &&
        place.name.find_first_of(u":|") != cvn::StringView::npos) {
      code = kInvalidName;
    }
    if (code == kSuccess) {
      code = posix::FollowToOpen(&host);
    }
    if (code == kSuccess) {
      auto held = std::make_shared<posix::Descriptor>(host.Open(O_PATH | O_DIRECTORY));
      folder = std::make_shared<SearchedFolder>(host, held);
      code = held->Get() < 0 ? CodeOf(errno) : Read(held->Get(), host, place.name);
    }
    if (code != kSuccess) {
      return code;
    }
    const std::optional<posix::FolderListing::Item> item = folder->listing.Next();
    if (!item) {
      return kFileNotFound;
    }
    Give(item->name, item->type, nullptr, entry);
    return kSuccess;
  }

  // A device is found in every folder, whether there is such a one or not.
  static void TheDevice(const HostPath& host, SearchEntry* entry) {
    entry->details_ = std::make_shared<SearchEntry::Details>();
    entry->details_->place = host;
    entry->name_ = posix::ToWide(host.name);
    entry->isLink_ = entry->isRegular_ = entry->isDirectory_ = false;
  }

  Code TheOne(cvn::StringView path, const Place& place, SearchEntry* entry) {
    HostPath host;
    const Code code = posix::Resolve(path, &host);
    if (code == kPathNotFound && !host.spelling.empty()) {
      return FindFolder(place.folder, &host) == platform::kDirectory ? platform::kDirectory
                                                                     : kPathNotFound;
    }
    if (code != kSuccess) {
      return code;
    }
    if (host.isRoot) {
      return kFileNotFound;
    }
    if (host.device != posix::Device::None) {
      TheDevice(host, entry);
      return kSuccess;
    }
    const std::size_t slash = host.spelling.rfind('/');
    const std::string name = host.spelling.substr(slash + 1);
    const struct stat status = host.entry;
    host.spelling.resize(slash);
    folder = std::make_shared<SearchedFolder>(host, host.folder);
    Give(name, static_cast<unsigned char>(IFTODT(status.st_mode)), &status, entry);
    return kSuccess;
  }
};

namespace {

// Whether a path still leads to what was found there: a listing also has names that paths can't
// say.
bool LeadsTo(const HostPath& place, cvn::StringView path) {
  const auto nameIn = [](std::string_view text) { return text.substr(text.rfind('/') + 1); };
  posix::PathDraft draft;
  return place.folder != nullptr && posix::DraftPath(path, &draft) == kSuccess &&
         draft.device == posix::Device::None && draft.onMachine == place.onMachine &&
         nameIn(draft.path) == nameIn(place.spelling);
}

// Deletes a file unless something speaks against it.
bool IsDeleted(const HostPath& place) {
  const FileAt file = place.At();
  const bool isFree = place.entry.st_nlink == 1 || !posix::IsReadOnly(place);
  return isFree && posix::CheckUnused(place) == kSuccess &&
         unlinkat(file.folder, file.name, 0) == 0;
}

}  // namespace

Code Delete(cvn::StringView path, const SearchEntry& found) {
  const HostPath& place = found.details_->Known();
  const bool isMeant = S_ISREG(place.entry.st_mode) && LeadsTo(place, path);
  if (!isMeant || !IsDeleted(place)) {
    return Delete(path);
  }
  found.details_->folder->looks.Reached(place.At().folder);
  return posix::Report(kSuccess);
}

Code Copy(const SearchEntry& found, cvn::StringView from, cvn::StringView to, bool failIfExists) {
  SearchEntry::Details& details = *found.details_;
  const auto isRegular = [&details] { return S_ISREG(details.Known().entry.st_mode); };
  if (!LeadsTo(details.place, from) || !(found.isRegular_ || isRegular())) {
    return Copy(from, to, failIfExists);
  }
  HostPath target;
  Code code = posix::LocateFile(
      to, failIfExists ? Disposition::CreateNew : Disposition::CreateAlways, &target);
  if (code != kSuccess) {
    return Fail(code);
  }
  posix::CopiesInOrder* const inOrder = failIfExists ? &details.folder->copies : nullptr;
  const auto made = inOrder == nullptr ? nullptr : inOrder->Take(details.place, target);
  if (made != nullptr) {
    code = made->GiveName(target);
  } else if (isRegular()) {
    code = posix::CopyFile(details.place, target, {.replace = !failIfExists});
  } else {
    return Copy(from, to, failIfExists);  // it is something else by now
  }
  if (inOrder != nullptr) {
    // What is made ahead takes room, which may be what was missing.
    if (code != kSuccess && inOrder->Stop()) {
      code = posix::CopyFile(details.place, target, {});
    }
    inOrder->Went(code, details.place, target);
  }
  return Fail(code);
}

Search::Search() = default;
Search::Search(Search&&) noexcept = default;
Search& Search::operator=(Search&&) noexcept = default;
Search::~Search() = default;

Code Search::First(cvn::StringView path, SearchEntry* entry) {
  Close();
  path = posix::UpToZero(path);
  if (path.empty()) {
    return Fail(kPathNotFound);
  }
  const Place place = Split(path);
  if (posix::IsSeparator(path.back())) {
    // Nothing to search for. Windows opens the folder before it sees that.
    HostPath host;
    const Code found = FindFolder(place.folder, &host);
    return Fail(found == kSuccess ? kFileNotFound : found);
  }
  auto state = std::make_unique<State>();
  const bool isPattern = posix::HasWildcards(place.name) || posix::HasDosWildcards(place.name);
  const Code code =
      isPattern ? state->FirstOfMany(path, place, entry) : state->TheOne(path, place, entry);
  if (code != kSuccess) {
    return Fail(code);
  }
  state_ = std::move(state);
  return kSuccess;
}

Code Search::Next(SearchEntry* entry) {
  // A device has no folder.
  const bool isListed = state_ != nullptr && state_->folder != nullptr;
  const auto item = isListed ? state_->folder->listing.Next() : std::nullopt;
  if (!item) {
    return Fail(kNoMoreFiles);
  }
  state_->Give(item->name, item->type, nullptr, entry);
  return kSuccess;
}

void Search::Close() {
  if (state_ != nullptr && state_->folder != nullptr) {
    state_->folder->copies.Stop();
  }
  state_.reset();
}

}  // namespace platform::files
