#include "platform/offline/view/keeper.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <climits>
#include <csignal>
#include <ctime>
#include <string>
#include <string_view>

#include "platform/linux/directory_stream.h"
#include "platform/offline/volume/volume.h"

namespace platform::posix {
namespace {

// A terminal's signals, and the end of whoever reads what this process prints, are not for it.
void LeaveTerminal() {
  setsid();
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
    std::signal(signal, SIG_IGN);
  }
  const Descriptor nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
  for (int stream = STDIN_FILENO; nothing.Get() >= 0 && stream <= STDERR_FILENO; ++stream) {
    dup2(nothing.Get(), stream);
  }
}

// The mount namespace of a process, as a text that no other has; empty when it can't be told.
std::string MountsOf(std::string_view process) {
  char text[PATH_MAX];
  const std::string link = "/proc/" + std::string(process) + "/ns/mnt";
  const ssize_t length = readlink(link.c_str(), text, sizeof(text));
  return length <= 0 ? std::string() : std::string(text, static_cast<std::size_t>(length));
}

// Kills every process in this one's mount namespace but itself. False when there was none, for
// sure.
bool KillNeighbours(const std::string& mounts) {
  bool isAny = false;
  const int error = ForEachEntry({AT_FDCWD, "/proc"}, 0, [&](const dirent& entry) {
    const std::string_view name = entry.d_name;
    pid_t id = 0;
    const auto [end, fault] = std::from_chars(name.begin(), name.end(), id);
    if (fault == std::errc() && end == name.end() && id > 1 && id != getpid() &&
        MountsOf(name) == mounts) {
      isAny = kill(id, SIGKILL) == 0 || isAny;
    }
    return true;
  });
  return isAny || error != 0;
}

// Ends what runs in the view: the namespace that isn't `hosts`.
void EndTasks(const std::string& hosts) {
  constexpr int kMostRounds = 5000;  // of a millisecond: what the kernel can't end isn't waited for
  constexpr timespec kPause = {0, 1'000'000};
  const std::string own = MountsOf("self");
  const bool isOwn = !own.empty() && !hosts.empty() && own != hosts;
  for (int round = 0; isOwn && round < kMostRounds && KillNeighbours(own); ++round) {
    nanosleep(&kPause, nullptr);
  }
}

std::string NameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

int TakeStep(KeeperStep step, ViewSpaces* spaces) {
  switch (step) {
    case KeeperStep::EnterSealed:
      return spaces->Enter(true);
    case KeeperStep::EnterOpen:
      return spaces->Enter(false);
    case KeeperStep::MountOverlay:
      return spaces->MountOverlay();
    case KeeperStep::MountCopy:
      return spaces->MountCopy();
    case KeeperStep::Seal:
      return spaces->Seal();
  }
  return EINVAL;
}

}  // namespace

Keeper::~Keeper() {
  channel_.Reset(-1);
  int status = 0;
  if (id_ > 0) {
    while (waitpid(id_, &status, 0) < 0 && errno == EINTR) {
    }
  }
  if (place_.Get() >= 0) {
    // It is gone, unless the keeper was killed. What can't be removed the next view tries again.
    IgnoreError(RemoveTree({place_.Get(), NameOf(folders_.work).c_str()}));
  }
}

int Keeper::Start() {
  const std::string place = folders_.work.substr(0, folders_.work.rfind('/') + 1);
  place_.Reset(open(place.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  int ends[2] = {-1, -1};
  if (place_.Get() < 0 || socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
    return errno;
  }
  channel_.Reset(ends[0]);
  Descriptor served(ends[1]);
  id_ = fork();
  if (id_ == 0) {
    channel_.Reset(-1);
    Serve(served.Get());
  }
  process_.Reset(id_ < 0 ? -1 : static_cast<int>(syscall(SYS_pidfd_open, id_, 0)));
  return process_.Get() < 0 ? errno : 0;
}

void Keeper::Serve(int channel) {
  LeaveTerminal();
  const std::string hosts = MountsOf("self");
  ViewSpaces spaces(folders_);
  KeeperStep step{};
  // Also when the caller is killed, its end of the channel closes: no task keeps it.
  while (recv(channel, &step, sizeof(step), 0) == ssize_t{sizeof(step)}) {
    const int error = TakeStep(step, &spaces);
    const Answer answer{error, spaces.Flags(), spaces.HasUsers()};
    send(channel, &answer, sizeof(answer), MSG_NOSIGNAL);
  }
  EndTasks(hosts);
  spaces.Unmount();
  IgnoreError(RemoveTree({place_.Get(), NameOf(folders_.work).c_str()}));  // the next view may
  _exit(0);
}

int Keeper::Ask(KeeperStep step) {
  Answer answer{};
  if (send(channel_.Get(), &step, sizeof(step), MSG_NOSIGNAL) < 0) {
    return errno;
  }
  ssize_t length = 0;
  do {
    length = recv(channel_.Get(), &answer, sizeof(answer), 0);
  } while (length < 0 && errno == EINTR);
  if (length != ssize_t{sizeof(answer)}) {
    return EPIPE;
  }
  flags_ = answer.flags;
  hidesOwners_ = answer.hasUsers;
  isSealed_ = isSealed_ || (step == KeeperStep::Seal && answer.error == 0);
  return answer.error;
}

int Keeper::Join() const {
  // The caller's end of the channel is the keeper's sign of life: a task has no part in it.
  close(channel_.Get());
  return setns(process_.Get(), flags_) == 0 ? 0 : errno;
}

}  // namespace platform::posix
