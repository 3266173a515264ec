// Open JSON documents, the handles to their values, and the language of paths.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace tessel {

class JsonDocument;

// One step from a value to one within it: into the member `name` when that isn't empty, else to the
// element `index`.
struct JsonStep {
  std::string name;
  Json::ArrayIndex index = 0;
  bool operator==(const JsonStep&) const = default;
};
using JsonRoute = std::vector<JsonStep>;  // from the root

// What an element handle holds: a value as long as it stands at its place in its document.
class JsonElementHandle {
 public:
  JsonElementHandle(const std::shared_ptr<JsonDocument>& document, Json::Value* value,
                    JsonRoute route);
  JsonElementHandle(const JsonElementHandle&) = delete;
  JsonElementHandle& operator=(const JsonElementHandle&) = delete;
  ~JsonElementHandle();

  // Null when the value or its document is gone.
  std::shared_ptr<JsonDocument> Document() const {
    return value_ == nullptr ? nullptr : document_.lock();
  }
  Json::Value* Value() const { return value_; }
  const JsonRoute& Route() const { return route_; }

 private:
  friend class JsonDocument;
  std::weak_ptr<JsonDocument> document_;
  Json::Value* value_;
  JsonRoute route_;
};

// A value in a document, and the way to it.
struct JsonPlace {
  std::shared_ptr<JsonDocument> document;
  Json::Value* value = nullptr;
  JsonRoute route;
};

class JsonDocument : public std::enable_shared_from_this<JsonDocument> {
 public:
  // No more steps than this lead to a value that is created; the library's recursion bears that
  // many, and the levels that its own reader allows below.
  static constexpr std::size_t kDeepestRoute = 3000;
  // No array is made longer than this by setting an element beyond its end.
  static constexpr Json::ArrayIndex kLongestGap = 1'000'000;

  Json::Value root;

  // Makes the handles dead that lead to what lies within the place, and, when `itself`, to it as
  // well.
  void Forget(const JsonRoute& route, bool itself);

 private:
  friend class JsonElementHandle;
  std::unordered_set<JsonElementHandle*> handles_;
};

// Walks `path` from `place`: names separated by '/' or '\', and indices in brackets, after which
// the next name follows without a separator. Creates what is missing when `create`, and makes an
// object of whatever stands in the way of a name. False when there is no such value, with nothing
// changed but what was created on the way.
bool WalkJson(std::string_view path, bool create, JsonPlace* place);

// Whether a walk along `path` can succeed in some document.
bool IsJsonPath(std::string_view path);

// Removes the member or the element at `path`, whose last part stands behind a slash; nothing when
// there is none.
void RemoveJson(std::string_view path, JsonPlace* place);

}  // namespace tessel
