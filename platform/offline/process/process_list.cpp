#include <fcntl.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <optional>

#include "platform/formats/names.h"
#include "platform/linux/directory_stream.h"
#include "platform/linux/error_map.h"
#include "platform/linux/process_info.h"
#include "platform/offline/volume/volume.h"
#include "platform/process.h"
#include "platform/rehearsal.h"

namespace platform::process {
namespace {

using posix::Fail;

std::optional<std::uint32_t> NumberIn(std::string_view text) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(number)
                                                                  : std::nullopt;
}

// "<id> (<name>) <state> <parent> ...". The name may hold anything, brackets included.
struct Status {
  std::string_view name;
  char state;
  std::uint32_t parentId;
};

std::optional<Status> ParseStatus(std::string_view line) {
  const std::size_t open = line.find('(');
  const std::size_t close = line.rfind(')');
  if (open == std::string_view::npos || close < open || close + 4 >= line.size()) {
    return std::nullopt;
  }
  const std::string_view rest = line.substr(close + 4);
  const auto parent = NumberIn(rest.substr(0, rest.find(' ')));
  if (!parent) {
    return std::nullopt;
  }
  return Status{line.substr(open + 1, close - open - 1), line[close + 2], *parent};
}

// Nothing for a process that has ended: Windows lists none that only waits to be forgotten.
std::optional<Entry> EntryOf(std::uint32_t id) {
  char buffer[1024];
  const auto status = ParseStatus(posix::ReadProcessFile(id, "stat", buffer));
  if (!status || status->state == 'Z' || status->state == 'X') {
    return std::nullopt;
  }
  Entry entry{id, status->parentId, {}};
  std::string image;
  if (posix::ReadImageLink(id, &image) == kSuccess) {
    entry.executable = posix::ToWide(std::string_view(image).substr(image.rfind('/') + 1));
  } else {
    entry.executable = posix::ToWide(status->name);
  }
  return entry;
}

}  // namespace

Code List(cvn::List<Entry>* entries, ListStep* failedStep) {
  entries->clear();
  *failedStep = ListStep::Snapshot;
  const int error = posix::ForEachEntry({AT_FDCWD, "/proc"}, 0, [entries](const dirent& child) {
    if (const auto id = NumberIn(child.d_name); id && !rehearsal::HasEnded(*id)) {
      if (auto entry = EntryOf(*id)) {
        entries->push_back(std::move(*entry));
      }
    }
    return true;
  });
  if (error != 0) {
    entries->clear();
    return Fail(posix::CodeOf(error));
  }
  std::ranges::sort(*entries, {}, &Entry::id);
  return kSuccess;
}

Code MainModulePath(std::uint32_t id, cvn::String* path) {
  std::string image;
  const Code code = posix::ReadImageLink(id, &image);
  if (code != kSuccess) {
    // The system's own processes don't let their modules be listed.
    return Fail(code == kGenFailure ? kAccessDenied : code);
  }
  *path = posix::ToMachinePath(image);
  return kSuccess;
}

Code ImagePath(std::uint32_t id, cvn::String* path, ImageStep* failedStep) {
  std::string image;
  const Code code = posix::ReadImageLink(id, &image);
  if (code != kSuccess) {
    *failedStep = code == kGenFailure ? ImageStep::Query : ImageStep::Open;
    return Fail(code);
  }
  *path = posix::ToMachinePath(image);
  return kSuccess;
}

}  // namespace platform::process
