// What a command is declared as: its attributes, its failures and what it is for. The loader fills
// a command from this, and the checker of scripts, the XML schema and the language's reference are
// made from it.
#pragma once

#include <cstdint>
#include <span>

#include "support/string.h"

namespace tessel {

class FunctionBase;

// How the value of an attribute is read.
enum class AttributeForm {
  Text,      // as it is written
  Expanded,  // with its %references% replaced each time the command runs
  Number,    // a decimal number, read when the script is loaded
  Flag,      // true for "true" and "1", else false; read when the script is loaded
  Choice,    // one of some words, read when the script is loaded
  Pattern,   // a regular expression, compiled when the script is loaded; a malformed one is refused
  Label,     // the id of a command
  Variable,  // the name of a variable that the command reads or sets
  Handle,    // the name of a document or of an element in one
};

enum class Presence {
  NonEmpty,  // a missing or an empty one refuses the script
  Required,  // a missing one refuses the script; it may be empty
  Optional,
};

// What outside of the script a text names.
enum class Subject : std::uint8_t {
  None,
  RegistryKey,    // its tree's name first; one that is removed goes with all below it
  RegistryValue,  // its key first
  File,           // its name may have wildcards, where the command takes those
  Folder,
  Tree,   // a folder with all that is below it
  Entry,  // a file, or a folder with all that is in it
  Service,
  Process,  // by its executable
  Program,  // with its arguments
  Library,  // with the function's name, where one is called
  Url,
  Component,  // of the product
  User,       // its domain first
};

// What a command does to it.
enum class Use : std::uint8_t {
  Read,      // looks at it, waits for it
  Create,    // makes it; one that is there stays as it is
  Change,    // makes it or changes it
  Remove,    // also: moves it away
  Start,     // of services and components
  Stop,      // likewise, and of processes
  Run,       // starts the program, calls the library
  Register,  // has the system start it later
  Become,    // goes on as that user
};

// Whether the value of a Flag counts as true.
constexpr bool IsFlagOn(cvn::StringView value) { return value == u"true" || value == u"1"; }

struct AttributeDescription;

// Puts the value of an attribute, or the fallback of a missing one, into the member of `command`
// that the attribute fills. False refuses the script.
using AttributeLoader = bool (*)(const AttributeDescription& attribute, cvn::StringView value,
                                 FunctionBase* command);

// What is wrong with a value that no run can change, as a phrase behind the attribute's name; empty
// when nothing is. For the checker of scripts: the engine takes any value, and the command fails.
using LiteralJudge = cvn::StringView (*)(cvn::StringView value);

// Kinds of what a handle holds, as a set.
using HandleKinds = std::uint8_t;
inline constexpr HandleKinds kXmlDocumentKind = 1;
inline constexpr HandleKinds kXmlElementKind = 2;
inline constexpr HandleKinds kJsonDocumentKind = 4;
inline constexpr HandleKinds kJsonElementKind = 8;

struct AttributeDescription {
  cvn::StringView name;
  AttributeForm form;
  Presence presence;
  cvn::StringView meaning;        // a sentence or two, each with its full stop
  cvn::StringView fallback = {};  // what a missing optional attribute counts as; empty for no text
  std::span<const cvn::StringView> choices = {};  // of a Choice: the words
  // Of a Choice: whether another word refuses the script. If not, it counts as `othersCountAs`.
  bool refusesOthers = false;
  cvn::StringView othersCountAs = {};  // empty for no text
  // Null for an attribute that the engine takes from the element: a loop's, or the target of goto.
  AttributeLoader load = nullptr;
  LiteralJudge judge = nullptr;
  // Of a Handle: the command fails when it holds none of these, and when it succeeds, holds one of
  // those. Of one that is closed, neither.
  HandleKinds neededKinds = 0;
  HandleKinds givenKinds = 0;
  // What the value names, with those in front of it: the value of the attribute `front`, then
  // `joint`, then this one. An empty value goes without the joint, unless it names a registry
  // value: then it is the key's default one. For those who only read a script.
  Subject subject = Subject::None;
  Use use = Use::Read;
  cvn::StringView front = {};  // empty for none
  cvn::StringView joint = {};
  // Of a Flag: when it is true, what the command does may wait until the system starts again.
  bool defers = false;
};

// Something that a command names itself, whatever its attributes say.
struct FixedSubject {
  Subject subject = Subject::None;
  Use use = Use::Read;
  cvn::StringView name = {};
};

// A text that a failed command leaves, for onerrorspec.
struct FailureDescription {
  cvn::StringView text;     // the exact text; empty stands for any other code of the system
  cvn::StringView meaning;  // a phrase without a full stop
};

struct CommandDescription {
  cvn::StringView purpose;  // what it does, in a sentence or two
  std::span<const AttributeDescription> attributes;
  std::span<const FailureDescription> failures = {};  // of commands that end with an error text
  // What surprises: one sentence or more, for the reference. Empty when nothing does.
  cvn::StringView notes = {};
  FixedSubject fixedSubject = {};
};

}  // namespace tessel
