#include <windows.h>

#include <algorithm>

#include "kit/machine.h"
#include "kit/registry.h"

namespace kit {
namespace {

// Loading needs rights that an administrator has, and has to ask for.
void TakePrivileges() {
  HANDLE token = nullptr;
  if (::OpenProcessToken(::GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES, &token) == 0) {
    return;
  }
  for (const wchar_t* name : {L"SeRestorePrivilege", L"SeBackupPrivilege"}) {
    TOKEN_PRIVILEGES privileges{};
    privileges.PrivilegeCount = 1;
    privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    ::LookupPrivilegeValueW(nullptr, name, &privileges.Privileges[0].Luid);
    ::AdjustTokenPrivileges(token, FALSE, &privileges, 0, nullptr, nullptr);
  }
  ::CloseHandle(token);
}

void TellKey(const Key& parent, const std::wstring& name, const std::string& path, Lines* lines) {
  const Key key(parent.Handle(), name, KEY_READ);
  if (!key) {
    lines->push_back(path + " can't be opened");
    return;
  }
  lines->push_back(path + "|");
  for (const Key::Value& value : key.Values()) {
    lines->push_back(path + "|" + Utf8(value.name) + "|" + std::to_string(value.type) + "|" +
                     Hex(value.data));
  }
  for (const std::wstring& subkey : key.Subkeys()) {
    TellKey(key, subkey, path + (path.empty() ? "" : "\\") + Utf8(subkey), lines);
  }
}

}  // namespace

long LoadHive(const std::wstring& file) {
  TakePrivileges();
  return ::RegLoadKeyW(HKEY_LOCAL_MACHINE, kHiveKey, file.c_str());
}

long UnloadHive() {
  TakePrivileges();
  return ::RegUnLoadKeyW(HKEY_LOCAL_MACHINE, kHiveKey);
}

Lines TellHive() {
  Lines lines;
  TellKey(Key(HKEY_LOCAL_MACHINE, L"", KEY_READ), kHiveKey, "", &lines);
  std::sort(lines.begin(), lines.end());
  return lines;
}

}  // namespace kit
