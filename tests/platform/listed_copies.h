// Copying the files of a folder in the order of its listing, when the next ones are made ahead.
#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "platform/file_search.h"
#include "tests/platform/host_folder.h"

namespace platform::test {

// Copies what `from` lists to where nothing is, until `isWanted` says no of a name; gives the names
// and codes of the failures.
inline std::string CopyListed(const cvn::String& from, const cvn::String& to,
                              const std::function<bool(const std::string&)>& isWanted) {
  std::string failures;
  files::Search search;
  files::SearchEntry entry;
  Code code = search.First(Joined(from, u"\\*"), &entry);
  for (; code == kSuccess; code = search.Next(&entry)) {
    const std::string name = Utf8(entry.Name());
    if (!entry.IsSelfOrParent() && !isWanted(name)) {
      break;
    }
    const auto in = [&entry](const cvn::String& folder) {
      return Joined(Joined(folder, u"\\"), entry.Name());
    };
    const Code copied =
        entry.IsSelfOrParent() ? kSuccess : files::Copy(entry, in(from), in(to), true);
    failures += copied == kSuccess ? "" : name + " " + std::to_string(copied) + "\n";
  }
  return failures;
}

inline std::size_t CountIn(const std::string& folder) {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

}  // namespace platform::test
