// What only the Linux home has of services: a database that others write too.

#include "platform/registry.h"
#include "platform/services.h"
#include "tests/platform/fixture.h"

namespace platform::test {
namespace {

using registry::Key;
using services::Handle;

constexpr cvn::StringView kServices = u"SYSTEM\\CurrentControlSet\\Services";

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

TEST(ServiceDatabase, HasTheProductsServices) {
  EXPECT_EQ(Open(u"amsecurityservice", services::kAllAccess), kSuccess);
  EXPECT_EQ(Open(u"AmUpdateService", services::kAllAccess), kSuccess);
  EXPECT_EQ(Create(u"Other", u"ambry shield update service"), services::kDuplicateName);
}

TEST(ServiceDatabase, TakesOnlyWholeKeysForServices) {
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
}

TEST(ServiceDatabase, TakesAListWithoutAnythingInItForNone) {
  ASSERT_EQ(Create(u"Free", u"Free display"), kSuccess);
  Key key;
  ASSERT_EQ(
      registry::OpenKey(Key(registry::Root::LocalMachine),
                        u"SYSTEM\\CurrentControlSet\\Services\\Free", registry::kSetValue, &key),
      kSuccess);
  ASSERT_EQ(registry::SetValue(key, u"DependOnService", registry::kTypeMultiString, {}), kSuccess);
  Handle manager;
  Handle service;
  services::Config config;
  ASSERT_EQ(services::OpenManager(services::kManagerConnect, &manager), kSuccess);
  ASSERT_EQ(services::Open(manager, u"Free", services::kQueryConfig, &service), kSuccess);
  EXPECT_EQ(services::QueryConfig(service, &config), kSuccess);
  EXPECT_TRUE(config.dependencies.Empty());
}

TEST(ServiceDatabase, ForgetsWhatWasLeftMarkedForDeletion) {
  ASSERT_EQ(Create(u"Left", u"Left display"), kSuccess);
  StoreNumber(u"Left", u"DeleteFlag", 1);
  StoreNumber(u"Left\\Parameters", u"Port", 1);
  EXPECT_EQ(Open(u"Left", services::kQueryStatus), services::kDoesNotExist);
  EXPECT_EQ(Create(u"Other", u"Left display"), kSuccess);
  EXPECT_EQ(Create(u"Left", u"New display"), kSuccess);
  EXPECT_FALSE(HasKey(u"Left\\Parameters"));
  EXPECT_EQ(Open(u"Left", services::kDelete), kSuccess);
}

}  // namespace
}  // namespace platform::test
