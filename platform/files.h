// Files and directories.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

#include "platform/error.h"
#include "support/string.h"

namespace platform::files {

// All is GENERIC_ALL, which a share may refuse where it grants reading and writing; on Linux it is
// ReadWrite.
enum class Access { Read, Write, ReadWrite, All };

// What others may do with the file while it is open, as the share modes of CreateFileW. On Linux it
// is an agreement between programs of this kind only, kept by locks on the open file: it is not
// enforced on others, and not where the file system has no locks.
enum class Share { None, Read, ReadWrite, ReadWriteDelete };

enum class Disposition {
  OpenExisting,  // 2 when there is no such file
  OpenAlways,    // creates it when it is missing
  CreateNew,     // 80 when a file is there
  CreateAlways,  // empties it when it is there
};

// An open file. Move-only; closes at the end of its life.
class File {
 public:
  File() = default;
  // Takes over the platform's handle of an open file.
  explicit File(std::intptr_t handle) : handle_(handle) {}
  File(File&& other) noexcept : handle_(std::exchange(other.handle_, kNone)) {}
  File& operator=(File&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  ~File() { Close(); }

  bool IsOpen() const { return handle_ != kNone; }
  void Close();
  // The platform's handle: a HANDLE on Windows, a descriptor on Linux. It stays this object's.
  std::intptr_t Handle() const { return handle_; }

  // Reads up to the size of `buffer` at the file's position; `*count` is 0 at the end of the file.
  Code Read(std::span<std::byte> buffer, std::size_t* count);
  // Writes all of `bytes` at the file's position. 112 when the disk is full.
  Code Write(std::span<const std::byte> bytes);
  // Size in bytes.
  Code Size(std::uint64_t* size);
  // Moves the position, counted in bytes from the start.
  Code Seek(std::uint64_t position);
  Code SeekToEnd();
  // Cuts the file to `size` bytes, or fills it up with zeros; the position stays.
  Code SetSize(std::uint64_t size);
  // Returns when the file's content has reached the disk.
  Code Flush();
  // Sets the last-write time, in 100-nanosecond units since 1601-01-01 UTC, as SetFileTime; the
  // other times stay.
  Code SetLastWriteTime(std::uint64_t time);

 private:
  friend Code Open(cvn::StringView, Access, Share, Disposition, File*);
  static constexpr std::intptr_t kNone = -1;
  std::intptr_t handle_ = kNone;
};

// Opens a file, as CreateFileW with FILE_ATTRIBUTE_NORMAL. 2 when the file is missing, 3 when a
// folder on the way is, 5 for a folder (whatever the disposition) or without permission, 32 when
// another holds it without sharing, 123 for a name that Windows refuses. The code is the last error
// too, except that success leaves that alone.
Code Open(cvn::StringView path, Access access, Share share, Disposition disposition, File* file);

// Creates one folder, as CreateDirectoryW: 183 when it (or a file of that name) is there, 3 when
// its parent is not.
Code CreateDirectory(cvn::StringView path);

// Creates a folder with all its missing parents. Success when it exists already; otherwise the code
// of the creation that failed.
Code CreateDirectoryRecursive(cvn::StringView path);

// Moves a file over another, atomically on one volume, as MoveFileExW with
// MOVEFILE_REPLACE_EXISTING and MOVEFILE_WRITE_THROUGH: with the codes of Move.
Code Replace(cvn::StringView from, cvn::StringView to);

// The same for a new version of a file: one that is at `to` hands on its owner, permissions,
// attributes and streams, and the spelling of its name, as ReplaceFileW does. 5 when it is
// read-only or no file, 32 when it is open, 1920 when it has streams that can't be read.
Code TakePlace(cvn::StringView from, cvn::StringView to);

// Whether the file that `path` leads to has other names (hard links), which TakePlace would leave
// with the old version. On Linux that counts on C: only.
bool HasOtherNames(cvn::StringView path);

// Returns when the names in a folder have reached the disk, after a Move into it. On Windows the
// file system's own log sees to that, and nothing happens.
Code FlushFolder(cvn::StringView path);

// Deletes a file, as DeleteFileW: 2 or 3 when it is not there, 5 for a folder or a read-only file.
Code Delete(cvn::StringView path);

// Removes an empty folder, as RemoveDirectoryW: 145 when it is not empty, 5 when it is read-only,
// 267 for a file. A link to a folder goes itself; what it leads to stays.
Code RemoveDirectory(cvn::StringView path);

// Attributes, numbered as Windows numbers them.
using Attributes = std::uint32_t;
inline constexpr Attributes kReadOnly = 0x1;
inline constexpr Attributes kHidden = 0x2;
inline constexpr Attributes kSystem = 0x4;
inline constexpr Attributes kDirectory = 0x10;
inline constexpr Attributes kArchive = 0x20;
inline constexpr Attributes kNormal = 0x80;  // none of the others
inline constexpr Attributes kReparsePoint = 0x400;

// The attributes of a file or folder, as GetFileAttributesW: of a link itself, not of what it leads
// to.
//
// On Linux they stand in system.ntfs_attrib_be; where the volume is not NTFS, READONLY is a missing
// write permission of the owner, and HIDDEN, SYSTEM and ARCHIVE stand in user.DOSATTRIB. A symbolic
// link is a reparse point, with DIRECTORY when it leads to a folder. READONLY of a folder on C:
// denies its owner nothing of what is in it.
Code GetAttributes(cvn::StringView path, Attributes* attributes);

// As SetFileAttributesW: sets READONLY, HIDDEN, SYSTEM and ARCHIVE to what `attributes` says
// (NORMAL or 0 clears them all), and ignores the bits that only a file system sets.
Code SetAttributes(cvn::StringView path, Attributes attributes);

// Copies a file with its attributes and its last-write time, as CopyFileW; links are followed. 80
// when `failIfExists` and a file is at the target; 5 when the target is read-only, hidden or
// system, or either is a folder; 32 when another has the target open. A copy that fails half-way
// leaves no target behind. The code is the last error, 0 too: dirCopyRec shows that.
Code Copy(cvn::StringView from, cvn::StringView to, bool failIfExists);

// Flags of Move, with the values of MoveFileExW.
inline constexpr std::uint32_t kMoveReplaceExisting = 1;
inline constexpr std::uint32_t kMoveCopyAllowed = 2;
inline constexpr std::uint32_t kMoveDelayUntilReboot = 4;
inline constexpr std::uint32_t kMoveWriteThrough = 8;

// Moves a file or a folder, as MoveFileExW, and spells its name as `to` does: 183 when the target
// is there and may not be replaced, 5 for a folder onto anything or anything onto a folder, a
// read-only file or one that is open, 32 when the source is open, 17 onto another volume without
// kMoveCopyAllowed, or a folder onto one at all, 3 for an empty path. With
// kMoveDelayUntilReboot nothing moves now: the two paths are appended to the session manager's
// PendingFileRenameOperations. On Linux, where Z: is no drive of that Windows, a path there
// gives 17.
Code Move(cvn::StringView from, cvn::StringView to, std::uint32_t flags);

// Appends the deletion of a file, or of an empty folder, to the same list, as MoveFileExW with
// kMoveDelayUntilReboot and no second path.
Code DeleteAtReboot(cvn::StringView path);

}  // namespace platform::files
