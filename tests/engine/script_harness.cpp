#include "tests/engine/script_harness.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "support/utf.h"
#include "trace/trace.h"

namespace tessel::testing {
namespace {

Lines ReadTrace(const std::filesystem::path& path) {
  constexpr std::size_t kStampLength = sizeof("2026-11-12 21:40:26.123 ") - 1;
  Lines lines;
  std::ifstream file(path, std::ios::binary);
  for (std::string line; std::getline(file, line);) {
    line.erase(line.find_last_not_of('\r') + 1);
    const std::size_t start = (lines.empty() ? 3 : 0) + kStampLength;
    if (line.size() >= start) {
      lines.push_back(line.substr(start));
    }
  }
  return lines;
}

}  // namespace

Lines ScriptOutcome::Ran() const {
  const auto from = std::ranges::find(trace, "Start executing");
  const auto to = std::find_if(from, trace.end(), [](const std::string& line) {
    return line.starts_with("Exit function") || line.starts_with("Freeing leak") ||
           line.starts_with("set trace file");
  });
  return {from == to ? to : from + 1, to};
}

std::string ScriptOutcome::Told() const {
  constexpr std::string_view kTraced = "Trace: ";
  std::string told;
  for (const std::string& line : trace) {
    told += line.starts_with(kTraced) ? line.substr(kTraced.size()) + "|" : "";
  }
  return told;
}

ScriptOutcome RunScript(const std::string& body,
                        const cvn::Map<cvn::String, cvn::String>& variables) {
  const auto path = std::filesystem::path(::testing::TempDir()) / "tessel_script_harness_trace.txt";
  std::filesystem::remove(path);
  OpenTraceFile(cvn::Utf8ToWide(path.string()));
  ScriptOutcome outcome;
  {
    ScriptEngine engine;
    if (engine.ParseText(cvn::Utf8ToWide(
            "<patch version='1.0'><header><property name='patchType' value='update'/></header>"
            "<script>" +
            body + "</script></patch>"))) {
      outcome.loadCode = engine.Load(variables, [] { return false; });
      if (outcome.loadCode == kLoadSuccess) {
        outcome.result = engine.Run();
      }
      engine.Reset();
    }
  }
  CloseTraceFile();
  outcome.trace = ReadTrace(path);
  std::filesystem::remove(path);
  return outcome;
}

std::string Repeat(std::string_view text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) {
    all += text;
  }
  return all;
}

}  // namespace tessel::testing
