// The command line of tlx: what each subcommand takes stands in a table, and parsing, usage and
// help follow it.
#pragma once

#include <span>

#include "support/containers.h"
#include "support/string.h"

namespace tlx {

struct OptionSpec {
  cvn::StringView name;       // with its dashes: "--key"
  cvn::StringView valueName;  // what the value is, for usage and help; empty for a switch
  bool isRequired;
  cvn::StringView help;
};

// The options that a command line gave.
class Options {
 public:
  bool Has(cvn::StringView name) const { return values_.contains(name); }
  // The value of an option; empty for one that was not given.
  cvn::StringView Value(cvn::StringView name) const;

 private:
  friend class OptionParser;
  cvn::Map<cvn::String, cvn::String> values_;
};

struct CommandSpec {
  cvn::StringView name;
  cvn::StringView summary;  // one line, for the list of subcommands
  cvn::StringView
      details;  // for the subcommand's own help; lines end with a line feed, the last one too
  std::span<const OptionSpec> options;
  int (*run)(const Options& options);  // returns the exit code
};

enum class ParseOutcome { Run, Help, BadUsage };

// Reads the arguments that follow the subcommand's name. An option's value is the argument behind
// it and does not begin with "--". On BadUsage, `*problem` is the text for the user.
ParseOutcome ParseOptions(const CommandSpec& command, std::span<const cvn::String> arguments,
                          Options* options, cvn::String* problem);

// "Usage: tlx pack --key KEY.pem ...", without a line end.
cvn::String UsageOf(const CommandSpec& command);
// Usage, details and the table of options; the last line has no line end.
cvn::String HelpOf(const CommandSpec& command);

}  // namespace tlx
