#include "platform/private_file.h"
#include "tests/platform/fixture.h"

namespace platform::test {
namespace {

class PrivateFileConformance : public FolderTest {};

TEST_F(PrivateFileConformance, ItsMakerReadsItAndNothingIsReplaced) {
  const auto create = [this](cvn::StringView name, std::string_view content) {
    return Observe([&] {
      files::File file;
      const Code code = files::CreatePrivate(Path(name), &file);
      return code == kSuccess ? file.Write(BytesOf(content)) : code;
    });
  };
  EXPECT_EQ(create(u"new", "secret"), Expected(kSuccess));
  EXPECT_EQ(create(u"NEW", "other"), Expected(kFileExists));
  EXPECT_EQ(ContentOf(Path(u"new")), "secret");
  EXPECT_EQ(create(u"missing\\new", "secret"), Expected(kPathNotFound));
  EXPECT_EQ(files::Delete(Path(u"new")), kSuccess);
}

TEST_F(PrivateFileConformance, OthersWaitUntilItIsClosed) {
  files::File file;
  ASSERT_EQ(files::CreatePrivate(Path(u"new"), &file), kSuccess);
  files::File second;
  EXPECT_EQ(files::Open(Path(u"new"), files::Access::Read, files::Share::ReadWrite,
                        files::Disposition::OpenExisting, &second),
            kSharingViolation);
}

}  // namespace
}  // namespace platform::test
