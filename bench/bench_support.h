// What the benches share.
#pragma once

#include <cstdlib>
#include <string>

#include "engine/script_engine.h"
#include "support/utf.h"
#include "trace/trace.h"

namespace tessel::bench {

// A folder for traces and patches, which bench/table.py makes and removes.
inline std::string WorkPath(const std::string& name) {
  const char* folder = std::getenv("TESSEL_BENCH_FOLDER");
  return std::string(folder == nullptr ? "/tmp" : folder) + "/" + name;
}

// A patch of the type that never expires, around the content of a script element.
inline std::string Patch(const std::string& body) {
  return "<patch version='1.0'><header><property name='patchType' "
         "value='update'/></header><script>" +
         body + "</script></patch>";
}

// Parses and loads a script; ends the bench on failure, since its figures would be meaningless.
inline void Prepare(ScriptEngine* engine, const std::string& document) {
  if (!engine->ParseText(cvn::Utf8ToWide(document)) ||
      engine->Load({}, [] { return false; }) != kLoadSuccess) {
    std::abort();
  }
}

}  // namespace tessel::bench
