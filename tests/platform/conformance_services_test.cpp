#include "platform/services.h"

#include "platform/random.h"
#include "support/format.h"
#include "tests/platform/fixture.h"

namespace platform::test {
namespace {

using services::Config;
using services::Handle;

constexpr std::uint32_t kOwnProcess = 0x10;

// A test with names of its own, whose services it deletes at the end.
class ServicesConformance : public testing::Test {
 protected:
  ServicesConformance() {
    EXPECT_EQ(services::OpenManager(services::kManagerCreateService, &manager_), kSuccess);
  }
  ~ServicesConformance() override {
    for (const cvn::StringView each : {u"a", u"b", u"c"}) {
      Handle service;
      if (services::Open(manager_, Name(each), services::kDelete, &service) == kSuccess) {
        IgnoreError(services::Delete(service));
      }
    }
  }

  cvn::String Name(cvn::StringView which) const { return Joined(prefix_, which); }
  // What makes a service that is like most.
  Config Usual(cvn::StringView which) const {
    Config config;
    config.name = Name(which);
    config.displayName = Joined(u"Display of ", config.name);
    config.serviceType = kOwnProcess;
    config.startType = 3;
    config.errorControl = 1;
    config.binaryPath = u"C:\\Windows\\tessel test.exe";
    return config;
  }
  Config DependingOn(cvn::StringView which, const cvn::String& on) const {
    Config config = Usual(which);
    config.group = Name(u"g");
    config.dependencies = Joined(on, cvn::StringView(u"\0\0", 2));
    return config;
  }
  Handle Opened(cvn::StringView which, std::uint32_t access) const {
    Handle service;
    EXPECT_CODE(kSuccess, services::Open(manager_, Name(which), access, &service)) << Utf8(which);
    return service;
  }
  Code Find(cvn::StringView name) const {
    Handle service;
    return services::Open(manager_, name, services::kQueryStatus, &service);
  }
  Code Create(const Config& config) const { return services::Create(manager_, config); }

  const cvn::String prefix_ =
      cvn::Format(u"TesselTest%08x%08x", SecureRandom32(), SecureRandom32());
  Handle manager_;
};

TEST_F(ServicesConformance, KeepWhatTheyWereMadeOf) {
  Config made = Usual(u"a");
  made.startType = 2;
  made.errorControl = 2;
  made.binaryPath = u"\"%SystemDrive%\\a folder\\service.exe\" -run";
  made.group = u"Tessel group";
  made.dependencies = cvn::String(cvn::StringView(u"RpcSs\0+Tessel other\0Zwei\0\0", 26));
  EXPECT_CODE(kSuccess, Create(made));
  Config found;
  EXPECT_CODE(kSuccess, services::QueryConfig(Opened(u"a", services::kQueryConfig), &found));
  EXPECT_EQ(Utf8(found.displayName), Utf8(made.displayName));
  EXPECT_EQ(found.serviceType, kOwnProcess);
  EXPECT_EQ(found.startType, 2U);
  EXPECT_EQ(found.errorControl, 2U);
  EXPECT_TRUE(found.hasBinaryPath);
  EXPECT_EQ(Utf8(found.group), "Tessel group");
  if (RunsUnderWine()) {
    GTEST_SKIP() << "Wine gives a path as it is stored, and the dependencies in one row";
  }
  EXPECT_EQ(Utf8(found.binaryPath), "\"C:\\a folder\\service.exe\" -run");
  EXPECT_EQ(Utf8(found.dependencies), Utf8(cvn::StringView(u"RpcSs\0Zwei\0+Tessel other\0\0", 26)));
}

TEST_F(ServicesConformance, AreFoundByNamesOfTheirOwn) {
  EXPECT_CODE(kSuccess, Create(Usual(u"a")));
  const std::pair<cvn::String, Code> kCases[] = {
      {Name(u"a"), 0}, {Name(u"A"), 0}, {Name(u"b"), 1060}, {Usual(u"a").displayName, 1060},
      {u"", 123},      {u"a/b", 123},   {u"a\\b", 123},     {Repeated(u"n", 256), 1060},
  };
  for (const auto& [name, code] : kCases) {
    EXPECT_CODE(code, Find(name)) << Utf8(name);
  }
  Config taken = Usual(u"A");
  taken.displayName = u"Another";
  EXPECT_CODE(1073, Create(taken));
  Config second = Usual(u"b");
  second.displayName = Usual(u"a").displayName;
  EXPECT_CODE(1078, Create(second));
  if (RunsUnderWine()) {
    GTEST_SKIP() << "Wine takes names of any length, and for display names those of others";
  }
  EXPECT_CODE(123, Find(Repeated(u"n", 257)));
  second.displayName = Name(u"A");
  EXPECT_CODE(1078, Create(second));
}

TEST_F(ServicesConformance, RefuseWhatNoServiceCanBe) {
  constexpr struct {
    std::uint32_t type;
    std::uint32_t start;
    std::uint32_t errorControl = 1;
  } kCases[] = {{0, 3},
                {0x30, 3},
                {0x102, 3},
                {0x3, 3},
                {0x10, 5},
                {0x10, 0},
                {0x10, 1},
                // Wine takes any number for the error control.
                {0x10, 3, 4}};
  for (const auto& [type, start, errorControl] : kCases) {
    Config config = Usual(u"b");
    config.serviceType = type;
    config.startType = start;
    config.errorControl = errorControl;
    if (errorControl == 1 || !RunsUnderWine()) {
      EXPECT_CODE(kInvalidParameter, Create(config)) << type << ", " << start;
    }
  }
  Config nameless = Usual(u"b");
  nameless.name = u"";
  EXPECT_CODE(kInvalidName, Create(nameless));
  EXPECT_CODE(services::kDoesNotExist, Find(Name(u"b")));
}

TEST_F(ServicesConformance, GoWithTheirLastHandle) {
  EXPECT_CODE(kSuccess, Create(Usual(u"a")));
  Handle first = Opened(u"a", services::kDelete);
  Handle second = Opened(u"a", services::kQueryStatus + services::kStart + services::kDelete);
  EXPECT_CODE(kSuccess, services::Delete(first));
  EXPECT_CODE(1072, services::Delete(second));
  if (!RunsUnderWine()) {  // which tries to lock its database first, and waits long for that
    EXPECT_CODE(1072, services::Start(second));
  }
  EXPECT_CODE(1072, Create(Usual(u"a")));
  std::uint32_t state = 0;
  EXPECT_CODE(kSuccess, services::QueryState(second, &state));
  EXPECT_EQ(state, services::kStateStopped);
  first.Close();
  EXPECT_CODE(kSuccess, Find(Name(u"a"))) << "a handle is open yet";
  second.Close();
  EXPECT_CODE(services::kDoesNotExist, Find(Name(u"a")));
  EXPECT_CODE(kSuccess, Create(Usual(u"a"))) << "the names are free again";
}

TEST_F(ServicesConformance, DoOnlyWhatTheHandleMayDo) {
  EXPECT_CODE(kSuccess, Create(Usual(u"a")));
  const Handle querying = Opened(u"a", services::kQueryStatus);
  const Handle other = Opened(u"a", services::kQueryConfig);
  const Handle stopping = Opened(u"a", services::kQueryStatus + services::kStop);
  std::uint32_t state = 0;
  Config config;
  EXPECT_CODE(kAccessDenied, services::QueryState(other, &state));
  EXPECT_CODE(kAccessDenied, services::QueryConfig(querying, &config));
  EXPECT_CODE(kAccessDenied, services::Start(querying));
  EXPECT_CODE(kAccessDenied, services::Stop(querying, &state));
  EXPECT_CODE(kAccessDenied, services::Delete(querying));
  EXPECT_CODE(services::kNotActive, services::Stop(stopping, &state));
  Handle manager;
  ASSERT_EQ(services::OpenManager(services::kManagerConnect, &manager), kSuccess);
  EXPECT_CODE(kAccessDenied, services::Create(manager, Usual(u"b")));
  EXPECT_CODE(kInvalidHandle, services::Delete(Handle()));
}

TEST_F(ServicesConformance, DoNotDependOnThemselves) {
  if (RunsUnderWine()) {
    GTEST_SKIP() << "Wine doesn't look at dependencies";
  }
  constexpr Code kCircle = services::kCircularDependency;
  EXPECT_CODE(kCircle, Create(DependingOn(u"a", Name(u"A"))));
  EXPECT_CODE(kCircle, Create(DependingOn(u"a", Joined(u"+", Name(u"G")))));
  EXPECT_CODE(kSuccess, Create(DependingOn(u"a", Name(u"b"))));
  EXPECT_CODE(kSuccess, Create(DependingOn(u"b", Name(u"c"))));
  EXPECT_CODE(kCircle, Create(DependingOn(u"c", Name(u"a"))));
  EXPECT_CODE(1075, services::Start(Opened(u"b", services::kStart))) << "there is no such service";
}

}  // namespace
}  // namespace platform::test
