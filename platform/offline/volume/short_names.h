// The short names of files on NTFS, as ntfs-3g gives them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/file_names.h"
#include "platform/offline/volume/volume.h"

namespace platform::posix {

// Whether a name in `path`, which begins below a folder's place or is a name in it, may be short:
// the driver takes these too, spelled in upper case. What is done by one, such as a rename, the
// kernel doesn't know to be done to the other: so each name of such a path has to be one that its
// folder lists. `folder` is a descriptor of the volume.
bool MayLeadThroughAlias(int folder, std::string_view path);

// The short name of an entry in upper case. Nothing when it has none, or one that is none by its
// form.
std::optional<std::u16string> ShortNameOf(FileAt file);

// Keeps the short name of a file whose place another one takes: the driver removes it with the
// file.
class KeptShortName {
 public:
  // Of the file at `place`, which outlives this; none where there is no file.
  explicit KeptShortName(const HostPath& place);

  // Gives it to what has the name now. What can't have it has none.
  void GiveBack() const;

 private:
  const HostPath& place_;
  std::string name_;
};

}  // namespace platform::posix
