#include "tools/tlx/view_options.h"

#include "platform/machine.h"
#include "platform/private_folder.h"
#include "platform/streams.h"
#include "support/format.h"
#include "support/numbers.h"
#include "tools/tlx/machine_text.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/patch_operand.h"
#include "tools/tlx/status_line.h"

namespace tlx {
namespace {

namespace machine = platform::machine;
using platform::Code;
using platform::streams::Output;

constexpr std::uint64_t kMegabyte = std::uint64_t{1} << 20;
constexpr std::int64_t kMostOfLimit = 1'000'000'000;
// A copy that is no larger is made without a question.
constexpr std::uint64_t kMuch = 256 * kMegabyte;

std::uint64_t LimitOf(const Options& options, cvn::StringView name, std::uint64_t otherwise) {
  return options.Has(name) ? static_cast<std::uint64_t>(cvn::ReadInt64(options.Value(name)))
                           : otherwise;
}

bool MayCopy(const Options& options, std::uint64_t bytes) {
  if (bytes <= kMuch || options.Has(kYesOption.name)) {
    return true;
  }
  const cvn::String size = cvn::Format(u"%llu MiB", bytes / kMegabyte);
  if (!platform::streams::IsTerminal(Output::Error)) {
    WarnOfFile(u"tlx", cvn::Format(u"the host has no overlay for this machine, so all of it would "
                                   u"be copied, %s; --yes allows that",
                                   size));
    return false;
  }
  cvn::String answer;
  platform::streams::WriteLine(
      Output::Error,
      cvn::Format(u"The host has no overlay for this machine. Copy all of it, %s? [y/N]", size));
  return platform::streams::ReadAnswer(&answer) && (answer == u"y" || answer == u"Y");
}

int FailToPrepare(cvn::StringView folder, Code code) {
  switch (code) {
    case machine::kNoViews:
      return FailOnFile(u"tlx", kNoMachinesHere);
    case platform::kNotSupported:
      return FailOnFile(
          folder,
          u"there can be no view of it: the host gives this account no namespaces for "
          u"mounts, or something is mounted within the folder");
    case platform::kCancelled:
      return FailOnFile(folder, u"it wasn't copied, and nothing was run");
    case platform::files::kNotPrivate:
      return FailOnFile(folder,
                        u"there is no folder for temporary files that other accounts can be "
                        u"kept out of; TMPDIR names another");
    default:
      return FailOnFile(folder, DescribeCode(code));
  }
}

}  // namespace

cvn::String FaultOfLimits(const Options& options) {
  for (const OptionSpec& option : {kSecondsOption, kMegabytesOption, kProcessesOption}) {
    const cvn::StringView value = options.Value(option.name);
    const std::int64_t least = option.name == kProcessesOption.name ? 0 : 1;
    const std::int64_t number = cvn::ReadInt64(value);
    const bool isGood = cvn::IsAllDigits(value) && number >= least && number <= kMostOfLimit;
    if (options.Has(option.name) && !isGood) {
      return cvn::Format(u"option '%s' takes a number from %lld to %lld, not '%s'", option.name,
                         least, kMostOfLimit, value);
    }
  }
  return {};
}

machine::ViewLimits LimitsOf(const Options& options) {
  const machine::ViewLimits usual;
  return {
      .seconds = static_cast<std::uint32_t>(LimitOf(options, kSecondsOption.name, usual.seconds)),
      .bytes = LimitOf(options, kMegabytesOption.name, usual.bytes / kMegabyte) * kMegabyte,
      .processes =
          static_cast<std::uint32_t>(LimitOf(options, kProcessesOption.name, usual.processes)),
  };
}

int PrepareView(const Options& options, bool isSealed, std::unique_ptr<machine::View>* view) {
  const cvn::StringView named = options.Value(kMachineOption.name);
  StatusLine status;
  machine::ViewOptions wanted;
  wanted.folder = named;
  wanted.isSealed = isSealed;
  wanted.mayCopy = [&options](std::uint64_t bytes) { return MayCopy(options, bytes); };
  wanted.copied = [&status](std::uint64_t bytes) {
    if (status.IsDue()) {
      status.Show(cvn::Format(u"Copying the machine: %llu MiB", bytes / kMegabyte));
    }
  };
  const Code code = machine::View::Prepare(wanted, view);
  if (code == platform::kPathNotFound && named.empty() && IsDefaultMachineMissing()) {
    return kExitBadInput;
  }
  const cvn::String folder = named.empty() ? machine::DefaultFolder() : cvn::String(named);
  return code == platform::kSuccess ? kExitDone : FailToPrepare(folder, code);
}

RunProgress::~RunProgress() {
  if (isShown_) {
    platform::streams::WriteStatus(Output::Error, u"");
  }
}

void RunProgress::Show(const machine::ViewUse& use) {
  if (platform::streams::IsTerminal(Output::Error)) {
    isShown_ = true;
    platform::streams::WriteStatus(Output::Error, cvn::Format(u"Running: %u s, %llu MiB written",
                                                              use.seconds, use.bytes / kMegabyte));
  }
}

}  // namespace tlx
