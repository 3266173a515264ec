// The commands that the language has, by name.
#pragma once

#include <memory>
#include <type_traits>

#include "engine/command_description.h"
#include "engine/function_base.h"
#include "support/containers.h"
#include "support/string.h"

namespace tessel {

using FunctionFactory = std::unique_ptr<FunctionBase> (*)();

struct CommandRecord {
  FunctionFactory factory;
  FunctionKind kind;
  const CommandDescription* description;  // never null, and lives as long as the process
};

// Finds a command in the process's registry, by its exact name; null when there is none. The
// registry is filled by static initialisation and constant while scripts run.
const CommandRecord* FindCommand(cvn::StringView name);

// All commands, by name.
const cvn::Map<cvn::String, CommandRecord>& AllCommands();

// Adds a command. False, and no change, when the name is taken.
bool RegisterFunction(cvn::StringView name, const CommandRecord& record);

namespace internal {

template <typename Class>
std::unique_ptr<FunctionBase> Make() {
  return std::make_unique<Class>();
}

}  // namespace internal

// Registration by class: the kind follows from its base, so that the two can't disagree, and the
// description is the class's own `kDescription`, which needs no initialisation at run time.
template <typename Class>
bool RegisterCommand(cvn::StringView name) {
  FunctionKind kind = FunctionKind::Plain;
  if constexpr (std::is_base_of_v<FunctionRetError, Class>) {
    kind = FunctionKind::ErrorResult;
  } else if constexpr (std::is_base_of_v<FunctionRetBool, Class>) {
    kind = FunctionKind::BoolResult;
  } else if constexpr (std::is_base_of_v<FunctionRetExit, Class>) {
    kind = FunctionKind::ExitResult;
  }
  return RegisterFunction(name, {&internal::Make<Class>, kind, &Class::kDescription});
}

}  // namespace tessel
