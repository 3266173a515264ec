// What the platform's tests need of the backend that they run on, beyond the platform's own
// headers.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

#include "platform/error.h"
#include "platform/files.h"
#include "support/string.h"

namespace platform::test {

// Each backend has its own of these.

// Called before the platform's first use, and after its last.
void PreparePlatform();
void CleanPlatform();
// Removes a folder with all that it holds.
void RemoveTree(cvn::StringView folder);
// Makes a link to a folder. False where there is none to be had.
bool MakeFolderLink(cvn::StringView link, cvn::StringView folder);
// Gives a file another name (a hard link).
bool MakeOtherName(cvn::StringView file, cvn::StringView name);
bool RunsUnderWine();
// How many descriptors, or handles, the process has open.
std::size_t OpenHandles();

// All backends share what follows.

// A code, and the last error after it. gtest shows both.
struct Outcome {
  Code code;
  Code lastError;
  bool operator==(const Outcome&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Outcome& outcome);

inline constexpr Code kUntouched = 0x2BAD;  // no operation sets it
// A success leaves the last error alone; a failure's code is the last error.
constexpr Outcome Expected(Code code) { return {code, code == kSuccess ? kUntouched : code}; }

inline Outcome WithLastError(Code code) { return {code, LastError()}; }

template <typename Call>
Outcome Observe(Call call) {
  SetLastError(kUntouched);
  return WithLastError(call());
}

// Expects a code of a call, and the last error that belongs to it. Not by Observe, since Clang 14
// lets no lambda capture a structured binding.
#define EXPECT_CODE(code, ...)                                       \
  EXPECT_EQ((::platform::SetLastError(::platform::test::kUntouched), \
             ::platform::test::WithLastError(__VA_ARGS__)),          \
            ::platform::test::Expected(code))

std::string Utf8(cvn::StringView text);
cvn::String Joined(cvn::StringView left, cvn::StringView right);
cvn::String Repeated(cvn::StringView text, std::size_t times);

// The whole file; nothing when it can't be read.
std::optional<std::string> ContentOf(cvn::StringView path);
void WriteContent(cvn::StringView path, std::string_view content);
std::span<const std::byte> BytesOf(std::string_view text);

// Attributes without what the backend can't keep.
files::Attributes Comparable(files::Attributes attributes);
// The names that a search finds, or the code of its failure.
std::string Found(cvn::StringView pattern);

// A test with a fresh folder of its own.
class FolderTest : public testing::Test {
 protected:
  FolderTest();
  ~FolderTest() override;

  const cvn::String& Folder() const { return folder_; }
  // A name in the folder; a path with a drive, and an empty one, stay as they are.
  cvn::String Path(cvn::StringView name) const;
  // A path in the folder that is `length` characters long; its parents are made.
  cvn::String PathOfLength(std::size_t length) const;
  // Keeps a file open for reading.
  files::File Held(cvn::StringView name, files::Share share) const;

 private:
  cvn::String folder_;
};

}  // namespace platform::test
