#include "trust/patch_folder.h"

#include <algorithm>
#include <utility>

#include "files/path_text.h"
#include "platform/file_identity.h"
#include "platform/paths.h"
#include "trust/path_key.h"

namespace tessel {
namespace {

namespace files = platform::files;

constexpr cvn::StringView kSeparators = u"\\/";

constexpr platform::Code kFunctionFailed = 1627;

FileState StateOf(platform::Code code) {
  switch (code) {
    case platform::kSuccess:
      return FileState::Genuine;
    case platform::kFileNotFound:
    case platform::kPathNotFound:
      return FileState::Missing;
    case files::kNoRegularFile:
      return FileState::NoFile;
    case files::kAmbiguousName:
      return FileState::ManyAlike;
    default:
      return FileState::Unreadable;
  }
}

bool AreAlike(cvn::String left, cvn::String right) {
  LowerCase(&left);
  LowerCase(&right);
  return left == right;
}

}  // namespace

cvn::StringView WordsFor(FileState state) {
  switch (state) {
    case FileState::Genuine:
      return {};
    case FileState::Missing:
      return u"File not found!";
    case FileState::NoFile:
      return u"Not a regular file!";
    case FileState::ManyAlike:
      return u"Several files differ from that name in case only!";
    case FileState::Unreadable:
      return u"Could not calculate hash on file!";
    case FileState::HasChanged:
      return u"Hash not matching!";
  }
  return {};
}

PatchFolder::PatchFolder() { BindCatalogFunctions(&functions_); }

platform::Code PatchFolder::Hold(cvn::StringView patchPath) {
  path_ = GetParentFolder(patchPath);
  return folder_.Hold(path_);
}

std::size_t PatchFolder::FindPatch(const cvn::List<CatalogEntry>& entries,
                                   cvn::StringView patchPath, cvn::StringView contentHash,
                                   platform::Code* code) {
  const cvn::String path = platform::paths::IsRelative(patchPath)
                               ? JoinPath(GetExeFolder(), patchPath)
                               : cvn::String(patchPath);
  files::File patch;
  cvn::String hash;
  if (files::OpenRegular(path, &patch) != platform::kSuccess ||
      CalcFileHash(functions_, &patch, &hash) != platform::kSuccess) {
    *code = kFunctionFailed;
    return entries.size();
  }
  const cvn::StringView name = platform::paths::FindFileName(path);
  const auto own = std::find_if(entries.begin(), entries.end(), [&](const CatalogEntry& entry) {
    return entry.hash == hash && hash == contentHash &&
           (AreAlike(PlaceInFolder(entry), name) || LeadsTo(patch, entry));
  });
  *code = own == entries.end() ? platform::kNotFound : platform::kSuccess;
  return static_cast<std::size_t>(own - entries.begin());
}

bool PatchFolder::LeadsTo(const files::File& patch, const CatalogEntry& entry) {
  files::File file;
  files::Identity left;
  files::Identity right;
  return Open(entry, &file) == FileState::Genuine &&
         files::GetIdentity(patch, &left) == platform::kSuccess &&
         files::GetIdentity(file, &right) == platform::kSuccess && left == right;
}

FileState PatchFolder::Open(const CatalogEntry& entry, files::File* file) {
  const cvn::String place = PlaceInFolder(entry);
  return StateOf(place.Empty() ? files::OpenRegular(JoinPath(path_, entry.name), file)
                               : folder_.OpenFile(place, file));
}

FileState PatchFolder::Compare(files::File* file, const CatalogEntry& entry) const {
  cvn::String hash;
  if (CalcFileHash(functions_, file, &hash) != platform::kSuccess) {
    return FileState::Unreadable;
  }
  return hash == entry.hash ? FileState::Genuine : FileState::HasChanged;
}

FileState PatchFolder::Judge(const CatalogEntry& entry) {
  files::File file;
  const FileState state = Open(entry, &file);
  return state == FileState::Genuine ? Compare(&file, entry) : state;
}

platform::Code PatchFolder::OpenUnlisted(cvn::StringView name, files::File* file) {
  return folder_.OpenFile(name, file);
}

cvn::String PlaceInFolder(const CatalogEntry& entry) {
  cvn::StringView rest = entry.name;
  cvn::List<cvn::StringView> names;
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find_first_of(kSeparators), rest.size());
    const cvn::StringView name = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (name == u"..") {
      if (names.empty()) {
        return {};
      }
      names.pop_back();
    } else if (!name.empty() && name != u".") {
      names.push_back(name);
    }
  }
  cvn::String place;
  for (const cvn::StringView name : names) {
    AppendName(&place, name);
  }
  return place;
}

}  // namespace tessel
