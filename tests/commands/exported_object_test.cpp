// Where the binder looks for a library, and what it makes of a loader that fails oddly.
#include "commands/system/exported_object.h"

#include "platform/paths.h"
#include "tests/platform/fixture.h"
#include "tests/platform/scripted_libraries.h"

namespace tessel::testing {
namespace {

using platform::test::Joined;
using platform::test::Libraries;
using platform::test::LoadCall;
using platform::test::ScriptedLibraries;
using platform::test::Utf8;

class Thing : public IExportedObject {
 public:
  static constexpr InterfaceId kId{1, 2};
  void* QueryInterface(const InterfaceId* id) override {
    return id->secondWord == 2 ? this : nullptr;
  }
};

Thing thing;
Thing* made = &thing;
std::uint32_t createStatus = 0;
int destroyed = 0;

std::uint32_t Create(const char16_t* /*name*/, const InterfaceId* /*id*/, void** object) {
  *object = made;
  return createStatus;
}

void Destroy(const char16_t* /*name*/, void* /*object*/) { ++destroyed; }

class ExportedObjectTest : public ::testing::Test {
 protected:
  ExportedObjectTest() {
    Libraries() = ScriptedLibraries();
    Libraries().ownModule = u"D:\\own folder\\module.dll";
    Libraries().exports = {
        {"CvnCreateObject", reinterpret_cast<platform::libraries::Address>(&Create)},
        {"CvnDestroyObject", reinterpret_cast<platform::libraries::Address>(&Destroy)}};
    made = &thing;
    createStatus = 0;
    destroyed = 0;
  }

  static cvn::String BesideProgram(cvn::StringView name) {
    cvn::String path = platform::paths::ModuleFileName();
    platform::paths::RemoveFileSpec(&path);
    return Joined(Joined(path, u"\\"), name);
  }

  static std::vector<std::string> Tried() {
    std::vector<std::string> paths;
    for (const LoadCall& call : Libraries().loads) {
      paths.push_back(Utf8(call.path));
    }
    return paths;
  }
};

TEST_F(ExportedObjectTest, LooksInTheProgramsFolderAndThenInItsOwn) {
  const std::string first = Utf8(BesideProgram(u"x.dll"));
  const std::string second = "D:\\own folder\\x.dll";
  const struct {
    cvn::StringView asked;
    cvn::String there;
    platform::Code code;
    std::vector<std::string> tried;
  } kCases[] = {
      {u"x.dll", BesideProgram(u"x.dll"), 0, {first}},
      {u"x.dll", u"D:\\own folder\\x.dll", 0, {first, second}},
      {u"x.dll", u"", 126, {first, second}},
      {u"C:\\y\\x.dll", u"C:\\y\\x.dll", 0, {"C:\\y\\x.dll"}},
      {u"C:\\y\\x.dll", u"", 126, {"C:\\y\\x.dll"}},
      {u"\\y\\x.dll", u"", 126, {"\\y\\x.dll"}},
      {u"..\\x.dll", BesideProgram(u"..\\x.dll"), 0, {Utf8(BesideProgram(u"..\\x.dll"))}},
  };
  for (const auto& example : kCases) {
    Libraries().path = example.there;
    Libraries().loads.clear();
    ExportedObject<Thing> object;
    EXPECT_EQ(object.Bind(example.asked, u"thing"), example.code);
    EXPECT_EQ(Tried(), example.tried);
  }
  EXPECT_EQ(Libraries().references, 0);
  EXPECT_EQ(destroyed, 4);
}

TEST_F(ExportedObjectTest, ChoosesTheFlagsByWhatThePlatformHas) {
  for (const bool canNarrow : {true, false}) {
    Libraries().canNarrowSearch = canNarrow;
    Libraries().loads.clear();
    ExportedObject<Thing> object;
    platform::IgnoreError(object.Bind(u"x.dll", u"thing"));
    ASSERT_EQ(Libraries().loads.size(), 2U);
    for (const LoadCall& call : Libraries().loads) {
      EXPECT_EQ(call.flags, canNarrow ? 0x1100U : 8U);
    }
  }
}

TEST_F(ExportedObjectTest, HandsOnAStatusAndHasACodeForNoInterface) {
  Libraries().path = u"C:\\x.dll";
  ExportedObject<IServPlugin> other;
  EXPECT_EQ(other.Bind(u"C:\\x.dll", u"thing"), 632U);
  ExportedObject<Thing> object;
  made = nullptr;
  EXPECT_EQ(object.Bind(u"C:\\x.dll", u"thing"), 632U);
  createStatus = 0x80070005;
  EXPECT_EQ(object.Bind(u"C:\\x.dll", u"thing"), 0x80070005);
  EXPECT_EQ(object.Get(), nullptr);
  EXPECT_EQ(Libraries().references, 0);
  EXPECT_EQ(destroyed, 1);
}

TEST_F(ExportedObjectTest, HasACodeForAFailureWithoutOne) {
  for (const platform::Code code : {0U, 5U}) {
    Libraries().failure = code;
    Libraries().path = u"";
    ExportedObject<Thing> object;
    EXPECT_EQ(object.Bind(u"C:\\x.dll", u"thing"), code == 0 ? platform::Code(632) : code);
    Libraries().path = u"C:\\x.dll";
    for (const char* missing : {"CvnCreateObject", "CvnDestroyObject"}) {
      const auto taken = Libraries().exports.extract(missing);
      EXPECT_EQ(object.Bind(u"C:\\x.dll", u"thing"), code == 0 ? platform::Code(632) : code)
          << missing;
      Libraries().exports[missing] = taken.mapped();
    }
  }
  EXPECT_EQ(Libraries().references, 0);
  EXPECT_EQ(destroyed, 0);
}

TEST_F(ExportedObjectTest, GivesBackTheFormerObjectFirst) {
  Libraries().path = u"C:\\x.dll";
  ExportedObject<Thing> object;
  ASSERT_EQ(object.Bind(u"C:\\x.dll", u"thing"), 0U);
  EXPECT_EQ(object.Get(), &thing);
  ASSERT_EQ(object.Bind(u"C:\\x.dll", u"thing"), 0U);
  EXPECT_EQ(Libraries().references, 1);
  EXPECT_EQ(destroyed, 1);
}

}  // namespace
}  // namespace tessel::testing
