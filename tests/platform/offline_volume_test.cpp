// Where the offline volume is, its drives, and how its names and those of the host go together.

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <optional>
#include <random>
#include <vector>

#include "platform/file_search.h"
#include "platform/formats/names.h"
#include "platform/linux/other_accounts.h"
#include "platform/offline/machine/new_machine.h"
#include "platform/offline/volume/directory_index.h"
#include "platform/profile.h"
#include "support/format.h"
#include "tests/platform/host_folder.h"

namespace platform::test {
namespace {

using namespace std::chrono_literals;
using posix::DirectoryIndex;
using posix::HostPath;
using posix::Machine;

std::string HostNameOf(cvn::StringView text) {
  std::string host;
  posix::AppendHostText(text, &host);
  return host;
}

struct ResolverCase {
  cvn::StringView path;
  Code code;
  std::string host = "-";  // which does not matter
};

// Each path stands behind `before`, and the places behind `place`.
void Check(cvn::StringView before, const std::string& place, std::span<const ResolverCase> cases) {
  for (const ResolverCase& test : cases) {
    const cvn::String path = Joined(before, test.path);
    HostPath host;
    EXPECT_EQ(Observe([&] { return posix::Resolve(path, &host); }),
              (Outcome{test.code, kUntouched}))
        << Utf8(path);
    EXPECT_EQ(host.spelling, test.host == "-" ? host.spelling : place + test.host) << Utf8(path);
  }
}

class Resolver : public HostFolderTest {
 protected:
  Resolver() {
    std::filesystem::create_directories(Host("Dir/Sub"));
    std::filesystem::create_symlink("Dir", Host("Link"));
    std::filesystem::create_symlink("nowhere", Host("Dangling"));
    std::filesystem::create_symlink("Circle", Host("Circle"));
    for (const char* name : {"File.txt", "Dir/Sub/File.txt", "Dir/dots...", "Dir/blank "}) {
      Touch(Host(name));
    }
  }
};

TEST_F(Resolver, FindsNamesBelowTheMachine) {
  const ResolverCase kCases[] = {
      {u"", kSuccess, ""},
      {u"\\", kSuccess, ""},
      {u"\\File.txt", kSuccess, "/File.txt"},
      {u"/dir/SUB\\fILE.TXT", kSuccess, "/Dir/Sub/File.txt"},
      {u"\\\\dir\\\\\\sub\\", kSuccess, "/Dir/Sub"},
      {u"\\Link\\Sub\\file.txt", kSuccess, "/Link/Sub/File.txt"},
      {u"\\link\\sub\\file.txt", kSuccess, "/Dir/Sub/File.txt"},
      {u"\\DANGLING", kSuccess, "/Dangling"},
      {u"\\circle", kSuccess, "/Circle"},
      // What is missing, and where.
      {u"\\DIR\\SUB\\New.txt", kFileNotFound, "/Dir/Sub/New.txt"},
      {u"\\DIR\\New\\", kFileNotFound, "/Dir/New"},
      {u"\\dir\\new\\file.txt", kPathNotFound},
      {u"\\file.txt\\below", kPathNotFound},
      {u"\\File.txt\\below", kPathNotFound},
      {u"\\Dangling\\below", kPathNotFound},
      {u"\\Circle\\below", kCantResolveFilename},
      {u"\\file.txt\\", kInvalidName},
      // What is cut.
      {u"\\.\\dir\\.\\sub\\..\\.\\..\\file.txt", kSuccess, "/File.txt"},
      {u"\\new\\..\\file.txt", kSuccess, "/File.txt"},
      {u"\\file.txt. . .", kSuccess, "/File.txt"},
      {u"\\dir. ..", kSuccess, "/Dir"},
      {u"\\dir.\\sub.\\", kSuccess, "/Dir/Sub"},
      {u"\\dir..\\sub", kPathNotFound},
      {u"\\dir \\sub", kPathNotFound},
      {u"\\dir\\blank ", kFileNotFound, "/Dir/blank"},
      {u"\\dir\\ ... .", kSuccess, "/Dir"},
      {cvn::StringView(u"\\dir\0\\new\\file", 14), kSuccess, "/Dir"},
      // What is refused, even where nothing could be.
      {u"\\a:b", kInvalidName},
      {u"\\new\\a*b\\file", kInvalidName},
      {u"\\tab\there", kInvalidName},
  };
  Check(Folder(), Host(), kCases);
}

TEST_F(Resolver, TakesLiteralPathsAsTheyStand) {
  const ResolverCase kCases[] = {
      {u"\\DIR\\sub\\file.txt", kSuccess, "/Dir/Sub/File.txt"},
      {u"\\dir\\", kSuccess, "/Dir"},
      {u"\\dir\\DOTS...", kSuccess, "/Dir/dots..."},
      {u"\\dir\\Blank ", kSuccess, "/Dir/blank "},
      {u"\\dir\\new.", kFileNotFound, "/Dir/new."},
      {u"\\dir/sub", kInvalidName},
      {u"\\dir\\\\sub", kInvalidName},
      {u"\\dir\\.\\sub", kInvalidName},
      {u"\\dir\\..\\file.txt", kInvalidName},
      {u"\\a?b", kInvalidName},
  };
  Check(Joined(u"\\\\?\\", Folder()), Host(), kCases);
  Check(Joined(u"\\??\\", Folder()), Host(), kCases);
}

TEST_F(Resolver, KnowsTwoDrives) {
  const std::string& machine = Machine::Get().Root();
  const ResolverCase kCases[] = {
      {u"C:\\", kSuccess, machine},
      {u"c:/..\\..\\.", kSuccess, machine},
      {u"C:", kSuccess, machine},
      {u"C:new", kFileNotFound, machine + "/new"},
      {u"\\\\.\\C:\\new.", kFileNotFound, machine + "/new"},
      {u"//?/C:/new.", kFileNotFound, machine + "/new"},
      {u"\\\\?\\C:", kSuccess, machine},
      {u"Z:\\", kSuccess, "/"},
      {u"z:/new", kFileNotFound, "/new"},
      {u"Z:\\..\\..\\DEV\\null", kSuccess, "/dev/null"},
      {u"Z:\\a<b>:c|\u0001 .", kFileNotFound, "/a<b>:c|\u0001 ."},
      {u"", kPathNotFound, ""},
      {cvn::StringView(u"\0C:\\", 4), kPathNotFound, ""},
      {u"Q:\\", kPathNotFound, ""},
      {u"\\\\?\\Q:\\a", kPathNotFound, ""},
      {u"\\\\?\\C:new", kPathNotFound, ""},
      {u"\\\\.\\PhysicalDrive0", kPathNotFound, ""},
      {u"\\\\server\\share\\file", kBadNetPath, ""},
      {u"//server/share", kBadNetPath, ""},
      {u"\\\\?\\UNC\\server\\share", kBadNetPath, ""},
  };
  Check(u"", "", kCases);
}

TEST_F(Resolver, StartsAtTheCurrentDirectory) {
  const std::string& machine = Machine::Get().Root();
  constexpr cvn::StringView kUp = u"..\\..\\..\\..\\..\\..\\..\\..\\new";
  const ResolverCase kInside[] = {
      {u"new", kFileNotFound, Host("Dir/new")},   {u".", kSuccess, Host("Dir")},
      {kUp, kFileNotFound, machine + "/new"},     {u"\\new", kFileNotFound, machine + "/new"},
      {u"/new", kFileNotFound, machine + "/new"}, {u"C:new", kFileNotFound, Host("Dir/new")},
      {u"Z:new", kFileNotFound, "/new"},
  };
  const ResolverCase kOutside[] = {
      {u"new", kFileNotFound, "/dev/new"},   {u".", kSuccess, "/dev"},
      {kUp, kFileNotFound, "/new"},          {u"\\new", kFileNotFound, "/new"},
      {u"/new", kFileNotFound, "/new"},      {u"C:new", kFileNotFound, machine + "/new"},
      {u"Z:new", kFileNotFound, "/dev/new"},
  };
  {
    const CurrentDirectory directory(Host("Dir"));
    Check(u"", "", kInside);
    EXPECT_EQ(Utf8(paths::CurrentDirectory()), Utf8(Path(u"Dir")));
  }
  const CurrentDirectory directory("/dev");
  Check(u"", "", kOutside);
  EXPECT_EQ(Utf8(paths::CurrentDirectory()), "Z:\\dev");
}

// Rows of the pieces that could be taken for one another, both ways: surrogates and the escapes of
// single bytes; UTF-8 that is cut, overlong, beyond Unicode or spells surrogates.
TEST(Names, LoseNothingInEitherDirection) {
  EXPECT_EQ(posix::ToWide("a\xE9z"), u"a\xDCE9z");
  EXPECT_EQ(posix::ToWide("\xED\xA0\x80"), u"\xD800");
  const char16_t kUnits[] = {u'a',   0xE9,   0xD800, 0xDBFF, 0xDC00, 0xDC80, 0xDC83,
                             0xDCA9, 0xDCB2, 0xDCC3, 0xDCED, 0xDFFF, u'/'};
  const char kBytes[] = {'a',    '/',    '\x80', '\x83', '\x90', '\x9F', '\xA0', '\xA9',
                         '\xB2', '\xBF', '\xC0', '\xC3', '\xED', '\xF0', '\xF4', '\xFF'};
  std::minstd_rand random(1);
  const auto pick = [&random](const auto& from) { return from[random() % std::size(from)]; };
  for (int i = 0; i < 60'000; ++i) {
    std::u16string text;
    std::string host;
    for (auto length = random() % 12; text.size() <= length;) {
      text.push_back(pick(kUnits));
      host.push_back(pick(kBytes));
    }
    ASSERT_EQ(posix::ToWide(HostNameOf(text)), text) << testing::PrintToString(HostNameOf(text));
    ASSERT_EQ(HostNameOf(posix::ToWide(host)), host) << testing::PrintToString(host);
  }
}

TEST(Names, FoldUnitForUnitInNoLanguage) {
  const std::pair<cvn::StringView, cvn::StringView> kCases[] = {
      {u"azAZ09_[{", u"AZAZ09_[{"},
      {u"\u00E9\u00FF\u0101\u03C9\u0451\u0561", u"\u00C9\u0178\u0100\u03A9\u0401\u0531"},
      {u"\u00DF\u0131\u017F\u00B5\u0149", u"\u00DF\u0131\u017F\u00B5\u0149"},
      {u"\xD801\xDC28", u"\xD801\xDC28"},  // a small letter beyond the units
      {u"\xDC41\xD841", u"\xDC41\xD841"},
  };
  for (const auto& [name, folded] : kCases) {
    EXPECT_EQ(posix::Folded(name), folded) << Utf8(name);
  }
}

using Index = HostFolderTest;

TEST_F(Index, PrefersTheExactNameThenAlwaysTheSame) {
  for (const char* name : {"name", "nAME", "Name", "naME"}) {
    Touch(Host(name));
  }
  HostPath host;
  EXPECT_EQ(posix::Resolve(Path(u"naME"), &host), kSuccess);
  EXPECT_EQ(host.spelling, Host("naME"));
  for (const char* first : {"Name", "nAME"}) {
    EXPECT_EQ(posix::Resolve(Path(u"NAME"), &host), kSuccess);
    EXPECT_EQ(host.spelling, Host(first));
    EXPECT_EQ(files::Delete(Path(u"NAME")), kSuccess);
  }
  EXPECT_EQ(files::Replace(Path(u"NAME"), Path(u"NamE")), kSuccess);
  EXPECT_EQ(Found(Path(u"*")), "., .., NamE, name");
}

// With the kernel's reports, and where there are none to be had.
class OtherAccounts : public HostFolderTest {};

TEST_F(OtherAccounts, CanRedirectWhatLeadsThroughTheirFolders) {
  for (const char* name : {"own", "open", "open/in", "sticky", "sticky/in", "group"}) {
    ASSERT_EQ(mkdir(Host(name).c_str(), 0755), 0) << name;
  }
  chmod(Host("open").c_str(), 0777);
  chmod(Host("sticky").c_str(), 01777);
  chmod(Host("group").c_str(), 0775);
  const bool hasOthers = chown(Host("group").c_str(), geteuid(), 65534) == 0;
  ASSERT_EQ(symlink("../open/in", Host("own/relative").c_str()), 0);
  ASSERT_EQ(symlink(Host("sticky/in").c_str(), Host("own/absolute").c_str()), 0);
  ASSERT_EQ(symlink("circle", Host("own/circle").c_str()), 0);
  const std::pair<const char*, bool> kCases[] = {
      {"own", false},          {"own/new", false},   {"own/none/new", true},
      {"open", false},         {"open/in", true},    {"open/new", true},
      {"sticky/in", false},    {"sticky/new", true}, {"own/relative", true},
      {"own/absolute", false}, {"own/circle", true}, {"own/absolute/../new", true},
      {"group/new", hasOthers}};
  for (const auto& [path, canThey] : kCases) {
    EXPECT_EQ(posix::CanOthersRedirect(Host(path)), canThey) << path;
  }
}

enum class Followed { ByReading, ByReports, ByTimes };

class IndexChanges : public HostFolderTest, public testing::WithParamInterface<Followed> {
 protected:
  IndexChanges() {
    while (GetParam() == Followed::ByTimes && (taken_.empty() || taken_.back() >= 0)) {
      taken_.push_back(inotify_init1(IN_CLOEXEC));
    }
  }
  ~IndexChanges() override {
    for (const int instance : taken_) {
      close(instance);
    }
  }

  std::string Find(const std::string& folder, std::string_view name) {
    constexpr int kEnoughToBeKept = 12;
    const posix::Descriptor held(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    std::string spelled;
    Code code = kPathNotFound;
    for (int i = 0; i < (GetParam() == Followed::ByReading ? 1 : kEnoughToBeKept); ++i) {
      code = held.Get() < 0 ? kPathNotFound : index_.Find(held.Get(), name, &spelled);
    }
    return code == kSuccess ? spelled : std::to_string(code);
  }

  DirectoryIndex index_;
  std::vector<int> taken_;  // all reports that the kernel lets a user have
};

INSTANTIATE_TEST_SUITE_P(, IndexChanges,
                         testing::Values(Followed::ByReading, Followed::ByReports,
                                         Followed::ByTimes));

TEST_P(IndexChanges, ShowAtOnce) {
  const std::string folder = Host("folder");
  EXPECT_EQ(Find(folder, "a"), "3");
  std::filesystem::create_directory(folder);
  EXPECT_EQ(Find(folder, "FILE"), "2");
  Touch(folder + "/File");
  EXPECT_EQ(Find(folder, "FILE"), "File");
  EXPECT_EQ(Find(folder + "/File", "FILE"), "3");
  std::filesystem::create_directory(folder + "/Sub");
  EXPECT_EQ(Find(folder, "SUB"), "Sub");
  std::filesystem::rename(folder + "/File", folder + "/Other");
  EXPECT_EQ(Find(folder, "FILE"), "2");
  EXPECT_EQ(Find(folder, "OTHER"), "Other");
  std::filesystem::remove(folder + "/Other");
  EXPECT_EQ(Find(folder, "OTHER"), "2");
  std::filesystem::create_symlink("/", folder + "/Link");
  EXPECT_EQ(Find(folder, "LINK"), "Link");
  // Nothing happened for long, and then something does.
  std::filesystem::last_write_time(folder, std::filesystem::file_time_type::clock::now() - 1h);
  EXPECT_EQ(Find(folder, "LATE"), "2");
  EXPECT_EQ(Find(folder, "LINK"), "Link");
  Touch(folder + "/Late");
  EXPECT_EQ(Find(folder, "LATE"), "Late");
  // The folder itself gives way to another.
  std::filesystem::rename(folder, Host("before"));
  EXPECT_EQ(Find(folder, "SUB"), "3");
  std::filesystem::create_directory(folder);
  Touch(folder + "/New");
  EXPECT_EQ(Find(folder, "SUB"), "2");
  EXPECT_EQ(Find(folder, "NEW"), "New");
  EXPECT_EQ(Find(Host("before"), "SUB"), "Sub");
  std::filesystem::remove_all(folder);
  EXPECT_EQ(Find(folder, "NEW"), "3");
}

// A folder of the host beside the machine, to which everything on the volume tries to lead.
class HostileVolume : public HostFolderTest {
 protected:
  HostileVolume() : canary_(Machine::Get().Root() + "-canary") {
    std::filesystem::create_directories(canary_ + "/folder");
    for (const char* name : {"/file", "/copy", "/folder/file"}) {
      Touch(canary_ + name);
    }
    std::filesystem::create_directory(Host("sub"));
    Touch(Host("sub/file"));
    const std::string up = "../../../../../../../../../../../../..";
    const std::pair<const char*, std::string> kLinks[] = {
        {"absolute", canary_},
        {"upwards", up + canary_},
        {"upwards in the volume", "sub/../" + up + canary_},
        {"chain", "ABSOLUTE"},
        {"of the kernel", "/proc/self/root" + canary_},
        {"root", "/"},
        {"to a file", canary_ + "/file"},
        {"to no file", up + canary_ + "/new"},
        {"inside", Host("SUB").substr(Machine::Get().Root().size())},
        {"inside upwards", "/" + up + Host("sub/../SUB")},
    };
    for (const auto& [link, target] : kLinks) {
      std::filesystem::create_symlink(target, Host(link));
    }
    for (int i = 0; i <= 41; ++i) {
      std::filesystem::create_symlink(i == 0 ? "sub" : "link" + std::to_string(i - 1),
                                      Host("link" + std::to_string(i)));
    }
  }
  ~HostileVolume() override { std::filesystem::remove_all(canary_); }

  // All that the host's folder has, and what is in its files.
  std::string Canary() const {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(canary_)) {
      found.push_back(entry.path().string().substr(canary_.size()) +
                      (entry.is_regular_file() ? HostContentOf(entry.path()) : ""));
    }
    std::sort(found.begin(), found.end());
    std::string all;
    for (const std::string& name : found) {
      all += name + ' ';
    }
    return all;
  }
  static constexpr std::string_view kUntouchedCanary = "/copyx /filex /folder /folder/filex ";

  // What writes, removes and finds in one folder of the volume.
  void UseAll(cvn::StringView folder) const {
    const cvn::String path = Path(folder);
    const auto in = [&path](cvn::StringView name) { return Joined(Joined(path, u"\\"), name); };
    files::File file;
    const Code codes[] = {
        files::Open(in(u"file"), files::Access::Write, files::Share::None,
                    files::Disposition::CreateAlways, &file),
        files::Copy(Path(u"own"), in(u"copy"), false),
        files::Copy(Path(u"own"), in(u"new"), true),
        files::Replace(in(u"copy"), in(u"file")),
        files::CreateDirectory(in(u"made")),
        files::SetAttributes(in(u"file"), files::kReadOnly | files::kHidden),
        profile::WriteString(u"s", u"k", u"v", in(u"file")),
        files::Move(in(u"new"), in(u"moved"), files::kMoveReplaceExisting),
    };
    static_cast<void>(codes);  // which depend on what the folder is at the moment
    file.Close();
    files::Search search;
    files::SearchEntry entry;
    Code code = search.First(in(u"*"), &entry);
    for (; code == kSuccess; code = search.Next(&entry)) {
      if (!entry.IsSelfOrParent()) {
        const cvn::String found = in(entry.Name());
        IgnoreError(files::SetAttributes(found, entry.GetAttributes() & ~files::kReadOnly));
        IgnoreError(entry.IsDirectory() ? files::RemoveDirectory(found) : files::Delete(found));
      }
    }
  }

  const std::string canary_;
};

// As on a kernel that has no openat2.
bool TakeAwayOpenat2() {
  sock_filter program[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat2, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog filter = {std::size(program), program};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0 &&
         syscall(SYS_openat2, AT_FDCWD, "/", nullptr, 0) < 0 && errno == ENOSYS;
}

TEST_F(HostileVolume, ItsLinksStayOnIt) {
  Touch(Host("own"));
  const ResolverCase kCases[] = {
      {u"\\absolute\\file", kPathNotFound},
      {u"\\root", kSuccess, "/root"},
      {u"\\root\\windows", kSuccess},
      {u"\\inside\\FILE", kSuccess},
      {u"\\inside upwards\\file", kPathNotFound},
      {u"\\link39\\file", kSuccess},
      {u"\\link40\\file", kCantResolveFilename},
      {u"\\link40\\FILE", kCantResolveFilename},
  };
  const auto attack = [&] {
    Check(Folder(), Host(), kCases);
    for (const cvn::StringView link :
         {u"absolute", u"upwards", u"upwards in the volume", u"chain", u"of the kernel"}) {
      UseAll(link);
      EXPECT_FALSE(paths::Exists(Joined(Path(link), u"\\file"))) << Utf8(link);
      EXPECT_EQ(Found(Joined(Path(link), u"\\*")), "267") << Utf8(link);
    }
    for (const cvn::StringView link : {u"to a file", u"to no file"}) {
      files::File file;
      EXPECT_NE(files::Open(Path(link), files::Access::Write, files::Share::None,
                            files::Disposition::OpenAlways, &file),
                kSuccess);
      EXPECT_NE(files::Copy(Path(u"own"), Path(link), false), kSuccess);
      EXPECT_NE(files::Copy(Path(link), Path(u"copy"), false), kSuccess);
      EXPECT_NE(files::TakePlace(Path(u"own"), Path(link)), kSuccess);
    }
    EXPECT_EQ(Canary(), kUntouchedCanary);
    return HasFailure() ? 1 : 0;
  };
  EXPECT_EQ(attack(), 0);
  EXPECT_EQ(InChild([&] { return TakeAwayOpenat2() ? attack() : 2; }), 0);
  EXPECT_EQ(files::Delete(Path(u"to a file")), kSuccess);
  EXPECT_EQ(Canary(), kUntouchedCanary);
}

// Another account swaps a folder and a file of its own for links, all the time.
TEST_F(HostileVolume, SwappedFoldersLeadNowhere) {
  Touch(Host("own"));
  Touch(Host("leaf"));
  const std::pair<std::string, std::string> kSwapped[] = {{Host("sub"), Host("upwards")},
                                                          {Host("leaf"), Host("to a file")}};
  const pid_t swapper = fork();
  while (swapper == 0) {
    for (const auto& [own, link] : kSwapped) {
      renameat2(AT_FDCWD, own.c_str(), AT_FDCWD, link.c_str(), RENAME_EXCHANGE);
    }
    if (getppid() == 1) {
      _exit(0);
    }
  }
  const auto attack = [&] {
    for (int i = 0; i < 300; ++i) {
      UseAll(u"sub");
      UseAll(u"SUB");
      files::File file;
      IgnoreError(files::Open(Path(u"leaf"), files::Access::Write, files::Share::None,
                              files::Disposition::CreateAlways, &file));
      IgnoreError(files::Copy(Path(u"own"), Path(u"leaf"), false));
    }
    return 0;
  };
  EXPECT_EQ(attack(), 0);
  EXPECT_EQ(InChild([&] { return TakeAwayOpenat2() ? attack() : 2; }), 0);
  kill(swapper, SIGKILL);
  waitpid(swapper, nullptr, 0);
  EXPECT_EQ(Canary(), kUntouchedCanary);
}

using Skeleton = HostFolderTest;

TEST_F(Skeleton, IsMadeWhereAMachineIsMissing) {
  std::filesystem::create_directory(Host("there"));
  Touch(Host("file"));
  struct Case {
    const char* what;
    std::string machine;
    std::string dataHome;
    Code state;
    std::string root;
    bool hasSkeleton;
  };
  const std::string kNone = "(not set)";
  const Case kCases[] = {
      {"missing", Host("new/named/"), "", kPathNotFound, "", false},
      {"empty", "", "", kPathNotFound, "", false},
      {"relative", std::filesystem::relative(Host("there")), "", kSuccess, Host("there"), false},
      {"default", kNone, Host("data"), kSuccess, Host("data/tessel/machine"), true},
      {"home", kNone, "not/absolute", kSuccess, Host(".local/share/tessel/machine"), true},
      {"a file", Host("file"), "", kDirectory, Host("file"), false},
      {"below a file", Host("file/new"), "", kPathNotFound, "", false},
      {"the host", "/", "", kSuccess, "", false},
  };
  const auto findEach = [&] {
    setenv("HOME", Host().c_str(), 1);
    for (const Case& test : kCases) {
      SCOPED_TRACE(test.what);
      setenv("TESSEL_MACHINE", test.machine.c_str(), 1);
      if (test.machine == kNone) {
        unsetenv("TESSEL_MACHINE");
      }
      setenv("XDG_DATA_HOME", test.dataHome.c_str(), 1);
      for (int i = 0; i < 2; ++i) {  // made, then found
        const Machine machine = posix::DefaultMachine({});
        EXPECT_EQ(machine.State(), test.state);
        EXPECT_EQ(machine.Root(), test.root);
      }
      for (const char* name :
           {"/Windows/System32/config", "/Program Files (x86)", "/Users/Public"}) {
        EXPECT_EQ(std::filesystem::is_directory(test.root + name), test.hasSkeleton) << name;
      }
    }
    return HasFailure() ? 1 : 0;
  };
  EXPECT_EQ(InChild(findEach), 0);  // whose environment is its own
}

}  // namespace
}  // namespace platform::test
