// A loaded script, and the loop that runs it.
#pragma once

#include <tinyxml.h>

#include <cstdint>
#include <functional>
#include <memory>

#include "engine/command_registry.h"
#include "engine/function_base.h"
#include "engine/variable_store.h"
#include "support/containers.h"
#include "support/string.h"

namespace tessel {

// Codes of Load.
inline constexpr std::int32_t kLoadSuccess = 0;
inline constexpr std::int32_t kLoadCorrupt = 13;
inline constexpr std::int32_t kLoadExpired = 1460;
inline constexpr std::int32_t kLoadInvalid = 1636;

// What Run answers when the script ends without an exit command.
inline constexpr std::int32_t kRanOffTheEnd = -1;

// What the process ends with for what Run answers: a negative number whatever the sign was,
// computed so that the most negative one is no exception.
constexpr std::int32_t ProcessCodeOf(std::int32_t answer) { return answer > 0 ? -answer : answer; }

// What it answers when the program was asked to stop: ERROR_CANCELLED.
inline constexpr std::int32_t kRunCancelled = -1223;

// One script: the document that it was read from, and the commands that it was compiled to. Used
// once, in the order ParseText, Load, Run, Reset; variables and objects live in the process's
// stores.
class ScriptEngine : public TiXmlDocument {
 public:
  // `observer` outlives this; null for nobody.
  explicit ScriptEngine(RunObserver* observer = nullptr) : observer_(observer) {}
  ScriptEngine(const ScriptEngine&) = delete;
  ScriptEngine& operator=(const ScriptEngine&) = delete;

  // Parses the script's text into this document. False when it is empty or not well-formed.
  bool ParseText(cvn::StringView text);

  // Checks the document, sets the built-in variables and then those of `commandLine`, and compiles
  // the script. `isExempt`, asked once at most, tells whether the patch is valid whatever its dates
  // say. Gives kLoadSuccess, or one of the codes above; the trace tells why.
  std::int32_t Load(const cvn::Map<cvn::String, cvn::String>& commandLine,
                    const std::function<bool()>& isExempt);

  // Runs the script, and gives the code of the exit command that ended it, or kRanOffTheEnd. When
  // the program is asked to stop (platform/stop_request.h) the command that runs is the last, and
  // the answer is kRunCancelled unless that was an exit command.
  std::int32_t Run();

  // Whether it was cut short so. A script may end with that code by itself.
  bool IsCancelled() const { return isCancelled_; }

  // Forgets all commands, variables and objects, and sets the built-in variables anew.
  void Reset();

  // The moment the patch expires, in seconds since 1970; 0 while it is not known.
  std::int64_t ExpiresAt() const { return expiresAt_; }

 private:
  struct StepResult {
    FunctionBase* next = nullptr;
    std::int32_t exitCode = 0;
    bool stop = false;
  };
  using CommandList = std::unique_ptr<FunctionBase>;

  // The loader.
  std::int32_t LoadScript(const cvn::Map<cvn::String, cvn::String>& commandLine,
                          const std::function<bool()>& isExempt);
  bool IsVersionAccepted(const TiXmlElement& root) const;
  bool IsWithinDates(const TiXmlElement& root);
  bool AreLabelsDefined() const;
  bool CompileList(FunctionBase* parentCommand, CommandList* list, TiXmlElement* node);
  CommandList CompileCommand(FunctionBase* parentCommand, TiXmlElement* element);
  bool CompileHandlers(FunctionBase* command, TiXmlElement* element);
  bool CompileErrorHandlers(FunctionRetError* command, TiXmlElement* element);
  bool CompileHandler(FunctionBase* command, CommandList* handler, TiXmlElement* element,
                      const char* handlerName);
  bool DefineLabel(FunctionBase* command);
  void NoteTarget(FunctionBase* command);

  // The interpreter.
  StepResult Step(FunctionBase* command);
  FunctionBase* AfterBoolResult(const FunctionRetBool& command);
  FunctionBase* AfterErrorResult(const FunctionRetError& command);
  FunctionBase* JumpTo(const cvn::String& label);

  RunObserver* const observer_;

  cvn::Map<cvn::String, FunctionBase*>
      labels_;  // null while a label is referred to but not defined
  CommandList head_;
  // Lists of a handler that a later one of the same error replaced: no error reaches them, but
  // labels do.
  cvn::List<CommandList> replacedHandlers_;
  std::int64_t expiresAt_ = 0;
  bool isCancelled_ = false;
};

// The label that a failed command without a handler of its own jumps to; empty for none. Kept for
// the process, and emptied by ScriptEngine::Reset.
cvn::String& OnErrorTarget();

}  // namespace tessel
