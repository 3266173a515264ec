#include "tests/commands/scripted_registry.h"

#include <algorithm>
#include <deque>
#include <map>

#include "support/numbers.h"

namespace tessel::testing {
namespace {

struct Script {
  std::deque<ScriptedKey> keys;                 // the first is every root
  std::map<std::uintptr_t, ScriptedKey*> open;  // by handle
  std::uintptr_t lastHandle = 0;
};

Script script;

}  // namespace

ScriptedKey* ScriptedKey::Add(cvn::StringView subKey) {
  ScriptedKey* added = &script.keys.emplace_back();
  added->name = subKey;
  subKeys.push_back(added);
  return added;
}

void ScriptedKey::AddValue(cvn::StringView value, std::uint32_t type, std::string_view data) {
  const auto bytes = std::as_bytes(std::span(data));
  values.push_back({value, type, {bytes.begin(), bytes.end()}});
}

ScriptedKey* ResetRegistry() {
  script = Script();
  script.keys.emplace_back();
  return &script.keys.front();
}

int OpenKeys() { return static_cast<int>(script.open.size()); }

}  // namespace tessel::testing

namespace platform::registry {
namespace {

using tessel::testing::script;
using tessel::testing::ScriptedKey;
using tessel::testing::ScriptedValue;

ScriptedKey* KeyBehind(const Key& key) {
  const bool isRoot = static_cast<std::intptr_t>(key.Handle()) < 0;
  return isRoot ? &script.keys.front() : script.open.at(key.Handle());
}

ScriptedKey* Find(const Key& parent, cvn::StringView path, ScriptedKey** above) {
  ScriptedKey* at = KeyBehind(parent);
  while (at != nullptr && !path.empty()) {
    const cvn::StringView name = path.substr(0, path.find(u'\\'));
    path.remove_prefix(std::min(name.size() + 1, path.size()));
    *above = at;
    const auto found = std::ranges::find_if(
        at->subKeys, [&](const ScriptedKey* key) { return cvn::EqualNoCase(key->name, name); });
    at = found == at->subKeys.end() ? nullptr : *found;
  }
  return at;
}

Code GiveName(const cvn::String& text, std::size_t capacity, cvn::String* name) {
  if (text.Length() >= capacity) {
    return kMoreData;
  }
  *name = text;
  return kSuccess;
}

}  // namespace

Key::Key(Root root)
    : handle_(static_cast<std::uintptr_t>(
          static_cast<std::intptr_t>(static_cast<std::int32_t>(root)))) {}

void Key::Close() {
  script.open.erase(handle_);
  handle_ = 0;
}

Code OpenKey(const Key& parent, cvn::StringView path, std::uint32_t access, Key* key) {
  ScriptedKey* above = nullptr;
  ScriptedKey* found = Find(parent, path, &above);
  if (found == nullptr || found->openCode != kSuccess) {
    return found == nullptr ? kFileNotFound : found->openCode;
  }
  found->accesses.push_back(access);
  key->handle_ = ++script.lastHandle;
  script.open[key->handle_] = found;
  return kSuccess;
}

Code CreateKey(const Key& parent, cvn::StringView path, bool isVolatile, std::uint32_t access,
               Key* key) {
  const Code code = OpenKey(parent, path, access, key);
  if (code == kSuccess) {
    KeyBehind(*key)->isVolatile = isVolatile;
  }
  return code;
}

Code DeleteKey(const Key& parent, cvn::StringView path) {
  ScriptedKey* above = nullptr;
  const ScriptedKey* found = Find(parent, path, &above);
  if (found == nullptr || found->deleteCode != kSuccess || !found->subKeys.empty()) {
    return found == nullptr ? kFileNotFound
                            : (found->subKeys.empty() ? found->deleteCode : kAccessDenied);
  }
  std::erase(above->subKeys, found);
  return kSuccess;
}

Code QueryValue(const Key& key, cvn::StringView name, std::uint32_t* type,
                std::vector<std::byte>* data) {
  const auto& values = KeyBehind(key)->values;
  const auto found = std::ranges::find(
      values, name, [](const ScriptedValue& value) { return value.name.AsView(); });
  if (found == values.end()) {
    return kFileNotFound;
  }
  *type = found->type;
  *data = found->data;
  return kSuccess;
}

Code SetValue(const Key& key, cvn::StringView name, std::uint32_t type,
              std::span<const std::byte> data) {
  KeyBehind(key)->values.push_back({name, type, {data.begin(), data.end()}});
  return kSuccess;
}

Code DeleteValue(const Key& key, cvn::StringView name) {
  const auto count = std::erase_if(
      KeyBehind(key)->values, [name](const ScriptedValue& value) { return value.name == name; });
  return count == 0 ? kFileNotFound : kSuccess;
}

Code EnumerateKey(const Key& key, std::uint32_t index, std::size_t capacity, cvn::String* name) {
  const auto& subKeys = KeyBehind(key)->subKeys;
  if (index >= subKeys.size()) {
    return kNoMoreItems;
  }
  const ScriptedKey& subKey = *subKeys[index];
  return subKey.nameCode != kSuccess ? subKey.nameCode : GiveName(subKey.name, capacity, name);
}

Code EnumerateValue(const Key& key, std::uint32_t index, std::size_t capacity, cvn::String* name) {
  const auto& values = KeyBehind(key)->values;
  return index >= values.size() ? kNoMoreItems : GiveName(values[index].name, capacity, name);
}

Code QueryInfo(const Key& key, std::uint32_t* subKeys, std::uint32_t* longestName) {
  const ScriptedKey& asked = *KeyBehind(key);
  *subKeys = static_cast<std::uint32_t>(asked.subKeys.size());
  *longestName = 0;
  for (const ScriptedKey* subKey : asked.subKeys) {
    *longestName = std::max(*longestName, static_cast<std::uint32_t>(subKey->name.Length()));
  }
  return asked.infoCode;
}

Code Flush() { return kSuccess; }

}  // namespace platform::registry
