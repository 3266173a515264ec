// What the host sees of the programs that are started, and services that others write too.

#include <fcntl.h>

#include "platform/environment.h"
#include "platform/process.h"
#include "platform/registry.h"
#include "platform/services.h"
#include "support/format.h"
#include "tests/platform/host_folder.h"

namespace platform::test {
namespace {

using process::Handle;
using registry::Key;

class HostProcesses : public HostFolderTest {
 protected:
  // What a shell script prints. It writes into a file: its own streams lead nowhere.
  std::string OutputOf(cvn::StringView script) const {
    Run(cvn::Format(u"/bin/sh -c \"exec >out; %s\"", script));
    return ContentOf(Path(u"out")).value_or("(none)");
  }

  void Run(cvn::StringView line) const {
    Handle started;
    EXPECT_EQ(process::Start(line, Folder(), &started), kSuccess) << Utf8(line);
    EXPECT_EQ(process::Wait(started, process::kInfinite), kSuccess);
  }

  // Makes a script that the host can run.
  void MakeScript(const std::string& name, std::string_view content) const {
    std::ofstream(Host(name)) << content;
    std::filesystem::permissions(Host(name), std::filesystem::perms::owner_all);
  }
};

TEST_F(HostProcesses, StartAfresh) {
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
  signal(SIGCHLD, SIG_DFL);
}

TEST_F(HostProcesses, GetTheHostsEnvironmentAndWhatTheRunSet) {
  setenv("tessel_outer", "of the host", 1);
  const std::pair<cvn::StringView, cvn::StringView> kVariables[] = {
      {u"PATH", u"C:\\Windows"},
      {u"Tessel_Run", u"first"},
      {u"Tessel_RUN", u"\u00E9 x"},
      {u"SystemRoot", u"C:\\Windows"}};
  for (const auto& [name, value] : kVariables) {
    ASSERT_EQ(environment::Set(name, value), kSuccess);
  }
  EXPECT_EQ(OutputOf(u"echo $tessel_outer,$Tessel_Run,$Tessel_RUN,$SystemRoot,$windir"),
            "of the host,,\xC3\xA9 x,C:\\Windows,\n");
  const std::string machine = std::filesystem::canonical(getenv("TESSEL_MACHINE"));
  EXPECT_EQ(OutputOf(u"echo $PATH $TESSEL_MACHINE"),
            std::filesystem::read_symlink("/proc/self/exe").parent_path().string() +
                ":/usr/sbin:/usr/bin:/sbin:/bin " + machine + '\n');
  ASSERT_EQ(environment::Set(u"TESSEL_OUTER", u"of the run"), kSuccess);
  EXPECT_EQ(OutputOf(u"echo $tessel_outer,$TESSEL_OUTER"), ",of the run\n");
}

TEST_F(HostProcesses, AreProgramsOfTheHost) {
  Touch(Host("plain"));
  MakeScript("marked", "no program");
  MakeScript("windows.exe", "MZ");
  const std::pair<cvn::String, Code> kCases[] = {
      {Path(u"plain"), kAccessDenied},
      {Path(u"marked"), kBadExeFormat},
      {Path(u"windows"), kBadExeFormat},
      {Folder(), kAccessDenied},
      {Path(u"no\\such"), kPathNotFound},
      {u"Q:\\program", kPathNotFound},
      {u"", kFileNotFound},
  };
  Handle handle;
  for (const auto& [path, code] : kCases) {
    EXPECT_CODE(code, process::Start(cvn::Format(u"\"%s\" ", path), u"", &handle)) << Utf8(path);
  }
  if (!IsFullRoot()) {
    GTEST_SKIP() << "what a process may do to others is another matter here";
  }
  // Those of the kernel, and the first one, are not ours to end.
  for (const std::uint32_t id : {1U, 2U}) {
    EXPECT_CODE(kAccessDenied, process::Open(id, process::kTerminate, &handle));
  }
  cvn::String path;
  process::ImageStep step;
  EXPECT_CODE(kGenFailure, process::ImagePath(2, &path, &step));
  EXPECT_EQ(step, process::ImageStep::Query);
}

Code Open(cvn::StringView name, services::Config* config = nullptr) {
  services::Handle manager;
  services::Handle service;
  EXPECT_EQ(services::OpenManager(services::kManagerConnect, &manager), kSuccess);
  const Code code = services::Open(manager, name, services::kAllAccess, &service);
  return code == kSuccess && config != nullptr ? services::QueryConfig(service, config) : code;
}

Code Create(cvn::StringView name, cvn::StringView displayName) {
  services::Config config;
  config.name = name;
  config.displayName = displayName;
  config.serviceType = 0x10;
  config.startType = 3;
  config.binaryPath = u"C:\\x.exe";
  services::Handle manager;
  EXPECT_EQ(services::OpenManager(services::kManagerCreateService, &manager), kSuccess);
  return services::Create(manager, config);
}

class ServiceKeys : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(registry::OpenKey(Key(registry::Root::LocalMachine),
                                u"SYSTEM\\CurrentControlSet\\Services", 0, &services_),
              kSuccess);
  }
  void Store(cvn::StringView service, cvn::StringView name, std::uint32_t type,
             std::vector<std::uint32_t> data) const {
    Key key;
    ASSERT_EQ(registry::CreateKey(services_, service, false, registry::kSetValue, &key), kSuccess);
    ASSERT_EQ(registry::SetValue(key, name, type, std::as_bytes(std::span(data))), kSuccess);
  }
  void StoreNumber(cvn::StringView service, cvn::StringView name, std::uint32_t number) const {
    Store(service, name, registry::kTypeDword, {number});
  }
  bool HasKey(cvn::StringView path) const {
    Key key;
    return registry::OpenKey(services_, path, 0, &key) == kSuccess;
  }
  Key services_;
};

TEST_F(ServiceKeys, AreServicesWhenTheyAreWhole) {
  EXPECT_EQ(Open(u"amsecurityservice"), kSuccess);
  for (const cvn::StringView name : {u"Type", u"Start", u"ErrorControl"}) {
    EXPECT_EQ(Open(u"Part"), services::kDoesNotExist) << Utf8(name);
    StoreNumber(u"Part", name, 0x10 * (name == u"Type") + 3 * (name == u"Start"));
  }
  EXPECT_EQ(Open(u"Part"), kSuccess);
  StoreNumber(u"Part", u"Type", 0x100);
  EXPECT_EQ(Open(u"Part"), services::kDoesNotExist);
  StoreNumber(u"Part\\Parameters", u"Port", 1);
  EXPECT_EQ(Create(u"Part", u"Whole now"), kSuccess);
  EXPECT_TRUE(HasKey(u"Part\\Parameters")) << "which the new service may have put there before";
  services::Config config;
  Store(u"Part", u"DependOnService", registry::kTypeMultiString, {});
  EXPECT_EQ(Open(u"Part", &config), kSuccess);
  EXPECT_TRUE(config.dependencies.Empty()) << "a list without anything in it";
}

}  // namespace
}  // namespace platform::test
