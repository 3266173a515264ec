// What only the Linux home has of services: a database that others leave behind, and that not
// everybody may write.

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>

#include "platform/machine.h"
#include "platform/posix/names.h"
#include "platform/registry.h"
#include "platform/services.h"
#include "support/utf.h"

namespace platform::test {
namespace {

using registry::Key;
using services::Handle;

constexpr cvn::StringView kServices = u"SYSTEM\\CurrentControlSet\\Services";

class ServiceDatabase : public testing::Test {
 protected:
  ServiceDatabase() {
    folder_ = (std::filesystem::temp_directory_path() / "tessel-services-XXXXXX").string();
    EXPECT_NE(mkdtemp(folder_.data()), nullptr);
    EXPECT_EQ(machine::Create(posix::ToWide(Machine()), {}), kSuccess);
  }
  ~ServiceDatabase() override { std::filesystem::remove_all(folder_); }

  std::string Machine() const { return folder_ + "/C"; }
  // One run of the program on the machine.
  void Run(const std::function<void()>& action) const {
    const pid_t child = fork();
    if (child == 0) {
      EXPECT_EQ(machine::Use(posix::ToWide(Machine())), kSuccess);
      action();
      EXPECT_EQ(registry::Flush(), kSuccess);
      std::_Exit(HasFailure() ? 1 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }

 private:
  std::string folder_;
};

Code Open(cvn::StringView name, std::uint32_t access) {
  Handle manager;
  Handle service;
  const Code code = services::OpenManager(services::kManagerConnect, &manager);
  return code == kSuccess ? services::Open(manager, name, access, &service) : code;
}

Code Create(cvn::StringView name, cvn::StringView displayName) {
  services::Config config;
  config.name = name;
  config.displayName = displayName;
  config.serviceType = 0x10;
  config.startType = 3;
  config.binaryPath = u"C:\\x.exe";
  Handle manager;
  const Code code = services::OpenManager(services::kManagerCreateService, &manager);
  return code == kSuccess ? services::Create(manager, config) : code;
}

void StoreNumber(cvn::StringView service, cvn::StringView name, std::uint32_t number) {
  const Key machine{registry::Root::LocalMachine};
  Key services;
  Key key;
  ASSERT_EQ(registry::OpenKey(machine, kServices, 0, &services), kSuccess);
  ASSERT_EQ(registry::CreateKey(services, service, false, registry::kSetValue, &key), kSuccess);
  ASSERT_EQ(
      registry::SetValue(key, name, registry::kTypeDword, std::as_bytes(std::span(&number, 1))),
      kSuccess);
}

bool HasKey(cvn::StringView path) {
  const Key machine{registry::Root::LocalMachine};
  Key services;
  Key key;
  EXPECT_EQ(registry::OpenKey(machine, kServices, 0, &services), kSuccess);
  return registry::OpenKey(services, path, 0, &key) == kSuccess;
}

TEST_F(ServiceDatabase, HasTheProductsServices) {
  Run([] {
    EXPECT_EQ(Open(u"amsecurityservice", services::kAllAccess), kSuccess);
    EXPECT_EQ(Open(u"AmUpdateService", services::kAllAccess), kSuccess);
    EXPECT_EQ(Create(u"Other", u"ambry shield update service"), services::kDuplicateName);
  });
}

TEST_F(ServiceDatabase, TakesOnlyWholeKeysForServices) {
  Run([] {
    StoreNumber(u"Part", u"Type", 0x10);
    EXPECT_EQ(Open(u"Part", services::kQueryStatus), services::kDoesNotExist);
    StoreNumber(u"Part", u"Start", 3);
    EXPECT_EQ(Open(u"Part", services::kQueryStatus), services::kDoesNotExist);
    StoreNumber(u"Part", u"ErrorControl", 0);
    EXPECT_EQ(Open(u"Part", services::kQueryStatus), kSuccess);
    StoreNumber(u"Part", u"Type", 0x100);
    EXPECT_EQ(Open(u"Part", services::kQueryStatus), services::kDoesNotExist);
    StoreNumber(u"Part\\Parameters", u"Port", 1);
    EXPECT_EQ(Create(u"Part", u"Whole now"), kSuccess);
    EXPECT_TRUE(HasKey(u"Part\\Parameters")) << "which the new service may have put there before";
  });
}

TEST_F(ServiceDatabase, ForgetsWhatWasLeftMarkedForDeletion) {
  Run([] {
    ASSERT_EQ(Create(u"Left", u"Left display"), kSuccess);
    StoreNumber(u"Left", u"DeleteFlag", 1);
    StoreNumber(u"Left\\Parameters", u"Port", 1);
  });
  Run([] {
    EXPECT_EQ(Open(u"Left", services::kQueryStatus), services::kDoesNotExist);
    EXPECT_EQ(Create(u"Other", u"Left display"), kSuccess);
    EXPECT_EQ(Create(u"Left", u"New display"), kSuccess);
    EXPECT_FALSE(HasKey(u"Left\\Parameters"));
  });
  Run([] { EXPECT_EQ(Open(u"Left", services::kDelete), kSuccess); });
}

TEST_F(ServiceDatabase, MayBeAskedByWhoMayNotWrite) {
  chmod((Machine() + "/Windows/System32/config/SYSTEM").c_str(), 0444);
  Run([] {
    EXPECT_EQ(Open(u"AmUpdateService", services::kQueryStatus + services::kQueryConfig), kSuccess);
    for (const std::uint32_t access :
         {services::kStart, services::kStop, services::kDelete, services::kAllAccess}) {
      EXPECT_EQ(Open(u"AmUpdateService", access), kAccessDenied) << access;
    }
    Handle manager;
    EXPECT_EQ(services::OpenManager(services::kManagerEnumerateService, &manager), kSuccess);
    EXPECT_EQ(services::OpenManager(services::kManagerAllAccess, &manager), kAccessDenied);
    EXPECT_EQ(Create(u"New", u"New"), kAccessDenied);
  });
}

TEST_F(ServiceDatabase, MayBeMissing) {
  std::filesystem::remove(Machine() + "/Windows/System32/config/SYSTEM");
  Run([] { EXPECT_EQ(Open(u"AmUpdateService", 0), services::kDatabaseDoesNotExist); });
}

}  // namespace
}  // namespace platform::test
