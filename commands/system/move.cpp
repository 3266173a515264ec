#include "commands/system/move.h"

#include "engine/command_declaration.h"
#include "engine/variable_store.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "trace/trace.h"

namespace tessel {

namespace files = platform::files;
namespace paths = platform::paths;

void FunctionMove::Execute() {
  const cvn::String from = ExpandVariables(src, variables);
  const cvn::String to = ExpandVariables(dest, variables);
  TraceLine(u"%s from '%s' to '%s'. FailIfExists: %d. After reboot:%d", name, from, to,
            failIfExists, afterReboot);
  ReportCode(Move(from, to));
  TraceEnd(name);
}

platform::Code FunctionMove::Move(cvn::StringView from, cvn::StringView to) const {
  if (!paths::Exists(from)) {
    return platform::kNotFound;
  }
  const bool isFile = !paths::IsDirectory(from);
  const bool isSameRoot = paths::IsSameRoot(from, to);
  if (!isFile && !isSameRoot) {
    return platform::kNotSameDevice;
  }
  std::uint32_t flags = afterReboot ? files::kMoveDelayUntilReboot : files::kMoveWriteThrough;
  if (!afterReboot && isFile && !isSameRoot) {
    flags |= files::kMoveCopyAllowed;
  }
  if (isFile && !failIfExists) {
    flags |= files::kMoveReplaceExisting;
  }
  return files::Move(from, to, flags);
}

namespace {

constexpr AttributeDescription kAttributes[] = {
    Naming(Expanded<&FunctionMove::src>(u"src", Presence::NonEmpty, u"The file or folder to move."),
           Subject::Entry, Use::Remove),
    Naming(Expanded<&FunctionMove::dest>(
               u"dest", Presence::NonEmpty,
               u"Its new path, with its new name. The folder of that must be there."),
           Subject::Entry, Use::Change),
    Flag<&FunctionMove::failIfExists>(
        u"failIfExists",
        u"Whether a file at `dest` is a failure (183), and not replaced. A folder never replaces "
        u"anything.",
        u"true"),
    Deferring(Flag<&FunctionMove::afterReboot>(
        u"afterReboot", u"Whether the move is only noted, for when the system starts again.",
        u"false")),
};

constexpr FailureDescription kFailures[] = {
    {u"3", u"the folder of `dest` is missing"},
    {u"5", u"access is denied, or another program uses the file at `dest`"},
    {u"17",
     u"`src` is a folder, and `dest` is on another drive, or one of them doesn't begin with a "
     u"drive and a backslash"},
    {u"32", u"another program uses the file at `src`, or, on another drive, the one at `dest`"},
    {u"183", u"`dest` is there, and isn't replaced"},
    {u"1168", u"there is nothing at `src`"},
    {u"", u"any other code of the system"},
};

}  // namespace

constinit const CommandDescription kMove = {
    .purpose =
        u"Moves a file, also to another drive, or a folder with all that is in it within "
        u"its drive.",
    .attributes = kAttributes,
    .failures = kFailures,
    .notes =
        u"`fileMove` and `dirMove` are one command under two names: either takes files and "
        u"folders. With `afterReboot` the command ends with success as soon as the move is "
        u"noted; whether it comes about shows when the system starts again, and it can't lead "
        u"to another drive then.",
};

}  // namespace tessel
