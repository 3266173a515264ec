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
    for (const cvn::StringView each : {u"a", u"b"}) {
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
  EXPECT_EQ(found.startType, 2U);
  EXPECT_EQ(found.errorControl, 2U);
  EXPECT_EQ(Utf8(found.group), "Tessel group");
  if (RunsUnderWine()) {
    GTEST_SKIP() << "Wine gives a path as it is stored, and the dependencies in one row";
  }
  EXPECT_EQ(Utf8(found.binaryPath), "\"C:\\a folder\\service.exe\" -run");
  EXPECT_EQ(Utf8(found.dependencies), Utf8(cvn::StringView(u"RpcSs\0Zwei\0+Tessel other\0\0", 26)));
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

}  // namespace
}  // namespace platform::test
