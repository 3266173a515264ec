#include "files/path_text.h"

#include <algorithm>

#include "platform/paths.h"

namespace tessel {
namespace {

constexpr cvn::StringView kSeparators = u"\\/";

}  // namespace

cvn::String JoinPath(cvn::StringView directory, cvn::StringView name) {
  cvn::String path;
  path.Reserve(directory.size() + 1 + name.size());
  path.Append(directory);
  AppendName(&path, name);
  return path;
}

void AppendName(cvn::String* path, cvn::StringView name) {
  if (name.empty()) {
    return;
  }
  if (!path->Empty() && kSeparators.find((*path)[path->Length() - 1]) == cvn::StringView::npos) {
    path->Append(u'\\');
  }
  name.remove_prefix(std::min(name.find_first_not_of(kSeparators), name.size()));
  path->Append(name);
}

cvn::String GetExeFolder() {
  cvn::String folder = platform::paths::ModuleFileName();
  platform::paths::RemoveFileSpec(&folder);
  platform::paths::AddBackslash(&folder);
  return folder;
}

cvn::String GetParentFolder(cvn::StringView path) {
  cvn::String folder;
  if (platform::paths::IsRelative(path)) {
    folder = GetExeFolder();
  }
  folder.Append(path);
  platform::paths::RemoveFileSpec(&folder);
  platform::paths::AddBackslash(&folder);
  return folder;
}

}  // namespace tessel
