#include "commands/documents/json_document.h"

#include <algorithm>
#include <utility>

#include "support/numbers.h"
#include "support/utf.h"

namespace tessel {
namespace {

constexpr std::string_view kSeparators = "/\\";

struct Segment {
  std::string name;
  std::int32_t index = -1;
};

// Takes the next segment off `path`. False for one that is empty or has no closing bracket.
bool TakeSegment(std::string_view* path, Segment* segment) {
  const std::size_t end = std::min(path->find_first_of("/\\["), path->size());
  segment->name = path->substr(0, end);
  segment->index = -1;
  path->remove_prefix(end);
  if (path->starts_with('[')) {
    const std::size_t close = path->find(']');
    if (close == std::string_view::npos) {
      return false;
    }
    segment->index = cvn::ReadInt32(cvn::Utf8ToWide(path->substr(1, close - 1)));
    path->remove_prefix(close + 1);
  } else if (!path->empty()) {
    path->remove_prefix(1);
  }
  return !segment->name.empty() || segment->index >= 0;
}

bool StepIntoMember(const std::string& name, bool create, JsonPlace* place) {
  if (!place->value->isObject()) {
    if (!create) {
      return false;
    }
    place->document->Forget(place->route, false);
    *place->value = Json::Value();
  } else if (!create && !place->value->isMember(name)) {
    return false;
  }
  place->value = &(*place->value)[name];
  place->route.push_back({name, 0});
  return true;
}

// True when setting element `index` of `value` (null for one that is yet to be made) is something
// the library can do, and no array grows out of proportion by it.
bool MaySetElement(const Json::Value* value, Json::ArrayIndex index) {
  const bool isArray = value != nullptr && value->isArray();
  const Json::ArrayIndex length = isArray ? value->size() : 0;
  const bool mayGrow = isArray || value == nullptr || value->isNull();
  return mayGrow && (index < length || index - length <= JsonDocument::kLongestGap);
}

// Looks ahead, so that a walk that can't create its way changes nothing. What is wrong with the
// path's own form is left to the walk.
bool MayCreate(std::string_view path, const JsonPlace& place) {
  const Json::Value* value = place.value;  // null where the walk will have created it
  std::size_t steps = place.route.size();
  Segment segment;
  while (!path.empty() && TakeSegment(&path, &segment)) {
    if (!segment.name.empty()) {
      value = value != nullptr && value->isObject() && value->isMember(segment.name)
                  ? &(*value)[segment.name]
                  : nullptr;
      ++steps;
    }
    if (segment.index >= 0) {
      const auto index = static_cast<Json::ArrayIndex>(segment.index);
      if (!MaySetElement(value, index)) {
        return false;
      }
      value = value != nullptr && value->isValidIndex(index) ? &(*value)[index] : nullptr;
      ++steps;
    }
  }
  return steps <= JsonDocument::kDeepestRoute;
}

bool StepToElement(Json::ArrayIndex index, bool create, JsonPlace* place) {
  if (!place->value->isArray() || !place->value->isValidIndex(index)) {
    if (!create) {
      return false;
    }
    (*place->value)[index] = Json::Value();
  }
  place->value = &(*place->value)[index];
  place->route.push_back({std::string(), index});
  return true;
}

// Removes an element and closes the gap.
void RemoveElement(JsonPlace* place, std::string_view leaf) {
  leaf.remove_prefix(std::min(leaf.find_first_not_of("[%"), leaf.size()));
  leaf = leaf.substr(0, leaf.find_last_not_of(']') + 1);
  const std::int32_t removed = cvn::ReadInt32(cvn::Utf8ToWide(leaf));
  if (removed < 0 || !place->value->isValidIndex(static_cast<Json::ArrayIndex>(removed))) {
    return;
  }
  place->document->Forget(place->route, false);
  Json::Value rest(Json::arrayValue);
  for (Json::ArrayIndex index = 0; index < place->value->size(); ++index) {
    if (index != static_cast<Json::ArrayIndex>(removed)) {
      rest.append(std::move((*place->value)[index]));
    }
  }
  *place->value = std::move(rest);
}

}  // namespace

JsonElementHandle::JsonElementHandle(const std::shared_ptr<JsonDocument>& document,
                                     Json::Value* value, JsonRoute route)
    : document_(document), value_(value), route_(std::move(route)) {
  document->handles_.insert(this);
}

JsonElementHandle::~JsonElementHandle() {
  if (const auto document = document_.lock()) {
    document->handles_.erase(this);
  }
}

void JsonDocument::Forget(const JsonRoute& route, bool itself) {
  for (JsonElementHandle* handle : handles_) {
    const JsonRoute& other = handle->route_;
    const bool within =
        other.size() >= route.size() && std::equal(route.begin(), route.end(), other.begin());
    if (within && (itself || other.size() > route.size())) {
      handle->value_ = nullptr;
    }
  }
}

bool IsJsonPath(std::string_view path) {
  path.remove_prefix(path.find_first_of(kSeparators) == 0 ? 1 : 0);
  Segment segment;
  while (!path.empty()) {
    if (!TakeSegment(&path, &segment)) {
      return false;
    }
  }
  return true;
}

bool WalkJson(std::string_view path, bool create, JsonPlace* place) {
  if (place->value == nullptr) {
    return false;
  }
  if (path.empty()) {
    return true;
  }
  path.remove_prefix(path.find_first_of(kSeparators) == 0 ? 1 : 0);
  if (create && !MayCreate(path, *place)) {
    return false;
  }
  while (!path.empty()) {
    Segment segment;
    if (!TakeSegment(&path, &segment)) {
      return false;
    }
    if (!segment.name.empty() && !StepIntoMember(segment.name, create, place)) {
      return false;
    }
    if (segment.index >= 0 &&
        !StepToElement(static_cast<Json::ArrayIndex>(segment.index), create, place)) {
      return false;
    }
  }
  return create || !place->value->isNull();
}

void RemoveJson(std::string_view path, JsonPlace* place) {
  const std::size_t slash = path.rfind('/');
  // Without a slash the whole path is both: what holds the leaf, and the leaf.
  const std::string_view parent = slash == std::string_view::npos ? path : path.substr(0, slash);
  const std::string_view leaf = slash == std::string_view::npos ? path : path.substr(slash + 1);
  if (leaf.empty() || !WalkJson(parent, false, place)) {
    return;
  }
  // What is neither array nor object holds nothing to remove, and the library would fail on it.
  if (place->value->isArray()) {
    RemoveElement(place, leaf);
  } else if (place->value->isObject()) {
    JsonRoute route = place->route;
    route.push_back({std::string(leaf), 0});
    place->document->Forget(route, true);
    place->value->removeMember(std::string(leaf));
  }
}

}  // namespace tessel
