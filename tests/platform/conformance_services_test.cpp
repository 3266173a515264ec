#include "platform/services.h"

#include "platform/random.h"
#include "support/format.h"
#include "tests/platform/fixture.h"

namespace platform::test {
namespace {

using services::Config;
using services::Handle;

constexpr std::uint32_t kOwnProcess = 0x10;
constexpr std::uint32_t kKernelDriver = 0x1;
constexpr std::uint32_t kAutoStart = 2;
constexpr std::uint32_t kDemandStart = 3;
constexpr std::uint32_t kDisabledStart = 4;
constexpr std::uint32_t kNormalError = 1;
constexpr cvn::StringView kImage = u"C:\\Windows\\tessel test.exe";

// A test with names of its own, whose services it deletes at the end.
class ServicesConformance : public testing::Test {
 protected:
  ServicesConformance() {
    EXPECT_EQ(services::OpenManager(services::kManagerCreateService, &manager_), kSuccess);
  }
  ~ServicesConformance() override {
    for (const char16_t each : {u'a', u'b', u'c'}) {
      Handle service;
      if (services::Open(manager_, Name(each), services::kDelete, &service) == kSuccess) {
        IgnoreError(services::Delete(service));
      }
    }
  }

  const Handle& Manager() const { return manager_; }
  cvn::String Name(char16_t which) const {
    cvn::String name = prefix_;
    name.Append(which);
    return name;
  }
  // What makes a service that is like most.
  Config Usual(char16_t which) const {
    Config config;
    config.name = Name(which);
    config.displayName = Joined(u"Display of ", config.name);
    config.serviceType = kOwnProcess;
    config.startType = kDemandStart;
    config.errorControl = kNormalError;
    config.binaryPath = kImage;
    return config;
  }
  Handle Opened(char16_t which, std::uint32_t access) const {
    Handle service;
    EXPECT_EQ(services::Open(manager_, Name(which), access, &service), kSuccess)
        << Utf8(Name(which));
    return service;
  }
  Outcome Open(cvn::StringView name) const {
    return Observe([&] {
      Handle service;
      return services::Open(manager_, name, services::kQueryStatus, &service);
    });
  }
  Outcome Create(const Config& config) const {
    return Observe([&] { return services::Create(manager_, config); });
  }

 private:
  cvn::String prefix_ = cvn::Format(u"TesselTest%08x%08x", SecureRandom32(), SecureRandom32());
  Handle manager_;
};

TEST_F(ServicesConformance, KeepWhatTheyWereMadeOf) {
  Config made = Usual(u'a');
  made.startType = kAutoStart;
  made.errorControl = 2;
  made.binaryPath = u"\"%SystemDrive%\\a folder\\service.exe\" -run";
  made.group = u"Tessel group";
  made.dependencies = cvn::String(cvn::StringView(u"RpcSs\0+Tessel other\0Zwei\0\0", 26));
  ASSERT_EQ(Create(made), Expected(kSuccess));
  const Handle service = Opened(u'a', services::kQueryConfig);
  Config found;
  EXPECT_EQ(Observe([&] { return services::QueryConfig(service, &found); }), Expected(kSuccess));
  EXPECT_EQ(Utf8(found.displayName), Utf8(made.displayName));
  EXPECT_EQ(found.serviceType, kOwnProcess);
  EXPECT_EQ(found.startType, kAutoStart);
  EXPECT_EQ(found.errorControl, 2U);
  EXPECT_TRUE(found.hasBinaryPath);
  EXPECT_EQ(Utf8(found.group), "Tessel group");
  if (RunsUnderWine()) {
    GTEST_SKIP() << "Wine gives a path as it is stored, and the dependencies in one row";
  }
  EXPECT_EQ(Utf8(found.binaryPath), "\"C:\\a folder\\service.exe\" -run");
  EXPECT_EQ(Utf8(found.dependencies), Utf8(cvn::StringView(u"RpcSs\0Zwei\0+Tessel other\0\0", 26)));
}

TEST_F(ServicesConformance, FoundByName) {
  ASSERT_EQ(Create(Usual(u'a')), Expected(kSuccess));
  const cvn::String longest{std::u16string(256, u'n')};
  const cvn::String tooLong{std::u16string(257, u'n')};
  const struct {
    cvn::String name;
    Code code;
  } kCases[] = {
      {Name(u'a'), 0}, {Name(u'A'), 0}, {Name(u'b'), 1060}, {Usual(u'a').displayName, 1060},
      {u"", 123},      {u"a/b", 123},   {u"a\\b", 123},     {longest, 1060},
  };
  for (const auto& example : kCases) {
    EXPECT_EQ(Open(example.name), Expected(example.code)) << Utf8(example.name);
  }
  if (RunsUnderWine()) {
    GTEST_SKIP() << "Wine looks for a name of any length";
  }
  EXPECT_EQ(Open(tooLong), Expected(123));
}

TEST_F(ServicesConformance, RefuseWhatNoServiceCanBe) {
  ASSERT_EQ(Create(Usual(u'a')), Expected(kSuccess));
  const struct {
    void (*change)(Config* config);
    Code code;
  } kCases[] = {
      {[](Config* config) { config->name = u""; }, 123},
      {[](Config* config) { config->name = u"a\\b"; }, 123},
      {[](Config* config) { config->name = u"a/b"; }, 123},
      {[](Config* config) { config->binaryPath = u""; }, 487},
      {[](Config* config) { config->serviceType = 0; }, 87},
      {[](Config* config) { config->serviceType = 0x30; }, 87},
      {[](Config* config) { config->serviceType = 0x102; }, 87},
      {[](Config* config) { config->serviceType = 0x3; }, 87},
      {[](Config* config) { config->startType = 5; }, 87},
      {[](Config* config) { config->startType = 0; }, 87},
      {[](Config* config) { config->startType = 1; }, 87},
  };
  for (const auto& example : kCases) {
    Config config = Usual(u'b');
    example.change(&config);
    EXPECT_EQ(Create(config), Expected(example.code)) << (&example - kCases);
  }
  EXPECT_EQ(Open(Name(u'b')), Expected(1060));
  if (RunsUnderWine()) {
    GTEST_SKIP() << "Wine takes any number for the error control";
  }
  Config config = Usual(u'b');
  config.errorControl = 4;
  EXPECT_EQ(Create(config), Expected(87));
}

TEST_F(ServicesConformance, HaveNamesOfTheirOwn) {
  ASSERT_EQ(Create(Usual(u'a')), Expected(kSuccess));
  Config taken = Usual(u'A');
  taken.displayName = u"Another";
  EXPECT_EQ(Create(taken), Expected(1073));
  Config sameDisplayName = Usual(u'b');
  sameDisplayName.displayName = Usual(u'a').displayName;
  EXPECT_EQ(Create(sameDisplayName), Expected(1078));
  if (RunsUnderWine()) {
    GTEST_SKIP() << "Wine lets a display name be another's name";
  }
  sameDisplayName.displayName = Name(u'A');
  EXPECT_EQ(Create(sameDisplayName), Expected(1078));
}

TEST_F(ServicesConformance, GoWithTheirLastHandle) {
  ASSERT_EQ(Create(Usual(u'a')), Expected(kSuccess));
  Handle first = Opened(u'a', services::kDelete);
  Handle second = Opened(u'a', services::kQueryStatus + services::kStart + services::kDelete);
  EXPECT_EQ(Observe([&] { return services::Delete(first); }), Expected(kSuccess));
  EXPECT_EQ(Observe([&] { return services::Delete(second); }), Expected(1072));
  if (!RunsUnderWine()) {  // which tries to lock its database first, and waits long for that
    EXPECT_EQ(Observe([&] { return services::Start(second); }), Expected(1072));
  }
  EXPECT_EQ(Create(Usual(u'a')), Expected(1072));
  std::uint32_t state = 0;
  EXPECT_EQ(services::QueryState(second, &state), kSuccess);
  EXPECT_EQ(state, services::kStateStopped);
  first.Close();
  EXPECT_EQ(Open(Name(u'a')), Expected(kSuccess)) << "a handle is open yet";
  second.Close();
  EXPECT_EQ(Open(Name(u'a')), Expected(1060));
  EXPECT_EQ(Create(Usual(u'a')), Expected(kSuccess)) << "the names are free again";
}

TEST_F(ServicesConformance, DoOnlyWhatTheHandleMayDo) {
  ASSERT_EQ(Create(Usual(u'a')), Expected(kSuccess));
  const Handle querying = Opened(u'a', services::kQueryStatus);
  const Handle other = Opened(u'a', services::kQueryConfig);
  std::uint32_t state = 0;
  Config config;
  EXPECT_EQ(Observe([&] { return services::QueryState(other, &state); }), Expected(5));
  EXPECT_EQ(Observe([&] { return services::QueryConfig(querying, &config); }), Expected(5));
  EXPECT_EQ(Observe([&] { return services::Start(querying); }), Expected(5));
  EXPECT_EQ(Observe([&] { return services::Stop(querying, &state); }), Expected(5));
  EXPECT_EQ(Observe([&] { return services::Delete(querying); }), Expected(5));

  Handle manager;
  ASSERT_EQ(services::OpenManager(services::kManagerConnect, &manager), kSuccess);
  EXPECT_EQ(Observe([&] { return services::Create(manager, Usual(u'b')); }), Expected(5));
  EXPECT_EQ(Observe([&] { return services::Delete(Handle()); }), Expected(6));
}

TEST_F(ServicesConformance, DoNotRun) {
  Config disabled = Usual(u'a');
  disabled.startType = kDisabledStart;
  ASSERT_EQ(Create(disabled), Expected(kSuccess));
  Config orphan = Usual(u'b');
  orphan.dependencies = Name(u'c');
  orphan.dependencies.Append(cvn::StringView(u"\0\0", 2));
  ASSERT_EQ(Create(orphan), Expected(kSuccess));
  constexpr std::uint32_t kAccess = services::kQueryStatus + services::kStart + services::kStop;
  const Handle service = Opened(u'a', kAccess);
  std::uint32_t state = 0;
  EXPECT_EQ(Observe([&] { return services::QueryState(service, &state); }), Expected(kSuccess));
  EXPECT_EQ(state, services::kStateStopped);
  EXPECT_EQ(Observe([&] { return services::Stop(service, &state); }), Expected(1062));
  EXPECT_EQ(Observe([&] { return services::Start(service); }), Expected(1058));
  if (RunsUnderWine()) {
    GTEST_SKIP() << "Wine doesn't look at dependencies";
  }
  const Handle dependent = Opened(u'b', kAccess);
  EXPECT_EQ(Observe([&] { return services::Start(dependent); }), Expected(1075));
}

TEST_F(ServicesConformance, DoNotDependOnThemselves) {
  const auto dependingOn = [this](char16_t which, const cvn::String& on) {
    Config config = Usual(which);
    config.group = Name(u'g');
    config.dependencies = on;
    config.dependencies.Append(cvn::StringView(u"\0\0", 2));
    return config;
  };
  if (RunsUnderWine()) {
    GTEST_SKIP() << "Wine doesn't look at dependencies";
  }
  EXPECT_EQ(Create(dependingOn(u'a', Name(u'A'))), Expected(1059));
  EXPECT_EQ(Create(dependingOn(u'a', Joined(u"+", Name(u'G')))), Expected(1059));
  ASSERT_EQ(Create(dependingOn(u'a', Name(u'b'))), Expected(kSuccess));
  EXPECT_EQ(Create(dependingOn(u'b', Name(u'c'))), Expected(kSuccess));
  EXPECT_EQ(Create(dependingOn(u'c', Name(u'a'))), Expected(1059));
}

TEST_F(ServicesConformance, MayBeDrivers) {
  Config driver = Usual(u'a');
  driver.serviceType = kKernelDriver;
  driver.startType = 0;
  driver.binaryPath = u"System32\\drivers\\tessel test.sys";
  ASSERT_EQ(Create(driver), Expected(kSuccess));
  Config found;
  ASSERT_EQ(services::QueryConfig(Opened(u'a', services::kQueryConfig), &found), kSuccess);
  EXPECT_EQ(found.serviceType, kKernelDriver);
  EXPECT_EQ(found.startType, 0U);
  EXPECT_EQ(Utf8(found.binaryPath), "System32\\drivers\\tessel test.sys");
}

}  // namespace
}  // namespace platform::test
