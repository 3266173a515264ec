#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "platform/machine.h"
#include "platform/offline/volume/volume.h"
#include "tests/platform/fixture.h"

namespace platform::test {
namespace {

std::string machineFolder;

std::string HostPathOf(cvn::StringView path) {
  posix::HostPath host;
  EXPECT_EQ(posix::Resolve(path, &host), kSuccess) << Utf8(path);
  return host.path;
}

std::string ReadToEnd(int source) {
  std::string bytes;
  std::array<char, 4096> buffer;
  for (ssize_t count = 0; (count = read(source, buffer.data(), buffer.size())) > 0;) {
    bytes.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return bytes;
}

}  // namespace

const std::string_view kStreamLineEnd = "\n";

void PreparePlatform() {
  machineFolder = (std::filesystem::temp_directory_path() / "tessel-machine-XXXXXX").string();
  ASSERT_NE(mkdtemp(machineFolder.data()), nullptr);
  ASSERT_EQ(setenv("TESSEL_MACHINE", (machineFolder + "/C").c_str(), 1), 0);
  machine::Description description;
  description.product = {.name = u"Ambry Shield",
                         .publisher = u"Ambry",
                         .installFolder = u"C:\\Program Files\\Ambry Shield",
                         .services = {{u"AMSecurityService", u"Ambry Shield Security Service"},
                                      {u"AmUpdateService", u"Ambry Shield Update Service"}}};
  ASSERT_EQ(machine::UseOrCreateDefault(description), kSuccess);
}

void CleanPlatform() { std::filesystem::remove_all(machineFolder); }

void RemoveTree(cvn::StringView folder) { std::filesystem::remove_all(HostPathOf(folder)); }

void MakeReadOnly(cvn::StringView file) { ASSERT_EQ(chmod(HostPathOf(file).c_str(), 0444), 0); }

bool MakeFolderLink(cvn::StringView link, cvn::StringView folder) {
  posix::HostPath place;
  EXPECT_EQ(posix::Resolve(link, &place), kFileNotFound);
  return symlink(HostPathOf(folder).c_str(), place.path.c_str()) == 0;
}

bool RunsUnderWine() { return false; }

std::optional<bool> IsPrivilegeEnabled(cvn::StringView /*name*/) { return std::nullopt; }

std::size_t OpenHandles() {
  const auto descriptors = std::filesystem::directory_iterator("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

std::string Capture(streams::Output stream, Sink sink, const std::function<void()>& action) {
  const int which = stream == streams::Output::Out ? STDOUT_FILENO : STDERR_FILENO;
  std::array<int, 2> ends = {-1, -1};
  std::string bytes;
  std::thread reader;
  if (sink == Sink::Pipe) {
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    reader = std::thread([&] { bytes = ReadToEnd(ends[0]); });
  } else if (sink == Sink::File) {
    ends[1] = open(std::filesystem::temp_directory_path().c_str(), O_TMPFILE | O_RDWR, 0600);
  } else if (sink == Sink::Failing) {
    ends[1] = open("/dev/full", O_WRONLY);
  }

  const int kept = fcntl(which, F_DUPFD_CLOEXEC, 3);
  if (ends[1] == -1) {
    close(which);
  } else {
    dup2(ends[1], which);
  }
  action();
  dup2(kept, which);
  close(kept);

  if (sink == Sink::File) {
    lseek(ends[1], 0, SEEK_SET);
    bytes = ReadToEnd(ends[1]);
  }
  if (ends[1] != -1) {
    close(ends[1]);
  }
  if (reader.joinable()) {
    reader.join();
    close(ends[0]);
  }
  return bytes;
}

}  // namespace platform::test
