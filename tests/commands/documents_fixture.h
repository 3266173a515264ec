// What the tests of the document commands share.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/utf.h"
#include "tests/engine/script_harness.h"

namespace tessel::testing {

// Has a folder of its own, which scripts know as %dir%.
class DocumentsTest : public ::testing::Test {
 protected:
  DocumentsTest() {
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
  }
  ~DocumentsTest() override {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

  void Put(const std::string& name, const std::string& bytes) const {
    std::ofstream(folder_ / name, std::ios::binary) << bytes;
  }
  // A test failure when the file isn't there.
  std::string Get(const std::string& name) const {
    std::ifstream file(folder_ / name, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << name;
    return {std::istreambuf_iterator<char>(file), {}};
  }

  ScriptOutcome Run(const std::string& body) const {
    const ScriptOutcome outcome =
        RunScript(body, {{u"dir", cvn::Utf8ToWide(folder_.string())}, {u"nothing", u""}});
    EXPECT_EQ(outcome.loadCode, kLoadSuccess) << body.substr(0, 1000);
    return outcome;
  }
  // Runs a script, and gives the values that it traced, each with a '|' behind it.
  std::string Answers(const std::string& body) const { return Run(body).Told(); }

  // Commands that open a file of the folder, and that save it.
  static std::string OpenXml(const std::string& name, const std::string& handle = "d") {
    return Command("xmlOpen", name, handle);
  }
  static std::string SaveXml(const std::string& name, const std::string& handle = "d") {
    return Command("xmlSave", name, handle);
  }
  static std::string OpenJson(const std::string& name, const std::string& handle = "d") {
    return Command("jsonOpen", name, handle);
  }
  static std::string SaveJson(const std::string& name, const std::string& handle = "d") {
    return Command("jsonSave", name, handle);
  }
  // Commands that trace a value, or '-' when there is none, and the error so far.
  static std::string TellXml(const std::string& xpath, const std::string& handle = "d") {
    return Tell("<xmlGetValue handle='" + handle + "' xpath='" + xpath + "' var='v'/>");
  }
  static std::string TellJson(const std::string& path, const std::string& handle = "d") {
    return Tell("<jsonGetValue handle='" + handle + "' path='" + path + "' var='v'/>");
  }
  static std::string TellError() {
    return "<trace value='%error%'/><assign var='error' value='0'/>";
  }

  const std::filesystem::path folder_ =
      std::filesystem::path(::testing::TempDir()) / "tessel_documents_test";

 private:
  static std::string Command(const std::string& name, const std::string& file,
                             const std::string& handle) {
    return "<" + name + " path='%dir%/" + file + "' handle='" + handle + "'/>";
  }
  static std::string Tell(const std::string& command) {
    return "<assign var='v' value='-'/>" + command + "<trace value='%v%'/>";
  }
};

}  // namespace tessel::testing
