// Searches in folders by pattern.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/error.h"
#include "platform/files.h"
#include "support/string.h"

namespace platform::files {

// What a search found. Times and attributes that the folder's listing does not hold are asked for
// only when they are read, so that a search which needs no more than names and kinds costs no more.
class SearchEntry {
 public:
  const cvn::String& Name() const { return name_; }
  // True for a folder, and for a link to one.
  bool IsDirectory() const { return isDirectory_; }
  // True for what only leads elsewhere: a symbolic link, or a folder that another one is mounted
  // on. Other reparse points, such as the folders of a cloud store, hold what they show.
  bool IsLink() const { return isLink_; }
  // False for a folder, a link, and what only hosts have: pipes, sockets and devices.
  bool IsRegular() const { return isRegular_; }
  // True for "." and "..".
  bool IsSelfOrParent() const { return name_ == u"." || name_ == u".."; }
  // The attribute word, as GetAttributes would give it. Never 0: a file without attributes has
  // NORMAL.
  Attributes GetAttributes() const;
  // Last-write time in 100-nanosecond units since 1601-01-01 UTC, as in a FILETIME.
  std::uint64_t LastWriteTime() const;

 private:
  friend class Search;
  friend Code Delete(cvn::StringView path, const SearchEntry& found);
  friend Code Copy(const SearchEntry& found, cvn::StringView from, cvn::StringView to,
                   bool failIfExists);
  struct Details;  // the backend's
  cvn::String name_;
  bool isDirectory_ = false;
  bool isLink_ = false;
  bool isRegular_ = false;
  mutable std::shared_ptr<Details> details_;
};

// A search, as FindFirstFileW, FindNextFileW and FindClose. The last component of the path may hold
// '*' and '?', with the rules of Windows: without regard to case, "*.*" matches every name, "*."
// every name without a dot, and a '?' at the end of the name or before a dot matches nothing too.
// Windows takes '<', '>' and '"' as wildcards as well: what '*' before a dot, '?', and a dot before
// a wildcard stand for. "." and ".." are listed first, both of them, where the pattern matches ".",
// and names come in the order of a file system of Windows: by their upper-case forms.
//
// It finds what the folder held when it started: nothing that is created, renamed or deleted while
// it goes on disturbs it. No folder stays open meanwhile.
class Search {
 public:
  Search();
  Search(Search&&) noexcept;
  Search& operator=(Search&&) noexcept;
  ~Search();

  // Starts, and gives the first entry. 2 when nothing matches, also because the path ends in a
  // separator; 3 when the folder is missing, 267 when it is none, 123 for a wildcard in a folder's
  // name.
  Code First(cvn::StringView path, SearchEntry* entry);
  // 18 after the last entry.
  Code Next(SearchEntry* entry);
  void Close();

 private:
  struct State;  // the backend's
  std::unique_ptr<State> state_;
};

// As Delete, of a file that a search found at this path, without looking for its folder again where
// that is held. READONLY may then not keep a file that has one name only.
Code Delete(cvn::StringView path, const SearchEntry& found);

// As Copy, of a file that a search found at `from`, likewise.
Code Copy(const SearchEntry& found, cvn::StringView from, cvn::StringView to, bool failIfExists);

}  // namespace platform::files
