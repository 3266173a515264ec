// Finding the names of a folder before their turn.
#pragma once

#include <cstddef>
#include <optional>

#include "platform/offline/volume/folder_listing.h"

namespace platform::posix {

// Has the host find the next files of a listing, many at once, so that it knows them when their
// turn comes. That helps where the driver is a program, which answers one question in the time that
// the answer to the one before takes to arrive. Nothing changes by it: what the host knows is
// forgotten as soon as it isn't so.
class LooksAhead {
 public:
  // `listing` outlives it.
  explicit LooksAhead(const FolderListing& listing) : listing_(listing) {}

  // To come when a file of the listing has had its turn. `folder`, which is open, is that of the
  // listing, and what the listing gives next is the next file.
  void Reached(int folder);

 private:
  void Look(int folder, std::size_t count) const;

  const FolderListing& listing_;
  std::optional<bool> isWorthwhile_;
  std::size_t found_ = 0;  // how many of the next ones
};

}  // namespace platform::posix
