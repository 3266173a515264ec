#include "tools/tlx/folder_listing.h"

#include <algorithm>
#include <array>
#include <optional>

#include "files/listing.h"
#include "files/path_text.h"
#include "platform/file_digest.h"
#include "platform/formats/draft_name.h"
#include "platform/held_folder.h"
#include "platform/name_fold.h"
#include "platform/paths.h"
#include "support/containers.h"
#include "support/format.h"
#include "support/numbers.h"
#include "tools/tlx/file_io.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/windows_name.h"

namespace tlx {
namespace {

using platform::files::SearchEntry;

constexpr cvn::StringView kNoRegularFile = u"it is no regular file, and no run takes it";

class FolderWalk {
 public:
  FolderWalk(cvn::StringView root, bool isForced) : root_(root), isForced_(isForced) {}

  // Returns the exit code.
  int Run() {
    folders_.emplace_back();
    while (!folders_.empty()) {
      const cvn::String folder = std::move(folders_.back());
      folders_.pop_back();
      ListFolder(folder);
    }
    std::ranges::sort(files_, [](const ListedFile& left, const ListedFile& right) {
      const int order = cvn::CompareNoCase(left.name, right.name);
      return order != 0 ? order < 0 : left.name < right.name;
    });
    return exitCode_;
  }

  // In the order of their names, without digests.
  std::vector<ListedFile>& Files() { return files_; }

 private:
  // `folder` is relative to the root.
  void ListFolder(const cvn::String& folder) {
    const cvn::String path = tessel::JoinPath(root_, folder);
    cvn::Map<cvn::String, cvn::String> names;  // by what Windows compares
    tessel::Listing listing(tessel::JoinPath(path, u"*"));
    for (; listing.HasEntry(); listing.Advance()) {
      const SearchEntry& entry = listing.Entry();
      if (entry.IsSelfOrParent()) {
        continue;
      }
      const cvn::String place = tessel::JoinPath(path, entry.Name());
      JudgeName(place, entry.Name());
      const auto [same, isNew] = names.emplace(platform::paths::FoldName(entry.Name()), place);
      if (!isNew) {
        RefuseName(place, cvn::Format(u"'%s' has the same name to Windows", same->second));
      }
      Take(folder, place, entry);
    }
    const platform::Code code = listing.Status();
    if (code != platform::kNoMoreFiles && code != platform::kFileNotFound) {
      exitCode_ = FailToRead(path, code);
    }
  }

  void Take(const cvn::String& folder, const cvn::String& place, const SearchEntry& entry) {
    cvn::String name = folder;
    if (!name.Empty()) {
      name.Append(u'\\');
    }
    name.Append(entry.Name());
    if (entry.IsLink()) {
      exitCode_ = FailOnFile(place, u"it is a link; a patch takes only files themselves along");
    } else if (entry.IsDirectory()) {
      folders_.push_back(std::move(name));
    } else if (!entry.IsRegular()) {
      exitCode_ = FailOnFile(place, kNoRegularFile);
    } else if (platform::MakerOfDraft(cvn::StringView(entry.Name())) != 0) {
      exitCode_ =
          FailOnFile(place, u"it was never finished, unless another tlx is at it; remove it");
    } else if (!cvn::EqualNoCase(name, kCatalogName)) {
      files_.emplace_back().name = std::move(name);
    }
  }

  void JudgeName(const cvn::String& place, const cvn::String& name) {
    const cvn::String fault = FaultOfName(name);
    if (!fault.Empty()) {
      RefuseName(place, fault);
    }
  }

  void RefuseName(const cvn::String& place, const cvn::String& fault) {
    if (isForced_) {
      WarnOfFile(place, fault);
    } else {
      exitCode_ = FailOnFile(place, cvn::Format(u"%s (--force lists it all the same)", fault));
    }
  }

  cvn::String root_;
  bool isForced_;
  int exitCode_ = kExitDone;
  cvn::List<cvn::String> folders_;  // still to be listed, relative to the root
  std::vector<ListedFile> files_;
};

int DigestFile(cvn::StringView path, ListedFile* listed) {
  platform::files::File file;
  const platform::Code code = platform::files::OpenRegular(path, &file);
  if (code == platform::files::kNoRegularFile) {
    return FailOnFile(path, kNoRegularFile);
  }
  if (code != platform::kSuccess) {
    return FailToRead(path, code);
  }
  RememberReadFile(file);
  const platform::ByteSource source(file);
  const std::optional<platform::PeImage> image = platform::ReadPeImage(source);
  if (!image && platform::IsBrokenPeImage(source)) {
    return FailOnFile(path, u"it is a broken program, which no platform would hash");
  }
  const std::array<platform::Range, 1> everything = {{{0, source.Size()}}};
  const std::array<const EVP_MD*, 1> algorithms = {EVP_sha256()};
  auto digests = image ? platform::ImageDigest(source, *image, algorithms)
                       : platform::Digest(source, everything, algorithms);
  if (!digests) {
    return FailToRead(path, platform::kReadFault);
  }
  listed->digest = std::move(digests->front());
  listed->isImage = image.has_value();
  return kExitDone;
}

}  // namespace

int ListPatchFolder(cvn::StringView folder, bool isForced, std::vector<ListedFile>* files) {
  if (!platform::paths::IsDirectory(folder)) {
    return FailOnFile(folder, u"there is no such folder");
  }
  FolderWalk walk(folder, isForced);
  int exitCode = walk.Run();
  *files = std::move(walk.Files());
  if (exitCode == kExitDone && files->empty()) {
    return FailOnFile(folder, u"there is no file in it for a catalog to list");
  }
  if (exitCode != kExitDone) {
    return exitCode;
  }
  for (ListedFile& file : *files) {
    const int digested = DigestFile(tessel::JoinPath(folder, file.name), &file);
    exitCode = digested == kExitDone ? exitCode : digested;
  }
  return exitCode;
}

}  // namespace tlx
