#include "engine/object_store.h"

#include "trace/trace.h"

namespace tessel {

const ObjectRecord* ObjectStore::Find(cvn::StringView name) const {
  const auto found = entries_.find(name);
  return found == entries_.end() ? nullptr : &found->second;
}

ArrayObject* ObjectStore::FindArray(cvn::StringView name) const {
  const ObjectRecord* record = Find(name);
  if (record == nullptr || record->type != ObjectType::Array) {
    return nullptr;
  }
  return static_cast<ArrayObject*>(record->pointer.get());
}

ArrayObject* ObjectStore::FindOrAddArray(cvn::StringView name) {
  if (Find(name) == nullptr) {
    Set(name, std::make_shared<ArrayObject>(), ObjectType::Array);
  }
  return FindArray(name);
}

void ObjectStore::Set(cvn::StringView name, std::shared_ptr<void> pointer, ObjectType type) {
  const auto found = entries_.find(name);
  if (found != entries_.end()) {
    entries_.erase(found);
  }
  if (pointer != nullptr) {
    entries_.emplace(name, ObjectRecord{std::move(pointer), type});
  }
}

void ObjectStore::FreeLeaks() {
  for (auto& [name, record] : entries_) {
    TraceLine(u"Freeing leak: %p of type %d", record.pointer.get(), static_cast<int>(record.type));
    record.pointer.reset();
  }
  entries_.clear();
}

void SetObject(cvn::StringView name, std::shared_ptr<void> pointer, ObjectType type,
               ObjectStore* objects) {
  objects->Set(name, std::move(pointer), type);
}

}  // namespace tessel
