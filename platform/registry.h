// The registry.
//
// On Linux its keys stand in the machine's hive files: HKEY_LOCAL_MACHINE\SOFTWARE, SYSTEM, SAM and
// SECURITY and the default user's below Windows\System32\config, a user's in NTUSER.DAT.
// SYSTEM\CurrentControlSet, HKEY_CLASSES_ROOT, HKEY_CURRENT_USER and HKEY_CURRENT_CONFIG resolve as
// on the running system. A hive is loaded when it is first needed; one that is damaged gives 1009
// for all that lies in it. Changes stand in memory until Flush, or the end of the process, brings
// them to the disk; volatile keys never reach it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "platform/error.h"
#include "support/string.h"

namespace platform::registry {

// The predefined keys; their values are those of Windows, which sign-extends them to the width of a
// pointer.
enum class Root : std::uint32_t {
  ClassesRoot = 0x80000000,
  CurrentUser = 0x80000001,
  LocalMachine = 0x80000002,
  Users = 0x80000003,
  CurrentConfig = 0x80000005,
};

// Access rights of an open key; combined by addition.
inline constexpr std::uint32_t kQueryValue = 0x1;
inline constexpr std::uint32_t kSetValue = 0x2;
inline constexpr std::uint32_t kEnumerateSubKeys = 0x8;

// Types of values, as stored.
inline constexpr std::uint32_t kTypeNone = 0;
inline constexpr std::uint32_t kTypeString = 1;
inline constexpr std::uint32_t kTypeExpandString = 2;
inline constexpr std::uint32_t kTypeBinary = 3;
inline constexpr std::uint32_t kTypeDword = 4;
inline constexpr std::uint32_t kTypeMultiString = 7;
inline constexpr std::uint32_t kTypeQword = 11;

// An open key. Move-only; closes at the end of its life.
class Key {
 public:
  Key() = default;
  // A predefined key, which is always open.
  explicit Key(Root root);
  Key(Key&& other) noexcept : handle_(std::exchange(other.handle_, 0)) {}
  Key& operator=(Key&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  ~Key() { Close(); }

  bool IsOpen() const { return handle_ != 0; }
  void Close();
  // Keeps the key open until the process ends.
  void Leak() { handle_ = 0; }
  std::uintptr_t Handle() const { return handle_; }

 private:
  friend Code OpenKey(const Key&, cvn::StringView, std::uint32_t, Key*);
  friend Code CreateKey(const Key&, cvn::StringView, bool, std::uint32_t, Key*);
  std::uintptr_t handle_ = 0;
};

// All operations give the code and leave the thread's last error alone, as the registry functions
// of Windows do. A path is relative to its key, with '\' between names; an empty path is the key
// itself. Names are found without regard to case.

// As RegOpenKeyExW: 2 when there is no such key, 5 without permission, 161 for a path that begins
// with '\'.
Code OpenKey(const Key& parent, cvn::StringView path, std::uint32_t access, Key* key);

// As RegCreateKeyExW: opens the key, after creating it and all that is missing on the way. 1021 for
// a key that isn't volatile below one that is, 87 for a name of more than 255 characters.
Code CreateKey(const Key& parent, cvn::StringView path, bool isVolatile, std::uint32_t access,
               Key* key);

// As RegDeleteKeyW: 5 when the key has subkeys, 2 when there is none.
Code DeleteKey(const Key& parent, cvn::StringView path);

// As RegQueryValueExW, with type and data whole. The empty name is the default value. 2 when there
// is none.
Code QueryValue(const Key& key, cvn::StringView name, std::uint32_t* type,
                std::vector<std::byte>* data);

// As RegSetValueExW; 5 when the key was not opened with kSetValue.
Code SetValue(const Key& key, cvn::StringView name, std::uint32_t type,
              std::span<const std::byte> data);

// As RegDeleteValueW: 2 when there is none.
Code DeleteValue(const Key& key, cvn::StringView name);

// The name at `index`, counted from 0, as RegEnumKeyExW and RegEnumValueW with a buffer of
// `capacity` characters, the terminator included: 234 when the name doesn't fit, 259 after the
// last. Keys come in the order of their names.
Code EnumerateKey(const Key& key, std::uint32_t index, std::size_t capacity, cvn::String* name);
Code EnumerateValue(const Key& key, std::uint32_t index, std::size_t capacity, cvn::String* name);

// As RegQueryInfoKeyW: how many subkeys there are, and the characters of the longest name of one.
Code QueryInfo(const Key& key, std::uint32_t* subKeys, std::uint32_t* longestName);

// Brings all changes to the disk, each hive by a new file that takes the old one's place. The first
// failure's code; what failed stays to be written by the next call. On Windows the system does this
// by itself, and there is nothing to do.
Code Flush();

}  // namespace platform::registry
