// Steps that several operations on files have in common.
#pragma once

#include <sys/stat.h>

#include <memory>
#include <optional>

#include "platform/error.h"
#include "platform/files.h"
#include "platform/offline/volume/volume.h"

namespace platform::posix {

// Where the file to open is, or is to be made. On C: no link: there it is the one that links lead
// to. A folder gives 5 whatever the disposition, and 3 with a separator after its name: CreateFileW
// makes these of STATUS_FILE_IS_A_DIRECTORY, which comes before STATUS_OBJECT_NAME_COLLISION.
Code LocateFile(cvn::StringView path, files::Disposition disposition, HostPath* host);

// Who has access to a file that is new.
enum class Readers {
  Inherited,  // those that its folder passes on
  OwnerOnly,  // besides the host's mode, where the volume has descriptors
};

// As files::Open. Leaves the thread's last error alone.
Code OpenFile(cvn::StringView path, files::Access access, files::Share share,
              files::Disposition disposition, Readers readers, files::File* file);

// 32 when the file is open, and 87 for the null device. An open file can't be deleted or renamed by
// others: there is no share mode for that here.
Code CheckUnused(const HostPath& host);

// Whether a file of the machine has other names, which are to have what is written to it as well:
// most files of Windows are in its component store too.
bool IsSharedContent(const HostPath& host);

// Makes the folder of a place writable that its owner, who is this user, may not write to. At the
// end of its life the folder is as it was.
class WritableFolder {
 public:
  explicit WritableFolder(const HostPath& place);
  WritableFolder(const WritableFolder&) = delete;
  WritableFolder& operator=(const WritableFolder&) = delete;
  ~WritableFolder();

  // False when the folder could be written to before, or can't be made so.
  bool IsMade() const { return before_.has_value(); }

 private:
  std::shared_ptr<const Descriptor> folder_;
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
  const WritableFolder folder(place);
  return folder.IsMade() ? step() : code;
}

}  // namespace platform::posix
