// Keys of the registry, as the kit's program uses them.
#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kit {

class Key {
 public:
  Key() = default;
  Key(HKEY parent, const std::wstring& path, REGSAM access) {
    if (::RegOpenKeyExW(parent, path.c_str(), 0, access | KEY_WOW64_64KEY, &key_) !=
        ERROR_SUCCESS) {
      key_ = nullptr;
    }
  }
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  ~Key() {
    if (key_ != nullptr) {
      ::RegCloseKey(key_);
    }
  }

  explicit operator bool() const { return key_ != nullptr; }
  HKEY Handle() const { return key_; }
  std::vector<std::wstring> Subkeys() const;
  struct Value {
    std::wstring name;
    DWORD type;
    std::string data;
  };
  std::vector<Value> Values() const;
  std::optional<std::string> Data(const std::wstring& name) const;

 private:
  HKEY key_ = nullptr;
};

// Makes the key if it isn't there, and sets a text in it. Gives a Win32 code.
long SetText(HKEY root, const std::wstring& path, const std::wstring& name,
             const std::wstring& text);

}  // namespace kit
