#include "platform/registry.h"

#include <algorithm>
#include <limits>

#include "platform/windows/wide.h"

namespace platform::registry {
namespace {

using windows::ViewOf;
using windows::Wide;

constexpr DWORD kLargestSize = std::numeric_limits<DWORD>::max();

HKEY HandleOf(const Key& key) { return reinterpret_cast<HKEY>(key.Handle()); }

// The functions of the registry give their code, and what they do to the last error is their own
// affair.
template <typename Call>
Code CodeOf(Call call) {
  const windows::LastErrorKeeper lastError;
  return static_cast<Code>(call());
}

template <typename Call>
Code ReadName(std::size_t capacity, cvn::String* name, Call call) {
  std::vector<wchar_t> buffer(capacity);
  auto length = static_cast<DWORD>(capacity);
  const Code code = CodeOf([&] { return call(buffer.data(), &length); });
  if (code == kSuccess) {
    name->Assign(ViewOf(buffer.data(), length));
  }
  return code;
}

}  // namespace

Key::Key(Root root)
    : handle_(static_cast<std::uintptr_t>(
          static_cast<std::intptr_t>(static_cast<std::int32_t>(root)))) {}

void Key::Close() {
  // A predefined key that is closed would have to be opened anew for the next who uses it.
  if (static_cast<std::intptr_t>(handle_) > 0) {
    // The handle is given up either way.
    IgnoreError(CodeOf([&] { return ::RegCloseKey(HandleOf(*this)); }));
  }
  handle_ = 0;
}

Code OpenKey(const Key& parent, cvn::StringView path, std::uint32_t access, Key* key,
             LinkAtEnd link) {
  HKEY handle = nullptr;
  const DWORD options = link == LinkAtEnd::Open ? REG_OPTION_OPEN_LINK : 0;
  const Code code = CodeOf([&] {
    return ::RegOpenKeyExW(HandleOf(parent), Wide(cvn::PathString(path)), options, access, &handle);
  });
  if (code == kSuccess) {
    key->Close();
    key->handle_ = reinterpret_cast<std::uintptr_t>(handle);
  }
  return code;
}

Code CreateKey(const Key& parent, cvn::StringView path, bool isVolatile, std::uint32_t access,
               Key* key) {
  HKEY handle = nullptr;
  const DWORD options = isVolatile ? REG_OPTION_VOLATILE : REG_OPTION_NON_VOLATILE;
  const Code code = CodeOf([&] {
    return ::RegCreateKeyExW(HandleOf(parent), Wide(cvn::PathString(path)), 0, nullptr, options,
                             access, nullptr, &handle, nullptr);
  });
  if (code == kSuccess) {
    key->Close();
    key->handle_ = reinterpret_cast<std::uintptr_t>(handle);
  }
  return code;
}

Code DeleteKey(const Key& parent, cvn::StringView path) {
  return CodeOf([&] { return ::RegDeleteKeyW(HandleOf(parent), Wide(cvn::PathString(path))); });
}

Code QueryValue(const Key& key, cvn::StringView name, std::uint32_t* type,
                std::vector<std::byte>* data) {
  const cvn::PathString text(name);
  const auto query = [&](DWORD* storedType, BYTE* bytes, DWORD* size) {
    return CodeOf([&] {
      return ::RegQueryValueExW(HandleOf(key), Wide(text), nullptr, storedType, bytes, size);
    });
  };
  DWORD size = 0;
  DWORD storedType = 0;
  std::vector<std::byte> bytes;
  Code code = query(nullptr, nullptr, &size);
  // Once more whenever the value grew in between.
  for (bool isRead = false; code == kSuccess && !isRead;) {
    bytes.resize(std::max<std::size_t>(size, 1));  // without a buffer it would tell the size only
    code = query(&storedType, reinterpret_cast<BYTE*>(bytes.data()), &size);
    isRead = code == kSuccess;
    if (code == kMoreData) {
      code = kSuccess;
    }
  }
  if (code == kSuccess) {
    bytes.resize(size);
    *type = storedType;
    *data = std::move(bytes);
  }
  return code;
}

Code SetValue(const Key& key, cvn::StringView name, std::uint32_t type,
              std::span<const std::byte> data) {
  if (data.size() > kLargestSize) {
    return kInvalidParameter;
  }
  return CodeOf([&] {
    return ::RegSetValueExW(HandleOf(key), Wide(cvn::PathString(name)), 0, type,
                            reinterpret_cast<const BYTE*>(data.data()),
                            static_cast<DWORD>(data.size()));
  });
}

Code DeleteValue(const Key& key, cvn::StringView name) {
  return CodeOf([&] { return ::RegDeleteValueW(HandleOf(key), Wide(cvn::PathString(name))); });
}

Code EnumerateKey(const Key& key, std::uint32_t index, std::size_t capacity, cvn::String* name) {
  return ReadName(capacity, name, [&](wchar_t* buffer, DWORD* length) {
    return ::RegEnumKeyExW(HandleOf(key), index, buffer, length, nullptr, nullptr, nullptr,
                           nullptr);
  });
}

Code EnumerateValue(const Key& key, std::uint32_t index, std::size_t capacity, cvn::String* name) {
  return ReadName(capacity, name, [&](wchar_t* buffer, DWORD* length) {
    return ::RegEnumValueW(HandleOf(key), index, buffer, length, nullptr, nullptr, nullptr,
                           nullptr);
  });
}

Code QueryInfo(const Key& key, std::uint32_t* subKeys, std::uint32_t* longestName) {
  DWORD count = 0;
  DWORD longest = 0;
  const Code code = CodeOf([&] {
    return ::RegQueryInfoKeyW(HandleOf(key), nullptr, nullptr, nullptr, &count, &longest, nullptr,
                              nullptr, nullptr, nullptr, nullptr, nullptr);
  });
  if (code == kSuccess) {
    *subKeys = count;
    *longestName = longest;
  }
  return code;
}

Change::~Change() = default;

Code Change::Begin(const Key& /*parent*/, cvn::StringView /*path*/) {
  isOpen_ = true;
  return kSuccess;
}

Code Change::End() {
  isOpen_ = false;
  return kSuccess;
}

Code Sync() { return kSuccess; }

Code Flush() { return kSuccess; }

}  // namespace platform::registry
