#include "platform/offline/view/view.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fstream>
#include <string_view>
#include <utility>

#include "platform/formats/names.h"
#include "platform/linux/error_map.h"
#include "platform/linux/file_names.h"
#include "platform/linux/own_folder.h"
#include "platform/machine.h"
#include "platform/offline/view/task.h"
#include "platform/offline/volume/volume.h"

namespace platform::posix {

SharedPages::~SharedPages() {
  if (!bytes_.empty()) {
    munmap(bytes_.data(), bytes_.size());
  }
}

Code SharedPages::Map(std::size_t size) {
  void* pages = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                     MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (pages == MAP_FAILED) {
    return CodeOf(errno);
  }
  bytes_ = {static_cast<std::byte*>(pages), size};
  return kSuccess;
}

namespace {

using machine::ViewKind;
using machine::ViewOptions;

constexpr std::size_t kSharedSize = std::size_t{64} << 20;
// Before them lies the result of the task.
constexpr std::size_t kTasksBytes = 64;
static_assert(sizeof(TaskResult) <= kTasksBytes);

// What a killed view left. It is ours, and nobody uses it.
void RemoveAbandoned() {
  for (const std::string& path : FindAbandonedFolders({})) {
    IgnoreError(RemoveTree({AT_FDCWD, path.c_str()}));  // the next one tries again
  }
}

Code MakeIn(const Descriptor& work, const char* name, Descriptor* folder) {
  if (mkdirat(work.Get(), name, S_IRWXU) != 0) {
    return CodeOf(errno);
  }
  folder->Reset(openat(work.Get(), name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  return folder->Get() < 0 ? CodeOf(errno) : kSuccess;
}

Code OpenMachineFolder(cvn::StringView named, ViewFolders* folders) {
  std::string host;
  bool isNamed = false;
  Code code = named.empty() ? DefaultMachineFolder(&host, &isNamed) : HostFolder(named, &host);
  if (code != kSuccess) {
    return code;
  }
  folders->machineFolder.Reset(open(host.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folders->machineFolder.Get() < 0) {
    return errno == ENOENT ? kPathNotFound : errno == ENOTDIR ? kDirectory : CodeOf(errno);
  }
  code = CodeOf(PathOfOpen(folders->machineFolder.Get(), &folders->machine));
  return code == kSuccess && folders->machine == "/" ? kNotSupported : code;
}

// The path of a line of /proc/self/mountinfo, whose fifth field it is; blanks and the like stand
// there as \040, three octal digits (proc(5)).
std::string MountPointOf(std::string_view line) {
  for (int field = 0; field < 4; ++field) {
    line.remove_prefix(std::min(line.find(' '), line.size() - 1) + 1);
  }
  line = line.substr(0, line.find(' '));
  std::string path;
  while (!line.empty()) {
    const bool isEscape = line[0] == '\\' && line.size() >= 4;
    path += isEscape ? static_cast<char>((line[1] & 7) << 6 | (line[2] & 7) << 3 | (line[3] & 7))
                     : line[0];
    line.remove_prefix(isEscape ? 4 : 1);
  }
  return path;
}

// Neither an overlay nor a copy would have what is mounted within the folder.
bool HasMounts(const std::string& folder) {
  std::ifstream mounts("/proc/self/mountinfo");
  for (std::string line; std::getline(mounts, line);) {
    const std::string path = MountPointOf(line);
    if (path.size() > folder.size() && IsWithin(path, folder)) {
      return true;
    }
  }
  return false;
}

// The attribute by which an overlay marks folders that hide others.
const char* HidingMark(const Keeper& keeper) {
  return keeper.HidesOwners() ? "user.overlay.opaque" : "trusted.overlay.opaque";
}

// Whether the upper folder takes that.
bool TakesMark(int upper, const char* mark) {
  return fsetxattr(upper, mark, "y", 1, 0) == 0 && fremovexattr(upper, mark) == 0;
}

// What the machine's folder has of that name means nothing.
Code RemoveMark(int upper, const char* mark) {
  return fremovexattr(upper, mark) == 0 || errno == ENODATA ? kSuccess : CodeOf(errno);
}

}  // namespace
}  // namespace platform::posix

namespace platform::machine {

using posix::CodeOf;
using posix::KeeperStep;
using posix::ViewFolders;

Code View::State::Make(const ViewOptions& options) {
  Code code = posix::OpenMachineFolder(options.folder, &folders);
  if (code == kSuccess && posix::HasMounts(folders.machine)) {
    code = kNotSupported;
  }
  if (code != kSuccess) {
    return code;
  }
  folder = posix::ToWide(folders.machine);
  posix::RemoveAbandoned();
  signal(SIGCHLD, SIG_DFL);  // where it is ignored, children vanish before they are waited for
  code = posix::MakeOwnFolderOnHost(&folders.workFolder, &folders.work, folders.machine);
  code = code == kSuccess ? CodeOf(keeper.Start()) : code;
  code = code == kSuccess ? shared.Map(posix::kTasksBytes + posix::kSharedSize) : code;
  posix::Descriptor temporary;
  if (code == kSuccess) {
    code = posix::MakeIn(folders.workFolder, ViewFolders::kTemporary, &temporary);
  }
  if (code == kSuccess &&
      keeper.Ask(options.isSealed ? KeeperStep::EnterSealed : KeeperStep::EnterOpen) != 0) {
    code = kNotSupported;
  }
  if (code == kSuccess && MakeOverlay() != kSuccess) {
    code = MakeCopy(options);
  }
  return code == kSuccess && options.isSealed ? CodeOf(keeper.Ask(KeeperStep::Seal)) : code;
}

Code View::State::MakeOverlay() {
  posix::Descriptor scratch;
  struct stat status {};
  posix::Descriptor upper;
  Code code = posix::MakeIn(folders.workFolder, ViewFolders::kScratch, &scratch);
  code = code == kSuccess ? posix::MakeIn(folders.workFolder, ViewFolders::kUpper, &upper) : code;
  if (code == kSuccess && fstat(folders.machineFolder.Get(), &status) != 0) {
    code = CodeOf(errno);
  }
  const char* mark = posix::HidingMark(keeper);
  if (code == kSuccess && !posix::TakesMark(upper.Get(), mark)) {
    code = kNotSupported;
  }
  // Of the machine's root the upper folder tells: it has to say what that says.
  if (code == kSuccess) {
    code = posix::CopyMetadata(folders.machineFolder.Get(), status, upper.Get());
    code = code == kSuccess ? posix::RemoveMark(upper.Get(), mark) : code;
  }
  const timespec times[] = {status.st_atim, status.st_mtim};
  if (code == kSuccess && futimens(upper.Get(), times) != 0) {
    code = CodeOf(errno);
  }
  changed = std::make_shared<posix::Descriptor>(std::move(upper));
  return code == kSuccess ? CodeOf(keeper.Ask(KeeperStep::MountOverlay)) : code;
}

Code View::State::MakeCopy(const ViewOptions& options) {
  if (!options.mayCopy) {
    return kNotSupported;
  }
  const auto copy = [&](posix::CopyWay way) {
    posix::Descriptor made;
    Code code = posix::MakeIn(folders.workFolder, ViewFolders::kCopy, &made);
    if (code == kSuccess) {
      code = posix::CopyTree(folders.machineFolder.Get(), made.Get(), way, options.copied);
    }
    changed = std::make_shared<posix::Descriptor>(std::move(made));
    return code;
  };
  kind = ViewKind::SharedCopy;
  Code code = copy(posix::CopyWay::Shared);
  if (code == kNotSupported || code == kNotSameDevice) {
    kind = ViewKind::PlainCopy;
    std::uint64_t bytes = 0;
    code = posix::RemoveTree({folders.workFolder.Get(), ViewFolders::kCopy});
    code = code == kSuccess ? posix::MeasureTree(folders.machineFolder.Get(), &bytes) : code;
    if (code == kSuccess) {
      code = options.mayCopy(bytes) ? copy(posix::CopyWay::Content) : kCancelled;
    }
  }
  if (code == kSuccess) {
    code = NoteCopied();
  }
  return code == kSuccess ? CodeOf(keeper.Ask(KeeperStep::MountCopy)) : code;
}

// What was changed in the copy has later times than a file that is made now.
Code View::State::NoteCopied() {
  constexpr int kMake = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
  const posix::Descriptor mark(openat(folders.workFolder.Get(), "copied", kMake, S_IRUSR));
  struct stat status {};
  if (mark.Get() < 0 || fstat(mark.Get(), &status) != 0) {
    return CodeOf(errno);
  }
  copiedAt = status.st_ctim;
  return kSuccess;
}

Code View::Prepare(const ViewOptions& options, std::unique_ptr<View>* view) {
  view->reset();
  auto state = std::make_unique<State>();
  const Code code = state->Make(options);
  if (code == kSuccess) {
    view->reset(new View(std::move(state)));
  }
  return posix::Report(code);
}

View::View(std::unique_ptr<State> state) : state_(std::move(state)) {}
View::~View() = default;

ViewKind View::Kind() const { return state_->kind; }

const cvn::String& View::Folder() const { return state_->folder; }

Code View::Run(const std::function<int()>& task, const ViewLimits& limits,
               const std::function<void(const ViewUse&)>& progress, ViewEnd* end, int* exitCode) {
  auto* result = reinterpret_cast<posix::TaskResult*>(state_->shared.Bytes().data());
  posix::ViewTask running(state_->folders, state_->keeper, limits, result);
  const Code code = running.Run(task, progress, end);
  *exitCode = result->exitCode;
  return posix::Report(code);
}

Code View::CollectChanges(ChangeSet* changes) {
  const Code code = machine::Use(state_->folder);
  if (code != kSuccess) {
    return code;
  }
  const char* mark =
      state_->kind == ViewKind::Overlay ? posix::HidingMark(state_->keeper) : nullptr;
  state_->difference.emplace(posix::ViewFolder{
      .folder = state_->changed, .hidingMark = mark, .completedAt = state_->copiedAt});
  return state_->difference->Collect(changes);
}

ChangeBytes& View::Bytes() { return *state_->difference; }

std::span<std::byte> View::SharedMemory() {
  return state_->shared.Bytes().subspan(posix::kTasksBytes);
}

}  // namespace platform::machine
