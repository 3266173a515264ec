#include "commands/documents/json_enumeration.h"

#include <memory>

namespace tessel {
namespace {

using platform::Code;

constexpr Code kInvalidMember = 1388;
constexpr Code kInvalidIndex = 1413;

// The array that is being walked, and the element that comes next.
struct Enumeration {
  std::shared_ptr<JsonElementHandle> array;
  Json::ArrayIndex next = 0;
};

Enumeration& CurrentEnumeration() {
  static Enumeration enumeration;
  return enumeration;
}

}  // namespace

void SetElementHandle(const cvn::String& name, const JsonPlace& place, ObjectStore* objects) {
  SetObject(name, std::make_shared<JsonElementHandle>(place.document, place.value, place.route),
            ObjectType::JsonElement, objects);
}

Code BeginEnumeration(const std::string& path, JsonPlace* place) {
  if (!WalkJson(path, false, place)) {
    return platform::kNotFound;
  }
  if (!place->value->isArray()) {
    return kInvalidMember;
  }
  CurrentEnumeration() = {
      std::make_shared<JsonElementHandle>(place->document, place->value, place->route), 0};
  return platform::kSuccess;
}

Code TakeNextElement(const cvn::String& destHandle, ObjectStore* objects) {
  Enumeration& enumeration = CurrentEnumeration();
  if (enumeration.array == nullptr) {
    return kInvalidIndex;
  }
  JsonPlace place{enumeration.array->Document(), enumeration.array->Value(),
                  enumeration.array->Route()};
  if (place.document == nullptr) {
    return platform::kNotFound;
  }
  if (!place.value->isArray() || !place.value->isValidIndex(enumeration.next)) {
    return kInvalidIndex;
  }
  place.value = &(*place.value)[enumeration.next];
  place.route.push_back({std::string(), enumeration.next});
  SetElementHandle(destHandle, place, objects);
  ++enumeration.next;
  return platform::kSuccess;
}

}  // namespace tessel
