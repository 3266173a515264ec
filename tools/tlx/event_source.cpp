#include "tools/tlx/event_source.h"

#include <string_view>

#include "platform/clock.h"
#include "platform/stop_request.h"
#include "support/format.h"
#include "tools/tlx/messages.h"

namespace tlx {
namespace {

using platform::clock::TickCount;

// In milliseconds. Two changes within one tick of a file system's clock can't be told apart; no
// tick is longer than this.
constexpr std::uint32_t kLongestTick = 2'000;
// File systems of other hosts may tell of changes late, and clocks may be put back.
constexpr std::uint32_t kListAnyway = 60'000;
// So long a file may be half written.
constexpr std::uint32_t kLongestWriting = 2'000;

// So many names of files that went are kept at least, lest the files come back, as with a volume
// that is mounted again.
constexpr std::size_t kNamesKept = 100'000;

std::size_t HashOf(cvn::StringView name) { return std::hash<std::u16string_view>()(name); }

}  // namespace

// Each problem once, until there is another one, or none.
int EventSource::TellState(EventPlace::State state, cvn::StringView problem) {
  const bool isNew = lastTold_ != problem;
  lastTold_ = problem;
  if (isFollowed_ && state == EventPlace::State::Missing) {
    if (isNew) {
      WarnOfFile(place_.Name(), u"there is no such folder yet");
    }
    return kExitDone;
  }
  if (!problem.empty() && isNew) {
    FailOnFile(place_.Name(), problem);
  }
  return problem.empty() ? kExitDone : kExitBadInput;
}

bool EventSource::IsUnchanged(const Folder::Look& look) {
  const std::uint32_t now = TickCount();
  if (!(look == look_)) {
    look_ = look;
    seenAt_ = now;
    isListed_ = false;
  }
  const bool isSettled = isListed_ && listedAt_ - seenAt_ >= kLongestTick && look.changed != 0;
  return isSettled && unready_.empty() && now - listedAt_ < kListAnyway;
}

// The names of files that weren't read yet, and of those that weren't ready.
platform::Code EventSource::List(const Folder& folder, cvn::List<cvn::String>* names) {
  std::size_t present = 0;
  const platform::Code code = folder.ForEach([&](const Folder::Entry& entry) {
    if (!entry.isFolder && !entry.name.AsView().ends_with(u".tmp")) {
      ++present;
      if (!done_.contains(HashOf(entry.name))) {
        names->push_back(entry.name);
      }
    }
    return !platform::stop::IsAsked();
  });
  if (code == platform::kSuccess && done_.size() > 2 * present + kNamesKept) {
    return ForgetGone(folder);
  }
  return code;
}

platform::Code EventSource::ForgetGone(const Folder& folder) {
  std::unordered_set<std::size_t> present;
  const platform::Code code = folder.ForEach([&](const Folder::Entry& entry) {
    const std::size_t hash = HashOf(entry.name);
    if (done_.contains(hash)) {
      present.insert(hash);
    }
    return true;
  });
  if (code == platform::kSuccess) {
    done_ = std::move(present);
  }
  return code;
}

int EventSource::ReadFile(const Folder& folder, const cvn::String& name, const Take& take) {
  SpooledEvent event;
  bool isGone = false;
  const cvn::String problem = ReadEventFile(folder, name, &event, &isGone);
  if (isGone) {
    return kExitDone;
  }
  if (isFollowed_) {
    const std::size_t hash = HashOf(name);
    const std::uint32_t now = TickCount();
    const auto before = unreadyBefore_.find(hash);
    const std::uint32_t first = before == unreadyBefore_.end() ? now : before->second;
    if (!problem.Empty() && now - first < kLongestWriting) {
      unready_.emplace(hash, first);
      return kExitDone;
    }
    done_.insert(hash);
  }
  if (!problem.Empty()) {
    return FailOnFile(place_.PathOf(name), problem);
  }
  take(name, std::move(event));
  return kExitDone;
}

int EventSource::ReadFiles(const Folder& folder, const cvn::List<cvn::String>& names,
                           const Take& take) {
  int exitCode = kExitDone;
  unreadyBefore_ = std::exchange(unready_, {});
  for (const cvn::String& name : names) {
    if (platform::stop::IsAsked()) {
      break;
    }
    const int read = ReadFile(folder, name, take);
    exitCode = read == kExitDone ? exitCode : read;
  }
  return exitCode;
}

int EventSource::Read(FoldersOfRound* folders, const Take& take) {
  Folder folder;
  Folder::Look look;
  cvn::String problem;
  cvn::List<cvn::String> names;
  EventPlace::State state = place_.Open(&folder, &problem);
  if (state == EventPlace::State::Found) {
    platform::Code code = folder.LookAt(&look);
    if (code == platform::kSuccess) {
      if (!folders->emplace(look.identity.volume, look.identity.number).second ||
          (isFollowed_ && IsUnchanged(look))) {
        return kExitDone;
      }
      listedAt_ = TickCount();
      code = List(folder, &names);
    }
    isListed_ = code == platform::kSuccess;
    if (!isListed_) {
      state = EventPlace::State::Failed;
      problem = cvn::Format(u"cannot be read: %s", DescribeCode(code));
    }
  }
  const int exitCode = TellState(state, problem);
  const int read = ReadFiles(folder, names, take);
  return exitCode == kExitDone ? read : exitCode;
}

}  // namespace tlx
