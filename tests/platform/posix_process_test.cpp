// What the host sees of the programs that are started.

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <thread>

#include "platform/environment.h"
#include "platform/paths.h"
#include "platform/process.h"
#include "support/format.h"
#include "support/utf.h"
#include "tests/platform/fixture.h"

namespace platform::test {
namespace {

using process::Handle;

class PosixProcess : public FolderTest {
 protected:
  // What a shell script prints. It writes into a file: its own streams lead nowhere.
  std::string OutputOf(cvn::StringView script) const {
    const cvn::String line = cvn::Format(u"/bin/sh -c \"exec >out; %s\"", script);
    Handle shell;
    EXPECT_EQ(process::Start(line, Folder(), &shell), kSuccess) << Utf8(line);
    EXPECT_EQ(process::Wait(shell, process::kInfinite), kSuccess);
    return ContentOf(Path(u"out")).value_or("(none)");
  }

  // Makes a script that the host can run.
  void MakeScript(cvn::StringView name, std::string_view content) const {
    WriteContent(Path(name), content);
    std::filesystem::permissions(HostPath(name), std::filesystem::perms::owner_all);
  }

  // Folder() lies on the machine.
  std::string HostPath(cvn::StringView name) const {
    std::string path = getenv("TESSEL_MACHINE") + Utf8(Path(name).AsView().substr(2));
    std::replace(path.begin(), path.end(), '\\', '/');
    return path;
  }
};

TEST_F(PosixProcess, ChildrenStartAfresh) {
  signal(SIGPIPE, SIG_IGN);
  signal(SIGCHLD, SIG_IGN);
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
  const int inheritable = dup(STDOUT_FILENO);

  // Signals from 32 on are the C library's own.
  EXPECT_EQ(OutputOf(u"exec sed -nE 's/^(Sig(Blk|Ign)).*(.{7})$/\\1 \\3/p' /proc/self/status"),
            "SigBlk 0000000\nSigIgn 0000000\n");
  EXPECT_EQ(OutputOf(u"readlink /proc/$$/fd/0 /proc/$$/fd/2"), "/dev/null\n/dev/null\n");
  // The last one is that of the listed folder.
  EXPECT_EQ(OutputOf(u"exec ls /proc/self/fd"), "0\n1\n2\n3\n");
  EXPECT_EQ(OutputOf(u"set -- $(cut -d' ' -f1,6 /proc/$$/stat); [ $1 = $2 ] && echo leads"),
            "leads\n")
      << "its session";

  close(inheritable);
  pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
  signal(SIGPIPE, SIG_DFL);
}

TEST_F(PosixProcess, ChildrenGetTheHostsEnvironmentAndWhatTheRunSet) {
  setenv("tessel_host", "of the host", 1);
  ASSERT_EQ(environment::Set(u"PATH", u"C:\\Windows"), kSuccess);
  ASSERT_EQ(environment::Set(u"Tessel_Run", u"first"), kSuccess);
  ASSERT_EQ(environment::Set(u"Tessel_RUN", u"\u00E9 x"), kSuccess);
  ASSERT_EQ(environment::Set(u"SystemRoot", u"C:\\Windows"), kSuccess);
  EXPECT_EQ(OutputOf(u"echo $tessel_host,$Tessel_Run,$Tessel_RUN,$SystemRoot,$windir"),
            "of the host,,\xC3\xA9 x,C:\\Windows,\n");
  EXPECT_EQ(OutputOf(u"echo $PATH"), std::string(getenv("PATH")) + '\n');
  const std::string machine = std::filesystem::canonical(getenv("TESSEL_MACHINE"));
  EXPECT_EQ(OutputOf(u"echo $TESSEL_MACHINE"), machine + '\n');
  ASSERT_EQ(environment::Set(u"TESSEL_HOST", u"of the run"), kSuccess);
  EXPECT_EQ(OutputOf(u"echo $tessel_host,$TESSEL_HOST"), ",of the run\n");
}

TEST_F(PosixProcess, FindsScriptsByTheRunsPath) {
  MakeScript(u"tool", "#!/bin/sh\necho \"$0 $1\" >out\n");
  ASSERT_EQ(environment::Set(u"PATH", Joined(u"Z:\\missing;;", Folder())), kSuccess);
  for (const cvn::StringView line : {u"tool \"a b\"", u"\"TOOL\" \"a b\""}) {
    Handle tool;
    ASSERT_EQ(process::Start(line, Folder(), &tool), kSuccess) << Utf8(line);
    EXPECT_EQ(process::Wait(tool, process::kInfinite), kSuccess);
    EXPECT_EQ(ContentOf(Path(u"out")),
              std::filesystem::canonical(HostPath(u"tool")).string() + " a b\n");
    EXPECT_EQ(files::Delete(Path(u"out")), kSuccess);
  }
}

TEST_F(PosixProcess, TellsWhatIsNoProgramOfTheHost) {
  WriteContent(Path(u"plain"), "no program");
  MakeScript(u"marked", "no program");
  MakeScript(u"windows.exe", "MZ");
  const struct {
    cvn::String path;
    Code code;
  } kCases[] = {
      {Path(u"plain"), kAccessDenied},
      {Path(u"marked"), kBadExeFormat},
      {Path(u"windows"), kBadExeFormat},
      {Folder(), kAccessDenied},
      {Path(u"no\\such"), kPathNotFound},
      {u"Q:\\program", kPathNotFound},
      {u"", kFileNotFound},
  };
  for (const auto& example : kCases) {
    Handle started;
    EXPECT_EQ(Observe([&] {
                return process::Start(cvn::Format(u"\"%s\" ", example.path), u"", &started);
              }),
              Expected(example.code))
        << Utf8(example.path);
  }
}

TEST_F(PosixProcess, TellsOfADeletedImage) {
  std::filesystem::copy_file("/bin/sleep", HostPath(u"sleeper (deleted)"));
  Handle sleeper;
  ASSERT_EQ(process::Start(cvn::Format(u"\"%s\" 600", Path(u"sleeper (deleted)")), u"", &sleeper),
            kSuccess);
  const auto image = [] {
    cvn::List<process::Entry> entries;
    process::ListStep step;
    EXPECT_EQ(process::List(&entries, &step), kSuccess);
    for (const process::Entry& entry : entries) {
      cvn::String path;
      if (entry.parentId == process::CurrentId() &&
          process::MainModulePath(entry.id, &path) == kSuccess) {
        return entry.executable.AsView() == paths::FindFileName(path) ? Utf8(path) : "(differs)";
      }
    }
    return std::string("(none)");
  };
  EXPECT_EQ(image(), Utf8(Path(u"sleeper (deleted)")));
  std::filesystem::remove(HostPath(u"sleeper (deleted)"));
  EXPECT_EQ(image(), Utf8(Path(u"sleeper (deleted)")));
  EXPECT_EQ(process::Terminate(sleeper, 0), kSuccess);
  process::Wait(sleeper, process::kInfinite);
}

TEST_F(PosixProcess, ProtectsTheKernel) {
  Handle opened;
  for (const std::uint32_t id : {1U, 2U}) {
    EXPECT_EQ(Observe([&] { return process::Open(id, process::kTerminate, &opened); }),
              Expected(kAccessDenied));
  }
  cvn::String path;
  process::ImageStep step;
  EXPECT_EQ(Observe([&] { return process::ImagePath(2, &path, &step); }), Expected(kGenFailure));
  EXPECT_EQ(step, process::ImageStep::Query);
}

// Whether the host keeps a child for us, running or ended.
bool HasChildren() {
  siginfo_t info{};
  return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

TEST_F(PosixProcess, NoChildIsLeftBehind) {
  const std::size_t before = OpenHandles();
  for (int i = 0; i < 1000; ++i) {
    Handle child;
    ASSERT_EQ(process::Start(u"/bin/true", u"", &child), kSuccess);
    if (i % 2 == 0) {
      ASSERT_EQ(process::Wait(child, process::kInfinite), kSuccess);
    }
  }
  // What takes the children that nobody waits for has a descriptor of its own.
  while (HasChildren() || OpenHandles() > before + 1) {
    std::this_thread::yield();
  }
}

}  // namespace
}  // namespace platform::test
