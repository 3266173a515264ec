#include "kit/programs.h"

#include <algorithm>

#include "kit/process.h"

namespace kit {
namespace {

constexpr std::string_view kPrefix = "platform/";
constexpr DWORD kMostSeconds = 600;

// What can only be tried by an administrator.
constexpr std::string_view kAdministrators[] = {"LocalMachine", "Services", "ProgramsTest"};

// The outcomes that a program tells of, test by test, as it does for people. What stands between a
// test's start and its end is about it.
std::map<std::string, Outcome> ParseOutput(const std::string& output) {
  const std::pair<std::string_view, const char*> kEnds[] = {
      {"[       OK ] ", "passed"}, {"[  FAILED  ] ", "failed"}, {"[  SKIPPED ] ", "skipped"}};
  constexpr std::string_view kStart = "[ RUN      ] ";
  std::map<std::string, Outcome> outcomes;
  std::string running;
  Lines told;
  for (const std::string& line : LinesOf(output)) {
    if (line.starts_with(kStart)) {
      running = line.substr(kStart.size());
      told.clear();
      // What has no end is where the program came to its own.
      outcomes[running] = {"failed", "the program ended in it"};
      continue;
    }
    told.push_back(line);
    for (const auto& [start, what] : kEnds) {
      if (!running.empty() && line.starts_with(start)) {
        told.pop_back();
        outcomes[running] = {what, Joined(told, " ")};
        running.clear();
      }
    }
  }
  return outcomes;
}

}  // namespace

std::map<std::string, Outcome> RunPrograms(const Kit& kit, const Lines& rows,
                                           const std::wstring& folder) {
  std::map<std::string, Outcome> outcomes;
  std::string filter;
  for (const std::string& row : rows) {
    const std::string name = row.substr(kPrefix.size());
    const bool isRun =
        kit.isAdministrator ||
        std::none_of(std::begin(kAdministrators), std::end(kAdministrators),
                     [&](std::string_view part) { return name.find(part) != name.npos; });
    outcomes[row] = isRun ? Outcome{"failed", "no program has told of it"}
                          : Outcome{"skipped", "it needs an administrator"};
    if (isRun) {
      filter += (filter.empty() ? "" : ":") + name;
    }
  }
  // The programs look for this from where they are started, which is the source folder elsewhere.
  ::CreateDirectoryW((folder + L"\\platform").c_str(), nullptr);
  WriteFile(folder + L"\\platform\\files.h", "");
  for (const std::wstring& program : NamesIn(kit.folder + L"\\bin", L"*_test.exe")) {
    if (filter.empty()) {
      break;
    }
    const Ended ended = Run({kit.folder + L"\\bin\\" + program,
                             {L"--gtest_filter=" + Wide(filter), L"--gtest_color=no"},
                             {{L"TEMP", folder}, {L"TMP", folder}, {L"GTEST_OUTPUT", L""}},
                             folder,
                             kMostSeconds});
    for (auto& [name, outcome] : ParseOutput(ended.out)) {
      if (outcome.what == "failed" && !ended.fault.empty()) {
        outcome.detail += ": " + ended.fault;
      }
      outcomes[std::string(kPrefix) + name] = std::move(outcome);
    }
  }
  return outcomes;
}

}  // namespace kit
