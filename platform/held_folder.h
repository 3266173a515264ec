// Files that are opened where they were found, whatever becomes of their names.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "platform/error.h"
#include "platform/file_identity.h"
#include "platform/files.h"
#include "support/string.h"

namespace platform::files {

// What opening a regular file gives besides the codes of Open.
inline constexpr Code kAmbiguousName = 52;   // ERROR_DUP_NAME: several names differ in case alone
inline constexpr Code kNoRegularFile = 222;  // ERROR_BAD_FILE_TYPE: a pipe, a socket or a device

// Opens a file for reading as Open with Share::Read, but a regular file only, and without waiting:
// a pipe, a socket or a device is told (222) and never opened. 5 for a folder.
Code OpenRegular(cvn::StringView path, File* file);

// A folder that is looked into by itself and not by its path, which may lead elsewhere a moment
// later.
class HeldFolder {
 public:
  HeldFolder();
  HeldFolder(HeldFolder&&) noexcept;
  HeldFolder& operator=(HeldFolder&&) noexcept;
  ~HeldFolder();

  // 2 or 3 when there is no such folder, 267 when it is none. On Windows a folder that this account
  // may not list is gone by its path.
  Code Hold(cvn::StringView path);

  // What it holds: all that it did when the call began, and what comes meanwhile perhaps.
  struct Entry {
    cvn::String name;       // as the disk spells it
    bool isFolder = false;  // false for a link to one
    bool isLink = false;
  };
  // Calls `take` with each entry but "." and "..", in no order, until it gives false.
  Code ForEach(const std::function<bool(Entry)>& take) const;

  // Which folder it is, and when a name in it came or went last: a number that means nothing but
  // that it is another one after a change, and 0 where that isn't known. Two changes within a tick
  // of the file system's clock, which may be two seconds, can leave the same number.
  struct Look {
    Identity identity;
    std::uint64_t changed = 0;
    bool operator==(const Look&) const = default;
  };
  Code LookAt(Look* look) const;

  // As OpenFile, for a regular file that ForEach gave, by that very name: a link isn't followed
  // (222). 2 when it has gone. On Windows links are followed.
  Code OpenEntry(cvn::StringView name, File* file) const;

  // As OpenRegular, for a file below the folder: `name` has one or more names with separators
  // between them, none of them "." or "..".
  //
  // A name is found as the disk spells it. Where case counts, that is the exact spelling, or else
  // the only one that is the same but for case; 52 when there are several. A short name counts
  // where no name is the same. A link is followed as long as it stays below the folder; elsewhere
  // it fails. (Windows follows every link.)
  Code OpenFile(cvn::StringView name, File* file);

 private:
  struct State;  // the backend's
  std::unique_ptr<State> state_;
};

}  // namespace platform::files
