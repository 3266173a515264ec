// Heap buffers of the text type, fenced with guard words.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>

namespace cvn {

// Thrown when a guard word of a text buffer was overwritten. Texts are released in noexcept code,
// where it ends the process as an unhandled exception: after such damage no memory can be
// trusted.
class DamagedGuard : public std::exception {
 public:
  const char* what() const noexcept override;
};

// Allocates reference-counted buffers. The payload lies between two words of the value 0xABCD,
// which are checked whenever a buffer gains or loses an owner. The count isn't atomic: two threads
// may not share a buffer.
class StringMemMgr {
 public:
  static constexpr std::uint16_t kGuardWord = 0xABCD;

  struct Buffer {
    std::size_t capacity;  // payload bytes between the guard words
    std::uint32_t owners;
    std::uint16_t unused;
    std::uint16_t frontGuard;
  };

  // A new buffer with one owner and at least `bytes` bytes of payload.
  static Buffer* Allocate(std::size_t bytes);
  static void AddOwner(Buffer* buffer);
  // Removes one owner; the last one frees the buffer.
  static void Release(Buffer* buffer);
  // Throws DamagedGuard when a guard word has changed.
  static void Check(const Buffer* buffer);

  static void* Payload(Buffer* buffer) { return buffer + 1; }

  // Sets memory to zero even when nothing reads it again, which a compiler may drop from memset.
  static void Overwrite(void* memory, std::size_t bytes);
};

// While one lives, buffers are overwritten before they are freed, so that a growing text leaves
// no copy of a secret behind.
class WipeReleased {
 public:
  WipeReleased();
  WipeReleased(const WipeReleased&) = delete;
  WipeReleased& operator=(const WipeReleased&) = delete;
  ~WipeReleased();
};

}  // namespace cvn
