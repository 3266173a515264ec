// What a case.txt says.
#pragma once

#include <ctime>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kit/text.h"

namespace kit {

struct Expectation {
  std::string what;
  Lines lines;
};

struct Case {
  std::string skip;     // why it is run nowhere
  std::string windows;  // why it isn't run under Wine
  std::string key;
  std::string program;  // of the system's folder; the product's without one
  std::string load;     // a hive
  bool isSigned = false;
  bool isCopied = false;  // the product, into the case's folder
  Lines arguments;
  Lines libraries;
  Lines make;
  std::vector<std::pair<std::string, std::string>> environment;
  std::optional<long> exitCode;
  std::vector<Expectation> expected;
};

Case ParseCase(const std::string& text);
// Replaces @DIR@, @PATCH@ and @NOW@, also with an offset as in @NOW-3d@.
std::string FilledIn(std::string text, const std::string& folder, std::time_t now);
// Without the lines about the gates, about reports, and where the patch lies.
Lines WithoutGates(const Lines& lines, const Lines& gates);
// A trace's lines without their stamps; those that have none begin with '~'.
std::optional<Lines> TraceLines(std::string_view trace);
// With placeholders for the folders and for pointers.
std::string Normalised(std::string line, const std::wstring& program, const std::wstring& folder);
// An event in a line, as spooled_events.py tells it.
std::string TellEvent(const std::string& json);

}  // namespace kit
