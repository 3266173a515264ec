#include "tools/tlx/patch_operand.h"

#include "files/path_text.h"
#include "platform/environment.h"
#include "platform/file_search.h"
#include "platform/held_folder.h"
#include "platform/machine.h"
#include "platform/paths.h"
#include "support/format.h"
#include "tools/tlx/file_io.h"
#include "tools/tlx/messages.h"

namespace tlx {

namespace files = platform::files;
namespace paths = platform::paths;

namespace {

// Who reads the patch may be another process; nothing is written over it all the same.
void KeepFromWriting(cvn::StringView patch) {
  files::File file;
  if (files::OpenRegular(patch, &file) == platform::kSuccess) {
    RememberReadFile(file);
  }
}

}  // namespace

cvn::String FullPathOf(cvn::StringView operand) {
  cvn::String path = paths::OfCaller(operand);
  // Windows takes only a backslash for the root.
  if (!path.AsView().starts_with(u'/') && paths::IsRelative(path)) {
    path = tessel::JoinPath(paths::CurrentDirectory(), operand);
  }
  return path;
}

cvn::String PathWithDriveOf(cvn::StringView operand) {
  cvn::String path = FullPathOf(operand);
  if (!path.AsView().starts_with(u'/')) {
    return path;
  }
  constexpr std::size_t kDrive = 2;
  return cvn::Format(u"%s%s", paths::CurrentDirectory().AsView().substr(0, kDrive), path);
}

int FindPatch(cvn::StringView operand, cvn::String* patch) {
  *patch = FullPathOf(operand);
  if (!paths::IsDirectory(*patch)) {
    KeepFromWriting(*patch);
    return kExitDone;
  }
  files::Search search;
  files::SearchEntry entry;
  if (search.First(tessel::JoinPath(*patch, u"*.tlx"), &entry) != platform::kSuccess) {
    return FailOnFile(operand, u"there is no file .tlx in this folder");
  }
  const cvn::String found = tessel::JoinPath(*patch, entry.Name());
  if (search.Next(&entry) == platform::kSuccess) {
    return FailOnFile(operand, u"there are several files .tlx in this folder: name one");
  }
  *patch = found;
  KeepFromWriting(*patch);
  return kExitDone;
}

bool HasNoDefaultMachine() {
  return !platform::environment::Get(u"TESSEL_MACHINE").has_value() &&
         !paths::IsDirectory(paths::OfCaller(platform::machine::DefaultFolder()));
}

bool IsDefaultMachineMissing() {
  const bool isMissing = HasNoDefaultMachine();
  if (isMissing) {
    FailOnFile(platform::machine::DefaultFolder(), kNoMachineYet);
  }
  return isMissing;
}

}  // namespace tlx
