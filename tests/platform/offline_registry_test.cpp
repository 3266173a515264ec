// Hive files, and what becomes of them. They are checked with hivex, which knows nothing of how
// they were written. A program of its own: each test has machines of its own.

#include <hivex.h>
#include <sys/stat.h>

#include <cstring>
#include <map>
#include <memory>

#include "platform/formats/hive_log.h"
#include "platform/formats/names.h"
#include "platform/machine.h"
#include "platform/registry.h"
#include "platform/services.h"
#include "support/format.h"
#include "support/utf.h"
#include "tests/platform/host_folder.h"

namespace platform::test {
namespace {

using registry::CreateKey;
using registry::DeleteKey;
using registry::Key;
using registry::kQueryValue;
using registry::kSetValue;
using registry::OpenKey;
using registry::Root;
using Data = std::vector<std::byte>;
using Path = std::vector<const char*>;
using View = cvn::StringView;

constexpr std::uint32_t kAll = kQueryValue | kSetValue | registry::kEnumerateSubKeys;

Data Bytes(View text) {
  const auto bytes = std::as_bytes(std::span(text));
  return {bytes.begin(), bytes.end()};
}

std::string TextOf(const void* data, std::size_t size) {
  std::u16string text(size / 2, u'\0');
  std::memcpy(text.data(), data, text.size() * 2);
  return cvn::WideToUtf8(posix::UpToZero(text));
}

std::string SubKeysOf(const Key& key) {
  std::string names;
  cvn::String name;
  for (std::uint32_t i = 0; registry::EnumerateKey(key, i, 256, &name) == kSuccess; ++i) {
    names += cvn::WideToUtf8(name) + "; ";
  }
  return names;
}

Code Make(const Key& root, View path) {
  Key key;
  return CreateKey(root, path, false, 0, &key);
}

Code Set(const Key& root, View path, View name, View text) {
  Key key;
  const Code code = OpenKey(root, path, kSetValue, &key);
  return code == kSuccess ? SetValue(key, name, registry::kTypeString, Bytes(text)) : code;
}

// The text of a value, or the code that there is instead.
std::string Get(const Key& root, View path, View name) {
  Key key;
  std::uint32_t type = 0;
  Data data;
  Code code = OpenKey(root, path, kQueryValue, &key);
  code = code == kSuccess ? QueryValue(key, name, &type, &data) : code;
  return code == kSuccess ? TextOf(data.data(), data.size()) : std::to_string(code);
}

// A hive file, as hivex reads it.
class Witness {
 public:
  explicit Witness(const std::string& path) : hive_(hivex_open(path.c_str(), 0), &hivex_close) {
    EXPECT_NE(hive_, nullptr) << path;
  }

  hive_node_h Node(const Path& names) const {
    hive_node_h node = hivex_root(hive_.get());
    for (const char* name : names) {
      node = node == 0 ? 0 : hivex_node_get_child(hive_.get(), node, name);
    }
    return node;
  }
  std::string Value(const Path& names, const char* name) const {
    const hive_node_h node = Node(names);
    const hive_value_h value = node == 0 ? 0 : hivex_node_get_value(hive_.get(), node, name);
    hive_type type = hive_t_REG_NONE;
    std::size_t size = 0;
    const std::unique_ptr<char, decltype(&std::free)> data(
        value == 0 ? nullptr : hivex_value_value(hive_.get(), value, &type, &size), &std::free);
    return data == nullptr ? "none" : std::string(data.get(), size);
  }
  std::string Text(const Path& names, const char* name) const {
    const std::string data = Value(names, name);
    return data == "none" ? data : TextOf(data.data(), data.size());
  }
  std::size_t SubKeys(const Path& names) const {
    return hivex_node_nr_children(hive_.get(), Node(names));
  }
  std::size_t Values(const Path& names) const {
    return hivex_node_nr_values(hive_.get(), Node(names));
  }

 private:
  std::unique_ptr<hive_h, decltype(&hivex_close)> hive_;
};

class Hives : public testing::Test {
 protected:
  Hives() {
    folder_ = (std::filesystem::temp_directory_path() / "tessel-registry-XXXXXX").string();
    EXPECT_NE(mkdtemp(folder_.data()), nullptr);
  }
  ~Hives() override { std::filesystem::remove_all(folder_); }

  std::string Machine() const { return folder_ + "/C"; }
  std::string File(const std::string& name) const {
    return Machine() + "/Windows/System32/config/" + name;
  }
  // Makes the machine, and gives the hive that the tests damage.
  std::string MakeMachine(machine::Description description = {}) const {
    description.product = {.name = u"Ambry Shield",
                           .publisher = u"Ambry",
                           .installFolder = u"C:\\Program Files\\Ambry Shield",
                           .services = {{u"AmUpdateService", u"Update Service"}}};
    EXPECT_EQ(machine::Create(posix::ToWide(Machine()), description), kSuccess);
    return File("DEFAULT");
  }
  // One run of the program: `action` has the machine's registry to itself, from the beginning.
  void Run(const std::function<void()>& action) const {
    EXPECT_EQ(InChild([&] {
                EXPECT_EQ(machine::Use(posix::ToWide(Machine())), kSuccess);
                action();
                return HasFailure() ? 1 : 0;
              }),
              0);
  }

  const Key machine_{Root::LocalMachine};
  const Key users_{Root::Users};
  const Key user_{Root::CurrentUser};
  const Key classes_{Root::ClassesRoot};
  std::string folder_;
};

TEST_F(Hives, GiveNamesAndDataBack) {
  MakeMachine();
  const std::u16string longest(255, u'n');
  const View kNames[] = {u"\u00E9t\u00E9", u"\u0416\u4E2D", u"\xDFFF alone", u"a/b", longest};
  const std::uint32_t kSizes[] = {0, 1, 4, 5, 16344, 16345, 3 * 16344, 3000000};
  // Goes through all values, with each one's data.
  const auto forEach = [&](const auto& action) {
    Run([&] {
      for (const View name : kNames) {
        Key key;
        const cvn::String path = cvn::Format(u"SOFTWARE\\T\\%s", posix::Folded(name));
        ASSERT_EQ(CreateKey(machine_, path, false, kAll, &key), kSuccess);
        for (const std::uint32_t size : kSizes) {
          const Data data(size, static_cast<std::byte>(size % 251));
          action(key, cvn::Format(u"%s%u", name, size), size | 0x40000000, data);
        }
      }
      EXPECT_EQ(registry::Flush(), kSuccess);
    });
  };
  forEach([](const Key& key, View name, std::uint32_t type, const Data& data) {
    ASSERT_EQ(SetValue(key, name, type, data), kSuccess);
  });
  forEach([](const Key& key, View name, std::uint32_t type, const Data& data) {
    std::uint32_t foundType = 0;
    Data found;
    EXPECT_EQ(QueryValue(key, name, &foundType, &found), kSuccess);
    EXPECT_EQ(foundType, type);
    EXPECT_TRUE(found == data) << data.size();
  });
  const Witness software(File("SOFTWARE"));
  EXPECT_EQ(software.SubKeys({"T"}), std::size(kNames));
  EXPECT_EQ(software.Values({"T", "A/B"}), std::size(kSizes));
  EXPECT_EQ(software.Value({"T", "A/B"}, "a/b5"), std::string(5, '\5'));
}

TEST_F(Hives, OfOthersAreReadAndChanged) {
  const std::string file = MakeMachine();
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
    std::uint32_t count = 0;
    std::uint32_t type = 0;
    Data data;
    EXPECT_EQ(registry::QueryInfo(opened, &count, &type), kSuccess);
    EXPECT_EQ(count, 300U);
    for (const std::string& content : {big, number}) {
      EXPECT_EQ(QueryValue(opened, content == big ? u"big" : u"no", &type, &data), kSuccess);
      EXPECT_TRUE(std::ranges::equal(data, std::as_bytes(std::span(content)))) << content.size();
    }
    EXPECT_EQ(SetValue(opened, u"big", registry::kTypeBinary, Data(7)), kSuccess);
    EXPECT_EQ(DeleteKey(opened, u"150"), kSuccess);
    EXPECT_EQ(registry::Flush(), kSuccess);
  });
  const Witness witness(file);
  EXPECT_EQ(witness.Value({"\xD0\x96 other"}, "Big").size(), 7U);
  EXPECT_EQ(witness.SubKeys({"\xD0\x96 other"}), 299U);
}

TEST_F(Hives, KeepManyKeysAndValuesApart) {
  constexpr std::uint32_t kMany = 20000;
  MakeMachine();
  Run([&] {
    Key key;
    ASSERT_EQ(CreateKey(machine_, u"SOFTWARE\\T", false, kAll, &key), kSuccess);
    const auto makeEach = [&key](std::uint32_t step) {
      for (std::uint32_t i = 0; i < kMany; i += step) {
        ASSERT_EQ(Make(key, cvn::Format(u"%05u", i)), kSuccess);
        ASSERT_EQ(SetValue(key, cvn::Format(u"%u", i), 3, Data(8)), kSuccess);
      }
      EXPECT_EQ(registry::Flush(), kSuccess);
    };
    makeEach(1);
    for (std::uint32_t i = 0; i < kMany; i += 2) {
      ASSERT_EQ(DeleteKey(key, cvn::Format(u"%05u", i)), kSuccess);
      ASSERT_EQ(DeleteValue(key, cvn::Format(u"%u", i)), kSuccess);
    }
    EXPECT_EQ(registry::Flush(), kSuccess);
    const auto size = std::filesystem::file_size(File("SOFTWARE"));
    makeEach(2);
    EXPECT_LT(std::filesystem::file_size(File("SOFTWARE")), size + size / 10);  // took the gaps
  });
  Run([&] {
    Key key;
    cvn::String name;
    ASSERT_EQ(OpenKey(machine_, u"SOFTWARE\\T", kAll, &key), kSuccess);
    EXPECT_EQ(registry::EnumerateKey(key, 777, 99, &name), kSuccess);
    EXPECT_EQ(name, u"00777");
    EXPECT_EQ(registry::EnumerateValue(key, kMany / 2, 99, &name), kSuccess);
    EXPECT_EQ(name, u"0");
  });
  const Witness software(File("SOFTWARE"));
  EXPECT_EQ(software.SubKeys({"T"}), kMany);
  EXPECT_EQ(software.Values({"T"}), kMany);
}

TEST_F(Hives, StandWhereTheRunningSystemHasThem) {
  const std::string defaultHive = MakeMachine();
  const std::string ann = Machine() + "/Users/Ann/";
  const std::string annsClasses = ann + "AppData/Local/Microsoft/Windows/USRCLASS.DAT";
  std::filesystem::create_directories(ann + "AppData/Local/Microsoft/Windows");
  std::filesystem::copy(defaultHive, ann + "ntuser.dat");
  std::filesystem::copy(defaultHive, annsClasses);
  Run([&] {
    constexpr View kProfile =
        u"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList\\S-1-5-21-7";
    EXPECT_EQ(Make(machine_, kProfile), kSuccess);
    EXPECT_EQ(Set(machine_, kProfile, u"ProfileImagePath", u"%SystemDrive%\\Users\\Ann"), kSuccess);
    EXPECT_EQ(SubKeysOf(users_), ".DEFAULT; S-1-5-18; S-1-5-21-7; S-1-5-21-7_Classes; ");
    EXPECT_EQ(SubKeysOf(machine_), "HARDWARE; SAM; SECURITY; SOFTWARE; SYSTEM; ");
    Key system;
    ASSERT_EQ(OpenKey(machine_, u"SYSTEM", kAll, &system), kSuccess);
    EXPECT_EQ(SubKeysOf(system), "ControlSet001; CurrentControlSet; Select; Setup; ");
    cvn::String tooDeep = u"SOFTWARE";
    while (tooDeep.Length() < 3000) {
      tooDeep.Append(u"\\deep");
    }
    const Key config(Root::CurrentConfig);
    const struct {
      const Key& root;
      View path;
      Code code;
    } kMade[] = {
        {users_, u"S-1-5-21-7\\New", kSuccess},
        {users_, u"s-1-5-18\\New", kSuccess},
        {machine_, u"SYSTEM\\CurrentControlSet\\Services\\New", kSuccess},
        {config, u"System\\New", kSuccess},
        {machine_, u"NEW", kInvalidParameter},
        {users_, u"NEW", kInvalidParameter},
        {machine_, tooDeep, kInvalidParameter},
        {machine_, u"HARDWARE\\New", kChildMustBeVolatile},
    };
    for (const auto& made : kMade) {
      EXPECT_EQ(Make(made.root, made.path), made.code) << cvn::WideToUtf8(made.path);
    }
    EXPECT_EQ(DeleteKey(users_, u"S-1-5-21-7\\Software\\Classes"), kSuccess);
    EXPECT_EQ(DeleteKey(system, u"CurrentControlSet"), kAccessDenied);
    EXPECT_EQ(DeleteKey(machine_, u"SOFTWARE"), kAccessDenied);
    EXPECT_EQ(registry::Flush(), kSuccess);
  });
  Run([&] {
    EXPECT_EQ(Make(users_, u"S-1-5-21-7\\Software\\Classes\\Linked"), kSuccess);
    EXPECT_EQ(registry::Flush(), kSuccess);
  });
  const struct {
    std::string file;
    Path key;
    bool isThere = true;
  } kFound[] = {
      {ann + "ntuser.dat", {"New"}},
      {ann + "ntuser.dat", {"Software", "Classes"}, false},
      {annsClasses, {"Linked"}},
      {defaultHive, {"New"}},
      {File("SYSTEM"), {"ControlSet001", "Services", "New"}},
      {File("SYSTEM"), {"ControlSet001", "Hardware Profiles", "0001", "System", "New"}},
      {File("SYSTEM"), {"CurrentControlSet"}, false},
  };
  for (const auto& [file, key, isThere] : kFound) {
    EXPECT_EQ(Witness(file).Node(key) != 0, isThere) << file << ", " << key.back();
  }
}

TEST_F(Hives, ClassesAreTheUsersOverTheMachines) {
  MakeMachine();
  Run([&] {
    Key user;
    Key machine;
    ASSERT_EQ(OpenKey(user_, u"Software\\Classes", kAll, &user), kSuccess);
    ASSERT_EQ(OpenKey(machine_, u"SOFTWARE\\Classes", kAll, &machine), kSuccess);
    for (const View name : {u"both", u"user\\sub"}) {
      ASSERT_EQ(Make(user, name), kSuccess);
    }
    for (const View name : {u"BOTH", u"machine"}) {
      ASSERT_EQ(Make(machine, name), kSuccess);
    }
    ASSERT_EQ(Set(machine, u"both", u"m", u"machine"), kSuccess);
    ASSERT_EQ(Set(machine, u"both", u"x", u"machine"), kSuccess);
    ASSERT_EQ(Set(user, u"both", u"x", u"user"), kSuccess);
    EXPECT_EQ(Get(classes_, u"both", u"x"), "user");
    EXPECT_EQ(Get(classes_, u"both", u"m"), "machine");
    Key both;
    cvn::String name;
    ASSERT_EQ(OpenKey(classes_, u"both", kAll, &both), kSuccess);
    EXPECT_EQ(registry::EnumerateValue(both, 1, 9, &name), kSuccess);
    EXPECT_EQ(name, u"m");
    EXPECT_EQ(registry::EnumerateValue(both, 2, 9, &name), kNoMoreItems);
    EXPECT_EQ(SubKeysOf(classes_), ".exe; .txt; both; CLSID; exefile; machine; txtfile; user; ");

    // What is new comes to the machine, unless the user has the key.
    EXPECT_EQ(Make(classes_, u"new\\deep"), kSuccess);
    EXPECT_EQ(Make(classes_, u"user\\new"), kSuccess);
    EXPECT_EQ(Set(classes_, u"both", u"w", u"user"), kSuccess);
    EXPECT_EQ(SubKeysOf(machine), ".exe; .txt; BOTH; CLSID; exefile; machine; new; txtfile; ");
    EXPECT_EQ(Get(user, u"user\\new", u""), std::to_string(kFileNotFound));
    EXPECT_EQ(Get(user, u"both", u"w"), "user");
    EXPECT_EQ(DeleteKey(classes_, u"both"), kSuccess);
    EXPECT_EQ(Get(both, u"", u"x"), "machine");
    EXPECT_EQ(DeleteKey(classes_, u"both"), kSuccess);
    EXPECT_EQ(Get(both, u"", u"x"), std::to_string(kKeyDeleted));
  });
}

TEST_F(Hives, ThatAreNotWholeOrReadOnlyHaveTheirCode) {
  MakeMachine();
  std::filesystem::resize_file(File("SOFTWARE"), 5000);
  std::filesystem::remove(File("SAM"));
  chmod(File("SYSTEM").c_str(), 0444);
  Run([&] {
    Key key;
    EXPECT_EQ(OpenKey(machine_, u"SOFTWARE", kQueryValue, &key), kBadDatabase);
    EXPECT_EQ(Make(machine_, u"SOFTWARE\\New"), kBadDatabase);
    EXPECT_EQ(OpenKey(machine_, u"SAM", kQueryValue, &key), kFileNotFound);
    EXPECT_EQ(OpenKey(machine_, u"SYSTEM\\Select", kQueryValue, &key), kSuccess);
    EXPECT_EQ(OpenKey(machine_, u"SYSTEM\\Select", kSetValue, &key), kAccessDenied);
    EXPECT_EQ(Make(machine_, u"SYSTEM\\New"), kAccessDenied);
    EXPECT_EQ(DeleteKey(machine_, u"SYSTEM\\CurrentControlSet\\Services"), kAccessDenied);
    EXPECT_EQ(Make(user_, u"New"), kSuccess);
    EXPECT_EQ(registry::Flush(), kSuccess);
    // Services may be asked, but not changed.
    services::Handle manager;
    EXPECT_EQ(services::OpenManager(services::kManagerCreateService, &manager), kAccessDenied);
    ASSERT_EQ(services::OpenManager(services::kManagerEnumerateService, &manager), kSuccess);
    for (const std::uint32_t access :
         {services::kQueryConfig, services::kStart, services::kStop, services::kDelete}) {
      services::Handle service;
      EXPECT_EQ(
          services::Open(manager, u"AmUpdateService", services::kQueryStatus + access, &service),
          access == services::kQueryConfig ? kSuccess : kAccessDenied)
          << access;
    }
  });
}

// A hive whose last two changes are in its log: its root got the values "a" and "b".
class Logs : public Hives {
 protected:
  static constexpr std::size_t kSector = BaseBlock::kSize;

  Logs() : file_(MakeMachine()), before_(HostContentOf(file_)) {
    ChangeAndDie(u"a");
    ChangeAndDie(u"b");
    dirty_ = HostContentOf(file_);
    log_ = HostContentOf(file_ + ".LOG1");
    second_ = kSector + *LogEntry::SizeOf(Part(log_, kSector));
  }

  void ChangeAndDie(View name) const {
    EXPECT_EQ(InChild([&] {
                EXPECT_EQ(machine::Use(posix::ToWide(Machine())), kSuccess);
                EXPECT_EQ(Set(user_, u"", name, u"x"), kSuccess);
                return HasFailure() ? 1 : 0;
              }),
              0);
  }
  static std::span<const std::byte> Part(const std::string& content, std::size_t from) {
    return std::as_bytes(std::span(content)).subspan(from);
  }
  static BaseBlock BaseOf(const std::string& content) {
    BaseBlock base;
    std::ranges::copy(Part(content, 0).first(kSector), base.Bytes().begin());
    return base;
  }
  static std::string WithBase(const BaseBlock& base, const std::string& content) {
    const auto* const bytes = reinterpret_cast<const char*>(base.Bytes().data());
    return std::string(bytes, kSector) + (content.empty() ? content : content.substr(kSector));
  }
  // The files of the hive; those without content are missing.
  void Lay(const std::string& primary, const std::map<std::string, std::string>& logs) const {
    for (const char* ending : {".LOG", ".LOG1", ".LOG2", ".log1"}) {
      std::filesystem::remove(file_ + ending);
    }
    std::ofstream(file_, std::ios::binary) << primary;
    for (const auto& [ending, content] : logs) {
      std::ofstream(file_ + ending, std::ios::binary) << content;
    }
  }
  // Which of the values a run finds, and whether it can change the hive.
  void Expect(const std::string& names, Code change = kSuccess) const {
    const std::string primary = HostContentOf(file_);
    Run([&] {
      for (const char name : std::string("ab")) {
        const bool isThere = names.find(name) != std::string::npos;
        EXPECT_EQ(Get(user_, u"", View(u"ab").substr(name - 'a', 1)), isThere ? "x" : "2") << name;
      }
      EXPECT_EQ(registry::Flush(), kSuccess);
    });
    EXPECT_TRUE(HostContentOf(file_) == primary) << "reading changes nothing";
    Run([&] {
      EXPECT_EQ(Set(user_, u"", u"c", u"x"), change);
      EXPECT_EQ(registry::Flush(), kSuccess);
    });
    const Witness witness(file_);
    for (const char* name : {"a", "b", "c"}) {
      const bool isThere = change == kSuccess && (names + "c").find(name) != std::string::npos;
      EXPECT_EQ(witness.Text({}, name), isThere ? "x" : "none") << name;
    }
  }

  const std::string file_;
  const std::string before_;
  std::string dirty_;
  std::string log_;
  std::size_t second_ = 0;  // where the log's second entry is
};

TEST_F(Logs, CompleteTheHive) {
  const auto torn = [this](std::size_t at) {
    std::string log = log_;
    log[at] = static_cast<char>(log[at] ^ 1);
    return log;
  };
  BaseBlock second = BaseOf(log_);
  second.SetNumbers(second.First() + 1, second.First() + 1);
  const std::string first = log_.substr(0, second_);
  const std::string other = WithBase(second, first.substr(0, kSector) + log_.substr(second_));
  BaseBlock clean = BaseOf(dirty_);
  clean.SetNumbers(clean.Second(), clean.Second());
  const std::string damaged = std::string(kSector, 'x') + dirty_.substr(kSector);
  const struct {
    const char* what;
    std::string primary;
    std::map<std::string, std::string> logs;
    std::string names;
    Code change = kSuccess;
  } kCases[] = {
      {"as it is", dirty_, {{".LOG1", log_}}, "ab"},
      {"the other file", dirty_, {{".LOG2", log_}}, "ab"},
      {"another spelling", dirty_, {{".log1", log_}}, "ab"},
      {"in two files", dirty_, {{".LOG1", first}, {".LOG2", other}}, "ab"},
      {"the later first", dirty_, {{".LOG1", other}, {".LOG2", first}}, "ab"},
      {"a gap", dirty_, {{".LOG1", other}}, "", kBadDatabase},
      {"torn header", dirty_, {{".LOG1", torn(second_ + 13)}}, "a"},
      {"torn page", dirty_, {{".LOG1", torn(log_.size() - 600)}}, "a"},
      {"cut", dirty_, {{".LOG1", log_.substr(0, log_.size() - 1)}}, "a"},
      {"clean", WithBase(clean, dirty_), {{".LOG1", log_}}, ""},
      {"no log", dirty_, {}, "", kBadDatabase},
      {"base block", damaged, {{".LOG1", log_}}, "ab"},
      {"base block, two", damaged, {{".LOG1", other}, {".LOG2", first}}, "ab"},
      {"base block, stale", damaged, {{".LOG1", log_}, {".LOG2", WithBase(clean, "")}}, "ab"},
  };
  for (const auto& each : kCases) {
    SCOPED_TRACE(each.what);
    Lay(each.primary, each.logs);
    Expect(each.names, each.change);
  }
}

// A log as Windows 7 writes it, for the same changes.
TEST_F(Logs, OfTheOldKindCompleteTheHiveAndAreWritten) {
  Run([&] {
    EXPECT_EQ(Set(user_, u"", u"a", u"x"), kSuccess);
    EXPECT_EQ(registry::Flush(), kSuccess);
  });
  const std::string after = HostContentOf(file_);
  BaseBlock base = BaseOf(before_);
  base.SetNumbers(base.First() + 1, base.First());
  base.SetTime(77);
  BaseBlock logged = BaseOf(after);
  logged.SetType(BaseBlock::Kind::OldLog);
  logged.SetTime(77);
  const LoggedPage page{0, Part(after, 4096)};
  const std::vector<std::byte> bytes = WriteOldLog(logged, {&page, 1});
  const std::string log(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  logged.SetTime(78);
  Lay(WithBase(base, before_), {{".LOG1", WithBase(logged, log)}});
  Expect("", kBadDatabase);  // another write's
  Lay(WithBase(base, before_), {{".LOG1", log}});
  Expect("ab");
  EXPECT_EQ(BaseOf(HostContentOf(file_ + ".LOG1")).Type(), BaseBlock::Kind::OldLog);
  ChangeAndDie(u"d");
  EXPECT_EQ(Witness(file_).Text({}, "d"), "x");
}

TEST_F(Logs, AreSummedAsWindowsSumsThem) {
  const struct {
    std::uint64_t seed;
    std::string_view text;
    std::uint64_t sum;
  } kKnown[] = {{0x004fb61a001bdbcc, "", 0x30ed35c100cd3c7d},
                {0x004fb61a001bdbcc, "\xAF", 0x48e73fc77d75ddc1},
                {0xd53cd9cecd0893b7, "abc", 0x22c74339492769bf}};
  for (const auto& each : kKnown) {
    EXPECT_EQ(Marvin32(std::as_bytes(std::span(each.text)), each.seed), each.sum);
  }
}

// Links in hives, and keys that nothing in a script can name.
TEST_F(Hives, DeleteLinksThemselves) {
  const std::string file = MakeMachine();
  Run([&] {
    for (const View path : {u"target\\kept", u"LiNk", u"circle"}) {
      ASSERT_EQ(Make(user_, path), kSuccess);
    }
    for (const auto& [name, target] :
         std::map<View, View>{{u"LiNk", u"target"}, {u"circle", u"circle"}}) {
      Key key;
      const cvn::String path = cvn::Format(u"\\Registry\\User\\.DEFAULT\\%s", target);
      ASSERT_EQ(OpenKey(user_, name, kSetValue, &key), kSuccess);
      ASSERT_EQ(SetValue(key, u"SymbolicLinkValue", 6, Bytes(path)), kSuccess);
    }
    EXPECT_EQ(registry::Flush(), kSuccess);
  });
  std::string content = HostContentOf(file);
  for (const char* name : {"LiNk", "circle"}) {
    constexpr std::size_t kName =
        76;  // in the key's record, which has its flags behind two letters
    content[content.find(name, 4096) - kName + 2] |= 0x10;
  }
  std::ofstream(file, std::ios::binary) << content;
  Run([&] {
    Key key;
    EXPECT_EQ(SubKeysOf(user_), "circle; Control Panel; Environment; LiNk; Software; target; ");
    ASSERT_EQ(OpenKey(user_, u"link", kAll, &key), kSuccess);
    EXPECT_EQ(SubKeysOf(key), "kept; ");
    EXPECT_EQ(OpenKey(user_, u"circle", kAll, &key), kFileNotFound);
    for (const View name : {u"link", u"circle"}) {
      ASSERT_EQ(OpenKey(user_, name, kAll, &key, registry::LinkAtEnd::Open), kSuccess);
      EXPECT_EQ(SubKeysOf(key), "");
      EXPECT_EQ(DeleteKey(user_, name), kSuccess);
      EXPECT_EQ(OpenKey(user_, name, kAll, &key), kFileNotFound);
    }
    EXPECT_EQ(OpenKey(user_, u"target\\kept", kAll, &key), kSuccess);
  });
}

// What others change, by the program or past it, is seen, and keys that are open stay so.
TEST_F(Hives, AreSharedWithOthers) {
  const std::string file = MakeMachine();
  Run([&] {
    Key one;
    Key two;
    ASSERT_EQ(CreateKey(user_, u"one", false, kAll, &one), kSuccess);
    ASSERT_EQ(CreateKey(user_, u"one\\two", false, kAll, &two), kSuccess);
    EXPECT_EQ(InChild([&] {  // shares the locks: the parent does nothing meanwhile
                EXPECT_EQ(Set(user_, u"one", u"a", u"x"), kSuccess);
                EXPECT_EQ(DeleteKey(user_, u"one\\two"), kSuccess);
                EXPECT_EQ(Make(user_, u"before"), kSuccess);
                return HasFailure() ? 1 : 0;
              }),
              0);
    EXPECT_EQ(Get(one, u"", u"a"), "x");
    EXPECT_EQ(Set(two, u"", u"a", u"x"), kKeyDeleted);
    EXPECT_EQ(Set(one, u"", u"b", u"x"), kSuccess);
    EXPECT_EQ(registry::Flush(), kSuccess);

    hive_h* other = hivex_open(file.c_str(), HIVEX_OPEN_WRITE);
    ASSERT_NE(other, nullptr);
    EXPECT_NE(hivex_node_add_child(other, hivex_root(other), "past"), 0U);
    EXPECT_EQ(hivex_commit(other, nullptr, 0), 0);
    hivex_close(other);
    EXPECT_EQ(Make(user_, u"past\\it"), kSuccess);
    EXPECT_EQ(Get(one, u"", u"b"), "x");
    EXPECT_EQ(registry::Flush(), kSuccess);
  });
  const Witness witness(file);
  EXPECT_NE(witness.Node({"past", "it"}), 0U);
  EXPECT_NE(witness.Node({"before"}), 0U);
  EXPECT_EQ(witness.Text({"one"}, "a") + witness.Text({"one"}, "b"), "xx");
}

}  // namespace
}  // namespace platform::test
