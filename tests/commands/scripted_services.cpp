#include "tests/commands/scripted_services.h"

#include <algorithm>

#include "support/format.h"
#include "support/utf.h"

namespace tessel::testing {
namespace {

constexpr std::uintptr_t kManager = 1;
constexpr std::uintptr_t kService = 2;

ScriptedServices script;

// Takes down a call; its code, which is the last error too when it is a failure.
platform::Code Call(const std::string& name, const std::string& details = {}) {
  script.calls.push_back(name + details);
  const std::string numbered = name + ' ' + std::to_string(script.Count(name));
  for (const std::string& key : {name, numbered}) {
    const auto found = script.codes.find(key);
    if (found != script.codes.end()) {
      platform::SetLastError(found->second);
      return found->second;
    }
  }
  return platform::kSuccess;
}

std::string Hex(std::uint32_t number) { return cvn::WideToUtf8(cvn::Format(u" %x", number)); }

}  // namespace

int ScriptedServices::Count(const std::string& call) const {
  return static_cast<int>(std::ranges::count(calls, call));
}

ScriptedServices& ResetServices() {
  script = ScriptedServices();
  return script;
}

}  // namespace tessel::testing

namespace platform::services {

using tessel::testing::Call;
using tessel::testing::script;

void Handle::Close() {
  if (IsOpen()) {
    IgnoreError(Call(value_ == tessel::testing::kManager ? "close manager" : "close service"));
  }
  value_ = 0;
}

Code OpenManager(std::uint32_t access, Handle* manager) {
  const Code code = Call("manager", tessel::testing::Hex(access));
  if (code == kSuccess) {
    *manager = Handle(tessel::testing::kManager);
  }
  return code;
}

Code Open(const Handle& /*manager*/, cvn::StringView name, std::uint32_t access, Handle* service) {
  const Code code =
      Call("open", ' ' + std::string(cvn::WideToUtf8(name)) + tessel::testing::Hex(access));
  if (code == kSuccess) {
    *service = Handle(tessel::testing::kService);
  }
  return code;
}

Code QueryState(const Handle& /*service*/, std::uint32_t* state) {
  const Code code = Call("query");
  if (code == kSuccess) {
    *state = script.states.front();
    if (script.states.size() > 1) {
      script.states.erase(script.states.begin());
    }
  }
  return code;
}

Code QueryConfig(const Handle& /*service*/, Config* config) {
  *config = script.created;
  return kSuccess;
}

Code Start(const Handle& /*service*/) { return Call("start"); }

Code Stop(const Handle& /*service*/, std::uint32_t* state) {
  const Code code = Call("stop");
  if (code == kSuccess) {
    *state = script.stateToldByStop;
  }
  return code;
}

Code Create(const Handle& /*manager*/, const Config& config) {
  script.created = config;
  return Call("create");
}

Code Delete(const Handle& /*service*/) { return Call("delete"); }

}  // namespace platform::services
