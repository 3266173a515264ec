// Documents that are saved to a disk without room for them.
#include <fstream>

#include "tests/commands/documents_fixture.h"
#include "tests/platform/private_mount.h"

namespace tessel::testing {
namespace {

TEST_F(DocumentsTest, AFullDiskKeepsTheOldOnes) {
  const platform::test::PrivateMount mount((Folder() / "full").string(), "tmpfs", "size=64k");
  if (!mount.IsMounted()) {
    GTEST_SKIP() << "file systems can't be mounted here";
  }
  const std::string xml = "<a>old</a>";
  const std::string json = R"({"a":"old"})";
  const std::string ini = "[s]\r\nk=old\r\n";
  Put("full/d.xml", xml);
  Put("full/d.json", json);
  Put("full/d.ini", ini);
  Put("full/the rest", std::string(1 << 20, 'x'));

  EXPECT_EQ(Answers(OpenXml("full/d.xml") + "<xmlSetValue handle='d' xpath='.' value='new'/>" +
                    SaveXml("full/d.xml") + TellError() + OpenJson("full/d.json", "j") +
                    "<jsonSetStringValue handle='j' path='a' value='new'/>" +
                    SaveJson("full/d.json", "j") + TellError() +
                    "<iniSetValue path='%dir%/full/d.ini' section='s' key='k' value='new'/>" +
                    TellError()),
            "112|1627|112|");
  EXPECT_EQ(Get("full/d.xml"), xml);
  EXPECT_EQ(Get("full/d.json"), json);
  EXPECT_EQ(Get("full/d.ini"), ini);
  const std::filesystem::directory_iterator left(Folder() / "full");
  EXPECT_EQ(std::distance(begin(left), end(left)), 4);
}

}  // namespace
}  // namespace tessel::testing
