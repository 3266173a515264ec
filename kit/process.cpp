#include "kit/process.h"

#include "kit/text.h"

namespace kit {
namespace {

HANDLE abortEvent = nullptr;
HANDLE undoneEvent = nullptr;

BOOL WINAPI HandleControl(DWORD control) {
  ::SetEvent(abortEvent);
  if (control != CTRL_C_EVENT && control != CTRL_BREAK_EVENT) {
    ::WaitForSingleObject(undoneEvent, INFINITE);  // as long as Windows lets it
  }
  return TRUE;
}

// As the C library splits a command line.
std::wstring Quoted(const std::wstring& argument) {
  if (!argument.empty() && argument.find_first_of(L" \t\"") == argument.npos) {
    return argument;
  }
  std::wstring text = L"\"";
  std::size_t backslashes = 0;
  for (const wchar_t character : argument) {
    text.append(character == L'"' ? backslashes + 1 : 0, L'\\');
    backslashes = character == L'\\' ? backslashes + 1 : 0;
    text += character;
  }
  return text.append(backslashes, L'\\') + L'"';
}

// Changes the kit's own environment, which the next program gets, for as long as it lives.
class Environment {
 public:
  explicit Environment(const std::vector<std::pair<std::wstring, std::wstring>>& variables) {
    for (const auto& [name, value] : variables) {
      std::wstring old(32768, L'\0');
      old.resize(::GetEnvironmentVariableW(name.c_str(), old.data(), 32768));
      old_.emplace_back(name, old);
      ::SetEnvironmentVariableW(name.c_str(), value.c_str());
    }
  }
  ~Environment() {
    for (const auto& [name, value] : old_) {
      ::SetEnvironmentVariableW(name.c_str(), value.empty() ? nullptr : value.c_str());
    }
  }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

 private:
  std::vector<std::pair<std::wstring, std::wstring>> old_;
};

HANDLE OpenInherited(const wchar_t* path, DWORD access, DWORD disposition) {
  SECURITY_ATTRIBUTES attributes{sizeof attributes, nullptr, TRUE};
  return ::CreateFileW(path, access, FILE_SHARE_READ | FILE_SHARE_WRITE, &attributes, disposition,
                       0, nullptr);
}

// A job whose processes end with its handle.
HANDLE MakeJob() {
  const HANDLE job = ::CreateJobObjectW(nullptr, nullptr);
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  ::SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof limits);
  return job;
}

std::string WaitFor(HANDLE process, HANDLE job, DWORD seconds) {
  const HANDLE both[] = {process, abortEvent};
  const DWORD which = ::WaitForMultipleObjects(2, both, FALSE, seconds * 1000);
  if (which == WAIT_OBJECT_0) {
    return "";
  }
  ::TerminateJobObject(job, 1);
  ::WaitForSingleObject(process, 10000);
  return which == WAIT_OBJECT_0 + 1 ? "it was aborted"
                                    : "it didn't end in " + std::to_string(seconds) + " seconds";
}

std::string Start(const Command& command, STARTUPINFOW startup, DWORD* exitCode) {
  std::wstring line = Quoted(command.program);
  for (const std::wstring& argument : command.arguments) {
    line += L' ' + Quoted(argument);
  }
  const Environment environment(command.environment);
  PROCESS_INFORMATION process{};
  // A group of its own, so that Ctrl+C reaches the kit alone.
  if (::CreateProcessW(command.program.c_str(), line.data(), nullptr, nullptr, TRUE,
                       CREATE_SUSPENDED | CREATE_NEW_PROCESS_GROUP, nullptr, command.folder.c_str(),
                       &startup, &process) == 0) {
    return "it can't be started: error " + std::to_string(::GetLastError());
  }
  const HANDLE job = MakeJob();
  ::AssignProcessToJobObject(job, process.hProcess);
  ::ResumeThread(process.hThread);
  std::string fault = WaitFor(process.hProcess, job, command.seconds);
  ::GetExitCodeProcess(process.hProcess, exitCode);
  ::TerminateJobObject(job, 1);
  for (const HANDLE handle : {job, process.hThread, process.hProcess}) {
    ::CloseHandle(handle);
  }
  return fault;
}

}  // namespace

Ended Run(const Command& command) {
  if (IsAborted()) {
    return {"it was aborted", 0, "", ""};
  }
  const std::wstring paths[] = {command.folder + L"\\kit-out.txt",
                                command.folder + L"\\kit-err.txt"};
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = OpenInherited(L"NUL", GENERIC_READ, OPEN_EXISTING);
  startup.hStdOutput = OpenInherited(paths[0].c_str(), GENERIC_WRITE, CREATE_ALWAYS);
  startup.hStdError = OpenInherited(paths[1].c_str(), GENERIC_WRITE, CREATE_ALWAYS);
  Ended ended;
  ended.fault = Start(command, startup, &ended.exitCode);
  for (const HANDLE handle : {startup.hStdInput, startup.hStdOutput, startup.hStdError}) {
    ::CloseHandle(handle);
  }
  ended.out = ReadFile(paths[0]).value_or("");
  ended.err = ReadFile(paths[1]).value_or("");
  for (const std::wstring& path : paths) {
    RemoveTree(path);
  }
  return ended;
}

void HandleAborts() {
  abortEvent = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  undoneEvent = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  ::SetConsoleCtrlHandler(HandleControl, TRUE);
}

bool IsAborted() { return ::WaitForSingleObject(abortEvent, 0) == WAIT_OBJECT_0; }

void TellThatAllIsUndone() { ::SetEvent(undoneEvent); }

bool RunsUnderWine() {
  return ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

}  // namespace kit
