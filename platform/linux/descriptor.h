// Descriptors of the host.
#pragma once

#include <unistd.h>

#include <utility>

namespace platform::posix {

// Owns a descriptor, and closes it at the end of its life.
class Descriptor {
 public:
  explicit Descriptor(int descriptor = -1) : descriptor_(descriptor) {}
  Descriptor(Descriptor&& other) noexcept : descriptor_(other.Release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    Reset(other.Release());
    return *this;
  }
  ~Descriptor() { Reset(-1); }

  // Negative when there is none.
  int Get() const { return descriptor_; }
  // Hands the descriptor on to the caller.
  int Release() { return std::exchange(descriptor_, -1); }
  void Reset(int descriptor) {
    if (descriptor_ >= 0) {
      close(descriptor_);
    }
    descriptor_ = descriptor;
  }

 private:
  int descriptor_;
};

}  // namespace platform::posix
