// Where the binder looks for a library, and with which flags.
#include "commands/system/exported_object.h"

#include "platform/paths.h"
#include "tests/platform/fixture.h"
#include "tests/platform/scripted_libraries.h"

namespace tessel::testing {
namespace {

using platform::test::Libraries;

TEST(ExportedObject, LooksInTheProgramsFolderAndThenInItsOwn) {
  cvn::String program = platform::paths::ModuleFileName();
  platform::paths::RemoveFileSpec(&program);
  const cvn::String first = platform::test::Joined(program, u"\\x.dll");
  const cvn::String second = u"D:\\own folder\\x.dll";
  const struct {
    cvn::StringView asked;
    cvn::String there;
    std::vector<cvn::String> tried;
  } kCases[] = {
      {u"x.dll", first, {first}},
      {u"x.dll", second, {first, second}},
      {u"x.dll", u"", {first, second}},
      {u"C:\\y\\x.dll", u"", {u"C:\\y\\x.dll"}},
  };
  for (const bool canNarrow : {true, false}) {
    for (const auto& example : kCases) {
      Libraries() = {};
      Libraries().ownModule = u"D:\\own folder\\module.dll";
      Libraries().canNarrowSearch = canNarrow;
      Libraries().path = example.there;
      ExportedObject<IServPlugin> object;
      EXPECT_NE(object.Bind(example.asked, u"thing"), platform::kSuccess);  // it exports nothing
      ASSERT_EQ(Libraries().loads.size(), example.tried.size());
      for (std::size_t i = 0; i < example.tried.size(); ++i) {
        EXPECT_EQ(Libraries().loads[i].path, example.tried[i]);
        EXPECT_EQ(Libraries().loads[i].flags, canNarrow ? 0x1100U : 8U);
      }
      EXPECT_EQ(Libraries().references, 0);
    }
  }
}

}  // namespace
}  // namespace tessel::testing
