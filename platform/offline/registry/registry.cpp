#include "platform/registry.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <stdexcept>
#include <utility>

#include "platform/formats/names.h"
#include "platform/offline/registry/key_lookup.h"
#include "platform/offline/registry/opened_key.h"
#include "platform/offline/registry/registry.h"
#include "platform/offline/registry/registry_space.h"
#include "platform/offline/registry/registry_values.h"

namespace platform::registry {
namespace {

using posix::KeyNode;
using posix::KeyPair;
using posix::KeyPtr;
using posix::Lookups;
using posix::Names;
using posix::NamesOf;
using posix::OpenedKey;
using posix::RegistrySpace;
using posix::UpToZero;

// Windows sets no limit but that of the hive, which is 2 GiB.
constexpr std::size_t kLargestData = std::size_t{1} << 30;

std::mutex& Mutex() {
  static std::mutex mutex;
  return mutex;
}

// Gives what `action` does, without letting an exception out.
template <typename Action>
Code WithoutExceptions(Action action) {
  try {
    return action();
  } catch (const std::bad_alloc&) {
    return kNotEnoughMemory;
  } catch (const std::length_error&) {
    return kNotEnoughMemory;
  }
}

// The same alone, as one change of its own unless a Change is open.
template <typename Action>
Code Guarded(Action action) {
  const std::lock_guard lock(Mutex());
  const Code code = WithoutExceptions(action);
  return WithoutExceptions([code] { return RegistrySpace::Get().EndStep(code); });
}

Code CheckPath(cvn::StringView path) { return path.starts_with(u'\\') ? kBadPathName : kSuccess; }

Code Give(cvn::StringView text, std::size_t capacity, cvn::String* name) {
  if (text.size() >= capacity) {
    return kMoreData;
  }
  *name = text;
  return kSuccess;
}

// The name of a value that only the machine has, in the merged view; the user's come before it.
Code OtherValueNameAt(const OpenedKey& opened, std::uint32_t index, std::u16string* name) {
  KeyNode& first = *opened.keys.first;
  KeyNode& second = *opened.keys.second;
  std::uint32_t users = 0;
  while (users < index && first.hive->ValueNameAt(first, users, name) == kSuccess) {
    ++users;
  }
  std::uint32_t rest = index - users;
  Code code = kSuccess;
  for (std::uint32_t at = 0; code == kSuccess; ++at) {
    code = second.hive->ValueNameAt(second, at, name);
    if (code == kSuccess && !first.hive->HasValue(first, *name) && rest-- == 0) {
      return code;
    }
  }
  return code;
}

// Runs `action` on the state of a key that was opened with `access`.
template <typename Action>
Code WithKey(const Key& key, std::uint32_t access, Action action) {
  return Guarded([&] {
    OpenedKey own;
    OpenedKey* opened = nullptr;
    const Code code = FindOpened(key, access, &own, &opened);
    return code == kSuccess ? action(opened) : code;
  });
}

}  // namespace

Key::Key(Root root) : handle_(posix::HandleOf(root)) {}

void Key::Close() {
  if (IsOpen() && !posix::IsPredefined(handle_)) {
    const std::lock_guard lock(Mutex());
    delete reinterpret_cast<OpenedKey*>(handle_);
  }
  handle_ = 0;
}

Code OpenKey(const Key& parent, cvn::StringView path, std::uint32_t access, Key* key,
             LinkAtEnd link) {
  Key opened;
  const Code code = Guarded([&] {
    OpenedKey own;
    OpenedKey* from = nullptr;
    path = UpToZero(path);
    Code found = FindOpened(parent, 0, &own, &from);
    found = found == kSuccess ? CheckPath(path) : found;
    if (found != kSuccess) {
      return found;
    }
    const Lookups lookups(*from, NamesOf(path), link);
    return lookups.IsFound() ? Publish(lookups.Found(), from->isMerged, access, &opened.handle_)
                             : lookups.Failure();
  });
  if (code == kSuccess) {
    std::swap(key->handle_, opened.handle_);
  }
  return code;
}

Code CreateKey(const Key& parent, cvn::StringView path, bool isVolatile, std::uint32_t access,
               Key* key) {
  Key opened;  // which goes again when the change can't be logged
  const Code code = Guarded([&] {
    OpenedKey own;
    OpenedKey* from = nullptr;
    path = UpToZero(path);
    Code found = FindOpened(parent, 0, &own, &from);
    found = found == kSuccess ? CheckPath(path) : found;
    if (found != kSuccess) {
      return found;
    }
    const Names names = NamesOf(path);
    const Lookups lookups(*from, names);
    if (lookups.IsFound()) {
      return Publish(lookups.Found(), from->isMerged, access, &opened.handle_);
    }
    if (lookups.Failure() != kFileNotFound) {
      return lookups.Failure();
    }
    // A new key of the merged view is the machine's, unless only the user has its parent.
    const bool isUsers = !lookups.hasSecond || (lookups.first.code == kFileNotFound &&
                                                lookups.first.count + 1 == names.size() &&
                                                lookups.second.count + 1 < names.size());
    KeyPair made;
    KeyPtr& end = isUsers ? made.first : made.second;
    found = CreateMissing(isUsers ? lookups.first : lookups.second, names, isVolatile, &end);
    return found == kSuccess ? Publish(made, from->isMerged, access, &opened.handle_) : found;
  });
  if (code == kSuccess) {
    std::swap(key->handle_, opened.handle_);
  }
  return code;
}

Code DeleteKey(const Key& parent, cvn::StringView path) {
  return Guarded([&] {
    OpenedKey own;
    OpenedKey* from = nullptr;
    path = UpToZero(path);
    Code code = FindOpened(parent, 0, &own, &from);
    code = code == kSuccess ? CheckPath(path) : code;
    if (code != kSuccess) {
      return code;
    }
    const Names names = NamesOf(path);
    const bool isFirst =
        from->keys.first != nullptr &&
        (from->keys.second == nullptr || LookUp(from->keys.first, names).code == kSuccess);
    return DeleteBelow(isFirst ? from->keys.first : from->keys.second, names);
  });
}

Code QueryValue(const Key& key, cvn::StringView name, std::uint32_t* type,
                std::vector<std::byte>* data) {
  return WithKey(key, kQueryValue, [&](OpenedKey* opened) {
    Code code = kFileNotFound;
    for (const KeyPtr& each : {opened->keys.first, opened->keys.second}) {
      if (each != nullptr && code == kFileNotFound) {
        code = each->hive->Query(*each, UpToZero(name), type, data);
      }
    }
    return code;
  });
}

Code SetValue(const Key& key, cvn::StringView name, std::uint32_t type,
              std::span<const std::byte> data) {
  return WithKey(key, kSetValue, [&](OpenedKey* opened) {
    name = UpToZero(name);
    if (name.size() > posix::kLongestValueName || data.size() > kLargestData) {
      return kInvalidParameter;
    }
    KeyNode& main = Main(*opened);
    return main.hive->SetValue(main, name, type, data);
  });
}

Code DeleteValue(const Key& key, cvn::StringView name) {
  return WithKey(key, kSetValue, [&](OpenedKey* opened) {
    Code code = kFileNotFound;
    for (const KeyPtr& each : {opened->keys.first, opened->keys.second}) {
      if (each != nullptr && code == kFileNotFound) {
        code = each->hive->DeleteValue(*each, UpToZero(name));
      }
    }
    return code;
  });
}

Code EnumerateKey(const Key& key, std::uint32_t index, std::size_t capacity, cvn::String* name) {
  return WithKey(key, kEnumerateSubKeys, [&](OpenedKey* opened) {
    if (IsMergedOfTwo(*opened)) {
      const Code code = Merge(opened);
      if (code != kSuccess) {
        return code;
      }
      const auto& names = opened->merged->names;
      return index < names.size() ? Give(names[index], capacity, name) : kNoMoreItems;
    }
    KeyNode& main = Main(*opened);
    std::u16string found;
    const Code code = main.hive->SubKeyNameAt(main, index, &found);
    return code == kSuccess ? Give(found, capacity, name) : code;
  });
}

Code EnumerateValue(const Key& key, std::uint32_t index, std::size_t capacity, cvn::String* name) {
  return WithKey(key, kQueryValue, [&](OpenedKey* opened) {
    KeyNode& main = Main(*opened);
    std::u16string found;
    Code code = main.hive->ValueNameAt(main, index, &found);
    if (code == kNoMoreItems && IsMergedOfTwo(*opened)) {
      code = OtherValueNameAt(*opened, index, &found);
    }
    return code == kSuccess ? Give(found, capacity, name) : code;
  });
}

Code QueryInfo(const Key& key, std::uint32_t* subKeys, std::uint32_t* longestName) {
  return WithKey(key, kQueryValue, [&](OpenedKey* opened) {
    Code code = kSuccess;
    std::size_t count = 0;
    std::size_t longest = 0;
    const auto take = [&](const std::u16string& name) {
      ++count;
      longest = std::max(longest, name.size());
    };
    if (IsMergedOfTwo(*opened)) {
      code = Merge(opened);
      if (code == kSuccess) {
        std::for_each(opened->merged->names.begin(), opened->merged->names.end(), take);
      }
    } else {
      KeyNode& main = Main(*opened);
      std::u16string name;
      for (std::uint32_t index = 0; code == kSuccess; ++index) {
        code = main.hive->SubKeyNameAt(main, index, &name);
        if (code == kSuccess) {
          take(name);
        }
      }
      code = code == kNoMoreItems ? kSuccess : code;
    }
    *subKeys = static_cast<std::uint32_t>(count);
    *longestName = static_cast<std::uint32_t>(longest);
    return code;
  });
}

Code Change::Begin(const Key& parent, cvn::StringView path) {
  return Guarded([&]() -> Code {
    OpenedKey own;
    OpenedKey* from = nullptr;
    RegistrySpace::Get().BeginChange();
    isOpen_ = true;
    if (FindOpened(parent, 0, &own, &from) != kSuccess) {
      return kSuccess;  // what is done with it will fail
    }
    const Lookups lookups(*from, NamesOf(UpToZero(path)));
    for (const KeyPtr& end : {lookups.first.end, lookups.second.end}) {
      const Code code = end == nullptr ? kSuccess : end->hive->Reserve();
      if (code == kBusy) {
        return code;
      }
    }
    return kSuccess;
  });
}

Code Change::End() {
  if (!isOpen_) {
    return kSuccess;
  }
  isOpen_ = false;
  const std::lock_guard lock(Mutex());
  return WithoutExceptions([] { return RegistrySpace::Get().EndChange(true); });
}

Change::~Change() {
  if (isOpen_) {
    const std::lock_guard lock(Mutex());
    IgnoreError(WithoutExceptions([] { return RegistrySpace::Get().EndChange(false); }));
  }
}

Code Sync() {
  return Guarded([] { return RegistrySpace::Get().Sync(); });
}

Code Flush() {
  return Guarded([] { return RegistrySpace::Get().Flush(); });
}

}  // namespace platform::registry

namespace platform::posix {

RegistryLook::RegistryLook() {
  const std::lock_guard lock(registry::Mutex());
  RegistrySpace::Get().BeginLook();
}

RegistryLook::~RegistryLook() {
  const std::lock_guard lock(registry::Mutex());
  IgnoreError(registry::WithoutExceptions([] { return RegistrySpace::Get().EndLook(); }));
}

}  // namespace platform::posix
