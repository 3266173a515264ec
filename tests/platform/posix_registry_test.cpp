// What only the Linux home has of the registry: hive files, and what becomes of them. They are
// checked with hivex, which knows nothing of how they were written.

#include <hivex.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <random>

#include "platform/formats/names.h"
#include "platform/machine.h"
#include "platform/offline/registry/hive.h"
#include "platform/registry.h"
#include "platform/services.h"
#include "platform/version.h"
#include "support/format.h"
#include "support/utf.h"
#include "tests/platform/host_file.h"

namespace platform::test {
namespace {

using posix::Hive;
using posix::HiveFile;
using posix::KeyPtr;
using posix::SubKeyTable;
using posix::ValueTable;
using registry::CreateKey;
using registry::DeleteKey;
using registry::Key;
using registry::kQueryValue;
using registry::kSetValue;
using registry::OpenKey;
using registry::Root;
using Data = std::vector<std::byte>;

constexpr std::uint32_t kAll = kQueryValue | kSetValue | registry::kEnumerateSubKeys;

Data Bytes(cvn::StringView text) {
  const auto bytes = std::as_bytes(std::span(text));
  return {bytes.begin(), bytes.end()};
}

std::vector<cvn::String> SubKeysOf(const Key& key) {
  std::vector<cvn::String> names;
  cvn::String name;
  Code code = kSuccess;
  for (std::uint32_t i = 0; code == kSuccess; ++i) {
    code = registry::EnumerateKey(key, i, 256, &name);
    if (code == kSuccess) {
      names.push_back(name);
    }
  }
  EXPECT_EQ(code, kNoMoreItems);
  return names;
}

Code Touch(const Key& root, cvn::StringView path) {
  Key key;
  return CreateKey(root, path, false, 0, &key);
}

Code Set(const Key& root, cvn::StringView path, cvn::StringView name, cvn::StringView text) {
  Key key;
  const Code code = OpenKey(root, path, kSetValue, &key);
  return code == kSuccess ? SetValue(key, name, registry::kTypeString, Bytes(text)) : code;
}

// The text of a value, or the code that there is instead.
std::string Get(const Key& root, cvn::StringView path, cvn::StringView name) {
  Key key;
  std::uint32_t type = 0;
  Data data;
  Code code = OpenKey(root, path, kQueryValue, &key);
  code = code == kSuccess ? QueryValue(key, name, &type, &data) : code;
  if (code != kSuccess) {
    return std::to_string(code);
  }
  std::u16string text(data.size() / 2, u'\0');
  std::memcpy(text.data(), data.data(), text.size() * 2);
  return cvn::WideToUtf8(posix::UpToZero(text));
}

// A hive file, as hivex reads it.
class Witness {
 public:
  explicit Witness(const std::string& path) : hive_(hivex_open(path.c_str(), 0), &hivex_close) {}

  bool IsOpen() const { return hive_ != nullptr; }
  hive_node_h Node(const std::vector<const char*>& names) const {
    hive_node_h node = hivex_root(hive_.get());
    for (const char* name : names) {
      node = node == 0 ? 0 : hivex_node_get_child(hive_.get(), node, name);
    }
    return node;
  }
  std::string Value(const std::vector<const char*>& names, const char* name) const {
    const hive_node_h node = Node(names);
    const hive_value_h value = node == 0 ? 0 : hivex_node_get_value(hive_.get(), node, name);
    hive_type type = hive_t_REG_NONE;
    std::size_t size = 0;
    const std::unique_ptr<char, decltype(&std::free)> data(
        value == 0 ? nullptr : hivex_value_value(hive_.get(), value, &type, &size), &std::free);
    return data == nullptr ? "none" : std::string(data.get(), size);
  }
  std::string Text(const std::vector<const char*>& names, const char* name) const {
    const std::string data = Value(names, name);
    if (data == "none") {
      return data;
    }
    std::u16string wide(data.size() / 2, u'\0');
    std::memcpy(wide.data(), data.data(), wide.size() * 2);
    return cvn::WideToUtf8(posix::UpToZero(wide));
  }
  std::size_t SubKeys(const std::vector<const char*>& names) const {
    return hivex_node_nr_children(hive_.get(), Node(names));
  }
  std::size_t Values(const std::vector<const char*>& names) const {
    return hivex_node_nr_values(hive_.get(), Node(names));
  }

 private:
  std::unique_ptr<hive_h, decltype(&hivex_close)> hive_;
};

class HiveTest : public testing::Test {
 protected:
  HiveTest() {
    folder_ = (std::filesystem::temp_directory_path() / "tessel-registry-XXXXXX").string();
    EXPECT_NE(mkdtemp(folder_.data()), nullptr);
  }
  ~HiveTest() override { std::filesystem::remove_all(folder_); }

  std::string Machine() const { return folder_ + "/C"; }
  std::string File(const std::string& name) const {
    return Machine() + "/Windows/System32/config/" + name;
  }
  void MakeMachine(machine::Description description = {}) const {
    description.product = {.name = u"Ambry Shield",
                           .publisher = u"Ambry",
                           .installFolder = u"C:\\Program Files\\Ambry Shield",
                           .services = {{u"AmUpdateService", u"Update Service"}}};
    EXPECT_EQ(machine::Create(posix::ToWide(Machine()), description), kSuccess);
  }
  // One run of the program: `action` has the machine's registry to itself, from the beginning.
  void Run(const std::function<void()>& action) const {
    const pid_t child = fork();
    if (child == 0) {
      EXPECT_EQ(machine::Use(posix::ToWide(Machine())), kSuccess);
      action();
      std::_Exit(HasFailure() ? 1 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }

  const Key machine_{Root::LocalMachine};
  const Key users_{Root::Users};
  const Key user_{Root::CurrentUser};
  const Key classes_{Root::ClassesRoot};
  std::string folder_;
};

TEST_F(HiveTest, ANewMachineTellsWhatItIs) {
  machine::Description description;
  description.trustedRoots = {Data(3, std::byte{'x'})};  // SHA-1 of "xxx"
  MakeMachine(description);
  const std::vector<const char*> windows = {"Microsoft", "Windows NT", "CurrentVersion"};
  const Witness software(File("SOFTWARE"));
  EXPECT_EQ(software.Text(windows, "ProductName"), "Windows 10 Pro");
  EXPECT_EQ(software.Text(windows, "DisplayVersion"), "22H2");
  EXPECT_EQ(software.Text({"Microsoft", "Windows", "CurrentVersion", "Uninstall", "Ambry Shield"},
                          "InstallLocation"),
            "C:\\Program Files\\Ambry Shield");
  const Witness system(File("SYSTEM"));
  EXPECT_EQ(system.Text({"ControlSet001", "Services", "AmUpdateService"}, "ImagePath"),
            "\"C:\\Program Files\\Ambry Shield\\AmUpdateService.exe\"");
  const std::string blob =
      software.Value({"Microsoft", "SystemCertificates", "ROOT", "Certificates",
                      "B60D121B438A380C343D5EC3C2037564B82FFEF3"},
                     "Blob");
  EXPECT_EQ(blob.size(), 12U + 20 + 12 + 3);
  EXPECT_EQ(blob.substr(44), "xxx");
  for (const char* name : {"SYSTEM", "SAM", "SECURITY", "DEFAULT"}) {
    EXPECT_TRUE(Witness(File(name)).IsOpen()) << name;
  }
  EXPECT_EQ(machine::Create(posix::ToWide(Machine()), description), kDirNotEmpty);
  Run([] {
    const auto version = version::Get();
    ASSERT_TRUE(version);
    EXPECT_TRUE(version->major == 10 && version->minor == 0 && version->workstation);
    EXPECT_TRUE(version::IsBuildAtLeast(19045) && !version::IsBuildAtLeast(19046));
  });
}

TEST_F(HiveTest, AnOldServerTellsWhatItIs) {
  machine::Description description;
  description.majorVersion = 6;
  description.minorVersion = 1;
  description.build = 7601;
  description.server = true;
  description.architecture = u"x86";
  MakeMachine(description);
  Run([] {
    const auto version = version::Get();
    ASSERT_TRUE(version);
    EXPECT_TRUE(version->major == 6 && version->minor == 1 && !version->workstation);
    EXPECT_EQ(version::NativeMachine(), version::kMachineI386);
  });
}

TEST_F(HiveTest, NamesAndDataComeBack) {
  MakeMachine();
  const std::u16string longest(255, u'n');
  const cvn::StringView kNames[] = {
      u"plain", u"\u00E9t\u00E9", u"\u0416\u4E2D", u"\U0001F600", u"\xDFFF alone", u"a/b", longest};
  const std::size_t kSizes[] = {0, 1, 4, 5, 16344, 16345, 3 * 16344, 3000000};
  Run([&] {
    for (const cvn::StringView name : kNames) {
      Key key;
      ASSERT_EQ(CreateKey(machine_, cvn::Format(u"SOFTWARE\\T\\%s", name), false, kAll, &key), 0U);
      for (const std::size_t size : kSizes) {
        const auto type = static_cast<std::uint32_t>(size) | 0x40000000;
        ASSERT_EQ(SetValue(key, cvn::Format(u"%s%u", name, size), type,
                           Data(size, static_cast<std::byte>(size))),
                  kSuccess);
      }
    }
    EXPECT_EQ(registry::Flush(), kSuccess);
  });
  Run([&] {
    for (const cvn::StringView name : kNames) {
      Key key;
      ASSERT_EQ(OpenKey(machine_, cvn::Format(u"software\\t\\%s", posix::Folded(name)), kAll, &key),
                kSuccess);
      for (std::uint32_t i = 0; i < std::size(kSizes); ++i) {
        cvn::String valueName;
        std::uint32_t type = 0;
        Data data;
        EXPECT_EQ(registry::EnumerateValue(key, i, 300, &valueName), kSuccess);
        EXPECT_EQ(valueName, cvn::Format(u"%s%u", name, kSizes[i]));
        EXPECT_EQ(QueryValue(key, valueName, &type, &data), kSuccess);
        EXPECT_EQ(type, kSizes[i] | 0x40000000);
        EXPECT_EQ(data, Data(kSizes[i], static_cast<std::byte>(kSizes[i])));
      }
    }
  });
  const Witness software(File("SOFTWARE"));
  EXPECT_EQ(software.SubKeys({"T"}), std::size(kNames));
  EXPECT_EQ(software
                .Value({"T", "\xC3\xA9t\xC3\xA9"},
                       "\xC3\xA9t\xC3\xA9"
                       "5")
                .size(),
            5U);
  EXPECT_EQ(software.Values({"T", "\xF0\x9F\x98\x80"}), std::size(kSizes));
}

TEST_F(HiveTest, ReadsWhatOthersWrote) {
  MakeMachine();
  const std::string file = File("DEFAULT");
  hive_h* other = hivex_open(file.c_str(), HIVEX_OPEN_WRITE);
  ASSERT_NE(other, nullptr);
  const hive_node_h key = hivex_node_add_child(other, hivex_root(other), "\xD0\x96 other");
  std::string big(20000, 'x');
  std::string number = "1234";
  char names[2][4] = {"Big", "No"};
  const hive_set_value values[] = {{names[0], hive_t_REG_BINARY, big.size(), big.data()},
                                   {names[1], hive_t_REG_DWORD, number.size(), number.data()}};
  EXPECT_EQ(hivex_node_set_values(other, key, 2, values, 0), 0);
  for (int i = 0; i < 300; ++i) {
    EXPECT_NE(hivex_node_add_child(other, key, std::to_string(i).c_str()), 0U);
  }
  EXPECT_EQ(hivex_commit(other, nullptr, 0), 0);
  hivex_close(other);
  Run([&] {
    Key opened;
    ASSERT_EQ(OpenKey(users_, u".DEFAULT\\\u0436 OTHER", kAll, &opened), kSuccess);
    EXPECT_EQ(SubKeysOf(opened).size(), 300U);
    std::uint32_t type = 0;
    Data data;
    EXPECT_EQ(QueryValue(opened, u"big", &type, &data), kSuccess);
    EXPECT_EQ(data, Data(big.size(), std::byte{'x'}));
    EXPECT_EQ(QueryValue(opened, u"no", &type, &data), kSuccess);
    EXPECT_EQ(data, Data({std::byte{'1'}, std::byte{'2'}, std::byte{'3'}, std::byte{'4'}}));
    EXPECT_EQ(SetValue(opened, u"big", registry::kTypeBinary, Data(7)), kSuccess);
    EXPECT_EQ(DeleteKey(opened, u"150"), kSuccess);
    EXPECT_EQ(registry::Flush(), kSuccess);
  });
  const Witness witness(file);
  EXPECT_EQ(witness.Value({"\xD0\x96 other"}, "Big").size(), 7U);
  EXPECT_EQ(witness.SubKeys({"\xD0\x96 other"}), 299U);
}

TEST_F(HiveTest, ManyKeysAndValuesAreKeptApart) {
  constexpr std::uint32_t kMany = 20000;
  MakeMachine();
  Run([&] {
    Key key;
    ASSERT_EQ(CreateKey(machine_, u"SOFTWARE\\T", false, kAll, &key), kSuccess);
    for (std::uint32_t i = 0; i < kMany; ++i) {
      ASSERT_EQ(Touch(key, cvn::Format(u"%05u", i)), kSuccess);
      ASSERT_EQ(SetValue(key, cvn::Format(u"%u", i), 3, Data(8)), kSuccess);
    }
    EXPECT_EQ(registry::Flush(), kSuccess);
    for (std::uint32_t i = 0; i < kMany; i += 2) {
      ASSERT_EQ(DeleteKey(key, cvn::Format(u"%05u", i)), kSuccess);
      ASSERT_EQ(DeleteValue(key, cvn::Format(u"%u", i)), kSuccess);
    }
    EXPECT_EQ(registry::Flush(), kSuccess);
    const auto size = std::filesystem::file_size(File("SOFTWARE"));
    for (std::uint32_t i = 0; i < kMany; i += 2) {
      ASSERT_EQ(Touch(key, cvn::Format(u"%05u", i)), kSuccess);
      ASSERT_EQ(SetValue(key, cvn::Format(u"%u", i), 3, Data(8)), kSuccess);
    }
    EXPECT_EQ(registry::Flush(), kSuccess);
    EXPECT_LT(std::filesystem::file_size(File("SOFTWARE")), size + size / 10);  // took the gaps
  });
  Run([&] {
    Key key;
    ASSERT_EQ(OpenKey(machine_, u"SOFTWARE\\T", kAll, &key), kSuccess);
    const std::vector<cvn::String> names = SubKeysOf(key);
    ASSERT_EQ(names.size(), kMany);
    EXPECT_EQ(names[777], u"00777");
    cvn::String name;
    EXPECT_EQ(registry::EnumerateValue(key, kMany / 2, 99, &name), kSuccess);
    EXPECT_EQ(name, u"0");
  });
  const Witness software(File("SOFTWARE"));
  EXPECT_EQ(software.SubKeys({"T"}), kMany);
  EXPECT_EQ(software.Values({"T"}), kMany);
}

TEST_F(HiveTest, ResolvesAsTheRunningSystem) {
  MakeMachine();
  const std::string defaultHive = File("DEFAULT");
  std::filesystem::create_directories(Machine() + "/Users/Ann/AppData/Local/Microsoft/Windows");
  std::filesystem::copy(defaultHive, Machine() + "/Users/Ann/ntuser.dat");
  const std::string annsClasses =
      Machine() + "/Users/Ann/AppData/Local/Microsoft/Windows/USRCLASS.DAT";
  std::filesystem::copy(defaultHive, annsClasses);
  Run([&] {
    Key list;
    ASSERT_EQ(CreateKey(machine_,
                        u"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList\\S-1-5-21-7",
                        false, kAll, &list),
              kSuccess);
    ASSERT_EQ(Set(list, u"", u"ProfileImagePath", u"%SystemDrive%\\Users\\Ann"), kSuccess);
    EXPECT_EQ(SubKeysOf(users_), (std::vector<cvn::String>{u".DEFAULT", u"S-1-5-18", u"S-1-5-21-7",
                                                           u"S-1-5-21-7_Classes"}));
    EXPECT_EQ(Touch(users_, u"S-1-5-21-7\\New"), kSuccess);
    EXPECT_EQ(Touch(users_, u"s-1-5-18\\New"), kSuccess);
    EXPECT_EQ(Touch(machine_, u"SYSTEM\\CurrentControlSet\\Services\\New"), kSuccess);
    EXPECT_EQ(Touch(Key(Root::CurrentConfig), u"System\\New"), kSuccess);
    EXPECT_EQ(SubKeysOf(machine_),
              (std::vector<cvn::String>{u"HARDWARE", u"SAM", u"SECURITY", u"SOFTWARE", u"SYSTEM"}));
    Key system;
    ASSERT_EQ(OpenKey(machine_, u"SYSTEM", kAll, &system), kSuccess);
    EXPECT_EQ(SubKeysOf(system), (std::vector<cvn::String>{u"ControlSet001", u"CurrentControlSet",
                                                           u"Select", u"Setup"}));
    cvn::String tooDeep(u"SOFTWARE");
    for (int i = 0; i < 600; ++i) {
      tooDeep.Append(u"\\deep");
    }
    const struct {
      const Key& root;
      cvn::StringView path;
      Code created;
    } kRefused[] = {
        {machine_, u"NEW", kInvalidParameter},
        {users_, u"NEW", kInvalidParameter},
        {machine_, tooDeep, kInvalidParameter},
        {machine_, u"HARDWARE\\New", kChildMustBeVolatile},
    };
    for (const auto& refused : kRefused) {
      EXPECT_EQ(Touch(refused.root, refused.path), refused.created);
    }
    EXPECT_EQ(DeleteKey(users_, u"S-1-5-21-7\\Software\\Classes"), kSuccess);
    EXPECT_EQ(DeleteKey(system, u"CurrentControlSet"), kAccessDenied);
    EXPECT_EQ(DeleteKey(machine_, u"SOFTWARE"), kAccessDenied);
    EXPECT_EQ(registry::Flush(), kSuccess);
  });
  Run([&] {
    EXPECT_EQ(Touch(users_, u"S-1-5-21-7\\Software\\Classes\\Linked"), kSuccess);
    EXPECT_EQ(registry::Flush(), kSuccess);
  });
  const Witness ann(Machine() + "/Users/Ann/ntuser.dat");
  EXPECT_NE(ann.Node({"New"}), 0U);
  EXPECT_EQ(ann.Node({"Software", "Classes"}), 0U);
  EXPECT_NE(Witness(annsClasses).Node({"Linked"}), 0U);
  EXPECT_NE(Witness(defaultHive).Node({"New"}), 0U);
  const Witness system(File("SYSTEM"));
  EXPECT_NE(system.Node({"ControlSet001", "Services", "New"}), 0U);
  EXPECT_NE(system.Node({"ControlSet001", "Hardware Profiles", "0001", "System", "New"}), 0U);
  EXPECT_EQ(system.Node({"CurrentControlSet"}), 0U);
}

TEST_F(HiveTest, ClassesAreTheUsersOverTheMachines) {
  MakeMachine();
  Run([&] {
    const cvn::StringView kUser = u"Software\\Classes\\";
    const cvn::StringView kMachine = u"SOFTWARE\\Classes\\";
    const auto path = [](cvn::StringView where, cvn::StringView name) {
      return cvn::Format(u"%s%s", where, name);
    };
    for (const cvn::StringView name : {u"both", u"user", u"user\\sub"}) {
      ASSERT_EQ(Touch(user_, path(kUser, name)), kSuccess);
    }
    for (const cvn::StringView name : {u"BOTH", u"machine"}) {
      ASSERT_EQ(Touch(machine_, path(kMachine, name)), kSuccess);
    }
    ASSERT_EQ(Set(machine_, path(kMachine, u"both"), u"m", u"machine"), kSuccess);
    ASSERT_EQ(Set(machine_, path(kMachine, u"both"), u"x", u"machine"), kSuccess);
    ASSERT_EQ(Set(user_, path(kUser, u"both"), u"x", u"user"), kSuccess);
    EXPECT_EQ(Get(classes_, u"both", u"x"), "user");
    EXPECT_EQ(Get(classes_, u"both", u"m"), "machine");
    Key both;
    cvn::String name;
    ASSERT_EQ(OpenKey(classes_, u"both", kAll, &both), kSuccess);
    EXPECT_EQ(registry::EnumerateValue(both, 1, 9, &name), kSuccess);
    EXPECT_EQ(name, u"m");
    EXPECT_EQ(registry::EnumerateValue(both, 2, 9, &name), kNoMoreItems);
    EXPECT_EQ(SubKeysOf(classes_),
              (std::vector<cvn::String>{u".exe", u".txt", u"both", u"CLSID", u"exefile", u"machine",
                                        u"txtfile", u"user"}));

    EXPECT_EQ(Touch(classes_, u"new\\deep"), kSuccess);
    EXPECT_EQ(Touch(classes_, u"user\\new"), kSuccess);
    EXPECT_EQ(Set(classes_, u"both", u"w", u"user"), kSuccess);
    EXPECT_EQ(Get(machine_, path(kMachine, u"new\\deep"), u""), "2");
    Key key;
    EXPECT_EQ(OpenKey(machine_, path(kMachine, u"new\\deep"), 0, &key), kSuccess);
    EXPECT_EQ(OpenKey(user_, path(kUser, u"user\\new"), 0, &key), kSuccess);
    EXPECT_EQ(Get(user_, path(kUser, u"both"), u"w"), "user");
    EXPECT_EQ(DeleteKey(classes_, u"both"), kSuccess);
    EXPECT_EQ(Get(both, u"", u"x"), "machine");
    EXPECT_EQ(DeleteKey(classes_, u"both"), kSuccess);
    EXPECT_EQ(Get(both, u"", u"x"), std::to_string(kKeyDeleted));
  });
}

TEST_F(HiveTest, WhatIsNotWholeHasItsCode) {
  MakeMachine();
  std::filesystem::resize_file(File("SOFTWARE"), 5000);
  std::filesystem::remove(File("SAM"));
  chmod(File("SYSTEM").c_str(), 0444);
  Run([&] {
    Key key;
    EXPECT_EQ(OpenKey(machine_, u"SOFTWARE", kQueryValue, &key), kBadDatabase);
    EXPECT_EQ(Touch(machine_, u"SOFTWARE\\New"), kBadDatabase);
    EXPECT_EQ(OpenKey(machine_, u"SAM", kQueryValue, &key), kFileNotFound);
    EXPECT_EQ(OpenKey(machine_, u"SYSTEM\\Select", kQueryValue, &key), kSuccess);
    EXPECT_EQ(OpenKey(machine_, u"SYSTEM\\Select", kSetValue, &key), kAccessDenied);
    EXPECT_EQ(Touch(machine_, u"SYSTEM\\New"), kAccessDenied);
    EXPECT_EQ(DeleteKey(machine_, u"SYSTEM\\CurrentControlSet\\Services"), kAccessDenied);
    EXPECT_EQ(Touch(user_, u"New"), kSuccess);
    EXPECT_EQ(registry::Flush(), kSuccess);
  });
}

TEST_F(HiveTest, ServicesMayBeAskedByWhoMayNotWriteThem) {
  MakeMachine();
  chmod(File("SYSTEM").c_str(), 0444);
  Run([] {
    services::Handle manager;
    EXPECT_EQ(services::OpenManager(services::kManagerCreateService, &manager), kAccessDenied);
    ASSERT_EQ(services::OpenManager(services::kManagerEnumerateService, &manager), kSuccess);
    const auto open = [&manager](std::uint32_t access) {
      services::Handle service;
      return services::Open(manager, u"AmUpdateService", access, &service);
    };
    EXPECT_EQ(open(services::kQueryStatus + services::kQueryConfig), kSuccess);
    for (const std::uint32_t access : {services::kStart, services::kStop, services::kDelete}) {
      EXPECT_EQ(open(services::kQueryStatus + access), kAccessDenied) << access;
    }
  });
}

// Opens the file's root and gives it the value `name`.
Code Change(Hive* hive, cvn::StringView name, cvn::StringView text) {
  KeyPtr root;
  const Code code = hive->Root(&root);
  return code == kSuccess ? hive->SetValue(*root, name, registry::kTypeString, Bytes(text)) : code;
}

TEST_F(HiveTest, NoChangeIsLost) {
  MakeMachine();
  const std::string file = File("DEFAULT");
  chmod(file.c_str(), 0640);
  Hive first(file);
  Hive second(file);
  KeyPtr root;
  ASSERT_EQ(second.Root(&root), kSuccess);
  EXPECT_EQ(Change(&first, u"a", u"1"), kSuccess);
  EXPECT_EQ(Change(&second, u"b", u"2"), kSharingViolation);  // in use
  EXPECT_EQ(first.Flush(), kSuccess);
  EXPECT_EQ(Change(&second, u"b", u"2"), kSharingViolation);  // out of date
  Hive third(file);
  EXPECT_EQ(Change(&third, u"b", u"2"), kSuccess);
  EXPECT_EQ(third.Flush(), kSuccess);
  const Witness witness(file);
  EXPECT_EQ(witness.Text({}, "a") + witness.Text({}, "b"), "12");
  struct stat entry {};
  EXPECT_EQ(stat(file.c_str(), &entry), 0);
  EXPECT_EQ(entry.st_mode & 0777, 0640U);

  EXPECT_EQ(Change(&third, u"b", u"3"), kSuccess);
  std::filesystem::last_write_time(file, std::filesystem::file_time_type());  // somebody's work
  EXPECT_EQ(third.Flush(), kSharingViolation);
  EXPECT_EQ(Witness(file).Text({}, "b"), "2");
}

TEST_F(HiveTest, AFailedFlushCanBeRepeated) {
  MakeMachine();
  const std::string file = File("DEFAULT");
  signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit small = {4096, before.rlim_max};
  Hive hive(file);
  EXPECT_EQ(Change(&hive, u"a", u"1"), kSuccess);
  setrlimit(RLIMIT_FSIZE, &small);
  const Code code = hive.Flush();
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_EQ(code, kFileTooLarge);
  EXPECT_EQ(Witness(file).Text({}, "a"), "none");
  EXPECT_EQ(Change(&hive, u"b", u"2"), kSuccess);
  EXPECT_EQ(hive.Flush(), kSuccess);
  EXPECT_EQ(Witness(file).Text({}, "a") + Witness(file).Text({}, "b"), "12");
}

TEST_F(HiveTest, AKillLeavesTheOldHiveOrTheNew) {
  MakeMachine();
  const std::string file = File("DEFAULT");
  std::mt19937 random(7);
  for (int round = 0; round < 40; ++round) {
    const pid_t child = fork();
    if (child == 0) {
      for (Hive hive(file);;) {
        const cvn::String number = cvn::Format(u"%08x", random());
        const bool ok = Change(&hive, u"a", number) == kSuccess &&
                        Change(&hive, cvn::Format(u"%s", number), u"x") == kSuccess &&
                        Change(&hive, u"b", number) == kSuccess && hive.Flush() == kSuccess;
        if (!ok) {
          std::_Exit(1);
        }
      }
    }
    usleep(static_cast<useconds_t>(random() % 20000));
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status));
    random.discard(1000);
    const Witness witness(file);
    ASSERT_TRUE(witness.IsOpen());
    const std::string value = witness.Text({}, "a");
    EXPECT_EQ(value, witness.Text({}, "b"));
    EXPECT_TRUE(value == "none" || witness.Text({}, value.c_str()) == "x");
  }
}

// Reads all that a hive holds, changes it at many places, and writes it. Gives true when it opened.
bool Exercise(const std::string& file) {
  Hive hive(file);
  KeyPtr root;
  if (hive.Root(&root) != kSuccess) {
    return false;
  }
  std::vector<KeyPtr> pending = {root};
  while (!pending.empty()) {
    const KeyPtr key = pending.back();
    pending.pop_back();
    SubKeyTable* subKeys = nullptr;
    ValueTable* values = nullptr;
    if (hive.SubKeys(*key, &subKeys) == kSuccess) {
      for (const auto& [index, subKey] : *subKeys) {
        pending.push_back(subKey);
      }
    }
    if (hive.Values(*key, &values) == kSuccess) {
      std::uint32_t type = 0;
      Data data;
      std::vector<std::u16string> names;
      for (const auto& [age, value] : values->byAge) {
        IgnoreError(hive.Query(*key, value.name, &type, &data));
        names.push_back(value.name);
      }
      IgnoreError(hive.SetValue(*key, u"new", 3, Data(100)));
      IgnoreError(hive.DeleteValue(*key, names.empty() ? u"none" : names.front()));
    }
    KeyPtr added;
    IgnoreError(hive.Add(*key, u"new", false, &added));
    if (key != root && subKeys != nullptr && subKeys->empty()) {
      IgnoreError(hive.Remove(*key));
    }
  }
  const Code code = hive.Flush();
  EXPECT_TRUE(code == kSuccess || code == kBadDatabase) << code;
  return true;
}

TEST_F(HiveTest, DamageIsFoundAndNothingMore) {
  MakeMachine();
  const std::string file = File("DEFAULT");
  {
    Hive hive(file);
    ASSERT_EQ(Change(&hive, u"big", std::u16string(40000, u'x')), kSuccess);
    KeyPtr root;
    KeyPtr many;
    KeyPtr added;
    ASSERT_EQ(hive.Root(&root), kSuccess);
    ASSERT_EQ(hive.Add(*root, u"many", false, &many), kSuccess);
    for (int i = 0; i < 600; ++i) {
      ASSERT_EQ(hive.Add(*many, cvn::Format(u"%d", i), false, &added), kSuccess);
    }
    ASSERT_EQ(hive.Flush(), kSuccess);
  }
  const std::string whole = HostContentOf(file);
  const auto write = [&](const std::string& content) {
    std::ofstream(file, std::ios::binary | std::ios::trunc) << content;
  };
  EXPECT_TRUE(Exercise(file));
  for (std::size_t size = 0; size < whole.size(); size += 1021) {
    write(whole.substr(0, size));
    EXPECT_FALSE(Exercise(file)) << size;
  }
  std::mt19937 random(11);
  int opened = 0;
  for (int round = 0; round < 150; ++round) {
    std::string damaged = whole;
    for (int i = 0; i < 1 + round % 20; ++i) {
      // Spares the first block, whose checksum would end the matter.
      damaged[4096 + random() % (damaged.size() - 4096)] = static_cast<char>(random());
    }
    write(damaged);
    opened += Exercise(file) ? 1 : 0;
  }
  EXPECT_GT(opened, 75);
}

TEST_F(HiveTest, AHiveWithItsLastChangesInALogIsOnlyRead) {
  MakeMachine();
  std::fstream file(File("DEFAULT"), std::ios::in | std::ios::out | std::ios::binary);
  char head[512];
  file.read(head, sizeof(head));
  ++head[4];  // the first of two sequence numbers
  head[508] = static_cast<char>(head[508] ^ (head[4] ^ (head[4] - 1)));  // the checksum
  file.seekp(0);
  file.write(head, sizeof(head));
  file.close();
  for (const bool hasLog : {true, false}) {
    std::ofstream(File("DEFAULT.LOG1")) << (hasLog ? "x" : "");
    Hive hive(File("DEFAULT"));
    EXPECT_EQ(Change(&hive, u"a", u"1"), hasLog ? kAccessDenied : kSuccess);
  }
}

}  // namespace
}  // namespace platform::test
