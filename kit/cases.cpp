#include "kit/cases.h"

#include <windows.h>

#include <algorithm>
#include <filesystem>

#include "kit/case_text.h"
#include "kit/machine.h"
#include "kit/process.h"

namespace kit {
namespace {

namespace fs = std::filesystem;

std::wstring Parent(const std::wstring& path) { return path.substr(0, path.rfind(L'\\')); }

void MakeFolders(const std::wstring& path) {
  std::error_code error;
  fs::create_directories(path, error);
}

// One case on its way.
class CaseRun {
 public:
  CaseRun(const Kit& kit, std::wstring source, Case what)
      : kit_(kit),
        source_(std::move(source)),
        case_(std::move(what)),
        now_(std::time(nullptr)),
        traces_(ProgramData() + L"\\Tessera"),
        spool_(InstallFolder() + L"\\matrix\\events") {
    static int number = 0;
    // A name of its own: what somebody still holds in an earlier one disturbs nothing.
    folder_ = WorkFolder() + L"\\c" + std::to_wstring(++number);
    program_ = case_.program.empty() ? kit.folder + L"\\bin\\tessel.exe"
                                     : SystemFolder() + L"\\" + Wide(case_.program);
  }
  ~CaseRun() { RemoveTree(folder_); }
  CaseRun(const CaseRun&) = delete;
  CaseRun& operator=(const CaseRun&) = delete;

  Outcome Run() {
    if (!Exists(program_)) {
      return {"skipped", "this Windows has no " + Utf8(program_)};
    }
    std::string fault = Arrange();
    if (fault.empty() && !case_.load.empty()) {
      const long code = LoadHive(Wide(FillIn(case_.load)));
      fault = code == ERROR_SUCCESS ? "" : "RegLoadKey gives " + std::to_string(code);
    }
    if (fault.empty() && (!case_.arguments.empty())) {
      fault = Start();
    }
    if (fault.empty()) {
      fault = Compare();
    }
    if (!case_.load.empty()) {
      UnloadHive();
    }
    return {fault.empty() ? "passed" : "failed", fault};
  }

 private:
  std::string FillIn(const std::string& text) const { return FilledIn(text, Utf8(folder_), now_); }
  std::wstring PathOf(const std::string& text) const {
    std::wstring path = Wide(FillIn(text));
    std::replace(path.begin(), path.end(), L'/', L'\\');
    return path.find(L':') == path.npos ? folder_ + L"\\" + path : path;
  }

  // Runs tlx.
  std::string Tool(const std::vector<std::wstring>& arguments) const {
    const Ended ended = kit::Run({kit_.folder + L"\\bin\\tlx.exe", arguments, {}, WorkFolder()});
    return !ended.fault.empty()  ? "tlx: " + ended.fault
           : ended.exitCode != 0 ? Joined(LinesOf(ended.err), " ")
                                 : "";
  }

  std::string Arrange() {
    if (!CopyTree(source_ + L"\\files", folder_)) {
      return "its files can't be copied";
    }
    std::string fault;
    if (!case_.key.empty()) {
      const std::wstring script = WorkFolder() + L"\\script.xml";
      WriteFile(script, FillIn(ReadFile(source_ + L"\\script.xml").value_or("")));
      fault = Tool({L"pack", L"--force", L"--key", KeyFile(Wide(case_.key)), L"--in", script,
                    L"--out", folder_ + L"\\patch.tlx"});
    }
    if (fault.empty() && case_.isSigned && !RunsUnderWine()) {
      // What can't be signed is refused before anybody asks for a catalog.
      Tool({L"catalog", L"--force", L"--cert", KeyFile(L"publisher"), L"--key",
            kit_.folder + L"\\keys\\publisher.key", L"--chain", KeyFile(L"root"), L"--dir",
            folder_});
    }
    for (const std::string& line : case_.make) {
      fault = fault.empty() ? Make(line) : fault;
    }
    return fault.empty() && case_.isCopied ? CopyProduct() : fault;
  }

  std::wstring KeyFile(const std::wstring& name) const {
    return kit_.folder + L"\\keys\\" + name + L".pem";
  }

  std::string Make(const std::string& line) const {
    const std::size_t first = line.find('|');
    const std::size_t second = line.find('|', first + 1);
    const std::string kind = line.substr(0, first);
    const std::wstring path = PathOf(line.substr(first + 1, second - first - 1));
    const std::string text = line.substr(second + 1);
    MakeFolders(kind == "folder" ? path : Parent(path));
    bool isDone = kind == "folder";
    if (kind == "file") {
      isDone = WriteFile(path, text);
    } else if (kind == "read-only") {
      isDone = ::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY) != 0;
    } else if (kind == "link") {
      const std::wstring target = Wide(text);
      const DWORD flags = fs::is_directory(fs::path(Parent(path)) / target) ? 1 : 0;
      isDone = ::CreateSymbolicLinkW(path.c_str(), target.c_str(), flags) != 0;
    } else if (kind == "time") {
      isDone = SetTime(path, std::stoll(text));
    }
    return isDone ? "" : "'" + line + "' can't be made: error " + std::to_string(::GetLastError());
  }

  static bool SetTime(const std::wstring& path, long long seconds) {
    constexpr long long kTicks = 10'000'000;
    constexpr long long kTo1970 = 11'644'473'600;
    ULARGE_INTEGER ticks;
    ticks.QuadPart = static_cast<ULONGLONG>((seconds + kTo1970) * kTicks);
    const FILETIME time{ticks.LowPart, ticks.HighPart};
    const HANDLE file = ::CreateFileW(path.c_str(), FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ, nullptr,
                                      OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    const bool isDone = ::SetFileTime(file, nullptr, nullptr, &time) != 0;
    ::CloseHandle(file);
    return isDone;
  }

  std::string CopyProduct() {
    const std::wstring bin = folder_ + L"\\product\\bin";
    MakeFolders(bin);
    bool isDone = true;
    const auto copy = [&](const std::wstring& from, const std::wstring& to) {
      isDone = isDone && ::CopyFileW(from.c_str(), to.c_str(), FALSE) != 0;
    };
    copy(program_, bin + L"\\tessel.exe");
    for (const std::wstring& name : NamesIn(kit_.folder + L"\\bin", L"*.dll")) {
      copy(kit_.folder + L"\\bin\\" + name, bin + L"\\" + name);
    }
    for (const std::string& line : case_.libraries) {
      const std::size_t blank = line.find(' ');
      const std::wstring place = PathOf("product/bin/" + line.substr(0, blank));
      copy(kit_.folder + L"\\bin\\libraries\\" + Wide(line.substr(blank + 1)), place);
    }
    program_ = bin + L"\\tessel.exe";
    return isDone ? "" : "the product can't be copied";
  }

  std::string Start() {
    RemoveTree(traces_);
    RemoveTree(spool_);
    Command command{program_, {}, {}, folder_};
    for (const std::string& argument : case_.arguments) {
      command.arguments.push_back(Wide(FillIn(argument)));
    }
    for (const auto& [name, value] : case_.environment) {
      command.environment.emplace_back(Wide(name), Wide(FillIn(value)));
    }
    if (RunsUnderWine()) {
      HideCatalogsUnderWine(case_.isSigned);
    }
    ended_ = kit::Run(command);
    return ended_.fault;
  }

  std::string Compare() {
    if (case_.exitCode && static_cast<DWORD>(*case_.exitCode) != ended_.exitCode) {
      return "the exit code is " + std::to_string(static_cast<std::int32_t>(ended_.exitCode)) +
             ", not " + std::to_string(*case_.exitCode) + ": " +
             Joined(LinesOf(ended_.err + ended_.out), " | ");
    }
    for (const Expectation& expectation : case_.expected) {
      std::string fault = CompareOne(expectation);
      if (!fault.empty()) {
        return fault;
      }
    }
    return "";
  }

  std::string CompareOne(const Expectation& expectation) {
    const auto& [what, lines] = expectation;
    const std::size_t blank = what.find(' ');
    const std::string kind = what.substr(0, blank);
    if (what == "some of stdout") {
      return Lack(lines, Shown(ended_.out), what);
    }
    if (kind == "trace" || kind == "some") {
      return CompareTrace(expectation);
    }
    if (kind == "stdout") {
      return Differ(lines, Shown(ended_.out), kind);
    }
    if (kind == "stderr") {
      return Differ(lines, Shown(ended_.err), kind);
    }
    if (kind == "events") {
      return Differ(lines, Events(), kind);
    }
    if (kind == "hive") {
      return Differ(lines, TellHive(), kind);
    }
    const std::wstring path = PathOf(what.substr(blank + 1));
    if (!Exists(path)) {
      return what + " isn't there";
    }
    if (kind == "tree") {
      return Differ(lines, EntriesBelow(path), what);
    }
    const std::string content = ReadFile(path).value_or("");
    if (kind == "bytes") {
      return Hex(content) == lines.at(0) ? "" : what + " has " + Hex(content).substr(0, 200);
    }
    return Differ(lines, LinesOf(content.starts_with("\xef\xbb\xbf") ? content.substr(3) : content),
                  what);
  }

  Lines Shown(const std::string& output) const {
    Lines lines = LinesOf(output);
    for (std::string& line : lines) {
      line = Normalised(line, program_, folder_);
    }
    if (!case_.program.empty()) {
      std::erase(lines, "");
    }
    return WithoutGates(lines, kit_.gates);
  }

  std::string CompareTrace(const Expectation& expectation) const {
    const std::vector<std::wstring> names = NamesIn(traces_, L"*");
    const std::optional<Lines> lines =
        names.size() == 1 ? TraceLines(ReadFile(traces_ + L"\\" + names[0]).value_or(""))
                          : std::nullopt;
    if (!lines) {
      return "there are " + std::to_string(names.size()) + " traces, or one without its mark";
    }
    Lines told = *lines;
    for (std::string& line : told) {
      line = Normalised(line, program_, folder_);
    }
    return expectation.what == "some"
               ? Lack(expectation.lines, told, "trace")
               : Differ(expectation.lines, WithoutGates(told, kit_.gates), "trace");
  }

  // The oldest first.
  Lines Events() const {
    Lines texts;
    for (const std::wstring& name : NamesIn(spool_, L"*")) {
      texts.push_back(ReadFile(spool_ + L"\\" + name).value_or(""));
    }
    // The critical one, if there is one, comes before the end's.
    std::sort(texts.begin(), texts.end(), [](const std::string& left, const std::string& right) {
      return TellEvent(left) < TellEvent(right);
    });
    std::transform(texts.begin(), texts.end(), texts.begin(), TellEvent);
    return texts;
  }

  const Kit& kit_;
  const std::wstring source_;
  const Case case_;
  const std::time_t now_;
  const std::wstring traces_;
  const std::wstring spool_;
  std::wstring folder_;
  std::wstring program_;
  Ended ended_;
};

}  // namespace

Outcome RunCase(const Kit& kit, const std::string& row) {
  std::wstring source = kit.folder + L"\\cases\\" + Wide(row);
  std::replace(source.begin(), source.end(), L'/', L'\\');
  const std::optional<std::string> text = ReadFile(source + L"\\case.txt");
  if (!text) {
    return {"failed", "the kit has no such case"};
  }
  Case what = ParseCase(*text);
  if (!what.skip.empty()) {
    return {"skipped", what.skip};
  }
  if (!what.windows.empty() && RunsUnderWine()) {
    return {"skipped", what.windows};
  }
  if (!kit.isAdministrator) {
    return {"skipped", "it needs an administrator"};
  }
  return CaseRun(kit, source, std::move(what)).Run();
}

}  // namespace kit
