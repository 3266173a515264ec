#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/download.h"
#include "platform/paths.h"
#include "support/format.h"
#include "tests/platform/fixture.h"
#include "tests/platform/loopback_server.h"

namespace platform {
namespace {

using test::ContentOf;
using test::Joined;
using test::LoopbackServer;
using test::RunsUnderWine;
using test::Utf8;
using test::WriteContent;

constexpr std::string_view kOld = "the older file";

std::string Reply(std::string_view status, std::string_view headers, std::string_view body) {
  return std::string("HTTP/1.1 ")
      .append(status)
      .append("\r\n")
      .append(headers)
      .append("\r\n")
      .append(body);
}

std::string WithLength(std::string_view status, const std::string& body) {
  return Reply(status, "Content-Length: " + std::to_string(body.size()) + "\r\n", body);
}

std::string RedirectTo(std::string_view target) {
  return Reply("302 Found", "Content-Length: 0\r\nLocation: " + std::string(target) + "\r\n", "");
}

// What doesn't repeat itself within the blocks that a transfer may have.
std::string LongContent() {
  std::string content;
  for (std::uint32_t i = 0; content.size() < 8'000'000; ++i) {
    content += std::to_string(i) + '\n';
  }
  return content;
}

const std::map<std::string, std::string, std::less<>>& Answers() {
  static const std::map<std::string, std::string, std::less<>> answers = {
      {"/long", WithLength("200 OK", LongContent())},
      {"/file", WithLength("200 OK", "content")},
      {"/empty", WithLength("200 OK", "")},
      {"/unknown-length", Reply("200 OK", "Connection: close\r\n", "content")},
      {"/chunks",
       Reply("200 OK", "Transfer-Encoding: chunked\r\n", "3\r\ncon\r\n4\r\ntent\r\n0\r\n\r\n")},
      {"/a%20b", WithLength("200 OK", "content")},
      {"/a%20%C3%A4?b%20c", WithLength("200 OK", "content")},
      {"/a%20%c3%a4?b%20c", WithLength("200 OK", "content")},
      {"/moved", RedirectTo("/moved-again")},
      {"/moved-again", RedirectTo("/file")},
      {"/loop", RedirectTo("/loop")},
      {"/to-a-file", RedirectTo("file:///C:/Windows/win.ini")},
      {"/missing", WithLength("404 Not Found", "an error page")},
      {"/secret", WithLength("401 Unauthorized", "an error page")},
      {"/broken", WithLength("500 Internal Server Error", "an error page")},
      {"/short", Reply("200 OK", "Content-Length: 100\r\n", "half of it")},
      {"/short-chunks", Reply("200 OK", "Transfer-Encoding: chunked\r\n", "3\r\ncon\r\n")},
      {"/silent", ""},
  };
  return answers;
}

std::string Hexadecimal(std::int32_t result) {
  return Utf8(cvn::Format(u"%08X", static_cast<std::uint32_t>(result)));
}

class DownloadConformance : public test::FolderTest {
 protected:
  // Downloads twice: over an older file, and where there is none. Nothing else may be left in the
  // folder. A failure changes nothing.
  void Expect(cvn::StringView url, std::string_view result,
              std::optional<std::string_view> content = std::nullopt) {
    WriteContent(Path(u"old"), kOld);
    for (const cvn::StringView name : {u"old", u"new"}) {
      const std::int32_t code = DownloadToFile(url, Path(name));
      if (result == kAnyFailure) {
        EXPECT_LT(code, 0) << Utf8(url);
      } else {
        EXPECT_EQ(Hexadecimal(code), result) << Utf8(url);
      }
    }
    EXPECT_EQ(ContentOf(Path(u"old")), content.value_or(kOld)) << Utf8(url);
    EXPECT_EQ(ContentOf(Path(u"new")), content) << Utf8(url);
    IgnoreError(files::Delete(Path(u"old")));
    IgnoreError(files::Delete(Path(u"new")));
    EXPECT_EQ(files::RemoveDirectory(Folder()), kSuccess) << Utf8(url);
    EXPECT_EQ(files::CreateDirectory(Folder()), kSuccess);
  }

  static constexpr std::string_view kAnyFailure = "any failure";
  static constexpr std::string_view kSuccessful = "00000000";

  LoopbackServer server_{[](std::string_view path) {
    const auto answer = Answers().find(path);
    return answer == Answers().end() ? WithLength("410 Gone", "") : answer->second;
  }};
};

TEST_F(DownloadConformance, FetchesFromAServer) {
  for (const std::string_view path :
       {"/file", "/unknown-length", "/chunks", "/a%20b", "/a b", "/a \xC3\xA4?b c", "/moved"}) {
    if (path.find('\xC3') != path.npos && RunsUnderWine()) {
      continue;  // it has the code page's bytes for what is not ASCII
    }
    Expect(server_.Url(path), kSuccessful, "content");
  }
  Expect(server_.Url("/empty"), kSuccessful, "");
  Expect(server_.Url("/long"), kSuccessful, LongContent());
}

TEST_F(DownloadConformance, AFailedTransferChangesNothing) {
  if (RunsUnderWine()) {
    GTEST_SKIP() << "Wine keeps error pages and halves of files, and follows any redirect for ever";
  }
  struct Case {
    std::string_view path;
    std::string_view result;
  };
  constexpr Case kCases[] = {
      {"/missing", "800C0006"}, {"/gone", "800C0006"},  {"/secret", "800C0009"},
      {"/broken", "800C0007"},  {"/short", "800C0008"}, {"/short-chunks", "800C0008"},
      {"/silent", "800C0008"},  {"/loop", "800C0014"},  {"/to-a-file", "800C0014"},
  };
  for (const Case& test : kCases) {
    Expect(server_.Url(test.path), test.result);
  }
}

TEST_F(DownloadConformance, UrlsWithoutAServerFail) {
  cvn::String refusing;
  {
    const LoopbackServer gone([](std::string_view) { return std::string(); });
    refusing = gone.Url("/x");
  }
  struct Case {
    cvn::StringView url;
    std::string_view result;
  };
  const Case cases[] = {
      {refusing, "800C0004"},        {u"http://no-such-host.invalid/x", "800C0005"},
      {u"http://[::/x", "800C0002"}, {u"gopherish://127.0.0.1/x", "800C000D"},
      {u"nonsense", "800C000D"},
  };
  for (const Case& test : cases) {
    // Wine has one code for all that can't be reached, and one for all that it can't read.
    Expect(test.url, RunsUnderWine() ? kAnyFailure : test.result);
  }
}

TEST_F(DownloadConformance, FetchesFiles) {
  const cvn::String source = Joined(Folder(), u" source%.txt");
  cvn::String escaped;
  for (const char16_t character : source.AsView()) {
    const bool isPlain = character != u'\\' && character != u' ' && character != u'%';
    escaped.Append(isPlain              ? cvn::StringView(&character, 1)
                   : character == u'\\' ? u"/"
                   : character == u' '  ? u"%20"
                                        : u"%25");
  }
  WriteContent(source, "content");
  Expect(source, kSuccessful, "content");
  for (const cvn::StringView prefix : {u"file:///", u"FILE://", u"file://localhost/"}) {
    if (prefix == u"file://localhost/" && RunsUnderWine()) {
      continue;  // a server like any other to it
    }
    Expect(Joined(prefix, escaped), kSuccessful, "content");
  }
  EXPECT_EQ(files::Delete(source), kSuccess);
  Expect(source, "800C0005");
  Expect(Joined(u"file:///", escaped), "800C0005");
}

TEST_F(DownloadConformance, TheTargetMustBeWritable) {
  struct Case {
    cvn::StringView name;
    std::string_view result;
  };
  constexpr Case kCases[] = {
      {u"missing\\file", "80070003"}, {u"folder", "80070005"}, {u"read-only", "80070005"}};
  EXPECT_EQ(files::CreateDirectory(Path(u"folder")), kSuccess);
  WriteContent(Path(u"read-only"), kOld);
  test::MakeReadOnly(Path(u"read-only"));
  for (const Case& test : kCases) {
    if (test.name == u"read-only" && RunsUnderWine()) {
      continue;  // there, root writes to read-only files
    }
    EXPECT_EQ(Hexadecimal(DownloadToFile(server_.Url("/file"), Path(test.name))), test.result);
  }
  EXPECT_EQ(ContentOf(Path(u"read-only")), kOld);
}

}  // namespace
}  // namespace platform
