#include "kit/registry.h"

namespace kit {
namespace {

constexpr DWORD kLongestName = 16384;

}  // namespace

std::vector<std::wstring> Key::Subkeys() const {
  std::vector<std::wstring> names;
  std::wstring name(kLongestName, L'\0');
  DWORD length = kLongestName;
  for (DWORD i = 0; ::RegEnumKeyExW(key_, i, name.data(), &length, nullptr, nullptr, nullptr,
                                    nullptr) == ERROR_SUCCESS;
       ++i, length = kLongestName) {
    names.push_back(name.substr(0, length));
  }
  return names;
}

std::vector<Key::Value> Key::Values() const {
  std::vector<Value> values;
  std::wstring name(kLongestName, L'\0');
  for (DWORD i = 0;; ++i) {
    DWORD length = kLongestName;
    DWORD size = 0;
    if (::RegEnumValueW(key_, i, name.data(), &length, nullptr, nullptr, nullptr, &size) !=
        ERROR_SUCCESS) {
      return values;
    }
    Value value{name.substr(0, length), REG_NONE, std::string(size, '\0')};
    ::RegQueryValueExW(key_, value.name.c_str(), nullptr, &value.type,
                       reinterpret_cast<BYTE*>(value.data.data()), &size);
    value.data.resize(size);
    values.push_back(std::move(value));
  }
}

std::optional<std::string> Key::Data(const std::wstring& name) const {
  DWORD size = 0;
  if (::RegQueryValueExW(key_, name.c_str(), nullptr, nullptr, nullptr, &size) != ERROR_SUCCESS) {
    return std::nullopt;
  }
  std::string data(size, '\0');
  ::RegQueryValueExW(key_, name.c_str(), nullptr, nullptr, reinterpret_cast<BYTE*>(data.data()),
                     &size);
  data.resize(size);
  return data;
}

long SetText(HKEY root, const std::wstring& path, const std::wstring& name,
             const std::wstring& text) {
  HKEY key = nullptr;
  long code = ::RegCreateKeyExW(root, path.c_str(), 0, nullptr, 0, KEY_SET_VALUE | KEY_WOW64_64KEY,
                                nullptr, &key, nullptr);
  if (code == ERROR_SUCCESS) {
    code =
        ::RegSetValueExW(key, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                         static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    ::RegCloseKey(key);
  }
  return code;
}

}  // namespace kit
