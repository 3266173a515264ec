// Stands in for Wine's Ntdsapi.dll, where a call of DsGetRdnW ends the process.
#include <windows.h>

namespace {

bool IsBlank(wchar_t character) { return character == L' ' || character == L'\n'; }

// The characters up to `end`, without blanks around them.
void Trim(const wchar_t** text, const wchar_t* end, DWORD* length) {
  while (*text < end && IsBlank(**text)) {
    ++*text;
  }
  while (*text < end && IsBlank(end[-1])) {
    --end;
  }
  *length = static_cast<DWORD>(end - *text);
}

}  // namespace

// Takes "KEY=value" off the name, with the separator before it. A value in quotes keeps them, and a
// quote in it is doubled.
extern "C" __declspec(dllexport) DWORD WINAPI
    DsGetRdnW(const wchar_t** name, DWORD* nameLength, const wchar_t** key, DWORD* keyLength,
              const wchar_t** value, DWORD* valueLength) {
  const wchar_t* at = *name;
  const wchar_t* const end = at + *nameLength;
  while (at < end && (IsBlank(*at) || *at == L',' || *at == L';')) {
    ++at;
  }
  *key = at;
  while (at < end && *at != L'=') {
    ++at;
  }
  if (at == end) {
    return ERROR_DS_NAME_UNPARSEABLE;
  }
  Trim(key, at, keyLength);
  *value = ++at;
  bool isQuoted = false;
  while (at < end && (isQuoted || (*at != L',' && *at != L';'))) {
    isQuoted = isQuoted != (*at == L'"');
    ++at;
  }
  Trim(value, at, valueLength);
  *name = at;
  *nameLength = static_cast<DWORD>(end - at);
  return ERROR_SUCCESS;
}
