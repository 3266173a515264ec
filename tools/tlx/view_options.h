// What every command takes that runs a patch in a view of the machine.
#pragma once

#include <memory>

#include "platform/machine_view.h"
#include "tools/tlx/options.h"

namespace tlx {

// The rows of the table of options.
inline constexpr OptionSpec kMachineOption = {
    u"--machine", u"DIR", false, u"The machine's folder; without it, the one that tessel takes"};
inline constexpr OptionSpec kVariableOption = {
    u"--var", u"KEY VALUE", false, u"Set a variable before the script runs, as /var does", true};
inline constexpr OptionSpec kSecondsOption = {u"--max-seconds", u"N", false,
                                              u"End the run after so long; 600 without it"};
inline constexpr OptionSpec kMegabytesOption = {
    u"--max-megabytes", u"N", false, u"End it when it has written so much; 4096 without it"};
inline constexpr OptionSpec kProcessesOption = {
    u"--max-processes", u"N", false,
    u"End it when it has started so many programs at once; 64 without it"};
inline constexpr OptionSpec kYesOption = {
    u"--yes", u"", false, u"Don't ask before much is copied, where the host has no overlay mounts"};

// What is wrong with the numbers; empty for nothing.
cvn::String FaultOfLimits(const Options& options);
platform::machine::ViewLimits LimitsOf(const Options& options);

// Makes a view of the machine that the options name, and asks and tells the user what has to be.
// The exit code of a failure that it told.
int PrepareView(const Options& options, bool isSealed,
                std::unique_ptr<platform::machine::View>* view);

// Shows on a terminal what a run has used, when it takes longer than a second; clears that at the
// end of its life.
class RunProgress {
 public:
  RunProgress() = default;
  RunProgress(const RunProgress&) = delete;
  RunProgress& operator=(const RunProgress&) = delete;
  ~RunProgress();
  void Show(const platform::machine::ViewUse& use);

 private:
  bool isShown_ = false;
};

}  // namespace tlx
