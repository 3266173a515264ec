#include "tests/platform/fixture.h"

#include <array>

#include "platform/environment.h"
#include "platform/paths.h"
#include "platform/random.h"
#include "support/format.h"
#include "support/utf.h"

namespace platform::test {
namespace {

class Home : public testing::Environment {
 public:
  void SetUp() override { PrepareHome(); }
  void TearDown() override { CleanHome(); }
};

[[maybe_unused]] const auto* const home = testing::AddGlobalTestEnvironment(new Home);

}  // namespace

std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
  out << "code " << outcome.code << ", last error ";
  return outcome.lastError == kUntouched ? out << "untouched" : out << outcome.lastError;
}

std::string Utf8(cvn::StringView text) { return cvn::WideToUtf8(text); }

cvn::String Joined(cvn::StringView left, cvn::StringView right) {
  cvn::String joined(left);
  joined.Append(right);
  return joined;
}

std::optional<std::string> ContentOf(cvn::StringView path) {
  files::File file;
  if (files::Open(path, files::Access::Read, files::Share::ReadWrite,
                  files::Disposition::OpenExisting, &file) != kSuccess) {
    return std::nullopt;
  }
  std::string content;
  std::array<char, 4096> buffer;
  std::size_t count = 0;
  do {
    if (file.Read(std::as_writable_bytes(std::span(buffer)), &count) != kSuccess) {
      return std::nullopt;
    }
    content.append(buffer.data(), count);
  } while (count != 0);
  return content;
}

void WriteContent(cvn::StringView path, std::string_view content) {
  files::File file;
  ASSERT_EQ(files::Open(path, files::Access::Write, files::Share::None,
                        files::Disposition::CreateAlways, &file),
            kSuccess)
      << Utf8(path);
  ASSERT_EQ(file.Write(BytesOf(content)), kSuccess);
}

std::span<const std::byte> BytesOf(std::string_view text) { return std::as_bytes(std::span(text)); }

files::Attributes Comparable(files::Attributes attributes) {
  if (!RunsUnderWine()) {
    return attributes;
  }
  // Wine shows ARCHIVE on every file, and on folders neither that nor READONLY.
  const bool isFolder = (attributes & files::kDirectory) != 0;
  return attributes & ~(files::kArchive | files::kNormal | (isFolder ? files::kReadOnly : 0));
}

FolderTest::FolderTest()
    : folder_(cvn::Format(u"%s\\tessel-%08x%08x", environment::Get(u"TEMP").value_or(u"C:"),
                          SecureRandom32(), SecureRandom32())) {
  EXPECT_EQ(files::CreateDirectoryRecursive(folder_), kSuccess) << Utf8(folder_);
  // TEMP is often given in short names.
  folder_ = paths::LongName(folder_);
}

FolderTest::~FolderTest() { RemoveTree(folder_); }

cvn::String FolderTest::PathOfLength(std::size_t length) const {
  constexpr cvn::StringView kPart = u"\\twenty characters..x";
  cvn::String path = folder_;
  while (path.Length() + 2 * kPart.size() < length) {
    path.Append(kPart);
  }
  EXPECT_EQ(files::CreateDirectoryRecursive(path), kSuccess) << Utf8(path);
  path.Append(u'\\');
  while (path.Length() < length) {
    path.Append(u'n');
  }
  return path;
}

}  // namespace platform::test
