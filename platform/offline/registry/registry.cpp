#include "platform/registry.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <optional>
#include <stdexcept>

#include "platform/formats/names.h"
#include "platform/offline/registry/registry_space.h"

namespace platform::registry {
namespace {

using posix::Folded;
using posix::Hive;
using posix::KeyNode;
using posix::KeyPair;
using posix::KeyPtr;
using posix::NamesOf;
using posix::RegistrySpace;
using posix::SubKeyTable;
using posix::UpToZero;
using posix::ValueTable;
using Names = std::vector<cvn::StringView>;

constexpr std::size_t kLongestKeyName = 255;
constexpr std::size_t kLongestValueName = 16383;
constexpr std::size_t kLargestData = std::size_t{1} << 30;
constexpr std::size_t kDeepestKey = 512;

// The names of both keys of a pair, as they were when their numbers of changes were these.
struct MergedNames {
  std::uint64_t changes[2] = {};
  std::vector<std::u16string> names;
};

// What a handle stands for.
struct OpenedKey {
  KeyPair keys;
  bool isMerged = false;
  std::uint32_t access = 0;
  std::optional<MergedNames> merged;
};

std::mutex& Mutex() {
  static std::mutex mutex;
  return mutex;
}

// Runs `action` alone and without letting an exception out.
template <typename Action>
Code Guarded(Action action) {
  try {
    const std::lock_guard lock(Mutex());
    return action();
  } catch (const std::bad_alloc&) {
    return kNotEnoughMemory;
  } catch (const std::length_error&) {
    return kNotEnoughMemory;
  }
}

std::uintptr_t HandleOf(Root root) {
  return static_cast<std::uintptr_t>(static_cast<std::intptr_t>(static_cast<std::int32_t>(root)));
}

bool IsPredefined(std::uintptr_t handle) {
  return handle >= HandleOf(Root::ClassesRoot) && handle <= HandleOf(Root::CurrentConfig);
}

// Finds what `key` stands for. `*own` keeps what a predefined key resolves to now.
Code Find(const Key& key, std::uint32_t access, OpenedKey* own, OpenedKey** opened) {
  *opened = own;
  if (!key.IsOpen()) {
    return kInvalidHandle;
  }
  if (IsPredefined(key.Handle())) {
    const auto root = static_cast<Root>(static_cast<std::uint32_t>(key.Handle()));
    own->isMerged = root == Root::ClassesRoot;
    return RegistrySpace::Get().Open(root, &own->keys);
  }
  *opened = reinterpret_cast<OpenedKey*>(key.Handle());
  KeyPair& keys = (*opened)->keys;
  for (KeyPtr* each : {&keys.first, &keys.second}) {
    if ((*opened)->isMerged && *each != nullptr && (*each)->isDeleted) {
      each->reset();
      (*opened)->merged.reset();
    }
  }
  if ((keys.first == nullptr || keys.first->isDeleted) && keys.second == nullptr) {
    return kKeyDeleted;
  }
  return ((*opened)->access & access) == access ? kSuccess : kAccessDenied;
}

// The key that changes go to.
KeyNode& Main(const OpenedKey& opened) {
  return opened.keys.first != nullptr ? *opened.keys.first : *opened.keys.second;
}

bool IsMergedOfTwo(const OpenedKey& opened) {
  return opened.keys.first != nullptr && opened.keys.second != nullptr;
}

Code Publish(KeyPair keys, bool isMerged, std::uint32_t access, std::uintptr_t* handle) {
  auto opened = std::make_unique<OpenedKey>();
  opened->keys = std::move(keys);
  opened->isMerged = isMerged;
  opened->access = access;
  if ((access & kSetValue) != 0 && Main(*opened).hive->IsReadOnly()) {
    return kAccessDenied;
  }
  *handle = reinterpret_cast<std::uintptr_t>(opened.release());
  return kSuccess;
}

// Where one way along the names ends.
struct Way {
  Code code = kFileNotFound;
  KeyPtr end;
  std::size_t count = 0;
};

Way WayFrom(const KeyPtr& from, const Names& names) {
  Way way;
  if (from != nullptr) {
    way.code = RegistrySpace::Get().Walk(from, names, &way.end, &way.count);
  }
  return way;
}

// Both ways of a merged view, or the one of another key.
struct Ways {
  Way first;
  Way second;

  Ways(const OpenedKey& from, const Names& names)
      : first(WayFrom(from.keys.first, names)), second(WayFrom(from.keys.second, names)) {
    hasSecond = from.keys.second != nullptr;
  }
  bool hasSecond = false;

  bool IsFound() const { return first.code == kSuccess || second.code == kSuccess; }
  Code Failure() const { return hasSecond ? second.code : first.code; }
  KeyPair Found() const {
    return {first.code == kSuccess ? first.end : nullptr,
            second.code == kSuccess ? second.end : nullptr};
  }
};

Code CheckPath(cvn::StringView path) { return path.starts_with(u'\\') ? kBadPathName : kSuccess; }

std::size_t DepthOf(const KeyNode* key) {
  std::size_t depth = 0;
  for (; key != nullptr; key = key->parent) {
    ++depth;
  }
  return depth;
}

// Makes what is missing behind the end of a way that ended with 2.
Code CreateBehind(const Way& way, const Names& names, bool isVolatile, KeyPtr* created) {
  const auto isTooLong = [](cvn::StringView name) { return name.size() > kLongestKeyName; };
  const auto begin = names.begin() + static_cast<std::ptrdiff_t>(way.count);
  if (RegistrySpace::Get().IsFrame(way.end) || std::any_of(begin, names.end(), isTooLong) ||
      DepthOf(way.end.get()) + names.size() - way.count > kDeepestKey) {
    return kInvalidParameter;
  }
  Hive& hive = *way.end->hive;
  SubKeyTable* subKeys = nullptr;
  Code code = hive.SubKeys(*way.end, &subKeys);
  if (code == kSuccess && subKeys->find(Folded(*begin)) != subKeys->end()) {
    return kFileNotFound;  // a link that leads nowhere
  }
  if (code == kSuccess && way.end->isVolatile && !isVolatile) {
    return kChildMustBeVolatile;
  }
  *created = way.end;
  for (auto name = begin; code == kSuccess && name != names.end(); ++name) {
    code = hive.Add(**created, *name, isVolatile, created);
  }
  return code;
}

// Deletes the key itself and not what a link at the end of the path leads to.
Code DeleteBelow(const KeyPtr& from, Names names) {
  KeyPtr key = from;
  if (!names.empty()) {
    const std::u16string name = Folded(names.back());
    names.pop_back();
    const Way way = WayFrom(from, names);
    SubKeyTable* siblings = nullptr;
    const Code code = way.code == kSuccess ? way.end->hive->SubKeys(*way.end, &siblings) : way.code;
    if (code != kSuccess) {
      return code;
    }
    const auto found = siblings->find(name);
    if (found == siblings->end()) {
      return kFileNotFound;
    }
    key = found->second;
  }
  if (key->isFixed) {
    return kAccessDenied;
  }
  SubKeyTable* subKeys = nullptr;
  const Code code = key->hive->SubKeys(*key, &subKeys);
  if (code != kSuccess) {
    return code;
  }
  return subKeys->empty() ? key->hive->Remove(*key) : kAccessDenied;
}

Code Give(cvn::StringView text, std::size_t capacity, cvn::String* name) {
  if (text.size() >= capacity) {
    return kMoreData;
  }
  *name = text;
  return kSuccess;
}

// Brings the list of the names of both keys up to date.
Code Merge(OpenedKey* opened) {
  KeyNode& first = *opened->keys.first;
  KeyNode& second = *opened->keys.second;
  SubKeyTable* tables[2] = {};
  Code code = first.hive->SubKeys(first, &tables[0]);
  if (code == kSuccess) {
    code = second.hive->SubKeys(second, &tables[1]);
  }
  if (code != kSuccess || (opened->merged && opened->merged->changes[0] == first.subKeyChanges &&
                           opened->merged->changes[1] == second.subKeyChanges)) {
    return code;
  }
  opened->merged = MergedNames{{first.subKeyChanges, second.subKeyChanges}, {}};
  auto left = tables[0]->begin();
  auto right = tables[1]->begin();
  while (left != tables[0]->end() || right != tables[1]->end()) {
    const bool takesRight =
        left == tables[0]->end() || (right != tables[1]->end() && right->first < left->first);
    if (!takesRight && right != tables[1]->end() && right->first == left->first) {
      ++right;
    }
    opened->merged->names.push_back(takesRight ? (right++)->second->name : (left++)->second->name);
  }
  return kSuccess;
}

// Runs `action` on the state of a key that was opened with `access`.
template <typename Action>
Code WithKey(const Key& key, std::uint32_t access, Action action) {
  return Guarded([&] {
    OpenedKey own;
    OpenedKey* opened = nullptr;
    const Code code = Find(key, access, &own, &opened);
    return code == kSuccess ? action(opened) : code;
  });
}

}  // namespace

Key::Key(Root root) : handle_(HandleOf(root)) {}

void Key::Close() {
  if (IsOpen() && !IsPredefined(handle_)) {
    const std::lock_guard lock(Mutex());
    delete reinterpret_cast<OpenedKey*>(handle_);
  }
  handle_ = 0;
}

Code OpenKey(const Key& parent, cvn::StringView path, std::uint32_t access, Key* key) {
  std::uintptr_t handle = 0;
  const Code code = Guarded([&] {
    OpenedKey own;
    OpenedKey* from = nullptr;
    path = UpToZero(path);
    Code found = Find(parent, 0, &own, &from);
    found = found == kSuccess ? CheckPath(path) : found;
    if (found != kSuccess) {
      return found;
    }
    const Ways ways(*from, NamesOf(path));
    return ways.IsFound() ? Publish(ways.Found(), from->isMerged, access, &handle) : ways.Failure();
  });
  if (code == kSuccess) {
    key->Close();
    key->handle_ = handle;
  }
  return code;
}

Code CreateKey(const Key& parent, cvn::StringView path, bool isVolatile, std::uint32_t access,
               Key* key) {
  std::uintptr_t handle = 0;
  const Code code = Guarded([&] {
    OpenedKey own;
    OpenedKey* from = nullptr;
    path = UpToZero(path);
    Code found = Find(parent, 0, &own, &from);
    found = found == kSuccess ? CheckPath(path) : found;
    if (found != kSuccess) {
      return found;
    }
    const Names names = NamesOf(path);
    const Ways ways(*from, names);
    if (ways.IsFound()) {
      return Publish(ways.Found(), from->isMerged, access, &handle);
    }
    if (ways.Failure() != kFileNotFound) {
      return ways.Failure();
    }
    // A new key of the merged view is the machine's, unless only the user has its parent.
    const bool isUsers = !ways.hasSecond || (ways.first.code == kFileNotFound &&
                                             ways.first.count + 1 == names.size() &&
                                             ways.second.count + 1 < names.size());
    KeyPair made;
    KeyPtr& end = isUsers ? made.first : made.second;
    found = CreateBehind(isUsers ? ways.first : ways.second, names, isVolatile, &end);
    return found == kSuccess ? Publish(made, from->isMerged, access, &handle) : found;
  });
  if (code == kSuccess) {
    key->Close();
    key->handle_ = handle;
  }
  return code;
}

Code DeleteKey(const Key& parent, cvn::StringView path) {
  return Guarded([&] {
    OpenedKey own;
    OpenedKey* from = nullptr;
    path = UpToZero(path);
    Code code = Find(parent, 0, &own, &from);
    code = code == kSuccess ? CheckPath(path) : code;
    if (code != kSuccess) {
      return code;
    }
    const Names names = NamesOf(path);
    const bool isFirst =
        from->keys.first != nullptr &&
        (from->keys.second == nullptr || WayFrom(from->keys.first, names).code == kSuccess);
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
    if (name.size() > kLongestValueName || data.size() > kLargestData) {
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
    SubKeyTable* subKeys = nullptr;
    const Code code = main.hive->SubKeys(main, &subKeys);
    if (code != kSuccess) {
      return code;
    }
    return index < subKeys->size()
               ? Give(subKeys->find_by_order(index)->second->name, capacity, name)
               : kNoMoreItems;
  });
}

Code EnumerateValue(const Key& key, std::uint32_t index, std::size_t capacity, cvn::String* name) {
  return WithKey(key, kQueryValue, [&](OpenedKey* opened) {
    KeyNode& main = Main(*opened);
    ValueTable* values = nullptr;
    Code code = main.hive->Values(main, &values);
    if (code != kSuccess) {
      return code;
    }
    if (index < values->byAge.size()) {
      return Give(values->byAge.find_by_order(index)->second.name, capacity, name);
    }
    if (!IsMergedOfTwo(*opened)) {
      return kNoMoreItems;
    }
    KeyNode& other = *opened->keys.second;
    ValueTable* others = nullptr;
    code = other.hive->Values(other, &others);
    if (code != kSuccess) {
      return code;
    }
    std::size_t rest = index - values->byAge.size();
    for (const auto& [age, value] : others->byAge) {
      if (values->ages.find(Folded(value.name)) == values->ages.end() && rest-- == 0) {
        return Give(value.name, capacity, name);
      }
    }
    return kNoMoreItems;
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
      SubKeyTable* table = nullptr;
      code = main.hive->SubKeys(main, &table);
      if (code == kSuccess) {
        std::for_each(table->begin(), table->end(), [&](auto& entry) { take(entry.second->name); });
      }
    }
    *subKeys = static_cast<std::uint32_t>(count);
    *longestName = static_cast<std::uint32_t>(longest);
    return code;
  });
}

Code Flush() {
  return Guarded([] { return RegistrySpace::Get().Flush(); });
}

}  // namespace platform::registry
