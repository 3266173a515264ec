#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <string>
#include <string_view>

#include "platform/offline/volume/volume.h"
#include "platform/profile.h"
#include "platform/random.h"
#include "tests/platform/fixture.h"
#include "tests/platform/host_file.h"

namespace platform {
namespace {

using profile::WriteString;
using test::ContentOf;
using test::HostContentOf;
using test::WriteContent;

class PosixProfile : public test::FolderTest {
 protected:
  std::string HostPathOf(cvn::StringView path) const {
    posix::HostPath host;
    EXPECT_EQ(posix::Resolve(path, &host), kSuccess);
    return host.path;
  }
  std::size_t EntriesInFolder() const {
    const std::filesystem::directory_iterator entries(HostPathOf(Folder()));
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
  }

  cvn::String path_ = Path(u"settings.ini");
};

TEST_F(PosixProfile, KeepsWhatTheFileHasBesideItsContent) {
  constexpr std::string_view kAttributes = "0x22";  // HIDDEN, ARCHIVE
  WriteContent(path_, "[a]\r\nk=1\r\n");
  const std::string host = HostPathOf(path_);
  ASSERT_EQ(chmod(host.c_str(), 0640), 0);
  const bool hasAttributes =
      setxattr(host.c_str(), "user.DOSATTRIB", kAttributes.data(), kAttributes.size(), 0) == 0;
  const std::string link = HostPathOf(Path(u"link.ini"));
  ASSERT_EQ(symlink(host.c_str(), link.c_str()), 0);

  EXPECT_EQ(WriteString(u"a", u"k", u"v", Path(u"link.ini")), kSuccess);

  EXPECT_EQ(ContentOf(path_), "[a]\r\nk=v\r\n");
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  struct stat entry {};
  ASSERT_EQ(stat(host.c_str(), &entry), 0);
  EXPECT_EQ(entry.st_mode & 07777, 0640U);
  std::array<char, 16> value{};
  if (hasAttributes) {
    EXPECT_EQ(getxattr(host.c_str(), "user.DOSATTRIB", value.data(), value.size()), 4);
    EXPECT_EQ(value.data(), kAttributes);
  }
  EXPECT_EQ(EntriesInFolder(), 2U);
}

TEST_F(PosixProfile, LeavesNothingBehindAFailure) {
  WriteContent(path_, "[a]\r\n");
  files::File holder;
  ASSERT_EQ(files::Open(path_, files::Access::Read, files::Share::ReadWrite,
                        files::Disposition::OpenExisting, &holder),
            kSuccess);
  EXPECT_EQ(WriteString(u"a", u"k", u"v", path_), kSharingViolation);
  EXPECT_EQ(ContentOf(path_), "[a]\r\n");
  EXPECT_EQ(EntriesInFolder(), 1U);
}

// Writes one of two values in turn until it is killed, and tells before each.
[[noreturn]] void WriteForEver(const cvn::String& path, int progress) {
  for (std::size_t i = 0;; ++i) {
    const char step = 's';
    if (write(progress, &step, 1) != 1) {
      _exit(1);
    }
    IgnoreError(WriteString(u"last", u"k", i % 2 == 0 ? u"first" : u"other", path));
  }
}

TEST_F(PosixProfile, AKilledWriterLeavesTheOldFileOrTheNewOne) {
  using Clock = std::chrono::steady_clock;
  constexpr int kRounds = 40;
  const std::string start = "[a]\r\nk=" + std::string(1'000'000, 'x') + "\r\n[last]\r\nk=";
  WriteContent(path_, start + "first\r\n");
  const std::string host = HostPathOf(path_);
  for (int round = 0; round < kRounds; ++round) {
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe(pipe.data()), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      WriteForEver(path_, pipe[1]);
    }
    // The first write tells how long one takes; the kill comes somewhere in the second.
    char step = '\0';
    ASSERT_EQ(read(pipe[0], &step, 1), 1);
    const auto firstWrite = Clock::now();
    ASSERT_EQ(read(pipe[0], &step, 1), 1);
    const auto secondWrite = Clock::now();
    const auto end = secondWrite + (secondWrite - firstWrite) * (SecureRandom32() % 1'000) / 1'000;
    while (Clock::now() < end) {
    }
    ASSERT_EQ(kill(child, SIGKILL), 0);
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    close(pipe[0]);
    close(pipe[1]);
    const std::string content = HostContentOf(host);
    ASSERT_TRUE(content == start + "first\r\n" || content == start + "other\r\n")
        << "round " << round << ": " << content.size() << " bytes";
  }
}

}  // namespace
}  // namespace platform
