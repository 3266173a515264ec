// Checks a real Windows by the rows that the kit holds, writes a report, and leaves that Windows as
// it was.
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iostream>

#include "kit/cases.h"
#include "kit/machine.h"
#include "kit/process.h"
#include "kit/programs.h"
#include "kit/report.h"

namespace kit {
namespace {

enum ExitCode { kAllPassed = 0, kSomeFailed = 1, kNotChecked = 2 };

constexpr char kUsage[] =
    "Usage: check.cmd [/yes] [/only PATTERN] [/report FOLDER] | /undo | /help\n"
    "\n"
    "Checks how this Windows answers to Tessel, and writes windows-report.txt to send back.\n"
    "\n"
    "  /yes            don't ask before anything is changed\n"
    "  /only PATTERN   only rows whose names match, such as scripts/* or tools/*\n"
    "  /report FOLDER  where to write the report; otherwise the kit's folder or, when\n"
    "                  that is read-only, your own\n"
    "  /undo           only take back what an interrupted check has left\n"
    "  /help           show this text\n"
    "\n"
    "Exit codes: 0 all that ran has passed, 1 something failed, 2 it could not be checked.\n";

constexpr char kAnnouncement[] =
    "For as long as it runs, this check\n"
    "  - has this computer trust a test authority, whose key is in this kit\n"
    "  - makes the folders TesselKit and Tessera in ProgramData, and Ambry Shield in\n"
    "    Program Files\n"
    "  - makes keys and services whose names begin with Tessel or Example, and an\n"
    "    uninstall key for Ambry Shield\n"
    "  - loads hives below HKEY_LOCAL_MACHINE\\TesselHive\n"
    "At its end, or when you press Ctrl+C, all of that is removed. After a crash or a loss\n"
    "of power run check.cmd /undo; the next check does that first as well.\n";

struct Options {
  bool isSure = false;
  bool isUndo = false;
  bool isHelp = false;
  std::string only = "*";
  std::wstring report;
};

bool ParseOptions(int argc, wchar_t** argv, Options* options) {
  for (int i = 1; i < argc; ++i) {
    const std::wstring word = argv[i];
    const bool hasValue = i + 1 < argc;
    if (word == L"/yes") {
      options->isSure = true;
    } else if (word == L"/undo") {
      options->isUndo = true;
    } else if (word == L"/help" || word == L"/?") {
      options->isHelp = true;
    } else if (word == L"/only" && hasValue) {
      options->only = Utf8(argv[++i]);
    } else if (word == L"/report" && hasValue) {
      options->report = argv[++i];
    } else {
      std::cout << "'" << Utf8(word) << "' is not understood.\n\n" << kUsage;
      return false;
    }
  }
  return true;
}

struct Contents {
  Kit kit;
  std::string version;
  std::time_t expires = 0;
  Lines rows;
};

bool ReadContents(const std::string& only, Contents* contents) {
  std::wstring path(32768, L'\0');
  path.resize(::GetModuleFileNameW(nullptr, path.data(), 32768));
  contents->kit.folder = path.substr(0, path.rfind(L'\\'));
  contents->kit.isAdministrator = IsAdministrator();
  const auto text = ReadFile(contents->kit.folder + L"\\kit.txt");
  if (!text || !Exists(contents->kit.folder + L"\\cases")) {
    std::cout << "The rest of the kit isn't beside this program. Unpack the whole ZIP first\n"
                 "(right-click it, Extract All), and run check.cmd in the new folder.\n";
    return false;
  }
  for (const std::string& line : LinesOf(*text)) {
    const std::size_t blank = line.find(' ');
    const std::string word = line.substr(0, blank);
    const std::string rest = line.substr(blank + 1);
    if (word == "version") {
      contents->version = rest;
    } else if (word == "expires") {
      contents->expires = std::stoll(rest);
    } else if (word == "gate") {
      contents->kit.gates.push_back(rest);
    } else if (word == "row" && Matches(only, rest)) {
      contents->rows.push_back(rest);
    }
  }
  if (contents->rows.empty()) {
    std::cout << "No row is named " << only << ".\n";
  } else if (contents->expires < std::time(nullptr)) {
    std::cout << "This kit's certificates have expired, or this computer's clock is wrong. Ask for "
                 "a new kit.\n";
  } else {
    return true;
  }
  return false;
}

void Show(const Lines& lines) {
  for (const std::string& line : lines) {
    std::cout << "  " << line << "\n";
  }
}

bool UndoAll() {
  const Lines left = Undo();
  if (!left.empty()) {
    std::cout << "This could not be removed; restart Windows and run check.cmd /undo:\n";
    Show(left);
  }
  return left.empty();
}

// What an interrupted check has left is removed; what nobody knows of stops this one.
bool CleanUpBefore(bool isUndo) {
  if (IsMarked()) {
    std::cout << "An earlier check was interrupted. Removing what it left.\n";
    return UndoAll();
  }
  const Lines found = FindTraces();
  if (found.empty()) {
    if (isUndo) {
      std::cout << "There is nothing to undo.\n";
    }
    return true;
  }
  std::cout << "This was there before any check, so it stays, and nothing is checked here:\n";
  Show(found);
  std::cout << "Run the kit on a computer without the product and without these.\n";
  return false;
}

bool IsAgreed(const Options& options) {
  std::cout << kAnnouncement;
  if (options.isSure) {
    return true;
  }
  std::cout << "Type yes to go on: " << std::flush;
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "yes" && !IsAborted();
}

void RunRows(const Contents& contents, const std::wstring& folder, Outcomes* outcomes) {
  Lines programs;
  std::copy_if(contents.rows.begin(), contents.rows.end(), std::back_inserter(programs),
               [](const std::string& row) { return row.starts_with("platform/"); });
  if (!programs.empty()) {
    std::cout << "the platform's tests\n" << std::flush;
    *outcomes = RunPrograms(contents.kit, programs, folder);
  }
  for (const std::string& row : contents.rows) {
    if (IsAborted()) {
      return;
    }
    if (!row.starts_with("platform/")) {
      std::cout << row << "\n" << std::flush;
      outcomes->insert({row, RunCase(contents.kit, row)});
    }
  }
}

int TellOutcomes(const Contents& contents, const Options& options, const Outcomes& outcomes) {
  std::map<std::string, int> counts;
  for (const auto& [row, outcome] : outcomes) {
    ++counts[outcome.what];
    if (outcome.what == "failed") {
      std::cout << "FAILED  " << row << ": " << outcome.detail << "\n";
    }
  }
  wchar_t own[MAX_PATH] = L"";
  ::GetEnvironmentVariableW(L"USERPROFILE", own, MAX_PATH);
  const std::wstring path =
      WriteReport(contents.kit, contents.version, outcomes,
                  options.report.empty() ? std::vector<std::wstring>{contents.kit.folder, own}
                                         : std::vector<std::wstring>{options.report});
  std::cout << "\n"
            << counts["passed"] << " passed, " << counts["failed"] << " failed, "
            << counts["skipped"] << " skipped\n";
  if (path.empty()) {
    std::cout << "The report can't be written: name a folder by /report FOLDER.\n";
    return kNotChecked;
  }
  std::cout << "Please send back this file: " << Utf8(path) << "\n";
  return counts["failed"] == 0 ? kAllPassed : kSomeFailed;
}

int CheckAsAdministrator(const Contents& contents, const Options& options) {
  if (!CleanUpBefore(false)) {
    return kNotChecked;
  }
  if (!IsAgreed(options)) {
    std::cout << "Nothing was changed.\n";
    return kNotChecked;
  }
  std::string fault;
  Outcomes outcomes;
  if (Prepare(contents.kit.folder + L"\\keys\\root.pem", &fault)) {
    RunRows(contents, WorkFolder(), &outcomes);
  } else {
    std::cout << fault << "\n";
  }
  const bool isUndone = UndoAll();
  if (isUndone) {
    std::cout << "All that the check made is removed.\n";
  }
  if (!fault.empty() || IsAborted() || !isUndone) {
    return kNotChecked;
  }
  return TellOutcomes(contents, options, outcomes);
}

int CheckAsUser(const Contents& contents, const Options& options) {
  std::cout << "This isn't an administrator's console: only some tests of the platform can run, "
               "and all else is\n"
               "skipped. For the rest, right-click check.cmd and choose 'Run as administrator'.\n";
  wchar_t temporary[MAX_PATH] = L"";
  ::GetTempPathW(MAX_PATH, temporary);
  const std::wstring folder = temporary + std::wstring(L"TesselKit");
  RemoveTree(folder);
  ::CreateDirectoryW(folder.c_str(), nullptr);
  Outcomes outcomes;
  RunRows(contents, folder, &outcomes);
  RemoveTree(folder);
  return IsAborted() ? static_cast<int>(kNotChecked) : TellOutcomes(contents, options, outcomes);
}

int Check(const Options& options) {
  if (options.isUndo) {
    if (!IsAdministrator()) {
      std::cout << "This needs an administrator: right-click check.cmd, 'Run as administrator'.\n";
      return kNotChecked;
    }
    return CleanUpBefore(true) ? kAllPassed : kNotChecked;
  }
  Contents contents;
  if (!ReadContents(options.only, &contents)) {
    return kNotChecked;
  }
  return contents.kit.isAdministrator ? CheckAsAdministrator(contents, options)
                                      : CheckAsUser(contents, options);
}

int Main(int argc, wchar_t** argv) {
  ::SetConsoleOutputCP(CP_UTF8);
  Options options;
  if (!ParseOptions(argc, argv, &options) || options.isHelp) {
    std::cout << (options.isHelp ? kUsage : "");
    return options.isHelp ? kAllPassed : kNotChecked;
  }
  // A second check would take away what the first one works with.
  const HANDLE mutex = ::CreateMutexW(nullptr, TRUE, L"Global\\TesselKit");
  if (mutex == nullptr || ::GetLastError() == ERROR_ALREADY_EXISTS) {
    std::cout << "Another check is running on this computer.\n";
    return kNotChecked;
  }
  HandleAborts();
  const int code = Check(options);
  if (IsAborted()) {
    std::cout << "The check was aborted.\n";
  }
  TellThatAllIsUndone();
  ::CloseHandle(mutex);
  return code;
}

}  // namespace
}  // namespace kit

extern "C" int wmain(int argc, wchar_t** argv) { return kit::Main(argc, argv); }
