#include "engine/function_base.h"

#include <algorithm>

#include "engine/command_description.h"
#include "platform/error.h"
#include "support/format.h"
#include "trace/trace.h"

namespace tessel {
namespace {

bool HasSmallerName(const AttributeMap::Entry& entry, cvn::StringView name) {
  return entry.first < name;
}

}  // namespace

void AttributeMap::Add(cvn::StringView name, cvn::String value) {
  const auto place = std::lower_bound(entries_.begin(), entries_.end(), name, HasSmallerName);
  if (place == entries_.end() || place->first != name) {
    entries_.emplace(place, name, std::move(value));
  }
}

const cvn::String* AttributeMap::Find(cvn::StringView name) const {
  const auto place = std::lower_bound(entries_.begin(), entries_.end(), name, HasSmallerName);
  return place != entries_.end() && place->first == name ? &place->second : nullptr;
}

FunctionBase::~FunctionBase() {
  parent = nullptr;
  for (auto tail = std::move(next); tail != nullptr;) {
    tail = std::move(tail->next);
  }
}

bool FunctionBase::Parse(const CommandDescription& description) {
  const auto isLoaded = [this](const AttributeDescription& attribute) {
    return LoadAttribute(attribute, attributes, this) == AttributeFault::None;
  };
  return std::ranges::all_of(description.attributes, isLoaded);
}

AttributeFault LoadAttribute(const AttributeDescription& attribute, const AttributeMap& attributes,
                             FunctionBase* command) {
  const cvn::String* value = attributes.Find(attribute.name);
  if (value == nullptr && attribute.presence != Presence::Optional) {
    return AttributeFault::Missing;
  }
  if (value != nullptr && value->Empty() && attribute.presence == Presence::NonEmpty) {
    return AttributeFault::Empty;
  }
  const cvn::StringView text = value == nullptr ? attribute.fallback : value->AsView();
  const bool isLoaded = attribute.load == nullptr || attribute.load(attribute, text, command);
  return isLoaded ? AttributeFault::None : AttributeFault::Unusable;
}

void FunctionRetError::ReportCode(std::uint32_t code) {
  if (code == platform::kCantAccessFile) {
    TraceLine(
        u"Windows keeps the file in a form that can't be read here: compressed, deduplicated, or "
        u"in the cloud.");
  }
  if (code != 0) {
    error = cvn::Format(u"%d", static_cast<std::int32_t>(code));
    hasError = true;
  }
}

void FunctionRetError::TraceEnd(cvn::StringView word) const {
  TraceLine(u"%s function end with %s. err:'%s'", word, hasError ? u"error" : u"success", error);
}

void FunctionRetBool::TraceEnd(cvn::StringView word) const {
  TraceLine(u"%s function end with %s.", word, result ? u"True" : u"False");
}

}  // namespace tessel
