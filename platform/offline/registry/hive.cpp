#include "platform/offline/registry/hive.h"

#include <cstring>
#include <utility>

#include "platform/formats/names.h"

namespace platform::posix {
namespace {

// What a link names, in the form "\Registry\Machine\...".
constexpr cvn::StringView kLinkValue = u"SymbolicLinkValue";
constexpr std::uint32_t kLinkType = 6;

// A key's name in the table of its siblings. A damaged or foreign file may have two of a name: the
// first is found, and the others are kept.
std::u16string IndexOf(const std::u16string& name, std::size_t position, bool isTaken) {
  std::u16string index = Folded(name);
  if (isTaken) {
    index.append({u'\0', static_cast<char16_t>(position >> 16), static_cast<char16_t>(position)});
  }
  return index;
}

}  // namespace

Hive::Hive() : root_(MakeRoot()) { root_->isVolatile = true; }

Hive::Hive(HostPath place, HiveFile content)
    : place_(std::move(place)), isNew_(true), file_(std::move(content)), isUnwritten_(true) {
  root_ = MakeRoot();
  root_->cell = file_.Root();
}

// Keys hold their subkeys; taking them down one by one keeps a deep tree off the stack.
Hive::~Hive() {
  std::vector<KeyPtr> pending = {std::move(root_)};
  while (!pending.empty()) {
    const KeyPtr key = std::move(pending.back());
    pending.pop_back();
    if (key != nullptr && key->subKeys != nullptr) {
      for (auto& [name, subKey] : *key->subKeys) {
        pending.push_back(std::move(subKey));
      }
      key->subKeys.reset();
    }
  }
}

KeyPtr Hive::MakeRoot() {
  auto root = std::make_shared<KeyNode>();
  root->hive = this;
  root->isFixed = true;
  return root;
}

Code Hive::Root(KeyPtr* root) {
  if (root_ == nullptr) {
    const Code code = Load();
    if (code != kSuccess) {
      return code;
    }
  }
  *root = root_;
  return kSuccess;
}

Code Hive::SubKeys(KeyNode& key, SubKeyTable** subKeys) {
  if (key.subKeys == nullptr) {
    auto fresh = std::make_unique<SubKeyTable>();
    const Code code = key.cell == HiveFile::kNoCell ? kSuccess : LoadSubKeys(key, fresh.get());
    if (code != kSuccess) {
      return code;
    }
    key.subKeys = std::move(fresh);
  }
  *subKeys = key.subKeys.get();
  return kSuccess;
}

// A key names its parent, and here has to name the right one: then no key is met twice, and none is
// its own ancestor.
Code Hive::LoadSubKeys(KeyNode& key, SubKeyTable* subKeys) {
  std::vector<HiveFile::Cell> cells;
  Code code = file_.ReadSubKeys(key.cell, &cells);
  for (std::size_t i = 0; code == kSuccess && i < cells.size(); ++i) {
    HiveFile::KeyRecord record;
    code = file_.ReadKey(cells[i], &record);
    if (code != kSuccess || record.parent != key.cell || cells[i] == file_.Root()) {
      return kBadDatabase;
    }
    const auto same = subKeys->find(Folded(record.name));
    if (same != subKeys->end() && same->second->cell == cells[i]) {
      return kBadDatabase;
    }
    auto node = std::make_shared<KeyNode>();
    node->hive = this;
    node->parent = &key;
    node->cell = cells[i];
    node->isLink = record.isLink;
    node->name = std::move(record.name);
    subKeys->insert({IndexOf(node->name, i, same != subKeys->end()), node});
  }
  return code;
}

Code Hive::Values(KeyNode& key, ValueTable** values) {
  if (key.values == nullptr) {
    auto fresh = std::make_unique<ValueTable>();
    const Code code = key.cell == HiveFile::kNoCell ? kSuccess : LoadValues(key, fresh.get());
    if (code != kSuccess) {
      return code;
    }
    key.values = std::move(fresh);
  }
  *values = key.values.get();
  return kSuccess;
}

Code Hive::LoadValues(KeyNode& key, ValueTable* values) const {
  std::vector<HiveFile::ValueRecord> records;
  const Code code = file_.ReadValues(key.cell, &records);
  for (HiveFile::ValueRecord& record : records) {
    const auto [same, isFirst] = values->ages.try_emplace(Folded(record.name), values->nextAge);
    if (!isFirst && values->byAge.find(same->second)->second.cell == record.cell) {
      return kBadDatabase;
    }
    values->byAge.insert(
        {values->nextAge++, KeyValue{std::move(record.name), record.type, record.cell, {}}});
  }
  return code;
}

Code Hive::Query(KeyNode& key, cvn::StringView name, std::uint32_t* type,
                 std::vector<std::byte>* data) {
  ValueTable* values = nullptr;
  const Code code = Values(key, &values);
  if (code != kSuccess) {
    return code;
  }
  const auto age = values->ages.find(Folded(name));
  if (age == values->ages.end()) {
    return kFileNotFound;
  }
  const KeyValue& value = values->byAge.find(age->second)->second;
  *type = value.type;
  if (value.cell != HiveFile::kNoCell) {
    return file_.ReadData(value.cell, data);
  }
  *data = value.data;
  return kSuccess;
}

Code Hive::BeginChange(bool isVolatile) {
  if (broken_ != kSuccess || isReadOnly_) {
    return isReadOnly_ ? kAccessDenied : broken_;
  }
  if (isVolatile || isNew_ || lock_.IsHeld()) {
    return kSuccess;
  }
  const Code code = lock_.Take(place_, loaded_);
  return code == kSuccess ? file_.PrepareToChange() : code;
}

void Hive::Touch(KeyNode& key, bool* aspect) {
  if (!key.hasNewSubKeys && !key.hasNewValues) {
    touched_.push_back(key.shared_from_this());
  }
  *aspect = true;
}

Code Hive::Add(KeyNode& parent, cvn::StringView name, bool isVolatile, KeyPtr* added) {
  SubKeyTable* subKeys = nullptr;
  Code code = SubKeys(parent, &subKeys);
  if (code == kSuccess) {
    code = BeginChange(isVolatile);
  }
  if (code != kSuccess) {
    return code;
  }
  *added = Insert(parent, name, isVolatile);
  if (!isVolatile) {
    Touch(parent, &parent.hasNewSubKeys);
  }
  return kSuccess;
}

KeyPtr Hive::Insert(KeyNode& parent, cvn::StringView name, bool isVolatile) {
  auto key = std::make_shared<KeyNode>();
  key->hive = this;
  key->parent = &parent;
  key->name = name;
  key->isVolatile = isVolatile;
  parent.subKeys->insert({Folded(name), key});
  ++parent.subKeyChanges;
  return key;
}

Code Hive::AddSystemKey(KeyNode& parent, cvn::StringView name, KeyPtr* added) {
  SubKeyTable* subKeys = nullptr;
  const Code code = SubKeys(parent, &subKeys);
  if (code != kSuccess) {
    return code;
  }
  const auto known = subKeys->find(Folded(name));
  if (known != subKeys->end()) {
    return kAlreadyExists;
  }
  *added = Insert(parent, name, true);
  (*added)->isFixed = true;
  return kSuccess;
}

Code Hive::AddSystemLink(KeyNode& parent, cvn::StringView name, cvn::StringView target) {
  KeyPtr link;
  Code code = AddSystemKey(parent, name, &link);
  ValueTable* values = nullptr;
  if (code == kSuccess) {
    link->isLink = true;
    code = Values(*link, &values);
  }
  if (code == kSuccess) {
    const auto bytes = std::as_bytes(std::span(target));
    values->ages.emplace(Folded(kLinkValue), 0);
    values->byAge.insert({values->nextAge++, KeyValue{std::u16string(kLinkValue),
                                                      kLinkType,
                                                      HiveFile::kNoCell,
                                                      {bytes.begin(), bytes.end()}}});
  }
  return code;
}

Code Hive::LinkTarget(KeyNode& link, std::u16string* target) {
  std::uint32_t type = 0;
  std::vector<std::byte> data;
  const Code code = Query(link, kLinkValue, &type, &data);
  target->resize(data.size() / sizeof(char16_t));
  if (!target->empty()) {
    std::memcpy(target->data(), data.data(), target->size() * sizeof(char16_t));
  }
  return code == kSuccess && type != kLinkType ? kFileNotFound : code;
}

Code Hive::Remove(KeyNode& key) {
  const Code code = BeginChange(key.isVolatile);
  if (code != kSuccess) {
    return code;
  }
  const KeyPtr keeper = key.shared_from_this();
  KeyNode& parent = *key.parent;
  if (key.cell != HiveFile::kNoCell) {
    removed_.push_back(key.cell);
  }
  if (!key.isVolatile) {
    Touch(parent, &parent.hasNewSubKeys);
  }
  parent.subKeys->erase(Folded(key.name));
  ++parent.subKeyChanges;
  key.isDeleted = true;
  key.parent = nullptr;
  return kSuccess;
}

Code Hive::SetValue(KeyNode& key, cvn::StringView name, std::uint32_t type,
                    std::span<const std::byte> data) {
  ValueTable* values = nullptr;
  Code code = Values(key, &values);
  if (code == kSuccess) {
    code = BeginChange(key.isVolatile);
  }
  if (code != kSuccess) {
    return code;
  }
  const auto [known, isNew] = values->ages.try_emplace(Folded(name), values->nextAge);
  KeyValue& value = values->byAge[known->second];
  if (isNew) {
    value.name = name;
    ++values->nextAge;
  } else if (value.cell != HiveFile::kNoCell) {
    values->dropped.push_back(std::exchange(value.cell, HiveFile::kNoCell));
  }
  value.type = type;
  value.data.assign(data.begin(), data.end());
  if (!key.isVolatile) {
    Touch(key, &key.hasNewValues);
  }
  return kSuccess;
}

Code Hive::DeleteValue(KeyNode& key, cvn::StringView name) {
  ValueTable* values = nullptr;
  Code code = Values(key, &values);
  if (code != kSuccess) {
    return code;
  }
  const auto known = values->ages.find(Folded(name));
  if (known == values->ages.end()) {
    return kFileNotFound;
  }
  code = BeginChange(key.isVolatile);
  if (code != kSuccess) {
    return code;
  }
  const auto value = values->byAge.find(known->second);
  if (value->second.cell != HiveFile::kNoCell) {
    values->dropped.push_back(value->second.cell);
  }
  values->byAge.erase(known->second);
  values->ages.erase(known);
  if (!key.isVolatile) {
    Touch(key, &key.hasNewValues);
  }
  return kSuccess;
}

}  // namespace platform::posix
