#include "platform/offline/volume/stand_in.h"

#include <algorithm>
#include <utility>

#include "platform/formats/names.h"
#include "platform/offline/volume/path_draft.h"

namespace platform::posix {
namespace {

struct Folders {
  std::string place;  // empty while there is no stand-in
  std::string host;
};

Folders& Current() {
  static Folders folders;
  return folders;
}

// The length of the beginning of `path` that has as many names as `place`.
std::size_t LengthOfSameDepth(std::string_view path, std::string_view place) {
  std::size_t length = 0;
  for (auto names = std::count(place.begin(), place.end(), '/'); names > 0; --names) {
    length = std::min(path.find('/', length + 1), path.size());
  }
  return length;
}

}  // namespace

void SetStandIn(std::string place, std::string hostFolder) {
  Current() = {std::move(place), std::move(hostFolder)};
}

std::optional<std::string> ThroughStandIn(std::string_view path) {
  const Folders& folders = Current();
  if (folders.place.empty()) {
    return std::nullopt;
  }
  const std::size_t length = LengthOfSameDepth(path, folders.place);
  std::u16string asked;
  std::u16string known;
  AppendFolded(path.substr(0, length), &asked);
  AppendFolded(folders.place, &known);
  return asked == known ? std::optional(folders.host + std::string(path.substr(length)))
                        : std::nullopt;
}

std::optional<std::string> BackFromStandIn(std::string_view path) {
  const Folders& folders = Current();
  return !folders.place.empty() && IsWithin(path, folders.host)
             ? std::optional(folders.place + std::string(path.substr(folders.host.size())))
             : std::nullopt;
}

}  // namespace platform::posix
