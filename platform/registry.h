// The registry.
//
// On Linux its keys stand in the machine's hive files: HKEY_LOCAL_MACHINE\SOFTWARE, SYSTEM, SAM and
// SECURITY and the default user's below Windows\System32\config, a user's in NTUSER.DAT.
// SYSTEM\CurrentControlSet, HKEY_CLASSES_ROOT, HKEY_CURRENT_USER and HKEY_CURRENT_CONFIG resolve as
// on the running system. A hive that is damaged gives 1009 for all that lies in it, and one whose
// last changes are in a log that is missing can be read, and gives 1009 for changes. Each operation
// sees what others have changed before it, and what it changes is in the hive's log when it
// returns, from which this platform and Windows complete the hive: the process may be killed at any
// time. A change that can't be logged isn't made; the code tells why: 112, 1016, or another of a
// write. An operation waits for others who change the hive, and gives 170 after half a minute.
// Volatile keys never reach the disk.
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

// What becomes of a registry link at the end of a path: what it leads to is meant, or it itself.
enum class LinkAtEnd { Follow, Open };

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
  friend Code OpenKey(const Key&, cvn::StringView, std::uint32_t, Key*, LinkAtEnd);
  friend Code CreateKey(const Key&, cvn::StringView, bool, std::uint32_t, Key*);
  std::uintptr_t handle_ = 0;
};

// All operations give the code and leave the thread's last error alone, as the registry functions
// of Windows do. A path is relative to its key, with '\' between names; an empty path is the key
// itself. Names are found without regard to case.

// As RegOpenKeyExW: 2 when there is no such key, 5 without permission, 161 for a path that begins
// with '\'. LinkAtEnd::Open is REG_OPTION_OPEN_LINK.
Code OpenKey(const Key& parent, cvn::StringView path, std::uint32_t access, Key* key,
             LinkAtEnd link = LinkAtEnd::Follow);

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

// Operations that are one change on Linux: others see all of it or nothing, also after a crash, and
// change nothing in between. On Windows each operation is a change of its own.
class Change {
 public:
  Change() = default;
  Change(const Change&) = delete;
  Change& operator=(const Change&) = delete;
  // Drops what was done since Begin, unless it was ended.
  ~Change();

  // Waits until no one else changes the hive that the key at `path` lies in; it needn't exist. 170
  // after half a minute.
  Code Begin(const Key& parent, cvn::StringView path);
  // Makes what was done since Begin last. After a failure, whose code is that of a change that
  // can't be logged, nothing of it was done.
  Code End();

 private:
  bool isOpen_ = false;
};

// Brings the logs of what was changed to the disk itself, so that they survive a loss of power. To
// come before changes of other things that rely on them. Windows does this by itself, and there is
// nothing to do.
Code Sync();

// Brings the hives that this process has changed up to date, in place. The first failure's code;
// what wasn't written stays in the logs, and so isn't lost. On Windows there is nothing to do.
Code Flush();

}  // namespace platform::registry
