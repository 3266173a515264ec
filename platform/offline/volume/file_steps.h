// Steps that several operations on files have in common.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

#include "platform/error.h"
#include "platform/files.h"
#include "platform/linux/file_names.h"
#include "platform/offline/volume/volume.h"

namespace platform::posix {

// Where the file to open is, or is to be made.
Code LocateFile(cvn::StringView path, files::Disposition disposition, HostPath* host);

// 32 when the file is open. An open file can't be deleted or renamed by others: there is no share
// mode for that here.
Code CheckUnused(const HostPath& host);

// Makes a folder writable that its owner, who is this user, may not write to. At the end of its
// life the folder is as it was.
class WritableFolder {
 public:
  explicit WritableFolder(std::string path);
  WritableFolder(const WritableFolder&) = delete;
  WritableFolder& operator=(const WritableFolder&) = delete;
  ~WritableFolder();

  // False when the folder could be written to before, or can't be made so.
  bool IsMade() const { return before_.has_value(); }

 private:
  std::string path_;
  std::optional<mode_t> before_;
};

// Gives the code of `step`, which changes what is in the folder of `place`. On Windows READONLY of
// a folder says nothing of that, while the host denies it by the folder's mode: on the machine such
// a step is taken again with the folder made writable.
template <typename Step>
Code ChangeFolder(const HostPath& place, Step step) {
  const Code code = step();
  if (code != kAccessDenied || !place.onMachine) {
    return code;
  }
  const WritableFolder folder(FolderOf(place.path));
  return folder.IsMade() ? step() : code;
}

}  // namespace platform::posix
