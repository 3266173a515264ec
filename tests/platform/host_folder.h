// A test's folder as the Linux host sees it, and processes beside the test's own.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <utility>

#include "platform/offline/volume/volume.h"
#include "tests/platform/file_steps.h"

namespace platform::test {

// The bytes of a file; none when it can't be read. Past the platform: a child process that used it
// shares the kernel's reports on directories with the test, and may have read them in its place.
inline std::string HostContentOf(const std::string& hostPath) {
  std::ifstream stream(hostPath, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

inline void Touch(const std::string& hostPath) { std::ofstream(hostPath).put('x'); }

// Removes a tree, also what lies in folders that its owner may not write.
inline void RemoveAll(const std::string& hostPath) {
  namespace fs = std::filesystem;
  std::error_code ignored;
  for (fs::recursive_directory_iterator at(hostPath, ignored), end; at != end;
       at.increment(ignored)) {
    if (!at->is_symlink() && at->is_directory()) {
      fs::permissions(at->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
    }
  }
  fs::remove_all(hostPath);
}

// Runs `action` in a process of its own, and gives what it returns.
inline int InChild(const std::function<int()>& action) {
  const pid_t child = fork();
  if (child == 0) {
    _exit(action());
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Whether this is a root with its privileges, of which some containers' root has few or none.
inline bool IsFullRoot() {
  static const bool isFull =
      geteuid() == 0 && InChild([] {
                          constexpr uid_t kNobody = 65534;
                          return setgid(kNobody) == 0 && setuid(kNobody) == 0 ? 0 : 1;
                        }) == 0;
  return isFull;
}

// The same as an ordinary user of the host. Needs a full root or an ordinary user.
inline int AsOrdinaryUser(const std::function<int()>& action) {
  return InChild([&] {
    constexpr uid_t kNobody = 65534;
    const bool isRoot = geteuid() == 0;
    return isRoot && (setgid(kNobody) != 0 || setuid(kNobody) != 0) ? 99 : action();
  });
}

// Calls `work` again and again in a process that is killed somewhere in its second call, and then
// `check`; `rounds` times.
inline void KillInTheMiddle(int rounds, const std::function<void()>& work,
                            const std::function<void()>& check) {
  using Clock = std::chrono::steady_clock;
  for (int round = 0; round < rounds && !testing::Test::HasFailure(); ++round) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    while (child == 0) {
      if (write(ends[1], "s", 1) != 1) {
        _exit(1);
      }
      work();
    }
    char step = '\0';
    ASSERT_EQ(read(ends[0], &step, 1), 1);
    const auto first = Clock::now();
    ASSERT_EQ(read(ends[0], &step, 1), 1);
    const auto second = Clock::now();
    const auto end = second + (second - first) * round / rounds;
    while (Clock::now() < end) {
    }
    int status = 0;
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    close(ends[0]);
    close(ends[1]);
    EXPECT_TRUE(WIFSIGNALED(status)) << "it ended by itself";
    check();
  }
}

// Puts the current directory back at the end of its life.
class CurrentDirectory {
 public:
  explicit CurrentDirectory(const std::string& hostPath) {
    std::filesystem::current_path(hostPath);
  }
  CurrentDirectory(const CurrentDirectory&) = delete;
  CurrentDirectory& operator=(const CurrentDirectory&) = delete;
  ~CurrentDirectory() { std::filesystem::current_path(before_); }

 private:
  std::filesystem::path before_ = std::filesystem::current_path();
};

class HostFolderTest : public StepsTest {
 protected:
  HostFolderTest() {
    posix::HostPath host;
    EXPECT_EQ(posix::Resolve(Folder(), &host), kSuccess);
    host_ = host.spelling;
  }

  // The test's folder, and a place in it, as the host names them.
  const std::string& Host() const { return host_; }
  std::string Host(const std::string& name) const { return host_ + "/" + name; }

 private:
  std::string host_;
};

}  // namespace platform::test
