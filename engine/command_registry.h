// The commands that the language has, by name.
#pragma once

#include <memory>
#include <type_traits>

#include "engine/function_base.h"
#include "support/string.h"

namespace tessel {

using FunctionFactory = std::unique_ptr<FunctionBase> (*)();

struct CommandRecord {
  FunctionFactory factory;
  FunctionKind kind;
};

// Finds a command in the process's registry, by its exact name; null when there is none. The
// registry is filled by static initialisation and constant while scripts run.
const CommandRecord* FindCommand(cvn::StringView name);

// Adds a command. False, and no change, when the name is taken.
bool RegisterFunction(cvn::StringView name, FunctionFactory factory, FunctionKind kind);

namespace internal {

template <typename Class>
std::unique_ptr<FunctionBase> Make() {
  return std::make_unique<Class>();
}

}  // namespace internal

// Registration by class: the kind follows from its base, so that the two can't disagree.
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
  return RegisterFunction(name, &internal::Make<Class>, kind);
}

}  // namespace tessel
