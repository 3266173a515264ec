// What a script holds beside its variables: open documents, their elements, and arrays.
#pragma once

#include <memory>

#include "support/containers.h"
#include "support/string.h"

namespace tessel {

enum class ObjectType {
  XmlDocument = 1,
  XmlElement = 2,
  Array = 3,
  JsonDocument = 4,
  JsonElement = 5
};

// An array has no length of its own; numeric indices are ten digits wide, so that they sort by
// value.
using ArrayObject = cvn::Map<cvn::String, cvn::String>;

struct ObjectRecord {
  std::shared_ptr<void> pointer;
  ObjectType type;
};

// Objects by the handle or array name that the script gave them; the two share one namespace. What
// the store holds alone is destroyed when its entry goes.
class ObjectStore {
 public:
  using Entries = cvn::Map<cvn::String, ObjectRecord>;

  // Null when there is none of that name.
  const ObjectRecord* Find(cvn::StringView name) const;
  // The array of that name; null when there is none, or when the name stands for something else.
  ArrayObject* FindArray(cvn::StringView name) const;
  // The same, but makes the array when the name is free.
  ArrayObject* FindOrAddArray(cvn::StringView name);
  // Replaces what stands under `name`. A null pointer only removes.
  void Set(cvn::StringView name, std::shared_ptr<void> pointer, ObjectType type);
  // Removes all, in name order, with a trace line for each.
  void FreeLeaks();

 private:
  Entries entries_;
};

// Stores a typed object under `name`, as ObjectStore::Set.
void SetObject(cvn::StringView name, std::shared_ptr<void> pointer, ObjectType type,
               ObjectStore* objects);

}  // namespace tessel
