// Every command of the language, registered before the program's entry runs. A new command has its
// line here.
#include "commands/core/flow.h"
#include "commands/core/text.h"
#include "engine/command_registry.h"

namespace tessel {
namespace {

bool RegisterAllCommands() {
  RegisterCommand<FunctionExit>(u"exit");
  RegisterCommand<FunctionNothing>(u"nothing");
  RegisterCommand<FunctionGoTo>(u"goto");
  RegisterCommand<FunctionOnErrorGoTo>(u"onErrorGoTo");
  RegisterCommand<FunctionSleep>(u"sleep");
  RegisterCommand<FunctionTrace>(u"trace");
  RegisterCommand<FunctionTraceSetFile>(u"traceSetFile");
  RegisterCommand<FunctionAssign>(u"assign");
  RegisterCommand<FunctionAssignToken>(u"assignToken");
  RegisterCommand<FunctionAddInt>(u"addInt");
  RegisterCommand<FunctionAddString>(u"addString");
  RegisterCommand<FunctionStringDelete>(u"stringDelete");
  RegisterCommand<FunctionStringGet>(u"stringGet");
  RegisterCommand<FunctionStringTrim>(u"stringTrim");
  RegisterCommand<FunctionTest>(u"test");
  return true;
}

[[maybe_unused]] const bool kRegistered = RegisterAllCommands();

}  // namespace
}  // namespace tessel
