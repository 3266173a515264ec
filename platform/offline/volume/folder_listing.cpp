#include "platform/offline/volume/folder_listing.h"

#include <algorithm>
#include <cerrno>

#include "platform/formats/names.h"
#include "platform/linux/directory_stream.h"
#include "platform/linux/error_map.h"
#include "platform/offline/volume/short_names.h"

namespace platform::posix {

Code FolderListing::Read(int folder, Options options, Pattern pattern) {
  const DirectoryStream stream = OpenDirectory({folder, "."}, 0);
  if (stream == nullptr) {
    return CodeOf(errno);
  }
  // NTFS lists both of them when the pattern matches the first. "..<" matches the second alone,
  // and lists neither.
  if (options.withDots && pattern.Matches(u".")) {
    Add(".", DT_DIR);
    Add("..", DT_DIR);
  }
  const std::size_t sorted = items_.size();
  const int error = ForEachEntry(stream, [&](const dirent& entry) {
    ReadEntry(folder, entry, options.withShortNames, &pattern);
    return true;
  });
  if (error != 0) {
    return CodeOf(error);
  }
  Sort(sorted);
  return kSuccess;
}

void FolderListing::ReadEntry(int folder, const dirent& entry, bool withShortNames,
                              Pattern* pattern) {
  const std::string_view name = entry.d_name;
  bool matches = pattern->Matches(Fold(name));
  if (!matches && withShortNames) {
    const auto shortName = ShortNameOf({folder, entry.d_name});
    matches = shortName && pattern->Matches(*shortName);
  }
  if (matches) {
    Add(name, entry.d_type);
  }
}

std::optional<FolderListing::Item> FolderListing::Next() {
  const std::optional<Item> item = Peek(0);
  next_ += item ? 1 : 0;
  return item;
}

std::optional<FolderListing::Item> FolderListing::Peek(std::size_t count) const {
  if (count >= items_.size() - next_) {
    return std::nullopt;
  }
  const Stored& item = items_[next_ + count];
  return Item{NameOf(item), item.type};
}

// Puts the upper-case form after all others, where it stays if the name is added.
cvn::StringView FolderListing::Fold(std::string_view name) {
  folds_.resize(foldsUsed_);
  isAscii_ = isAscii_ && IsAscii(name);
  AppendFolded(name, &folds_);
  return cvn::StringView(folds_).substr(foldsUsed_);
}

void FolderListing::Add(std::string_view name, unsigned char type) {
  items_.push_back({names_.size(), foldsUsed_, 0, static_cast<std::uint16_t>(name.size()),
                    static_cast<std::uint16_t>(folds_.size() - foldsUsed_), type});
  names_ += name;
  foldsUsed_ = folds_.size();
}

std::string_view FolderListing::NameOf(const Stored& item) const {
  return std::string_view(names_).substr(item.name, item.nameLength);
}

cvn::StringView FolderListing::FoldOf(const Stored& item) const {
  return cvn::StringView(folds_).substr(item.fold, item.foldLength);
}

// How many units all the names from `first` on begin with.
std::size_t FolderListing::CommonLength(std::size_t first) const {
  cvn::StringView common = FoldOf(items_[first]);
  for (std::size_t i = first + 1; i < items_.size() && !common.empty(); ++i) {
    const cvn::StringView fold = FoldOf(items_[i]);
    const auto end = std::mismatch(common.begin(), common.end(), fold.begin(), fold.end()).first;
    common = common.substr(0, static_cast<std::size_t>(end - common.begin()));
  }
  return common.size();
}

// Sorts the items from `first` on. Most pairs are told apart by their keys.
void FolderListing::Sort(std::size_t first) {
  if (first == items_.size()) {
    return;
  }
  const std::size_t common = CommonLength(first);
  const unsigned bits = isAscii_ ? 8 : 16;
  const std::size_t count = 64 / bits;
  for (std::size_t i = first; i < items_.size(); ++i) {
    const cvn::StringView rest = FoldOf(items_[i]).substr(common);
    for (std::size_t unit = 0; unit < count; ++unit) {
      items_[i].key = items_[i].key << bits | (unit < rest.size() ? rest[unit] : u'\0');
    }
  }
  std::sort(items_.begin() + static_cast<std::ptrdiff_t>(first), items_.end(),
            [this](const Stored& left, const Stored& right) {
              return left.key != right.key ? left.key < right.key : IsBefore(left, right);
            });
}

bool FolderListing::IsBefore(const Stored& left, const Stored& right) const {
  const int order = FoldOf(left).compare(FoldOf(right));
  return order != 0 ? order < 0 : ToWide(NameOf(left)) < ToWide(NameOf(right));
}

}  // namespace platform::posix
