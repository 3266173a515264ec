// On a machine, which has the product's install folder.
#include "trust/protected_folder.h"

#include "files/path_text.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "tests/platform/fixture.h"
#include "trust/locations.h"
#include "trust/path_key.h"

namespace tessel {
namespace {

using platform::test::Utf8;

class ProtectedFolder : public platform::test::FolderTest {
 protected:
  CatalogEntry Entry(cvn::StringView name) const {
    CatalogFunctions functions;
    BindCatalogFunctions(&functions);
    CatalogEntry entry{Path(name), {}, {}};
    EXPECT_EQ(CalcFileHash(functions, entry.path, &entry.hash), platform::kSuccess);
    LowerCase(&entry.path);
    return entry;
  }
};

TEST_F(ProtectedFolder, NothingIsWrittenOutsideIt) {
  ASSERT_EQ(platform::files::CreateDirectoryRecursive(GetInstallPath()), platform::kSuccess);
  ASSERT_EQ(platform::files::CreateDirectory(Path(u"patch")), platform::kSuccess);
  for (const cvn::StringView name : {u"patch\\fix.tlx", u"patch\\in.txt", u"out.txt"}) {
    platform::test::WriteContent(Path(name), Utf8(name));
  }
  for (const cvn::StringView name :
       {u"patch\\..\\out.txt", u"patch\\.\\..\\out.txt", u"patch\\sub\\..\\..\\out.txt",
        u"patch\\..\\patch\\..\\out.txt"}) {
    const cvn::List<CatalogEntry> entries = {Entry(u"patch\\fix.tlx"), Entry(u"patch\\in.txt"),
                                             Entry(name)};
    EXPECT_EQ(CopyToProtectedFolder(entries, Path(u"patch\\fix.tlx")), kNotAllCopied) << Utf8(name);
    const cvn::String folder = ProtectedFolderPath();
    EXPECT_EQ(platform::test::ContentOf(JoinPath(folder, u"in.txt")), "patch\\in.txt");
    EXPECT_FALSE(platform::paths::Exists(JoinPath(folder, u"out.txt")));
    EXPECT_FALSE(platform::paths::Exists(JoinPath(folder, u"..\\out.txt")));
    CleanupProtectedFolder();
    EXPECT_FALSE(platform::paths::Exists(folder));
    EXPECT_TRUE(ProtectedFolderPath().Empty());
  }
}

TEST_F(ProtectedFolder, ADifferentFileIsNotLeftThere) {
  ASSERT_EQ(platform::files::CreateDirectoryRecursive(GetInstallPath()), platform::kSuccess);
  platform::test::WriteContent(Path(u"fix.tlx"), "patch");
  platform::test::WriteContent(Path(u"a.txt"), "signed");
  const cvn::List<CatalogEntry> entries = {Entry(u"a.txt"), Entry(u"fix.tlx")};
  platform::test::WriteContent(Path(u"a.txt"), "other!");
  EXPECT_EQ(CopyToProtectedFolder(entries, Path(u"fix.tlx")), kInvolvedFileMismatch);
  EXPECT_FALSE(platform::paths::Exists(JoinPath(ProtectedFolderPath(), u"a.txt")));
  CleanupProtectedFolder();
}

}  // namespace
}  // namespace tessel
