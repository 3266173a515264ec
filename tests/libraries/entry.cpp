// A library of entry points, as a script calls them.

#include "tests/libraries/recorder.h"

extern "C" std::int32_t Succeed(std::int32_t number, const char16_t* text) {
  recorder::Record("Succeed %d '%s'", static_cast<int>(number), recorder::Narrow(text).text);
  return 0;
}

extern "C" std::int32_t GiveBack(std::int32_t number, const char16_t* /*text*/) { return number; }
