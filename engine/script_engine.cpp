#include "engine/script_engine.h"

#include "engine/builtin_variables.h"
#include "engine/xml_text.h"
#include "platform/registry.h"
#include "platform/stop_request.h"
#include "trace/trace.h"

namespace tessel {
namespace {

// What follows `command` when no handler is entered: the next of its list, else what follows its
// nearest ancestor that has a successor.
FunctionBase* InSequence(const FunctionBase& command) {
  for (const FunctionBase* at = &command; at != nullptr; at = at->parent) {
    if (at->next != nullptr) {
      return at->next.get();
    }
  }
  return nullptr;
}

// What a command does to files, programs and the like may rely on what the ones before it did to
// the registry. A failure isn't the command's: the registry is written once more at the end of the
// run.
void SyncRegistry() {
  const platform::Code code = platform::registry::Sync();
  if (code != platform::kSuccess) {
    TraceLine(u"Error writing the registry: %d", code);
  }
}

}  // namespace

cvn::String& OnErrorTarget() {
  static cvn::String target;
  return target;
}

bool ScriptEngine::ParseText(cvn::StringView text) {
  if (observer_ != nullptr) {
    observer_->Parsing(text);
  }
  return ParseXmlText(text, this, observer_ != nullptr);
}

inline ScriptEngine::StepResult ScriptEngine::Step(FunctionBase* command) {
  if (observer_ != nullptr) {
    observer_->Entering(*command);
  }
  if (command->jumpLabel != nullptr) {
    TraceLine(u"GoTo label '%s'", *command->jumpLabel);
    return {command->jumpTarget == nullptr ? nullptr : *command->jumpTarget};
  }
  if (!command->keepsToRegistry) {
    SyncRegistry();
  }
  command->Execute();
  switch (command->kind) {
    case FunctionKind::BoolResult:
      return {AfterBoolResult(static_cast<const FunctionRetBool&>(*command))};
    case FunctionKind::ErrorResult:
      return {AfterErrorResult(static_cast<const FunctionRetError&>(*command))};
    case FunctionKind::ExitResult:
      return {nullptr, static_cast<const FunctionRetExit&>(*command).GetExitCode(), true};
    case FunctionKind::Plain:
      break;
  }
  return {InSequence(*command)};
}

std::int32_t ScriptEngine::Run() {
  TraceLine(u"Start executing");
  FunctionBase* current = head_.get();
  for (;;) {
    // Also behind the last command, since a wait that was cut short may have been the last.
    isCancelled_ = platform::stop::IsAsked();
    if (isCancelled_) {
      TraceLine(u"Asked to stop. No other command starts.");
      return kRunCancelled;
    }
    if (current == nullptr) {
      return kRanOffTheEnd;
    }
    const StepResult result = Step(current);
    if (result.stop) {
      TraceLine(u"Stop executing");
      return result.exitCode;
    }
    current = result.next;
  }
}

FunctionBase* ScriptEngine::AfterBoolResult(const FunctionRetBool& command) {
  const bool result = command.GetResult();
  if (result && command.onTrue != nullptr) {
    TraceLine(u"Entering onTrue handler.");
    return command.onTrue.get();
  }
  if (!result && command.onFalse != nullptr) {
    TraceLine(u"Entering onFalse handler.");
    return command.onFalse.get();
  }
  return InSequence(command);
}

FunctionBase* ScriptEngine::AfterErrorResult(const FunctionRetError& command) {
  if (!command.HasError()) {
    if (command.onSuccess == nullptr) {
      return InSequence(command);
    }
    TraceLine(u"Entering onsuccess handler.");
    return command.onSuccess.get();
  }
  const cvn::String& failure = command.GetError();
  const auto handler = command.errorHandlers.find(failure);
  if (observer_ != nullptr) {
    observer_->Failed(command, failure,
                      handler != command.errorHandlers.end() || command.onError != nullptr ||
                          !OnErrorTarget().Empty());
  }
  SetVariable(u"error", failure, command.variables);
  if (handler != command.errorHandlers.end()) {
    TraceLine(u"Entering onerrorspec handler err='%s'", failure);
    return handler->second.get();
  }
  if (command.onError != nullptr) {
    TraceLine(u"Entering onerror handler. err='%s'", failure);
    return command.onError.get();
  }
  if (!OnErrorTarget().Empty()) {
    TraceLine(u"Entering onErrorGoTo handler. err='%s'", failure);
    return JumpTo(OnErrorTarget());
  }
  return InSequence(command);
}

FunctionBase* ScriptEngine::JumpTo(const cvn::String& label) { return labels_[label]; }

void ScriptEngine::Reset() {
  labels_.clear();
  VariableStore& variables = ProcessVariables();
  variables.Clear();
  SetBuiltinVariables(&variables);
  ProcessObjects().FreeLeaks();
  head_.reset();
  replacedHandlers_.clear();
  OnErrorTarget() = cvn::String();
  // A leftover that opens and closes nothing; readers of traces know it as the mark of a reset.
  TraceLine(u"set trace file: %s\n", static_cast<const char16_t*>(nullptr));
}

}  // namespace tessel
