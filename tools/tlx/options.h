// The command line of tlx: what each subcommand takes stands in a table, and parsing, usage and
// help follow it.
#pragma once

#include <algorithm>
#include <initializer_list>
#include <span>

#include "support/containers.h"
#include "support/string.h"

namespace tlx {

enum class ValueKind {
  None,    // of a switch
  Text,    // anything
  Choice,  // one of those that the name lists
  File,    // or a folder that stands for the file in it
  Folder,
};

// The name of a value in usage and help, which decides what a shell completes it with. One with
// bars, "x64|x86", lists all the values that there are; one with a blank, "KEY VALUE", stands for
// two, of which the second may be anything; an empty one stands for none.
class ValueName {
 public:
  // A name with a dot, "KEY.pem", is a file's. Any other has to be listed here.
  consteval ValueName(const char16_t* text)  // NOLINT(google-explicit-constructor): tables use it
      : text_(text), kind_(KindOf(text_)) {}

  constexpr cvn::StringView Text() const { return text_; }
  constexpr ValueKind Kind() const { return kind_; }

 private:
  static void TheKindOfThisNameIsNotListed() {}

  static consteval ValueKind KindOf(cvn::StringView name) {
    const auto isOneOf = [name](std::initializer_list<cvn::StringView> names) {
      return std::ranges::find(names, name) != names.end();
    };
    if (name.empty()) {
      return ValueKind::None;
    }
    if (name.find(u'|') != cvn::StringView::npos) {
      return ValueKind::Choice;
    }
    if (isOneOf({u"DIR", u"SET"})) {
      return ValueKind::Folder;
    }
    if (isOneOf({u"CODE,...", u"COMMAND=ERROR", u"HKEY", u"KEY VALUE", u"N", u"NAME", u"PAGE",
                 u"PATH", u"REASON", u"TIME", u"URL"})) {
      return ValueKind::Text;
    }
    if (!isOneOf({u"FILE", u"KEY", u"PATCH", u"SIGNATURE"}) &&
        name.find(u'.') == cvn::StringView::npos) {
      TheKindOfThisNameIsNotListed();
    }
    return ValueKind::File;
  }

  cvn::StringView text_;
  ValueKind kind_;
};

struct OptionSpec {
  cvn::StringView name;  // with its dashes: "--key"
  ValueName value;       // Values has those of two words by turns
  bool isRequired;
  cvn::StringView help;
  bool isRepeatable = false;
};

// What stands on the command line without a dash, in this order.
struct OperandSpec {
  ValueName name;
  bool isRequired;
  cvn::StringView help;
  bool isRepeatable = false;  // of the last one: it takes all that follow
};

// The options and operands that a command line gave.
class Options {
 public:
  bool Has(cvn::StringView name) const { return values_.contains(name); }
  // The value of an option; empty for one that was not given.
  cvn::StringView Value(cvn::StringView name) const;
  // All values of an option that may be repeated, in their order.
  std::span<const cvn::String> Values(cvn::StringView name) const;
  // The operand at `index` of the command's operands; empty for one that was not given.
  cvn::StringView Operand(std::size_t index) const;
  // All operands, in their order.
  std::span<const cvn::String> Operands() const { return operands_; }

 private:
  friend class OptionParser;
  cvn::Map<cvn::String, cvn::List<cvn::String>> values_;
  cvn::List<cvn::String> operands_;
};

struct CommandSpec {
  cvn::StringView name;     // one word, or two: "machine show"
  cvn::StringView summary;  // one line, for the list of subcommands
  cvn::StringView
      details;  // for the subcommand's own help; lines end with a line feed, the last one too
  std::span<const OptionSpec> options;
  int (*run)(const Options& options);  // returns the exit code
  std::span<const OperandSpec> operands = {};
  // What is wrong with the options together, for the user; empty for nothing.
  cvn::String (*faultOf)(const Options& options) = nullptr;
};

// The operand that comes after `given` others; null when there are enough.
const OperandSpec* OperandAfter(const CommandSpec& command, std::size_t given);

enum class ParseOutcome { Run, Help, BadUsage };

// Reads the arguments that follow the subcommand's name. An option's value is the argument behind
// it and does not begin with "--". On BadUsage, `*problem` is the text for the user.
ParseOutcome ParseOptions(const CommandSpec& command, std::span<const cvn::String> arguments,
                          Options* options, cvn::String* problem);

// The values that a name with bars lists.
cvn::List<cvn::StringView> ChoicesOf(cvn::StringView name);

// "Usage: tlx pack --key KEY.pem ...", without a line end.
cvn::String UsageOf(const CommandSpec& command);
// Usage, details and the table of options; the last line has no line end.
cvn::String HelpOf(const CommandSpec& command);

}  // namespace tlx
