#include "tests/engine/script_harness.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "engine/command_declaration.h"
#include "support/utf.h"
#include "trace/trace.h"

namespace tessel::testing {
namespace {

struct FunctionFail : FunctionRetError {
  void Execute() override {
    ++executions;
    if (executions <= times) {
      error = ExpandVariables(text, variables);
      hasError = true;
    }
  }

  cvn::String text;
  std::int32_t times;
  std::int32_t executions = 0;
};

constexpr AttributeDescription kFailAttributes[] = {
    Expanded<&FunctionFail::text>(u"error", Presence::Required, u"The failure's text."),
    Number<&FunctionFail::times>(u"times", Presence::Required, u"How many executions fail."),
};

constexpr CommandDescription kFail = {.purpose = u"Fails.", .attributes = kFailAttributes};
constexpr CommandRecord kCommands[] = {Command<FunctionFail>(u"fail", kFail)};
constexpr CommandFamily kFamily = {.title = u"Tests", .introduction = {}, .commands = kCommands};

[[maybe_unused]] const bool kRegistered = RegisterFamily(kFamily);

std::vector<std::string> ReadTrace(const std::filesystem::path& path) {
  constexpr std::size_t kStampLength = sizeof("2026-11-12 21:40:26.123 ") - 1;
  std::vector<std::string> lines;
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

bool ScriptOutcome::Traced(const std::string& line) const {
  return std::find(trace.begin(), trace.end(), line) != trace.end();
}

int ScriptOutcome::Count(const std::string& start) const {
  return static_cast<int>(std::count_if(trace.begin(), trace.end(), [&](const std::string& line) {
    return line.starts_with(start);
  }));
}

ScriptOutcome RunScript(const std::string& body,
                        const cvn::Map<cvn::String, cvn::String>& variables) {
  return RunDocument(
      "<patch version='1.0'><header><property name='patchType' value='update'/></header><script>" +
          body + "</script></patch>",
      variables);
}

ScriptOutcome RunDocument(const std::string& document,
                          const cvn::Map<cvn::String, cvn::String>& variables) {
  const auto path = std::filesystem::path(::testing::TempDir()) / "tessel_script_harness_trace.txt";
  std::filesystem::remove(path);
  OpenTraceFile(cvn::Utf8ToWide(path.string()));
  ScriptOutcome outcome;
  {
    ScriptEngine engine;
    outcome.parsed = engine.ParseText(cvn::Utf8ToWide(document));
    if (outcome.parsed) {
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

}  // namespace tessel::testing
