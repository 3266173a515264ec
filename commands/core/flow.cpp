#include "commands/core/flow.h"

#include "engine/script_engine.h"
#include "engine/variable_store.h"
#include "platform/clock.h"
#include "platform/streams.h"
#include "trace/trace.h"

namespace tessel {
namespace {

using platform::streams::Output;

// A reader of the stream, such as a parent process, gets this long to take the text in.
constexpr std::uint32_t kReaderPause = 50;

void WriteForReader(Output stream, const cvn::String& text) {
  platform::streams::WriteLine(stream, text);
  platform::clock::Sleep(kReaderPause);
}

}  // namespace

bool FunctionNothing::Parse() { return true; }

void FunctionNothing::Execute() { TraceLine(u"Executing 'nothing' function"); }

bool FunctionExit::Parse() {
  ReadNumber(u"code", &exitCode);
  return true;
}

void FunctionExit::Execute() { TraceLine(u"Exit function called with exitcode %d", exitCode); }

bool FunctionTrace::Parse() {
  ReadAttribute(u"value", &value_);
  ReadAttribute(u"std", &std_);
  return true;
}

void FunctionTrace::Execute() {
  const cvn::String text = ExpandVariables(value_, variables);
  if (std_ == u"err") {
    WriteForReader(Output::Error, text);
    TraceLine(u"Trace [stderr]: %s", text);
  } else if (std_ == u"out") {
    WriteForReader(Output::Out, text);
    TraceLine(u"Trace [stdout]: %s", text);
  } else {
    TraceLine(u"Trace: %s", text);
  }
}

bool FunctionTraceSetFile::Parse() { return true; }

void FunctionTraceSetFile::Execute() { TraceLine(u"TraceSetFile skipped."); }

bool FunctionSleep::Parse() { return ReadNumber(u"milisec", &milliseconds_); }

void FunctionSleep::Execute() {
  TraceLine(u"Sleep function called: %d ms.", milliseconds_);
  platform::clock::Sleep(static_cast<std::uint32_t>(milliseconds_));
}

bool FunctionGoTo::Parse() { return attributes.Find(u"target") != nullptr; }

bool FunctionOnErrorGoTo::Parse() { return ReadAttribute(u"target", &target_); }

void FunctionOnErrorGoTo::Execute() { OnErrorTarget() = target_; }

}  // namespace tessel
