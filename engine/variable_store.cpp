#include "engine/variable_store.h"

#include <optional>

#include "support/format.h"
#include "support/numbers.h"
#include "trace/trace.h"

namespace tessel {
namespace {

struct ArrayReference {
  cvn::StringView base;
  cvn::StringView index;
};

// "a[1]" is the shortest array form; "[ab]", "a[b" and "a[]" are ordinary names.
std::optional<ArrayReference> SplitArrayName(cvn::StringView name) {
  if (name.size() < 4 || name.back() != u']') {
    return std::nullopt;
  }
  const std::size_t bracket = name.find(u'[');
  if (bracket == cvn::StringView::npos || bracket == 0 || bracket + 2 >= name.size()) {
    return std::nullopt;
  }
  return ArrayReference{name.substr(0, bracket),
                        name.substr(bracket + 1, name.size() - bracket - 2)};
}

}  // namespace

cvn::String VariableStore::ElementKey(cvn::StringView index) {
  ++depth_;
  cvn::String key = ExpandVariables(index, this);
  --depth_;
  if (cvn::IsAllDigits(key)) {
    key = cvn::Format(u"%010d", cvn::ReadInt32(key));
  }
  return key;
}

cvn::String* VariableStore::Find(cvn::StringView name) {
  const auto array = SplitArrayName(name);
  if (!array) {
    const auto found = values_.find(name);
    return found == values_.end() ? nullptr : &found->second;
  }
  if (depth_ == kDeepestReference) {
    TraceLine(u"Array index is nested too deeply, the reference is left as it is.");
    return nullptr;
  }
  const cvn::String key = ElementKey(array->index);
  ArrayObject* elements = arrays_->FindArray(array->base);
  if (elements == nullptr) {
    return nullptr;
  }
  const auto found = elements->find(key);
  return found == elements->end() ? nullptr : &found->second;
}

cvn::String* VariableStore::FindOrAdd(cvn::StringView name) {
  const auto array = SplitArrayName(name);
  if (!array) {
    const auto found = values_.lower_bound(name);
    if (found != values_.end() && found->first == name) {
      return &found->second;
    }
    return &values_.emplace_hint(found, name, cvn::String())->second;
  }
  const cvn::String key = ElementKey(array->index);
  ArrayObject* elements = arrays_->FindOrAddArray(array->base);
  return elements == nullptr ? nullptr : &(*elements)[key];
}

ObjectStore& ProcessObjects() {
  static ObjectStore objects;
  return objects;
}

VariableStore& ProcessVariables() {
  static VariableStore variables(&ProcessObjects());
  return variables;
}

void SetVariable(cvn::StringView name, cvn::String value, VariableStore* variables) {
  cvn::String* slot = variables->FindOrAdd(name);
  if (slot != nullptr) {
    *slot = std::move(value);
  }
}

}  // namespace tessel
