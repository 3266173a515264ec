// The folder at the machine's root in which a commit gets ready, and keeps what it has taken away
// until its end: nobody else can write to it.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/error.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/file_names.h"

namespace platform::posix {

// In the machine's folder.
inline constexpr const char* kCommitFolder = "$TesselCommit";

class Staging {
 public:
  // `root` is a descriptor of the machine's folder, which outlives this.
  explicit Staging(int root) : root_(root) {}

  // 183 when there is one already, files::kNotPrivate when it can't be kept from others.
  Code Make();
  // Opens the one that there is. 2 when there is none, files::kForeignPlace when it isn't this
  // account's, files::kNotPrivate when others can write to it or it is no folder.
  Code Open();
  bool IsThere() const;

  int Folder() const { return folder_.Get(); }

  // Makes an empty file or folder of that number, open for writing or reading.
  Code MakeFile(std::uint32_t slot, Descriptor* file) const;
  Code MakeFolder(std::uint32_t slot) const;

  // Whether one call brings so many changed entries to the disk, for less than one call each: few
  // are cheaper by themselves, and a driver outside of the kernel isn't told of such a call.
  bool CanFlushAtOnce(std::size_t entries) const;
  // Brings all of the volume to the disk.
  Code FlushAtOnce() const;

  // Once the journal is there the commit has begun. With success it is on the disk, with all else.
  // 223 for one that is too large to be read.
  Code WriteJournal(std::span<const std::byte> bytes) const;
  bool HasJournal() const;
  Code ReadJournal(std::vector<std::byte>* bytes) const;
  // The commit is complete.
  Code CloseJournal() const;
  bool IsComplete() const;
  // Nothing has been put there, or nothing was left to be removed.
  bool IsEmpty() const;

  // Room that is given back when the commit begins, so that a full disk doesn't stop it halfway.
  Code Reserve(std::uint64_t bytes) const;
  void GiveRoomBack() const;

  // The time of the last write that the machine's folder gets back at the end: its own, unless
  // told.
  Code KeepTime(const timespec& written) const;

  // Removes the folder with all that it holds.
  Code Remove();

 private:
  Code Judge() const;
  Code RemoveAll(bool* isEmpty) const;
  Code RaiseAll(const char* folder) const;

  const int root_;
  Descriptor folder_;
};

// The name of a slot's entry.
class SlotName {
 public:
  explicit SlotName(std::uint32_t slot) : text_(std::to_string(slot)) {}
  FileAt In(const Staging& staging) const { return {staging.Folder(), text_.c_str()}; }

 private:
  const std::string text_;
};

}  // namespace platform::posix
