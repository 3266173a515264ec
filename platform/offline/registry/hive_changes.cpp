// Changing a hive.
#include "platform/clock.h"
#include "platform/formats/names.h"
#include "platform/offline/registry/hive.h"

namespace platform::posix {

// Others may have changed the hive since the key was found.
Code Hive::BeginChange(KeyNode& key) {
  if (key.isVolatile) {
    return Use(key);
  }
  Code code = Look(true);
  code = code == kSuccess ? store_.BeginChange() : code;
  return code == kSuccess ? Locate(key) : code;
}

Code Hive::AddInMemory(KeyNode& parent, cvn::StringView name, KeyPtr* added) {
  *added = NewNode(parent, name);
  (*added)->isVolatile = true;
  MemoryOf(parent).subKeys.insert({Folded(name), *added});
  ++changes_;
  return kSuccess;
}

Code Hive::Add(KeyNode& parent, cvn::StringView name, bool isVolatile, KeyPtr* added) {
  if (isVolatile) {
    const Code code = Find(parent, name, added);
    return code == kFileNotFound ? AddInMemory(parent, name, added) : code;
  }
  const KeyPtr keeper = parent.shared_from_this();
  Code code = BeginChange(parent);
  code = code == kSuccess ? Find(parent, name, added) : code;
  if (code != kFileNotFound) {
    return code;
  }
  HiveImage::Cell cell = HiveImage::kNoCell;
  code = image_->AddSubKey(parent.cell, name, 0, {}, clock::FileTimeNow(), &cell);
  ++changes_;
  return code == kSuccess ? NodeAt(*keeper, cell, added) : code;
}

Code Hive::Remove(KeyNode& key) {
  const KeyPtr keeper = key.shared_from_this();
  Code code = BeginChange(key);
  if (code != kSuccess) {
    return code;
  }
  if (key.memory != nullptr && !key.memory->subKeys.empty()) {
    return kAccessDenied;
  }
  if (key.isVolatile) {
    key.parent->memory->subKeys.erase(Folded(key.name));
  } else {
    code = image_->RemoveKey(key.cell, clock::FileTimeNow());
  }
  if (code == kSuccess) {
    ++changes_;
    key.isDeleted = true;
    key.parent->known.erase(Folded(key.name));
    key.parent.reset();
  }
  return code;
}

void Hive::SetInMemory(KeyMemory* memory, cvn::StringView name, std::uint32_t type,
                       std::span<const std::byte> data) {
  const auto [known, isNew] = memory->ages.try_emplace(Folded(name), memory->nextAge);
  KeyMemory::Value& value = memory->values[known->second];
  if (isNew) {
    value.name = name;
    ++memory->nextAge;
  }
  value.type = type;
  value.data.assign(data.begin(), data.end());
}

Code Hive::SetValue(KeyNode& key, cvn::StringView name, std::uint32_t type,
                    std::span<const std::byte> data) {
  const Code code = BeginChange(key);
  if (code != kSuccess) {
    return code;
  }
  if (!key.isVolatile) {
    return image_->SetValue(key.cell, name, type, data, clock::FileTimeNow());
  }
  SetInMemory(&MemoryOf(key), name, type, data);
  return kSuccess;
}

Code Hive::DeleteValue(KeyNode& key, cvn::StringView name) {
  const Code code = BeginChange(key);
  if (code != kSuccess) {
    return code;
  }
  if (!key.isVolatile) {
    return image_->RemoveValue(key.cell, name, clock::FileTimeNow());
  }
  KeyMemory& memory = MemoryOf(key);
  const auto known = memory.ages.find(Folded(name));
  if (known == memory.ages.end()) {
    return kFileNotFound;
  }
  memory.values.erase(known->second);
  memory.ages.erase(known);
  return kSuccess;
}

}  // namespace platform::posix
