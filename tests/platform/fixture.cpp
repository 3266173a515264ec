#include "tests/platform/fixture.h"

#include <array>

#include "platform/environment.h"
#include "platform/file_search.h"
#include "platform/paths.h"
#include "platform/random.h"
#include "support/format.h"
#include "support/utf.h"

namespace platform::test {
namespace {

class Surroundings : public testing::Environment {
 public:
  void SetUp() override { PreparePlatform(); }
  void TearDown() override { CleanPlatform(); }
};

[[maybe_unused]] const auto* const kSurroundings =
    testing::AddGlobalTestEnvironment(new Surroundings);

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

cvn::String Repeated(cvn::StringView text, std::size_t times) {
  cvn::String repeated;
  while (repeated.Length() < text.size() * times) {
    repeated.Append(text);
  }
  return repeated;
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

std::string Found(cvn::StringView pattern) {
  files::Search search;
  files::SearchEntry entry;
  Outcome step = Observe([&] { return search.First(pattern, &entry); });
  EXPECT_EQ(step, Expected(step.code)) << Utf8(pattern);
  if (step.code != kSuccess) {
    return std::to_string(step.code);
  }
  std::string names;
  do {
    names += (names.empty() ? "" : ", ") + Utf8(entry.Name());
    step = Observe([&] { return search.Next(&entry); });
  } while (step == Expected(kSuccess));
  EXPECT_EQ(step, Expected(kNoMoreFiles)) << Utf8(pattern);
  return names;
}

FolderTest::FolderTest()
    : folder_(cvn::Format(u"%s\\tessel-%08x%08x", environment::Get(u"TEMP").value_or(u"C:"),
                          SecureRandom32(), SecureRandom32())) {
  EXPECT_EQ(files::CreateDirectoryRecursive(folder_), kSuccess) << Utf8(folder_);
  // TEMP is often given in short names.
  folder_ = paths::LongName(folder_);
}

FolderTest::~FolderTest() { RemoveTree(folder_); }

cvn::String FolderTest::Path(cvn::StringView name) const {
  const bool isWhole = name.empty() || (name.size() > 1 && name[1] == u':');
  return isWhole ? cvn::String(name) : Joined(Joined(folder_, u"\\"), name);
}

cvn::String FolderTest::PathOfLength(std::size_t length) const {
  constexpr cvn::StringView kPart = u"\\twenty characters..x";
  const cvn::String way =
      Joined(folder_, Repeated(kPart, (length - folder_.Length()) / kPart.size() - 1));
  EXPECT_EQ(files::CreateDirectoryRecursive(way), kSuccess) << Utf8(way);
  return Joined(Joined(way, u"\\"), Repeated(u"n", length - way.Length() - 1));
}

files::File FolderTest::Held(cvn::StringView name, files::Share share) const {
  files::File file;
  EXPECT_EQ(
      files::Open(Path(name), files::Access::Read, share, files::Disposition::OpenExisting, &file),
      kSuccess)
      << Utf8(name);
  return file;
}

}  // namespace platform::test
