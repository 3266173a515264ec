// Script text to command tree, with every command of the language. Nothing is run.
#include "engine/script_engine.h"
#include "fuzz/input.h"
#include "support/utf.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const cvn::String text = cvn::Utf8ToWide(tessel::fuzz::Input(data, size).Rest());
  tessel::ScriptEngine engine;
  if (engine.ParseText(text)) {
    engine.Load({}, [] { return false; });
    engine.Reset();
  }
  return 0;
}
