#include "platform/offline/registry/hive.h"

#include <algorithm>
#include <cstring>

#include "platform/formats/names.h"

namespace platform::posix {
namespace {

// What a link names, in the form "\Registry\Machine\...".
constexpr cvn::StringView kLinkValue = u"SymbolicLinkValue";
constexpr std::uint32_t kLinkType = 6;

}  // namespace

KeyNode::~KeyNode() {
  if (parent == nullptr) {
    return;
  }
  const auto same = parent->known.find(Folded(name));
  if (same != parent->known.end() && same->second.expired()) {
    parent->known.erase(same);
  }
}

Hive::Hive() : isInMemory_(true), store_(HostPath()) {
  root_ = std::make_shared<KeyNode>();
  root_->hive = this;
  root_->isFixed = true;
  root_->isVolatile = true;
}

Hive::Hive(HostPath place) : isInMemory_(false), store_(std::move(place)) {
  root_ = std::make_shared<KeyNode>();
  root_->hive = this;
  root_->isFixed = true;
}

// Keys in memory and those above them hold each other.
Hive::~Hive() {
  for (const std::weak_ptr<KeyNode>& holder : holders_) {
    if (const KeyPtr key = holder.lock()) {
      key->memory.reset();
    }
  }
}

Code Hive::Look(bool alone) {
  Code code = store_.Enter(alone);
  if (code != kSuccess || (image_ && seen_ == store_.Version())) {
    return code;
  }
  seen_ = store_.Version();
  ++version_;
  image_.emplace(&store_.Pages());
  code = image_->Open();
  if (code != kSuccess) {
    image_.reset();
  }
  return code;
}

Code Hive::Leave() {
  const bool isTorn = store_.Pages().IsTorn();
  store_.Leave();
  return isTorn ? kReadFault : kSuccess;
}

Code Hive::Use(KeyNode& key) {
  const Code code = isInMemory_ || store_.IsEntered() ? kSuccess : Look(false);
  return code == kSuccess ? Locate(key) : code;
}

// Makes the key's cell the right one.
Code Hive::Locate(KeyNode& key) {
  if (key.isDeleted) {
    return kKeyDeleted;
  }
  if (key.version == version_ || isInMemory_) {
    return kSuccess;
  }
  Code code = key.parent == nullptr ? kSuccess : Locate(*key.parent);
  if (code == kSuccess && !key.isVolatile) {
    HiveImage::KeyRecord record;
    if (key.parent == nullptr) {
      key.cell = image_->Root();
    } else {
      code = image_->FindSubKey(key.parent->cell, key.name, &key.cell);
    }
    code = code == kSuccess ? image_->Read(key.cell, &record) : code;
    key.isLink = (record.flags & HiveImage::kKeyIsLink) != 0;
  }
  if (code == kFileNotFound || code == kKeyDeleted) {
    key.isDeleted = true;
    return kKeyDeleted;
  }
  key.version = code == kSuccess ? version_ : 0;
  return code;
}

Code Hive::Root(KeyPtr* root) {
  *root = root_;
  return Use(*root_);
}

KeyMemory& Hive::MemoryOf(KeyNode& key) {
  if (key.memory == nullptr) {
    holders_.push_back(key.weak_from_this());
    key.memory = std::make_unique<KeyMemory>();
  }
  return *key.memory;
}

KeyPtr Hive::NewNode(KeyNode& parent, cvn::StringView name) {
  auto key = std::make_shared<KeyNode>();
  key->hive = this;
  key->parent = parent.shared_from_this();
  key->name = name;
  key->depth = parent.depth + 1;
  key->version = version_;
  return key;
}

// The node of a subkey in the files.
Code Hive::NodeAt(KeyNode& parent, HiveImage::Cell cell, KeyPtr* found) {
  HiveImage::KeyRecord record;
  const Code code = image_->Read(cell, &record);
  if (code != kSuccess) {
    return code;
  }
  if (parent.depth >= HiveImage::kDeepestKey) {
    return kBadDatabase;
  }
  std::weak_ptr<KeyNode>& known = parent.known[Folded(record.name)];
  *found = known.lock();
  if (*found == nullptr || (*found)->isDeleted) {
    *found = NewNode(parent, record.name);
    known = *found;
  }
  (*found)->cell = cell;
  (*found)->version = version_;
  (*found)->isLink = (record.flags & HiveImage::kKeyIsLink) != 0;
  return kSuccess;
}

Code Hive::Find(KeyNode& key, cvn::StringView name, KeyPtr* found) {
  Code code = Use(key);
  if (code != kSuccess) {
    return code;
  }
  if (key.memory != nullptr) {
    const auto inMemory = key.memory->subKeys.find(Folded(name));
    if (inMemory != key.memory->subKeys.end()) {
      *found = inMemory->second;
      return kSuccess;
    }
  }
  HiveImage::Cell cell = HiveImage::kNoCell;
  code = key.isVolatile ? kFileNotFound : image_->FindSubKey(key.cell, name, &cell);
  return code == kSuccess ? NodeAt(key, cell, found) : code;
}

Code Hive::CountSubKeys(KeyNode& key, std::uint32_t* count) {
  *count = key.memory == nullptr ? 0 : static_cast<std::uint32_t>(key.memory->subKeys.size());
  HiveImage::KeyRecord record;
  Code code = Use(key);
  if (code == kSuccess && !key.isVolatile) {
    code = image_->Read(key.cell, &record);
    *count += record.subKeys;
  }
  return code;
}

Code Hive::StoredNameAt(KeyNode& key, std::uint32_t index, std::u16string* name) const {
  HiveImage::Cell cell = HiveImage::kNoCell;
  HiveImage::KeyRecord record;
  Code code = image_->SubKeyAt(key.cell, index, &cell);
  code = code == kSuccess ? image_->Read(cell, &record) : code;
  *name = std::move(record.name);
  return code;
}

// How many of the `count` subkeys in the files come before a name.
Code Hive::RankOf(KeyNode& key, std::uint32_t count, const std::u16string& folded,
                  std::uint32_t* rank) const {
  std::uint32_t low = 0;
  std::uint32_t high = count;
  while (low < high) {
    const std::uint32_t middle = low + (high - low) / 2;
    std::u16string name;
    const Code code = StoredNameAt(key, middle, &name);
    if (code != kSuccess) {
      return code;
    }
    if (Folded(name) < folded) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  *rank = low;
  return kSuccess;
}

Code Hive::SubKeyNameAt(KeyNode& key, std::uint32_t index, std::u16string* name) {
  std::uint32_t count = 0;
  Code code = CountSubKeys(key, &count);
  if (code != kSuccess || index >= count) {
    return code == kSuccess ? kNoMoreItems : code;
  }
  if (key.memory == nullptr || key.memory->subKeys.empty()) {
    return key.isVolatile ? kNoMoreItems : StoredNameAt(key, index, name);
  }
  // The first of the keys in memory that stands at `index` or behind it.
  const auto& inMemory = key.memory->subKeys;
  const auto stored = count - static_cast<std::uint32_t>(inMemory.size());
  std::uint32_t low = 0;
  std::uint32_t place = count;
  for (auto high = static_cast<std::uint32_t>(inMemory.size()); low < high;) {
    const std::uint32_t middle = low + (high - low) / 2;
    std::uint32_t rank = 0;
    code =
        stored == 0 ? kSuccess : RankOf(key, stored, inMemory.find_by_order(middle)->first, &rank);
    if (code != kSuccess) {
      return code;
    }
    if (rank + middle < index) {
      low = middle + 1;
    } else {
      high = middle;
      place = rank + middle;
    }
  }
  if (place == index && low < inMemory.size()) {
    *name = inMemory.find_by_order(low)->second->name;
    return kSuccess;
  }
  return StoredNameAt(key, index - low, name);
}

Code Hive::Query(KeyNode& key, cvn::StringView name, std::uint32_t* type,
                 std::vector<std::byte>* data) {
  Code code = Use(key);
  if (code != kSuccess) {
    return code;
  }
  if (!key.isVolatile) {
    HiveImage::ValueRecord value;
    code = image_->FindValue(key.cell, name, &value);
    code = code == kSuccess ? image_->ReadData(value.cell, data) : code;
    *type = code == kSuccess ? value.type : *type;
    return code;
  }
  const KeyMemory& memory = MemoryOf(key);
  const auto age = memory.ages.find(Folded(name));
  if (age == memory.ages.end()) {
    return kFileNotFound;
  }
  const KeyMemory::Value& value = memory.values.find(age->second)->second;
  *type = value.type;
  *data = value.data;
  return kSuccess;
}

bool Hive::HasValue(KeyNode& key, cvn::StringView name) {
  HiveImage::ValueRecord value;
  return Use(key) == kSuccess &&
         (key.isVolatile ? MemoryOf(key).ages.contains(Folded(name))
                         : image_->FindValue(key.cell, name, &value) == kSuccess);
}

Code Hive::ValueNameAt(KeyNode& key, std::uint32_t index, std::u16string* name) {
  Code code = Use(key);
  if (code != kSuccess) {
    return code;
  }
  if (!key.isVolatile) {
    HiveImage::ValueRecord value;
    code = image_->ValueAt(key.cell, index, &value);
    *name = std::move(value.name);
    return code;
  }
  const KeyMemory& memory = MemoryOf(key);
  if (index >= memory.values.size()) {
    return kNoMoreItems;
  }
  *name = memory.values.find_by_order(index)->second.name;
  return kSuccess;
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

Code Hive::AddSystemKey(KeyNode& parent, cvn::StringView name, KeyPtr* added) {
  const Code code = Find(parent, name, added);
  if (code != kFileNotFound) {
    return code == kSuccess ? kAlreadyExists : code;
  }
  const Code made = AddInMemory(parent, name, added);
  (*added)->isFixed = true;
  return made;
}

Code Hive::AddSystemLink(KeyNode& parent, cvn::StringView name, cvn::StringView target) {
  KeyPtr link;
  const Code code = AddSystemKey(parent, name, &link);
  if (code == kSuccess) {
    link->isLink = true;
    SetInMemory(&MemoryOf(*link), kLinkValue, kLinkType, std::as_bytes(std::span(target)));
  }
  return code;
}

}  // namespace platform::posix
