#include "tests/commands/stand_ins.h"

#include <algorithm>

#include "platform/process.h"
#include "support/format.h"
#include "support/utf.h"

namespace tessel::testing {
namespace {

constexpr std::uint32_t kFirstId = 0x100;

ScriptedSystem scripted;
std::map<std::string, int> counts;  // of calls, by their first words

// Takes down a call. Its code, which is the last error too when it is a failure.
template <typename... Args>
platform::Code Call(const char* word, cvn::StringView details = {}, const Args&... args) {
  const std::string all =
      word +
      (details.empty() ? "" : ' ' + std::string(cvn::WideToUtf8(cvn::Format(details, args...))));
  scripted.calls.push_back(all);
  for (const std::string& key :
       {std::string(word), word + (" #" + std::to_string(++counts[word])), all}) {
    const auto found = scripted.codes.find(key);
    if (found != scripted.codes.end()) {
      platform::SetLastError(found->second);
      return found->second;
    }
  }
  return platform::kSuccess;
}

// Gives a handle for a call's success.
template <typename Handle, typename Value>
platform::Code Give(platform::Code code, Value value, Handle* handle) {
  if (code == platform::kSuccess) {
    ++scripted.openHandles;
    *handle = Handle(value);
  }
  return code;
}

}  // namespace

std::vector<std::string> ScriptedSystem::Called(const std::string& word) const {
  std::vector<std::string> found;
  std::ranges::copy_if(calls, std::back_inserter(found),
                       [&](const std::string& call) { return call.starts_with(word); });
  return found;
}

ScriptedSystem& ResetSystem() {
  scripted = ScriptedSystem();
  counts.clear();
  return scripted;
}

}  // namespace tessel::testing

using namespace tessel::testing;  // NOLINT(google-build-using-namespace)

namespace platform::process {
namespace {

const ScriptedProcess& ProcessOf(std::uint32_t id) { return scripted.processes.at(id - kFirstId); }

}  // namespace

void Handle::Close() {
  scripted.openHandles -= IsOpen() ? 1 : 0;
  value_ = kNone;
}

std::uint32_t CurrentId() { return 1; }

Code Start(cvn::StringView /*commandLine*/, cvn::StringView /*directory*/, Handle* /*process*/) {
  return kNotSupported;
}

Code Open(std::uint32_t id, std::uint32_t access, Handle* process) {
  return Give(Call("process", u"%x %x", id, access), static_cast<std::intptr_t>(id), process);
}

std::uint32_t WaitForAll(std::span<const Handle> processes, std::uint32_t milliseconds) {
  return Call("wait", u"%x %x", processes.size(), milliseconds);
}

std::uint32_t Wait(const Handle& process, std::uint32_t milliseconds) {
  return WaitForAll({&process, 1}, milliseconds);
}

Code Terminate(const Handle& process, std::uint32_t exitCode) {
  return Call("terminate", u"%x %x", process.Value(), exitCode);
}

Code List(cvn::List<Entry>* entries, ListStep* failedStep) {
  *failedStep = ListStep::First;
  for (std::uint32_t id = kFirstId; id < kFirstId + scripted.processes.size(); ++id) {
    entries->push_back({id, 1, ProcessOf(id).executable});
  }
  return Call("list");
}

Code MainModulePath(std::uint32_t id, cvn::String* path) {
  *path = ProcessOf(id).modulePath;
  return path->Empty() ? kAccessDenied : kSuccess;
}

Code Impersonate(cvn::StringView user, cvn::StringView domain, cvn::StringView password) {
  return Call("impersonate", u"%s\\%s with %s", domain, user, password);
}

Code Revert() { return Call("revert"); }

}  // namespace platform::process

namespace platform::services {

void Handle::Close() {
  scripted.openHandles -= IsOpen() ? 1 : 0;
  value_ = 0;
}

Code OpenManager(std::uint32_t access, Handle* manager) {
  return Give(Call("manager", u"%x", access), std::uintptr_t{1}, manager);
}

Code Open(const Handle& /*manager*/, cvn::StringView name, std::uint32_t access, Handle* service) {
  return Give(Call("open", u"%s %x", name, access), std::uintptr_t{1}, service);
}

Code QueryState(const Handle& /*service*/, std::uint32_t* state) {
  const Code code = Call("query");
  if (code == kSuccess) {
    *state = scripted.states.front();
    if (scripted.states.size() > 1) {
      scripted.states.erase(scripted.states.begin());
    }
  }
  return code;
}

Code Start(const Handle& /*service*/) { return Call("start"); }

Code Stop(const Handle& /*service*/, std::uint32_t* state) {
  const Code code = Call("stop");
  if (code == kSuccess) {
    *state = scripted.stateToldByStop;
  }
  return code;
}

Code Create(const Handle& /*manager*/, const Config& /*config*/) { return Call("create"); }

Code Delete(const Handle& /*service*/) { return Call("remove"); }

}  // namespace platform::services
