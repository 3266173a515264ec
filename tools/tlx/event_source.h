// The events of one place, each told once.
#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <unordered_set>
#include <utility>

#include "platform/held_folder.h"
#include "support/containers.h"
#include "support/string.h"
#include "tools/tlx/event_place.h"
#include "tools/tlx/spooled_event.h"

namespace tlx {

// The folders that were looked into in one round over all sources.
using FoldersOfRound = std::set<std::pair<std::uint64_t, std::uint64_t>>;

class EventSource {
 public:
  // A place that is followed may be missing, or have nothing; it is asked again and again. What
  // isn't an event there has a few seconds to become one, before it is told.
  EventSource(cvn::StringView folder, bool isFollowed) : place_(folder), isFollowed_(isFollowed) {}

  using Take = std::function<void(cvn::StringView file, SpooledEvent event)>;

  // Gives the events that it hasn't given before, by the names of their files, in no order. What
  // others fetch meanwhile is left out. A folder that is in `folders` is another source's; its own
  // comes into it. Returns the exit code of failures that it told.
  int Read(FoldersOfRound* folders, const Take& take);

  const EventPlace& Place() const { return place_; }

 private:
  using Folder = platform::files::HeldFolder;

  int TellState(EventPlace::State state, cvn::StringView problem);
  bool IsUnchanged(const Folder::Look& look);
  platform::Code List(const Folder& folder, cvn::List<cvn::String>* names);
  platform::Code ForgetGone(const Folder& folder);
  int ReadFiles(const Folder& folder, const cvn::List<cvn::String>& names, const Take& take);
  int ReadFile(const Folder& folder, const cvn::String& name, const Take& take);

  EventPlace place_;
  bool isFollowed_;
  cvn::String lastTold_;

  // The folder as it was when names were listed last, in milliseconds of the system's.
  Folder::Look look_;
  std::uint32_t seenAt_ = 0;
  std::uint32_t listedAt_ = 0;
  bool isListed_ = false;

  // By the hashes of their names: files that were given or told, and those that may become events,
  // with the time at which they were seen first.
  std::unordered_set<std::size_t> done_;
  cvn::Map<std::size_t, std::uint32_t> unready_;
  cvn::Map<std::size_t, std::uint32_t> unreadyBefore_;
};

}  // namespace tlx
