// Copies of a folder's files that are made before their turn, by other threads.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "platform/error.h"
#include "platform/offline/volume/copy.h"
#include "platform/offline/volume/folder_listing.h"
#include "platform/offline/volume/volume.h"

namespace platform::posix {

// Makes copies of files whose turn comes next, from one folder to another, and keeps them without
// their names until then. So nothing is to be seen of them, as if they had not been made: a copy
// whose turn doesn't come, or that failed, is made as any other or not at all.
class CopiesAhead {
 public:
  // `source` is any entry of the folder to copy from. Both folders are held open.
  CopiesAhead(HostPath source, std::shared_ptr<const Descriptor> target);
  CopiesAhead(const CopiesAhead&) = delete;
  CopiesAhead& operator=(const CopiesAhead&) = delete;
  // Ends with the copies that are being made, which are of small files.
  ~CopiesAhead();

  // How many were added and not taken.
  std::size_t Count() const { return count_; }
  // Adds the files that come after those that were added. Few large steps: each may wake the
  // threads.
  void Add(const std::vector<std::string_view>& names);

  // Takes the copy of the next one; waits until it is made. Null when that wasn't possible, or
  // better left to its turn. False in `*isNext` when another was added next.
  std::unique_ptr<PreparedCopy> Take(std::string_view name, bool* isNext);

 private:
  struct Item {
    std::string name;
    std::unique_ptr<PreparedCopy> copy;
    bool isFinished = false;
  };

  void Work();
  void Finish(Item* item, std::unique_ptr<PreparedCopy> copy);
  std::unique_ptr<PreparedCopy> Make(const std::string& name) const;

  const HostPath source_;
  const std::string folder_;  // how the host spells it, with a slash at its end
  const std::shared_ptr<const Descriptor> target_;

  std::mutex mutex_;  // of all below
  std::condition_variable added_;
  std::condition_variable made_;
  std::deque<Item> items_;    // a reference to one stays good while others come and go
  std::size_t begun_ = 0;     // how many of the first ones a thread has taken on
  std::size_t finished_ = 0;  // how many of the first ones are made, or can't be
  std::size_t awaited_ = 0;   // how many have to be for the thread that takes them; 0 if none
  bool isEnding_ = false;

  std::size_t count_ = 0;  // of items_; of the thread that adds and takes
  std::vector<std::thread> threads_;
};

// Copies the files of a folder in the order of its listing to places where nothing is. When they go
// to one folder one after the other, the next ones are made ahead.
class CopiesInOrder {
 public:
  // `listing` outlives it; what it gives next is the file after the one that is copied.
  explicit CopiesInOrder(const FolderListing& listing) : listing_(listing) {}

  // The copy of `file` for `target`, if it was made ahead.
  std::unique_ptr<PreparedCopy> Take(const HostPath& file, const HostPath& target);
  // To come after each copy, with its code.
  void Went(Code code, const HostPath& file, const HostPath& target);
  // Drops what was made ahead. False when there was nothing.
  bool Stop() { return std::exchange(ahead_, nullptr) != nullptr; }

 private:
  bool IsNextRegular(std::size_t count) const;

  const FolderListing& listing_;
  std::unique_ptr<CopiesAhead> ahead_;
  int inRow_ = 0;
  bool isOff_ = false;  // once files were passed over, or went elsewhere
};

}  // namespace platform::posix
