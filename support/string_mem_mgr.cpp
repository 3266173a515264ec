#include "support/string_mem_mgr.h"

#include <cstring>
#include <new>

namespace cvn {
namespace {

int wipers = 0;  // that live

unsigned char* BackGuard(const StringMemMgr::Buffer* buffer) {
  auto* payload = StringMemMgr::Payload(const_cast<StringMemMgr::Buffer*>(buffer));
  return static_cast<unsigned char*>(payload) + buffer->capacity;
}

}  // namespace

const char* DamagedGuard::what() const noexcept { return "guard word of a text buffer is damaged"; }

StringMemMgr::Buffer* StringMemMgr::Allocate(std::size_t bytes) {
  constexpr std::size_t kOverhead = sizeof(Buffer) + sizeof(kGuardWord);
  if (bytes > SIZE_MAX - kOverhead) {
    throw std::bad_alloc();
  }
  void* memory = ::operator new(bytes + kOverhead);
  auto* buffer = new (memory) Buffer{bytes, 1, 0, kGuardWord};
  std::memcpy(BackGuard(buffer), &kGuardWord, sizeof(kGuardWord));
  return buffer;
}

void StringMemMgr::AddOwner(Buffer* buffer) {
  Check(buffer);
  ++buffer->owners;
}

void StringMemMgr::Release(Buffer* buffer) {
  Check(buffer);
  if (--buffer->owners == 0) {
    if (wipers != 0) {
      Overwrite(Payload(buffer), buffer->capacity);
    }
    ::operator delete(buffer);
  }
}

void StringMemMgr::Check(const Buffer* buffer) {
  // The capacity tells where the back guard is, and holds only while the front guard, which
  // follows it in memory, is intact.
  std::uint16_t back = 0;
  if (buffer->frontGuard == kGuardWord) {
    std::memcpy(&back, BackGuard(buffer), sizeof(back));
  }
  if (back != kGuardWord) {
    throw DamagedGuard();
  }
}

void StringMemMgr::Overwrite(void* memory, std::size_t bytes) {
  auto* byte = static_cast<volatile unsigned char*>(memory);
  for (std::size_t i = 0; i < bytes; ++i) {
    byte[i] = 0;
  }
}

WipeReleased::WipeReleased() { ++wipers; }
WipeReleased::~WipeReleased() { --wipers; }

}  // namespace cvn
