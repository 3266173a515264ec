// A folder with files that no other account can change, whatever the volume's file system is.
#pragma once

#include <memory>

#include "platform/error.h"
#include "platform/files.h"
#include "support/containers.h"
#include "support/string.h"

namespace platform::files {

inline constexpr Code kForeignPlace = 1307;  // ERROR_INVALID_OWNER: another account's folder
inline constexpr Code kNotPrivate = 1338;    // ERROR_INVALID_SECURITY_DESCR: others can write there
inline constexpr Code kIsLink = 4395;        // ERROR_REPARSE_POINT_ENCOUNTERED

// The folders of several runs lie in one folder, `place`.
//
// On Windows what `place` lies in decides who can write. On Linux that is looked at: neither the
// folder nor any on the way to it may be one that an account besides this one and root can write
// to. Where the volume can't be kept from others so (NTFS as ntfs-3g mounts it has no
// permissions), the folder lies on the host, below TMPDIR, /var/tmp or /tmp, and every path of C:
// that goes there leads there in this process.
class PrivateFolder {
 public:
  // Whether nothing may be trusted that could not be copied to such a folder.
  static bool IsRequired();

  // Makes `place`, unless it is there. kIsLink when that is a link, kForeignPlace when it is
  // another account's; otherwise the codes of CreateDirectory.
  static Code MakePlace(cvn::StringView place);

  // Whether MakePlace would give a place, as far as that shows without making it: a folder there,
  // or a folder that it could be made in. Its codes.
  static Code CheckPlace(cvn::StringView place);

  // The folders that runs which were killed have left: this account's, made by Make, and of no
  // process that lives. None on Windows.
  static cvn::List<cvn::String> FindAbandoned(cvn::StringView place);

  PrivateFolder();
  PrivateFolder(PrivateFolder&&) noexcept;
  PrivateFolder& operator=(PrivateFolder&&) noexcept;
  // Lets go of the folder, which stays.
  ~PrivateFolder();

  // Makes the folder `name` in `place`. 183 when it is there; kNotPrivate when it can't be kept
  // from others, not even on the host; otherwise the codes of CreateDirectory.
  Code Make(cvn::StringView place, cvn::StringView name);

  // The path on Z: of a folder that Make has put on the host; empty for one in its place.
  cvn::String PathOnHost() const;

  // Makes the folders that `name`, one or more names with separators between them, has before its
  // last name, as far as they are missing. 123 for a name that Windows refuses.
  Code MakeFoldersFor(cvn::StringView name);

  // Copies the open file `from`, with its attributes and its last-write time, to `name`, whose
  // folders were made. On Linux nobody else can read the copy, 80 when a copy has that name, and
  // `copy` is the very file that was written. On Windows an older copy is replaced, and `copy` is
  // open for reading.
  Code Copy(const File& from, cvn::StringView name, File* copy);

 private:
  struct State;  // the backend's
  std::unique_ptr<State> state_;
};

}  // namespace platform::files
