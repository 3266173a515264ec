// Commands as a script's elements stand for them: what the loader makes of an element, for those
// too who only judge a script.
#pragma once

#include <tinyxml.h>

#include <memory>
#include <span>
#include <string_view>

#include "engine/command_registry.h"
#include "engine/function_base.h"
#include "support/string.h"

namespace tessel {

inline constexpr const char* kOnErrorSpec = "onerrorspec";
inline constexpr const char* kOnError = "onerror";
inline constexpr const char* kOnSuccess = "onsuccess";
inline constexpr const char* kOnTrue = "onTrue";
inline constexpr const char* kOnFalse = "onFalse";

// The elements that a command of `kind` has as its handlers. Of onerrorspec there may be many; of
// the others the first counts.
std::span<const char* const> HandlerNames(FunctionKind kind);
// Whether `name` is among them.
bool HasHandler(FunctionKind kind, std::string_view name);

// Adds the element's attributes, and as `data` the text of its child of that name.
void CopyAttributes(const TiXmlElement& element, AttributeMap* attributes);

// Makes the command `name` of `record` from its element, with the element's attributes and the
// process's stores, ready for its Parse. Null when the factory gives none.
std::unique_ptr<FunctionBase> MakeCommand(const cvn::String& name, const CommandRecord& record,
                                          const TiXmlElement& element);

}  // namespace tessel
