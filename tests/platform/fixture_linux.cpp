#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "platform/machine.h"
#include "platform/offline/volume/volume.h"
#include "support/utf.h"
#include "tests/platform/fixture.h"
#include "tests/platform/host_folder.h"
#include "tests/platform/private_mount.h"

namespace platform::test {
namespace {

std::string machineFolder;

std::string HostPathOf(cvn::StringView path) {
  posix::HostPath host;
  EXPECT_EQ(posix::Resolve(path, &host), kSuccess) << Utf8(path);
  return host.spelling;
}

}  // namespace

void PreparePlatform() {
  PrivateMount::IsPrivate();
  machineFolder = (std::filesystem::temp_directory_path() / "tessel-machine-XXXXXX").string();
  ASSERT_NE(mkdtemp(machineFolder.data()), nullptr);
  ASSERT_EQ(setenv("TESSEL_MACHINE", (machineFolder + "/C").c_str(), 1), 0);
  ASSERT_EQ(setenv("TESSEL_RUN_VOLUME_PROGRAMS", "1", 1), 0);
  machine::Description description;
  description.product = {.name = u"Ambry Shield",
                         .publisher = u"Ambry",
                         .installFolder = u"C:\\Program Files\\Ambry Shield",
                         .services = {{u"AMSecurityService", u"Ambry Shield Security Service"},
                                      {u"AmUpdateService", u"Ambry Shield Update Service"}}};
  ASSERT_EQ(machine::Create(cvn::Utf8ToWide(getenv("TESSEL_MACHINE")), description), kSuccess);
  ASSERT_EQ(machine::UseDefault(), kSuccess);
}

void CleanPlatform() { RemoveAll(machineFolder); }

void RemoveTree(cvn::StringView folder) { RemoveAll(HostPathOf(folder)); }

bool MakeFolderLink(cvn::StringView link, cvn::StringView folder) {
  posix::HostPath place;
  EXPECT_EQ(posix::Resolve(link, &place), kFileNotFound);
  return symlink(HostPathOf(folder).c_str(), place.spelling.c_str()) == 0;
}

bool MakeOtherName(cvn::StringView file, cvn::StringView name) {
  posix::HostPath place;
  EXPECT_EQ(posix::Resolve(name, &place), kFileNotFound);
  return link(HostPathOf(file).c_str(), place.spelling.c_str()) == 0;
}

bool RunsUnderWine() { return false; }

std::size_t OpenHandles() {
  const auto descriptors = std::filesystem::directory_iterator("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

}  // namespace platform::test
