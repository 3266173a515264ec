// A file that appears under its name complete or not at all.
#pragma once

#include <sys/types.h>

#include <string>

#include "platform/linux/descriptor.h"

namespace platform::posix {

// A name for the moment that no file has, unless one was made to be in the way: "tessel-", the
// process and a number, and `ending` after a dot.
std::string FreshName(const char* ending);

// Removes from an open folder what processes that have ended left there under such names with
// "tmp", once in a process for each folder: regular files of this account with no other name, which
// nobody has locked.
void RemoveAbandonedDrafts(int folder);

// A file under construction, and gone at the end of its life unless it got its name. It lies in one
// folder, which its maker holds open for all of that life. All operations give 0, or the value of
// errno.
class AtomicFile {
 public:
  explicit AtomicFile(int folder) : folder_(folder) {}
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;
  ~AtomicFile();

  // Makes the file. For a name that is free it has none before, where the host can make such files:
  // then nothing is left of it if the process is killed. Else it is called "tessel-....tmp" until
  // then, and it first removes what others left so. It is open for reading and writing.
  int Create(bool isTargetFree, mode_t permissions);

  int File() const { return file_.Get(); }

  // Gives the file its name. EEXIST when that is taken and may not be replaced.
  int Name(const char* name, bool replace);

  // The same where the caller knows that the name is free, which isn't looked at again.
  int NameFree(const char* name) { return isNamed_ ? Rename(name, true) : Link(name); }

 private:
  int CreateWithFreshName(mode_t permissions);
  int CreateNew(mode_t permissions);
  int Link(const char* name) const;
  int Rename(const char* name, bool replace);
  int LinkOver(const char* name);

  const int folder_;
  Descriptor file_;
  std::string name_;
  bool isNamed_ = false;  // under a name that is not the final one
};

}  // namespace platform::posix
