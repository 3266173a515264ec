// The loader: from the document of a script to its commands.
#include "engine/loop_lowering.h"
#include "engine/patch_expiry.h"
#include "engine/script_command.h"
#include "engine/script_engine.h"
#include "engine/xml_text.h"
#include "platform/clock.h"
#include "support/numbers.h"
#include "support/utf.h"
#include "trace/trace.h"

namespace tessel {
namespace {

constexpr std::int32_t kMajorVersion = 1;
constexpr std::int32_t kMinorVersion = 0;
constexpr std::int32_t kNewestMinorVersion = 1;

// The element itself, or the first of those that take a loop's place; null for a loop that lacks
// something.
TiXmlElement* WithoutLoop(TiXmlElement* parent, TiXmlElement* element) {
  const std::string name = element->ValueStr();
  const LoopKind kind = LoopKindOf(name);
  if (kind == LoopKind::None) {
    return element;
  }
  TiXmlElement* first = LowerLoop(kind, parent, element);
  if (first == nullptr) {
    TraceLine(u"%s function is invalid",
              kind == LoopKind::For ? cvn::String(u"For") : cvn::Utf8ToWide(name));
  }
  return first;
}

// A command in a handler that a loop's rewriting made has no place but that of its owner.
ScriptPlace PlaceBelow(const FunctionBase* owner, const TiXmlElement& element) {
  ScriptPlace place = PlaceOf(element);
  if (place.line == 0 && owner != nullptr) {
    place = owner->scriptPlace;
    place.isWithinLoop = 1;
  }
  return place;
}

}  // namespace

std::int32_t ScriptEngine::Load(const cvn::Map<cvn::String, cvn::String>& commandLine,
                                const std::function<bool()>& isExempt) {
  expiresAt_ = 0;
  const std::int32_t code = LoadScript(commandLine, isExempt);
  if (code == kLoadExpired) {
    TraceLine(u"Patch exceeded expiration period");
  }
  return code;
}

std::int32_t ScriptEngine::LoadScript(const cvn::Map<cvn::String, cvn::String>& commandLine,
                                      const std::function<bool()>& isExempt) {
  TiXmlElement* root = RootElement();
  if (root == nullptr) {
    TraceLine(u"Root not found");
    return kLoadCorrupt;
  }
  TiXmlElement* script = root->FirstChildElement("script");
  if (script == nullptr) {
    TraceLine(u"Script node not found");
    return kLoadCorrupt;
  }
  if (!IsVersionAccepted(*root)) {
    return kLoadInvalid;
  }
  Reset();
  for (const auto& [key, text] : commandLine) {
    SetVariable(key, text, &ProcessVariables());
  }
  if (script->Attribute("log") != nullptr) {
    const cvn::String path = ExpandVariables(XmlAttributeText(*script, "log"), &ProcessVariables());
    TraceLine(u"set trace file: %s\n", path);
    OpenTraceFile(path);
  }
  if (!CompileList(nullptr, &head_, script)) {
    return kLoadCorrupt;
  }
  if (!isExempt() && !IsWithinDates(*root)) {
    return kLoadExpired;
  }
  return AreLabelsDefined() ? kLoadSuccess : kLoadInvalid;
}

bool ScriptEngine::IsVersionAccepted(const TiXmlElement& root) const {
  const cvn::String version = XmlAttributeText(root, "version");
  if (version.Empty()) {
    TraceLine(u"Version not found");
    return false;
  }
  const std::int32_t major = cvn::ReadInt32(version);
  // The minor number is read from the point on, where no digit stands: every 1.x counts as 1.0, and
  // the makers of patches rely on it.
  const std::size_t point = version.AsView().find(u'.');
  const std::int32_t minor =
      point == cvn::StringView::npos ? 0 : cvn::ReadInt32(version.AsView().substr(point));
  if (major != kMajorVersion) {
    TraceLine(u"Cannot continue... Expected version: %d.%d, current version: %s", kMajorVersion,
              kMinorVersion, version);
    return false;
  }
  if (minor != kMinorVersion) {
    TraceLine(u"Warning! Different minor version. Expected: %d.%d, current: %s", kMajorVersion,
              kNewestMinorVersion, version);
  }
  return true;
}

bool ScriptEngine::IsWithinDates(const TiXmlElement& root) {
  const ExpiryResult result =
      CheckPatchExpiry(root.FirstChildElement("header"), platform::clock::NowTicks());
  expiresAt_ = result.expiresAt;
  return result.valid;
}

bool ScriptEngine::AreLabelsDefined() const {
  for (const auto& [label, command] : labels_) {
    if (command == nullptr) {
      TraceLine(u"Label '%s' is reffered, but not present", label);
      return false;
    }
  }
  return true;
}

bool ScriptEngine::CompileList(FunctionBase* parentCommand, CommandList* list, TiXmlElement* node) {
  CommandList* end = list;
  TiXmlElement* element = node->FirstChildElement();
  while (element != nullptr) {
    element = WithoutLoop(node, element);
    if (element != nullptr) {
      *end = CompileCommand(parentCommand, element);
    }
    if (*end == nullptr) {
      list->reset();
      return false;
    }
    end = &(*end)->next;
    element = element->NextSiblingElement();
  }
  return true;
}

ScriptEngine::CommandList ScriptEngine::CompileCommand(FunctionBase* parentCommand,
                                                       TiXmlElement* element) {
  const cvn::String name = cvn::Utf8ToWide(element->ValueStr());
  const CommandRecord* record = FindCommand(name);
  if (record == nullptr) {
    TraceLine(u"Function '%s' not found", name);
    return nullptr;
  }
  CommandList command = MakeCommand(name, *record, *element);
  if (command == nullptr) {
    TraceLine(u"Cannot create function '%s'", name);
    return nullptr;
  }
  if (!command->Parse(*record->description)) {
    TraceLine(u"Function '%s' has invalid parameters (attributes)", command->name);
    return nullptr;
  }
  if (!CompileHandlers(command.get(), element)) {
    return nullptr;
  }
  command->parent = parentCommand;
  command->scriptPlace = PlaceBelow(parentCommand, *element);
  if (!DefineLabel(command.get())) {
    return nullptr;
  }
  NoteTarget(command.get());
  return command;
}

bool ScriptEngine::CompileHandlers(FunctionBase* command, TiXmlElement* element) {
  if (element->FirstChildElement() == nullptr) {
    return true;
  }
  if (command->kind == FunctionKind::ErrorResult) {
    auto* errorCommand = static_cast<FunctionRetError*>(command);
    return CompileErrorHandlers(errorCommand, element) &&
           CompileHandler(command, &errorCommand->onError, element, kOnError) &&
           CompileHandler(command, &errorCommand->onSuccess, element, kOnSuccess);
  }
  if (command->kind == FunctionKind::BoolResult) {
    auto* boolCommand = static_cast<FunctionRetBool*>(command);
    return CompileHandler(command, &boolCommand->onTrue, element, kOnTrue) &&
           CompileHandler(command, &boolCommand->onFalse, element, kOnFalse);
  }
  return true;
}

bool ScriptEngine::CompileErrorHandlers(FunctionRetError* command, TiXmlElement* element) {
  TiXmlElement* handler = element->FirstChildElement(kOnErrorSpec);
  for (; handler != nullptr; handler = handler->NextSiblingElement(kOnErrorSpec)) {
    cvn::String failure = XmlAttributeText(*handler, "err");
    if (failure.Empty()) {
      TraceLine(
          u"Handler 'onerrorspec' for function '%s' does not have err attribute or it is empty",
          command->name);
      return false;
    }
    CommandList list;
    if (!CompileList(command, &list, handler)) {
      return false;
    }
    if (list != nullptr) {
      CommandList& slot = command->errorHandlers[std::move(failure)];
      if (slot != nullptr) {
        replacedHandlers_.push_back(std::move(slot));
      }
      slot = std::move(list);
    }
  }
  return true;
}

bool ScriptEngine::CompileHandler(FunctionBase* command, CommandList* handler,
                                  TiXmlElement* element, const char* handlerName) {
  TiXmlElement* node = element->FirstChildElement(handlerName);
  return node == nullptr || CompileList(command, handler, node);
}

bool ScriptEngine::DefineLabel(FunctionBase* command) {
  const cvn::String* label = command->attributes.Find(u"id");
  if (label == nullptr || label->Empty()) {
    return true;
  }
  FunctionBase*& labelled = labels_[*label];
  if (labelled != nullptr) {
    TraceLine(u"Label '%s' is used for two different function instances.", *label);
    return false;
  }
  labelled = command;
  return true;
}

void ScriptEngine::NoteTarget(FunctionBase* command) {
  const bool jumps = command->name == u"goto";
  if (!jumps && command->name != u"onErrorGoTo") {
    return;
  }
  const cvn::String* target = command->attributes.Find(u"target");
  command->jumpLabel = jumps ? target : nullptr;
  if (target == nullptr || target->Empty()) {
    return;
  }
  FunctionBase*& labelled = labels_[*target];
  if (jumps) {
    command->jumpTarget = &labelled;
  }
}

}  // namespace tessel
