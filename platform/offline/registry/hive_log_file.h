// A log of a hive, as a file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "platform/error.h"
#include "platform/formats/hive_log.h"
#include "platform/linux/descriptor.h"
#include "platform/offline/volume/volume.h"

namespace platform::posix {

// Reads up to bytes.size() bytes of an open file; fewer only at its end.
Code ReadAt(int file, std::uint64_t offset, std::span<std::byte> bytes, std::size_t* got);
// Writes all, or fails.
Code WriteAt(int file, std::uint64_t offset, std::span<const std::byte> bytes);

constexpr Code kRegistryIoFailed = 1016;

// The code of a failed write to a hive's files: the registry's own for a fault of the disk.
Code RegistryFault(int error);

class LogFile {
 public:
  LogFile() = default;
  explicit LogFile(HostPath place) : place_(std::move(place)) {}

  const HostPath& Place() const { return place_; }
  int File() const { return file_.Get(); }
  const BaseBlock& Base() const { return base_; }

  // Opens the file for reading and reads its base block. False when there is none that is whole; a
  // link is no log.
  bool Open();
  // Opens it for writing too. One that is missing is made, with what `like` carries.
  Code OpenForWriting(int like, bool* isNew);

  // The entry at `offset`, which `*bytes` keeps; nothing where there is none that is whole.
  std::optional<LogEntry> EntryAt(std::uint64_t offset, std::vector<std::byte>* bytes) const;
  // Where the entry of that number is, behind older ones at most. 0 when there is none.
  std::uint64_t Find(std::uint32_t number) const;
  // The number that an unbroken row of entries from `number` on ends with; nothing without one.
  std::optional<std::uint32_t> LastAfter(std::uint32_t number) const;
  Code ReadAll(std::vector<std::byte>* bytes) const;

 private:
  // The header at `offset`: the entry's size and number.
  bool HeaderAt(std::uint64_t offset, std::uint64_t* size, std::uint32_t* number) const;

  HostPath place_;
  Descriptor file_;
  BaseBlock base_;
};

}  // namespace platform::posix
