// What a command is.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "engine/run_observer.h"
#include "support/containers.h"
#include "support/string.h"

namespace tessel {

class FunctionBase;
class ObjectStore;
class VariableStore;
struct AttributeDescription;
struct CommandDescription;

// What the interpreter knows about a command. It comes from the registry and not from the object.
enum class FunctionKind { Plain = 0, ErrorResult = 1, BoolResult = 2, ExitResult = 3 };

// The attributes of a command's element, raw and unexpanded, in the order of their names.
class AttributeMap {
 public:
  using Entry = std::pair<cvn::String, cvn::String>;

  void Reserve(std::size_t count) { entries_.reserve(count); }
  // Adds an attribute. An element has no two of one name; of two added ones the first counts.
  void Add(cvn::StringView name, cvn::String value);
  // Null when there is none of exactly that name.
  const cvn::String* Find(cvn::StringView name) const;

  auto begin() const { return entries_.begin(); }
  auto end() const { return entries_.end(); }

 private:
  cvn::List<Entry> entries_;  // sorted by name
};

// A command of a script. It talks to the interpreter only through the members that it inherits.
class FunctionBase {
 public:
  FunctionBase() = default;
  FunctionBase(const FunctionBase&) = delete;
  FunctionBase& operator=(const FunctionBase&) = delete;
  // Destroys the commands that follow too, one after the other: a list of any length needs no
  // stack.
  virtual ~FunctionBase();

  // Called each time the run reaches the command.
  virtual void Execute() = 0;
  // Called once at load, when name, attributes and stores are set: loads each attribute of
  // `description`, so that the members for them need no initial values. False rejects the whole
  // patch.
  bool Parse(const CommandDescription& description);

  AttributeMap attributes;
  cvn::String name;                    // the element's name
  FunctionBase* parent = nullptr;      // the command whose handler list this one belongs to
  std::unique_ptr<FunctionBase> next;  // the following command of the same list
  VariableStore* variables = nullptr;
  ObjectStore* objects = nullptr;

  // Set by the loader, so that a step has nothing to look up.
  ScriptPlace scriptPlace;
  FunctionKind kind = FunctionKind::Plain;
  bool keepsToRegistry = false;               // as its family does
  const cvn::String* jumpLabel = nullptr;     // of a goto: its attribute
  FunctionBase* const* jumpTarget = nullptr;  // of a goto: where its label's command stands
};

// Why an attribute refuses a script. Unusable is another word than those of a choice, and a
// malformed pattern.
enum class AttributeFault { None, Missing, Empty, Unusable };

// Loads an attribute of an element into the member of `command` that it fills. A loop has no
// members: `command` is null then.
AttributeFault LoadAttribute(const AttributeDescription& attribute, const AttributeMap& attributes,
                             FunctionBase* command);

// A command that ends with success or with an error text, and has handlers for both.
class FunctionRetError : public FunctionBase {
 public:
  virtual bool HasError() const { return hasError; }
  virtual const cvn::String& GetError() const { return error; }

  cvn::Map<cvn::String, std::unique_ptr<FunctionBase>> errorHandlers;  // by the exact error text
  std::unique_ptr<FunctionBase> onError;
  std::unique_ptr<FunctionBase> onSuccess;
  cvn::String error;
  // Set by a failure and cleared by nobody: an instance that has failed once goes on reporting it.
  bool hasError = false;

 protected:
  // Makes a system code the command's failure; 0 sets nothing.
  void ReportCode(std::uint32_t code);
  // Writes the line that ends an execution: "<word> function end with success. err:''" or the like.
  void TraceEnd(cvn::StringView word) const;
};

// A command that answers a question.
class FunctionRetBool : public FunctionBase {
 public:
  virtual bool GetResult() const { return result; }

  std::unique_ptr<FunctionBase> onTrue;
  std::unique_ptr<FunctionBase> onFalse;
  bool result = false;

 protected:
  // Writes the line that ends an execution: "<word> function end with True." or "... False.".
  void TraceEnd(cvn::StringView word) const;
};

// A command that ends the run.
class FunctionRetExit : public FunctionBase {
 public:
  virtual std::int32_t GetExitCode() const { return exitCode; }

  std::int32_t exitCode = 0;
};

}  // namespace tessel
