#include "platform/files.h"
#include "platform/paths.h"
#include "support/containers.h"

namespace platform::files {
namespace {

// A name with a separator after it can only be a folder's.
bool IsFolder(cvn::StringView path) {
  cvn::String folder(path);
  paths::AddBackslash(&folder);
  return paths::Exists(folder);
}

// The part of `path` that names its parent, empty when there is none.
cvn::StringView ParentOf(cvn::StringView path) {
  constexpr cvn::StringView kSeparators = u"\\/";
  const std::size_t name = path.find_last_not_of(kSeparators);
  const std::size_t separator = path.find_last_of(kSeparators, name);
  if (name == cvn::StringView::npos || separator == cvn::StringView::npos) {
    return {};
  }
  const std::size_t parent = path.find_last_not_of(kSeparators, separator);
  return path.substr(0, parent == cvn::StringView::npos ? 0 : parent + 1);
}

}  // namespace

Code CreateDirectoryRecursive(cvn::StringView path) {
  const Code lastError = LastError();
  cvn::List<cvn::StringView> missing;
  for (cvn::StringView place = path; !IsFolder(place); place = ParentOf(place)) {
    missing.push_back(place);
    if (ParentOf(place).empty()) {
      break;
    }
  }
  for (; !missing.empty(); missing.pop_back()) {
    const Code code = CreateDirectory(missing.back());
    // Another process may have made it by now.
    if (code != kSuccess && !(code == kAlreadyExists && IsFolder(missing.back()))) {
      SetLastError(code);
      return code;
    }
  }
  SetLastError(lastError);
  return kSuccess;
}

}  // namespace platform::files
