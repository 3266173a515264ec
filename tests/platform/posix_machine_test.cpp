// What only the Linux home has: the machine's folder, its drives, and the names of the host.

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <vector>

#include "platform/environment.h"
#include "platform/formats/names.h"
#include "platform/linux/arguments.h"
#include "platform/offline/environment/environment.h"
#include "platform/offline/machine/new_machine.h"
#include "platform/offline/volume/directory_index.h"
#include "platform/offline/volume/volume.h"
#include "platform/paths.h"
#include "support/format.h"
#include "tests/platform/fixture.h"

namespace platform::test {
namespace {

using namespace std::chrono_literals;
using posix::DirectoryIndex;
using posix::HostPath;
using posix::Machine;
using posix::Resolve;

std::string HostNameOf(cvn::StringView text) {
  std::string host;
  posix::AppendHostText(text, &host);
  return host;
}

void Touch(const std::string& hostPath) { std::ofstream(hostPath).put('x'); }

// Runs `action` in a process of its own, and gives what it returns.
int InChild(const std::function<int()>& action) {
  const pid_t child = fork();
  if (child == 0) {
    _exit(action());
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
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

// Sets a variable of the host, and puts it back at the end of its life.
class HostVariable {
 public:
  HostVariable(const char* name, const char* value) : name_(name) {
    if (const char* before = std::getenv(name)) {
      before_ = before;
    }
    value == nullptr ? unsetenv(name) : setenv(name, value, 1);
  }
  HostVariable(const HostVariable&) = delete;
  HostVariable& operator=(const HostVariable&) = delete;
  ~HostVariable() { before_ ? setenv(name_, before_->c_str(), 1) : unsetenv(name_); }

 private:
  const char* name_;
  std::optional<std::string> before_;
};

class MachineTest : public FolderTest {
 protected:
  MachineTest() {
    HostPath host;
    EXPECT_EQ(Resolve(Folder(), &host), kSuccess);
    host_ = host.path;
  }

  // The test's folder, as the host names it.
  const std::string& Host() const { return host_; }
  std::string Host(const std::string& name) const { return host_ + "/" + name; }

 private:
  std::string host_;
};

struct ResolverCase {
  cvn::StringView path;
  Code code;
  std::string host;  // below the test's folder; "-" when it does not matter
};

class ResolverTest : public MachineTest {
 protected:
  ResolverTest() {
    std::filesystem::create_directories(Host("Dir/Sub"));
    std::filesystem::create_symlink("Dir", Host("Link"));
    std::filesystem::create_symlink("nowhere", Host("Dangling"));
    std::filesystem::create_symlink("Circle", Host("Circle"));
    for (const char* name : {"File.txt", "Dir/Sub/File.txt", "Dir/dots...", "Dir/blank "}) {
      Touch(Host(name));
    }
  }

  // Each path stands behind `before`, and the places behind `place`.
  static void Check(cvn::StringView before, const std::string& place,
                    std::span<const ResolverCase> cases) {
    for (const ResolverCase& test : cases) {
      const cvn::String path = Joined(before, test.path);
      HostPath host;
      SetLastError(kUntouched);
      EXPECT_EQ(Resolve(path, &host), test.code) << Utf8(path);
      EXPECT_EQ(LastError(), kUntouched) << Utf8(path);
      if (test.host != "-") {
        EXPECT_EQ(host.path, place + test.host) << Utf8(path);
      }
    }
  }
};

TEST_F(ResolverTest, FindsNamesBelowTheMachine) {
  const ResolverCase kCases[] = {
      {u"", kSuccess, ""},
      {u"\\", kSuccess, ""},
      {u"\\File.txt", kSuccess, "/File.txt"},
      {u"/dir/SUB\\fILE.TXT", kSuccess, "/Dir/Sub/File.txt"},
      {u"\\\\dir\\\\\\sub\\", kSuccess, "/Dir/Sub"},
      {u"\\link\\sub\\file.txt", kSuccess, "/Link/Sub/File.txt"},
      {u"\\DANGLING", kSuccess, "/Dangling"},
      {u"\\circle", kSuccess, "/Circle"},
      // What is missing, and where.
      {u"\\New.txt", kFileNotFound, "/New.txt"},
      {u"\\DIR\\SUB\\New.txt", kFileNotFound, "/Dir/Sub/New.txt"},
      {u"\\DIR\\New\\", kFileNotFound, "/Dir/New"},
      {u"\\new\\file.txt", kPathNotFound, "-"},
      {u"\\dir\\new\\file.txt", kPathNotFound, "-"},
      {u"\\file.txt\\below", kPathNotFound, "-"},
      {u"\\File.txt\\below", kPathNotFound, "-"},
      {u"\\Dangling\\below", kPathNotFound, "-"},
      {u"\\Circle\\below", kCantResolveFilename, "-"},
      {u"\\file.txt\\", kInvalidName, "-"},
      // What is cut.
      {u"\\.\\dir\\.\\sub\\..\\.\\..\\file.txt", kSuccess, "/File.txt"},
      {u"\\new\\..\\file.txt", kSuccess, "/File.txt"},
      {u"\\file.txt. . .", kSuccess, "/File.txt"},
      {u"\\dir. ..", kSuccess, "/Dir"},
      {u"\\dir.\\sub.\\", kSuccess, "/Dir/Sub"},
      {u"\\dir..\\sub", kPathNotFound, "-"},
      {u"\\dir \\sub", kPathNotFound, "-"},
      {u"\\dir\\blank ", kFileNotFound, "/Dir/blank"},
      {u"\\dir\\ ... .", kSuccess, "/Dir"},
      {cvn::StringView(u"\\dir\0\\new\\file", 14), kSuccess, "/Dir"},
      // What is refused, even where nothing could be.
      {u"\\a:b", kInvalidName, "-"},
      {u"\\new\\a*b\\file", kInvalidName, "-"},
      {u"\\tab\there", kInvalidName, "-"},
  };
  Check(Folder(), Host(), kCases);
}

TEST_F(ResolverTest, TakesLiteralPathsAsTheyStand) {
  const ResolverCase kCases[] = {
      {u"\\DIR\\sub\\file.txt", kSuccess, "/Dir/Sub/File.txt"},
      {u"\\dir\\", kSuccess, "/Dir"},
      {u"\\dir\\DOTS...", kSuccess, "/Dir/dots..."},
      {u"\\dir\\Blank ", kSuccess, "/Dir/blank "},
      {u"\\dir\\new.", kFileNotFound, "/Dir/new."},
      {u"\\dir/sub", kInvalidName, "-"},
      {u"\\dir\\\\sub", kInvalidName, "-"},
      {u"\\dir\\.\\sub", kInvalidName, "-"},
      {u"\\dir\\..\\file.txt", kInvalidName, "-"},
      {u"\\a?b", kInvalidName, "-"},
  };
  Check(Joined(u"\\\\?\\", Folder()), Host(), kCases);
  Check(Joined(u"\\??\\", Folder()), Host(), kCases);
}

TEST_F(ResolverTest, KnowsTwoDrives) {
  const std::string& machine = Machine::Get().Root();
  struct Case {
    cvn::StringView path;
    Code code;
    std::string host;
  };
  const Case kCases[] = {
      {u"C:\\", kSuccess, machine},
      {u"c:/..\\..\\.", kSuccess, machine},
      {u"C:", kSuccess, machine},
      {u"C:new", kFileNotFound, machine + "/new"},
      {u"\\\\.\\C:\\new.", kFileNotFound, machine + "/new"},
      {u"//?/C:/new.", kFileNotFound, machine + "/new"},
      {u"\\\\?\\C:", kSuccess, machine},
      {u"Z:\\", kSuccess, "/"},
      {u"z:/new", kFileNotFound, "/new"},
      {u"Z:\\..\\..\\dev\\null", kSuccess, "/dev/null"},
      {u"Z:\\DEV\\null", kSuccess, "/dev/null"},
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
  for (const Case& test : kCases) {
    HostPath host;
    EXPECT_EQ(Resolve(test.path, &host), test.code) << Utf8(test.path);
    EXPECT_EQ(host.path, test.host) << Utf8(test.path);
  }
}

TEST_F(ResolverTest, StartsAtTheCurrentDirectory) {
  const std::string& machine = Machine::Get().Root();
  struct Case {
    cvn::StringView path;
    Code code;
    std::string inside;   // from the folder "Dir" of the test's folder
    std::string outside;  // from the host's /dev
  };
  const Case kCases[] = {
      {u"new", kFileNotFound, Host("Dir/new"), "/dev/new"},
      {u".", kSuccess, Host("Dir"), "/dev"},
      {u"..\\..\\..\\..\\..\\..\\..\\..\\..\\new", kFileNotFound, machine + "/new", "/new"},
      {u"\\new", kFileNotFound, machine + "/new", "/new"},
      {u"/new", kFileNotFound, machine + "/new", "/new"},
      {u"C:new", kFileNotFound, Host("Dir/new"), machine + "/new"},
      {u"Z:new", kFileNotFound, "/new", "/dev/new"},
  };
  for (const bool isInside : {true, false}) {
    const CurrentDirectory directory(isInside ? Host("Dir") : "/dev");
    for (const Case& test : kCases) {
      HostPath host;
      EXPECT_EQ(Resolve(test.path, &host), test.code) << Utf8(test.path);
      EXPECT_EQ(host.path, isInside ? test.inside : test.outside) << Utf8(test.path);
    }
    EXPECT_EQ(Utf8(paths::CurrentDirectory()),
              isInside ? Utf8(Folder()) + "\\Dir" : std::string("Z:\\dev"));
  }
}

TEST_F(ResolverTest, LongNameKeepsTheFormOfThePath) {
  const CurrentDirectory directory(Host());
  const std::pair<cvn::StringView, std::string> kCases[] = {
      {u"DIR\\SUB\\FILE.TXT", "Dir\\Sub\\File.txt"},
      {u"dir/sub/", "Dir/Sub/"},
      {u".\\dir\\..\\LINK\\sub", ".\\Dir\\..\\Link\\Sub"},
      {u"dir\\...", "Dir\\..."},
      {u"z:\\DEV\\NULL", "z:\\dev\\null"},
      {u"c:\\", "c:\\"},
  };
  for (const auto& [path, longName] : kCases) {
    EXPECT_EQ(Utf8(paths::LongName(path)), longName);
  }
  EXPECT_EQ(Utf8(paths::LongName(Joined(u"\\\\?\\", Path(u"FILE.TXT")))),
            "\\\\?\\" + Utf8(Path(u"File.txt")));
}

TEST(HostPathTest, HasAFormForScripts) {
  const std::string& machine = Machine::Get().Root();
  const std::pair<std::string, std::string> kCases[] = {
      {"/", "Z:\\"},
      {"/home/me/fix.tlx", "Z:\\home\\me\\fix.tlx"},
      {machine, "C:\\"},
      {machine + "/Windows/Temp", "C:\\Windows\\Temp"},
      {machine + "2/x", Utf8(posix::ToWide("Z:" + machine + "2/x"))},
  };
  for (const auto& [host, path] : kCases) {
    std::string expected = path;
    std::replace(expected.begin(), expected.end(), '/', '\\');
    EXPECT_EQ(Utf8(posix::ToMachinePath(host)), expected);
  }
}

TEST(NamesTest, GiveBackTheHostsBytes) {
  const std::string_view kNames[] = {
      "plain",
      "\xC3\xA9",
      "\xF0\x9F\x98\x80",
      "\xC3",              // cut short
      "\xE9t\xE9",         // Latin-1
      "\x80\xBF\xFE\xFF",  // never begins anything
      "\xC0\xAF",          // overlong
      "\xED\xA0\x80",      // a lead surrogate
      "\xED\xB0\x80",      // a trail
      "\xED\xB2\x80",      // the trail that escapes 0x80
      "\xED\xA0\x80\xED\xB0\x80",
      "\xED\xA0\x80\xED\xA0\x80\x80",
      "\xED\xB3\x83\xED\xB2\xA9",
      "\xF4\x90\x80\x80",
      "\xED\xA0",
  };
  for (const std::string_view name : kNames) {
    EXPECT_EQ(HostNameOf(posix::ToWide(name)), name) << Utf8(posix::ToWide(name));
  }
  EXPECT_EQ(posix::ToWide("a\xE9z"), u"a\xDCE9z");
  EXPECT_EQ(posix::ToWide("\xED\xA0\x80"), u"\xD800");
}

TEST(NamesTest, GiveBackAnyText) {
  const cvn::StringView kNames[] = {
      u"\xD800", u"\xDC00", u"\xDC80", u"\xDC00\xD800", u"\xD800\xD800\xDC00\xDC00",
      // Escapes that spell UTF-8, or what would be written in their place.
      u"\xDCC3\xDCA9", u"\xDCF0\xDC9F\xDC98\xDC80", u"\xDCED\xDCA0\xDC80", u"\xDCED\xDCB2\xDC80",
      u"\xDCED\xDCB3\xDC83\xDCED\xDCB2\xDCA9", u"\u00E9\xDCC3\xDCA9"};
  for (const cvn::StringView name : kNames) {
    const std::string host = HostNameOf(name);
    EXPECT_EQ(posix::ToWide(host), name) << testing::PrintToString(host);
  }
}

// Every short row of the pieces that could be taken for one another, both ways.
TEST(NamesTest, LoseNothingInEitherDirection) {
  const char16_t kUnits[] = {u'a',   0xE9,   0xD800, 0xDBFF, 0xDC00, 0xDC80, 0xDC83,
                             0xDCA9, 0xDCB2, 0xDCC3, 0xDCED, 0xDFFF, u'/'};
  const char kBytes[] = {'a',    '/',    '\x80', '\x83', '\xA0', '\xA9',
                         '\xB2', '\xBF', '\xC3', '\xED', '\xF0'};
  std::minstd_rand random(1);
  const auto pick = [&random](const auto& from) { return from[random() % std::size(from)]; };
  for (int i = 0; i < 40'000; ++i) {
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

TEST_F(MachineTest, OpensWhateverTheCommandLineNames) {
  const std::string name = Host("odd \xE9\xED\xA0\x80\xF0\x9F\x98\x80?*. ");
  Touch(name);
  std::string program = "tessel";
  std::string argument = name;
  std::array<char*, 3> argv = {program.data(), argument.data(), nullptr};
  const cvn::List<cvn::String> arguments = posix::ArgumentsOf(2, argv.data());
  ASSERT_EQ(arguments.size(), 2U);
  EXPECT_EQ(Utf8(arguments[0]), "tessel");
  EXPECT_EQ(ContentOf(Joined(u"Z:", arguments[1])), "x");
}

using IndexTest = MachineTest;

TEST_F(IndexTest, FoldsUnitForUnitInNoLanguage) {
  struct Case {
    cvn::StringView name;
    cvn::StringView folded;
  };
  const Case kCases[] = {
      {u"azAZ09_[{", u"AZAZ09_[{"},
      {u"\u00E9\u00FF\u0101\u03C9\u0451\u0561", u"\u00C9\u0178\u0100\u03A9\u0401\u0531"},
      {u"\u00DF", u"\u00DF"},
      {u"\u0131\u017F\u00B5", u"\u0131\u017F\u00B5"},
      {u"\u0149", u"\u0149"},
      {u"\xD801\xDC28", u"\xD801\xDC28"},  // a small letter beyond the units
      {u"\xDC41\xD841", u"\xDC41\xD841"},
  };
  for (const Case& test : kCases) {
    EXPECT_EQ(posix::Folded(test.name), test.folded) << Utf8(test.name);
  }
}

TEST_F(IndexTest, PrefersTheExactNameThenAlwaysTheSame) {
  for (const char* name : {"name", "nAME", "Name", "naME"}) {
    Touch(Host(name));
  }
  DirectoryIndex index;
  std::string spelled;
  EXPECT_EQ(index.Find(Host(), "NAME", &spelled), kSuccess);
  EXPECT_EQ(spelled, "Name");
  HostPath host;
  EXPECT_EQ(Resolve(Path(u"naME"), &host), kSuccess);
  EXPECT_EQ(host.path, Host("naME"));
  EXPECT_EQ(files::Delete(Path(u"NAME")), kSuccess);
  EXPECT_EQ(index.Find(Host(), "NAME", &spelled), kSuccess);
  EXPECT_EQ(spelled, "nAME");
}

// With the kernel's reports, and where there are none to be had.
class IndexChangesTest : public IndexTest, public testing::WithParamInterface<bool> {
 protected:
  IndexChangesTest() {
    while (!GetParam() && instances_.size() < 100'000) {
      const int instance = inotify_init1(IN_CLOEXEC);
      if (instance < 0) {
        break;
      }
      instances_.push_back(instance);
    }
    index_.emplace();
    for (const int instance : instances_) {
      close(instance);
    }
  }

  std::string Find(const std::string& folder, std::string_view name) {
    std::string spelled;
    const Code code = index_->Find(folder, name, &spelled);
    return code == kSuccess ? spelled : std::to_string(code);
  }

  std::optional<DirectoryIndex> index_;

 private:
  std::vector<int> instances_;
};

INSTANTIATE_TEST_SUITE_P(, IndexChangesTest, testing::Bool(),
                         [](const auto& kind) { return kind.param ? "Reported" : "NotReported"; });

TEST_P(IndexChangesTest, ShowAtOnce) {
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

TEST_P(IndexChangesTest, ShowInManyFolders) {
  constexpr int kFolders = 300;  // more than are kept
  for (const char* name : {"One", "Two"}) {
    for (int i = 0; i < kFolders; ++i) {
      const std::string folder = Host("folder " + std::to_string(i));
      std::filesystem::create_directories(folder);
      EXPECT_EQ(Find(folder, name), "2");
      Touch(folder + "/" + name);
      EXPECT_EQ(Find(folder, "one"), "One");
      EXPECT_EQ(Find(folder, "TWO"), name[0] == 'T' ? "Two" : "2");
    }
  }
}

// More changes than the kernel keeps reports of.
TEST_F(IndexTest, SurvivesAFloodOfChanges) {
  DirectoryIndex index;
  std::string spelled;
  EXPECT_EQ(index.Find(Host(), "last", &spelled), kFileNotFound);
  for (int i = 0; i < 20'000; ++i) {
    Touch(Host("flood"));
    unlink(Host("flood").c_str());
  }
  Touch(Host("Last"));
  EXPECT_EQ(index.Find(Host(), "LAST", &spelled), kSuccess);
  EXPECT_EQ(spelled, "Last");
  EXPECT_EQ(index.Find(Host(), "FLOOD", &spelled), kFileNotFound);
}

// Quadratic work would take minutes here.
TEST_F(IndexTest, LargeFolderIsWorkedThroughInAnyCase) {
  constexpr int kFiles = 20'000;
  for (int i = 0; i < kFiles; ++i) {
    files::File file;
    ASSERT_EQ(files::Open(Path(cvn::Format(u"File %d", i)), files::Access::Write,
                          files::Share::None, files::Disposition::CreateNew, &file),
              kSuccess);
  }
  for (int i = 0; i < kFiles; ++i) {
    ASSERT_EQ(files::Delete(Path(cvn::Format(u"FILE %d", i))), kSuccess);
  }
  EXPECT_TRUE(std::filesystem::is_empty(Host()));
}

TEST_F(MachineTest, RenamesToAnotherCase) {
  Touch(Host("name"));
  EXPECT_EQ(files::Replace(Path(u"NAME"), Path(u"Name")), kSuccess);
  EXPECT_TRUE(std::filesystem::exists(Host("Name")));
  EXPECT_FALSE(std::filesystem::exists(Host("name")));
  EXPECT_EQ(Utf8(paths::LongName(Path(u"name"))), Utf8(Path(u"Name")));
}

TEST_F(MachineTest, ProcessesAgreeOnSharing) {
  Touch(Host("file"));
  const auto openElsewhere = [this](files::Access access, files::Share share) {
    return InChild([&] {
      files::File file;
      return static_cast<int>(
          files::Open(Path(u"file"), access, share, files::Disposition::OpenExisting, &file));
    });
  };
  files::File reader;
  ASSERT_EQ(files::Open(Path(u"file"), files::Access::Read, files::Share::Read,
                        files::Disposition::OpenExisting, &reader),
            kSuccess);
  EXPECT_EQ(openElsewhere(files::Access::Read, files::Share::Read), 0);
  EXPECT_EQ(openElsewhere(files::Access::Write, files::Share::ReadWrite), kSharingViolation);
  EXPECT_EQ(InChild([this] { return static_cast<int>(files::Delete(Path(u"file"))); }),
            kSharingViolation);
  reader.Close();
  EXPECT_EQ(openElsewhere(files::Access::Write, files::Share::None), 0);
}

TEST(SkeletonTest, IsMadeWhereAMachineIsMissing) {
  const std::filesystem::path place =
      std::filesystem::temp_directory_path() / ("tessel-place-" + std::to_string(getpid()));
  std::filesystem::create_directories(place / "there/kept");
  Touch(place / "file");
  const std::string relative = std::filesystem::relative(place / "a/b");
  struct Case {
    const char* what;
    std::string machine;
    std::string dataHome;
    Code state;
    std::string root;
    bool hasSkeleton;
  };
  const Case kCases[] = {
      {"named", place / "new/named/", "", kSuccess, place / "new/named", true},
      {"relative", relative, "", kSuccess, place / "a/b", true},
      {"existing", place / "there", "", kSuccess, place / "there", false},
      {"default", "", place / "data", kSuccess, place / "data/tessel/machine", true},
      {"home", "", "not/absolute", kSuccess, place / ".local/share/tessel/machine", true},
      {"a file", place / "file", "", kPathNotFound, "-", false},
      {"below a file", place / "file/new", "", kPathNotFound, "-", false},
      {"the host", "/", "", kSuccess, "", false},
  };
  const HostVariable home("HOME", place.c_str());
  for (const Case& test : kCases) {
    const HostVariable folder("TESSEL_MACHINE", test.machine.c_str());
    const HostVariable dataHome("XDG_DATA_HOME", test.dataHome.c_str());
    for (int i = 0; i < 2; ++i) {  // made, then found
      const Machine machine = posix::DefaultMachine({});
      EXPECT_EQ(machine.State(), test.state) << test.what;
      if (test.root != "-") {
        EXPECT_EQ(machine.Root(), test.root) << test.what;
      }
    }
    if (test.hasSkeleton) {
      for (const char* name : {"Windows/System32/config", "Program Files (x86)", "Users/Public"}) {
        EXPECT_TRUE(std::filesystem::is_directory(std::filesystem::path(test.root) / name))
            << test.what << ", " << name;
      }
    }
  }
  EXPECT_FALSE(std::filesystem::exists(place / "there/Windows"));
  std::filesystem::remove_all(place);
}

// Variables that the process finds when it first asks for one.
class HostEnvironment : public testing::Environment {
 public:
  void SetUp() override {
    setenv("Tessel_Host", "\xED\x95\x9C=x", 1);
    setenv("TESSEL_EMPTY", "", 1);
    setenv("TEMP", "/tmp", 1);
  }
};
[[maybe_unused]] const auto* const kHostEnvironment =
    testing::AddGlobalTestEnvironment(new HostEnvironment);

TEST(MachineEnvironmentTest, ComesFromTheMachineThenFromTheHost) {
  const bool isRoot = geteuid() == 0;
  const std::string profile = isRoot ? "C:\\Windows\\system32\\config\\systemprofile"
                                     : "C:\\Users\\" + Utf8(posix::UserName());
  const std::pair<cvn::StringView, std::string> kCases[] = {
      {u"SYSTEMROOT", "C:\\Windows"},
      {u"ProgramFiles(x86)", "C:\\Program Files (x86)"},
      {u"temp", isRoot ? "C:\\Windows\\Temp" : profile + "\\AppData\\Local\\Temp"},
      {u"appdata", profile + "\\AppData\\Roaming"},
      {u"tessel_host", "\xED\x95\x9C=x"},
      {u"TESSEL_EMPTY", ""},
      {u"TESSEL_NONE", "(none)"},
  };
  for (const auto& [name, value] : kCases) {
    EXPECT_EQ(Utf8(environment::Get(name).value_or(u"(none)")), value) << Utf8(name);
  }
}

TEST(StreamsTest, OutliveTheirReader) {
  EXPECT_EQ(InChild([] {
              std::array<int, 2> ends{};
              if (pipe2(ends.data(), O_CLOEXEC) != 0) {
                return 1;
              }
              dup2(ends[1], STDOUT_FILENO);
              close(ends[0]);
              streams::SetTextModes();
              streams::WriteLine(streams::Output::Out, u"nobody reads this");
              return 7;
            }),
            7);
}

}  // namespace
}  // namespace platform::test
