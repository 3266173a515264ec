// What a command is to those who write scripts: its attributes, its failures and what it is for.
// The checker of scripts, the XML schema and the language's reference are made from these, and the
// registry of commands holds one for each command.
#pragma once

#include <span>

#include "support/string.h"

namespace tessel {

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
};

}  // namespace tessel
