#include "tests/commands/documents_fixture.h"

#include <algorithm>
#include <fstream>
#include <iterator>

#include "support/utf.h"

namespace tessel::testing {
namespace {

std::string Command(const std::string& name, const std::string& file, const std::string& handle) {
  return "<" + name + " path='%dir%/" + file + "' handle='" + handle + "'/>";
}

void ReplaceAll(const std::string& from, const std::string& to, std::string* text) {
  for (std::size_t at = text->find(from); at != std::string::npos;
       at = text->find(from, at + to.size())) {
    text->replace(at, from.size(), to);
  }
}

}  // namespace

DocumentsTest::DocumentsTest()
    : folder_(std::filesystem::path(::testing::TempDir()) / "tessel_documents_test") {
  std::filesystem::remove_all(folder_);
  std::filesystem::create_directories(folder_);
}

DocumentsTest::~DocumentsTest() {
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

void DocumentsTest::Put(const std::string& name, const std::string& bytes) const {
  std::ofstream(folder_ / name, std::ios::binary) << bytes;
}

std::string DocumentsTest::Get(const std::string& name) const {
  std::ifstream file(folder_ / name, std::ios::binary);
  EXPECT_TRUE(file.is_open()) << name;
  return {std::istreambuf_iterator<char>(file), {}};
}

platform::files::File DocumentsTest::Hold(const std::string& name) const {
  using namespace platform::files;
  File file;
  EXPECT_EQ(Open(cvn::Utf8ToWide((folder_ / name).string()), Access::Read, Share::Read,
                 Disposition::OpenExisting, &file),
            platform::kSuccess);
  return file;
}

void DocumentsTest::ExpectUntouched(const std::string& name, const std::string& bytes) const {
  EXPECT_EQ(Get(name), bytes);
  for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
    EXPECT_NE(entry.path().extension(), ".tmp");
  }
}

ScriptOutcome DocumentsTest::Run(const std::string& body) const {
  cvn::Map<cvn::String, cvn::String> variables;
  variables[u"dir"] = cvn::Utf8ToWide(folder_.string());
  ScriptOutcome outcome = RunScript(body, variables);
  EXPECT_EQ(outcome.loadCode, kLoadSuccess) << body.substr(0, 1000);
  for (std::string& line : outcome.trace) {
    ReplaceAll(folder_.string(), "@", &line);
  }
  return outcome;
}

std::string DocumentsTest::Answers(const std::string& body) const {
  constexpr std::string_view kTraced = "Trace: ";
  std::string answers;
  for (const std::string& line : Run(body).trace) {
    if (line.starts_with(kTraced)) {
      answers += line.substr(kTraced.size()) + "|";
    }
  }
  return answers;
}

std::vector<std::string> DocumentsTest::RunLines(const ScriptOutcome& outcome) {
  const auto& trace = outcome.trace;
  auto from = std::find(trace.begin(), trace.end(), "Start executing");
  const auto to = std::find_if(from, trace.end(), [](const std::string& line) {
    return line.starts_with("Freeing leak") || line.starts_with("set trace file");
  });
  return {from == to ? to : from + 1, to};
}

std::string DocumentsTest::OpenXml(const std::string& name, const std::string& handle) {
  return Command("xmlOpen", name, handle);
}

std::string DocumentsTest::SaveXml(const std::string& name, const std::string& handle) {
  return Command("xmlSave", name, handle);
}

std::string DocumentsTest::OpenJson(const std::string& name, const std::string& handle) {
  return Command("jsonOpen", name, handle);
}

std::string DocumentsTest::SaveJson(const std::string& name, const std::string& handle) {
  return Command("jsonSave", name, handle);
}

std::string DocumentsTest::TellXml(const std::string& xpath, const std::string& handle) {
  return "<assign var='v' value=''/><xmlGetValue handle='" + handle + "' xpath='" + xpath +
         "' var='v'/><trace value='%v%'/>";
}

std::string DocumentsTest::TellJson(const std::string& path, const std::string& handle) {
  return "<assign var='v' value='-'/><jsonGetValue handle='" + handle + "' path='" + path +
         "' var='v'/><trace value='%v%'/>";
}

std::string DocumentsTest::TellError() { return "<trace value='%error%'/>"; }

}  // namespace tessel::testing
