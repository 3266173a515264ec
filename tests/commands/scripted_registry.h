// A registry in the test's hands, linked in place of the platform's: it holds what a real one
// doesn't let in, and fails where it is told to.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "platform/registry.h"

namespace tessel::testing {

struct ScriptedValue {
  cvn::String name;
  std::uint32_t type;
  std::vector<std::byte> data;
};

struct ScriptedKey {
  cvn::String name;
  std::vector<ScriptedKey*> subKeys;
  std::vector<ScriptedValue> values;
  // What these give of the key, when it isn't success.
  platform::Code openCode = platform::kSuccess;
  platform::Code infoCode = platform::kSuccess;
  platform::Code deleteCode = platform::kSuccess;
  platform::Code nameCode = platform::kSuccess;  // of the enumeration in its parent
  // What was asked for it.
  std::vector<std::uint32_t> accesses;
  bool isVolatile = false;

  ScriptedKey* Add(cvn::StringView subKey);
  void AddValue(cvn::StringView value, std::uint32_t type, std::string_view data);
};

// Forgets everything; the key that all roots now are.
ScriptedKey* ResetRegistry();
// How many keys are open.
int OpenKeys();

}  // namespace tessel::testing
