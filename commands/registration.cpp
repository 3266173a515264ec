// Every command of the language, registered before the program's entry runs. A new command has its
// line here.
#include "commands/core/flow.h"
#include "commands/core/text.h"
#include "commands/documents/ini.h"
#include "commands/documents/json.h"
#include "commands/documents/xml.h"
#include "commands/system/directories.h"
#include "commands/system/files.h"
#include "commands/system/processes.h"
#include "commands/system/product.h"
#include "commands/system/registry.h"
#include "commands/system/services.h"
#include "commands/system/signatures.h"
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
  RegisterCommand<FunctionXmlOpen>(u"xmlOpen");
  RegisterCommand<FunctionXmlClose>(u"xmlClose");
  RegisterCommand<FunctionXmlSave>(u"xmlSave");
  RegisterCommand<FunctionXmlAddChild>(u"xmlAddChild");
  RegisterCommand<FunctionXmlRemoveChild>(u"xmlRemoveChild");
  RegisterCommand<FunctionXmlSetValue>(u"xmlSetValue");
  RegisterCommand<FunctionXmlSetCDataValue>(u"xmlSetCDataValue");
  RegisterCommand<FunctionXmlGetValue>(u"xmlGetValue");
  RegisterCommand<FunctionXmlGetElement>(u"xmlGetElement");
  RegisterCommand<FunctionJsonOpen>(u"jsonOpen");
  RegisterCommand<FunctionJsonClose>(u"jsonClose");
  RegisterCommand<FunctionJsonSave>(u"jsonSave");
  RegisterCommand<FunctionJsonAddChild>(u"jsonAddChild");
  RegisterCommand<FunctionJsonRemoveChild>(u"jsonRemoveChild");
  RegisterCommand<FunctionJsonSetStringValue>(u"jsonSetStringValue");
  RegisterCommand<FunctionJsonSetIntValue>(u"jsonSetIntValue");
  RegisterCommand<FunctionJsonSetBoolValue>(u"jsonSetBoolValue");
  RegisterCommand<FunctionJsonGetValue>(u"jsonGetValue");
  RegisterCommand<FunctionJsonGetElement>(u"jsonGetElement");
  RegisterCommand<FunctionIniGetValue>(u"iniGetValue");
  RegisterCommand<FunctionIniSetValue>(u"iniSetValue");
  RegisterCommand<FunctionFileExists>(u"fileExists");
  RegisterCommand<FunctionFileCopySingle>(u"fileCopySingle");
  RegisterCommand<FunctionFileDownload>(u"fileDownload");
  RegisterCommand<FunctionFileMoveSingle>(u"fileMove");
  RegisterCommand<FunctionFileMoveSingle>(u"dirMove");
  RegisterCommand<FunctionFileCopyPattern>(u"fileCopyPattern");
  RegisterCommand<FunctionFileDeletePattern>(u"fileDeletePattern");
  RegisterCommand<FunctionFileCreate>(u"fileCreate");
  RegisterCommand<FunctionFileFind>(u"fileFind");
  RegisterCommand<FunctionFileIsSigned>(u"fileIsSigned");
  RegisterCommand<FunctionDirExists>(u"dirExists");
  RegisterCommand<FunctionDirCreate>(u"dirCreate");
  RegisterCommand<FunctionDirFind>(u"dirFind");
  RegisterCommand<FunctionDirCopyRecursive>(u"dirCopyRec");
  RegisterCommand<FunctionDirDeleteRecursive>(u"dirDeleteRec");
  RegisterCommand<FunctionRegRead>(u"regRead");
  RegisterCommand<FunctionRegGetKeys>(u"regGetKeys");
  RegisterCommand<FunctionRegGetValues>(u"regGetValues");
  RegisterCommand<FunctionRegWrite>(u"regWrite");
  RegisterCommand<FunctionRegExistsKey>(u"regExistsKey");
  RegisterCommand<FunctionRegCreateKey>(u"regCreateKey");
  RegisterCommand<FunctionRegDeleteKey>(u"regDeleteKey");
  RegisterCommand<FunctionRegDeleteValue>(u"regDeleteValue");
  RegisterCommand<FunctionProcessStart>(u"processRun");
  RegisterCommand<FunctionProcessWait>(u"processWait");
  RegisterCommand<FunctionProcessKill>(u"processKill");
  RegisterCommand<FunctionProcessImpersonateUser>(u"processImpersonateUser");
  RegisterCommand<FunctionProcessRevertToSelf>(u"processRevertToSelf");
  RegisterCommand<FunctionProcessEntrypoint>(u"processEntrypoint");
  RegisterCommand<FunctionServiceStart>(u"serviceStart");
  RegisterCommand<FunctionServiceStop>(u"serviceStop");
  RegisterCommand<FunctionServiceDelete>(u"serviceDelete");
  RegisterCommand<FunctionServiceCreate>(u"serviceCreate");
  RegisterCommand<FunctionServiceInstalled>(u"serviceInstalled");
  RegisterCommand<FunctionServiceRunning>(u"serviceRunning");
  RegisterCommand<FunctionAmStart>(u"amStart");
  RegisterCommand<FunctionAmStop>(u"amStop");
  RegisterCommand<FunctionApplyHqPolicies>(u"applyHqPolicies");
  return true;
}

[[maybe_unused]] const bool kRegistered = RegisterAllCommands();

}  // namespace
}  // namespace tessel
