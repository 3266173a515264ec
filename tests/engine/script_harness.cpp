#include "tests/engine/script_harness.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "support/utf.h"
#include "trace/trace.h"

namespace tessel::testing {
namespace {

constexpr AttributeDescription kFailAttributes[] = {
    {u"error", AttributeForm::Expanded, Presence::Required, u"The failure's text."},
    {u"times", AttributeForm::Number, Presence::Required, u"How many executions fail."},
};

class FunctionFail : public FunctionRetError {
 public:
  static constexpr CommandDescription kDescription = {.purpose = u"Fails.",
                                                      .attributes = kFailAttributes};

  bool Parse() override { return ReadAttribute(u"error", &text_) && ReadNumber(u"times", &times_); }
  void Execute() override {
    ++executions_;
    if (executions_ <= times_) {
      error = ExpandVariables(text_, variables);
      hasError = true;
    }
  }

 private:
  cvn::String text_;
  std::int32_t times_ = 0;
  std::int32_t executions_ = 0;
};

[[maybe_unused]] const bool kRegistered = RegisterCommand<FunctionFail>(u"fail");

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
