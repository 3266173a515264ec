#include <tinyxml.h>

#include <random>

#include "commands/documents/ccvn_tiny_xml.h"
#include "support/utf.h"
#include "tests/commands/documents_fixture.h"

namespace tessel::testing {
namespace {

// Expressions that together tell any difference between two small documents.
const char* const kProbes[] = {
    "string(/)",
    "count(//*)",
    "count(//@*)",
    "count(//text())",
    "count(//comment())",
    "sum(//*/@n)",
    "concat(name(/*/*[1]), name(/*/*[2]), name(/*/*[3]), name(/*/*[last()]))",
    "count(//a/following-sibling::*)",
    "count(//b/preceding-sibling::node())",
    "string(//c[@n][last()]/@n)",
    "count(//*[not(node())])",
    "name(//*[text()][last()])",
    "string(/*/*[2]/text()[1])",
    "name((//@*)[last()])",
    "count(/*/*/*/ancestor::*)",
};

// Changes a document as scripts do, at random but the same way each time.
class Mirror : public DocumentsTest {
 protected:
  std::string Pick(std::initializer_list<const char*> choices) {
    return *(choices.begin() + Number(choices.size()));
  }
  std::size_t Number(std::size_t below) { return random_() % below; }

  std::string Path() {
    return Pick({"/r", "//a", "//b", "//c", "//c[2]", "/r/*[last()]", "/r/*[1]", "//*[@n]",
                 "//a/..", "//*[not(*)]", "/r/*/*"});
  }

  void Change(CCVNTinyXml* document) {
    TiXmlElement* root = document->GetRootElement();
    TiXmlElement* target = document->FindElement(root, Path());
    if (target == nullptr) {
      return;
    }
    switch (Number(6)) {
      case 0:
        document->SetValue(target, ".", Pick({"", "t", "u&<v", "\xC3\xA9"}));
        return;
      case 1:
        document->SetValue(target, Pick({"./@n", "./@m"}), Pick({"1", "2", "30"}));
        return;
      case 2:
        if (target != root) {
          document->Remove(target);
        }
        return;
      default:
        Add(document, target);
    }
  }

  void Add(CCVNTinyXml* document, TiXmlElement* parent) {
    TiXmlDocument added;
    const std::string data = Pick({"<a/>", "<b n='4'>x<c/>y</b>", "<c><!-- k --><a>z</a></c>",
                                   "<b>p<![CDATA[q]]></b>", "<a m='5'><![CDATA[]]></a>"});
    added.Parse(data.c_str(), nullptr, TIXML_ENCODING_UTF8);
    if (Number(2) == 0) {
      auto* text = new TiXmlText("<cd>");
      text->SetCDATA(true);
      added.RootElement()->LinkEndChild(text);
    }
    TiXmlElement* before = document->FindElement(parent, Pick({"*", "*[2]", "//c", "none"}));
    TiXmlElement* after = document->FindElement(parent, Pick({"*", "*[last()]", "none"}));
    document->AddChild(parent, *added.RootElement(), before, after);
  }

  static std::vector<std::string> Answers(CCVNTinyXml* document) {
    std::vector<std::string> answers;
    for (const char* probe : kProbes) {
      std::string answer = "not valid";
      document->EvaluateText(document->GetRootElement(), probe, &answer);
      answers.push_back(std::string(probe) + " = " + answer);
    }
    return answers;
  }

  std::mt19937 random_{4711};
};

TEST_F(Mirror, AnswersAsAFreshCopyDoes) {
  Put("d.xml",
      "<?xml version='1.0'?><r>t<a n='1'>u</a>v<!-- c --><b><c n='2'/>w<c/></b><a/>x<c>y</c>z</r>");
  const cvn::String source = cvn::Utf8ToWide((Folder() / "d.xml").string());
  const cvn::String saved = cvn::Utf8ToWide((Folder() / "saved.xml").string());
  for (int round = 0; round < 40; ++round) {
    auto document = std::make_shared<CCVNTinyXml>();
    ASSERT_TRUE(document->Load(source));
    for (int step = 0; step < 12; ++step) {
      Change(document.get());
      ASSERT_TRUE(document->Save(saved));
      auto fresh = std::make_shared<CCVNTinyXml>();
      ASSERT_TRUE(fresh->Load(saved));
      ASSERT_EQ(Answers(document.get()), Answers(fresh.get()))
          << "round " << round << ", step " << step << ": " << Get("saved.xml");
    }
  }
}

}  // namespace
}  // namespace tessel::testing
