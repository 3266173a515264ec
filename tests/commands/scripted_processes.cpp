#include "tests/commands/scripted_processes.h"

#include "support/format.h"
#include "support/utf.h"

namespace tessel::testing {
namespace {

constexpr std::uint32_t kFirstId = 100;
constexpr std::intptr_t kStarted = 1;  // the handle of a process that was started

ScriptedSystem scripted;

template <typename... Args>
void Note(cvn::StringView format, const Args&... args) {
  scripted.calls.push_back(cvn::WideToUtf8(cvn::Format(format, args...)));
}

ScriptedProcess& ProcessOf(std::uint32_t id) { return scripted.processes.at(id - kFirstId); }

platform::Code Outcome(platform::Code code) {
  if (code != platform::kSuccess) {
    platform::SetLastError(code);
  }
  return code;
}

}  // namespace

ScriptedSystem& ResetSystem() {
  scripted = ScriptedSystem();
  return scripted;
}

}  // namespace tessel::testing

namespace platform::process {

using namespace tessel::testing;  // NOLINT(google-build-using-namespace)

void Handle::Close() {
  scripted.openHandles -= IsOpen() ? 1 : 0;
  value_ = kNone;
}

Code Start(cvn::StringView commandLine, cvn::StringView directory, Handle* process) {
  Note(u"start [%s] [%s]", commandLine, directory);
  if (scripted.startCode == kSuccess) {
    ++scripted.openHandles;
    *process = Handle(kStarted);
  }
  return Outcome(scripted.startCode);
}

Code Open(std::uint32_t id, std::uint32_t access, Handle* process) {
  Note(u"open %d for %x", id, access);
  const Code code = ProcessOf(id).openCode;
  if (code == kSuccess) {
    ++scripted.openHandles;
    *process = Handle(static_cast<std::intptr_t>(id));
  }
  return Outcome(code);
}

std::uint32_t WaitForAll(std::span<const Handle> processes, std::uint32_t milliseconds) {
  Note(u"wait for %d, %u ms", processes.size(), milliseconds);
  std::uint32_t result = kSuccess;
  if (!scripted.waitResults.empty()) {
    result = scripted.waitResults.front();
    scripted.waitResults.erase(scripted.waitResults.begin());
  }
  return result;
}

std::uint32_t Wait(const Handle& process, std::uint32_t milliseconds) {
  return WaitForAll({&process, 1}, milliseconds);
}

Code Terminate(const Handle& process, std::uint32_t exitCode) {
  const auto id = static_cast<std::uint32_t>(process.Value());
  Note(u"terminate %d with %d", id, exitCode);
  ProcessOf(id).isEnded = ProcessOf(id).terminateCode == kSuccess;
  return Outcome(ProcessOf(id).terminateCode);
}

Code List(cvn::List<Entry>* entries, ListStep* failedStep) {
  *failedStep = ListStep::First;
  for (std::uint32_t id = kFirstId; id < kFirstId + scripted.processes.size(); ++id) {
    entries->push_back({id, 1, ProcessOf(id).executable});
  }
  return Outcome(scripted.listCode);
}

Code MainModulePath(std::uint32_t id, cvn::String* path) {
  *path = ProcessOf(id).modulePath;
  return path->Empty() ? Outcome(kAccessDenied) : kSuccess;
}

Code ImagePath(std::uint32_t /*id*/, cvn::String* /*path*/, ImageStep* /*failedStep*/) {
  return Outcome(kNotSupported);
}

cvn::String UserSid(std::uint32_t /*id*/) { return {}; }

Code Impersonate(cvn::StringView user, cvn::StringView domain, cvn::StringView password) {
  Note(u"impersonate %s\\%s with %s", domain, user, password);
  return Outcome(scripted.impersonateCode);
}

Code Revert() {
  Note(u"revert");
  return Outcome(scripted.revertCode);
}

}  // namespace platform::process
