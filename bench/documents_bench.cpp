// Documents and loops over them, compared with bare loops over libraries that do the same.
#include <benchmark/benchmark.h>
#include <json/reader.h>
#include <json/writer.h>
#include <libxml/parser.h>
#include <libxml/xpath.h>
#include <malloc.h>
#include <tinyxml.h>

#include <fstream>
#include <sstream>

#include "bench/bench_support.h"
#include "commands/documents/ccvn_tiny_xml.h"
#include "engine/object_store.h"

namespace tessel::bench {
namespace {

constexpr int kItems = 200'000;  // of about a hundred bytes each
constexpr int kQuestions = 1'000;

void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

std::string ReadFile(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

// Groups of a thousand items, so that the cost of a path doesn't grow with the document.
std::string BigXml() {
  std::string text = "<?xml version=\"1.0\"?>\n<root>\n";
  for (int i = 0; i < kItems; ++i) {
    const std::string number = std::to_string(i);
    if (i % 1'000 == 0) {
      text += i == 0 ? "<group>\n" : "</group>\n<group>\n";
    }
    text += "  <item id=\"" + number +
            "\" kind=\"some kind of item\">\n    <name>the name of item " + number +
            "</name><value>" + number + "</value>\n  </item>\n";
  }
  return text + "</group>\n</root>\n";
}

std::string BigJson() {
  std::string text = "{\"groups\": [";
  for (int i = 0; i < kItems; ++i) {
    const std::string number = std::to_string(i);
    if (i % 1'000 == 0) {
      text += i == 0 ? "[\n" : "],\n[";
    } else {
      text += ",\n";
    }
    text += "  {\"id\": " + number +
            ", \"kind\": \"some kind of item\", \"name\": \"the name of item " + number +
            "\", \"value\": \"" + number + "\"}";
  }
  return text + "]]}";
}

const std::string& XmlPath() {
  static const std::string path = [] {
    WriteFile(WorkPath("big.xml"), BigXml());
    return WorkPath("big.xml");
  }();
  return path;
}

const std::string& JsonPath() {
  static const std::string path = [] {
    WriteFile(WorkPath("big.json"), BigJson());
    return WorkPath("big.json");
  }();
  return path;
}

// To come before each iteration: nothing is left that another could take without the kernel, as at
// the start of a program.
void BeginAnew(benchmark::State* state) {
  state->PauseTiming();
  malloc_trim(0);
  state->ResumeTiming();
}

// Runs a loaded script again and again.
void RunScript(benchmark::State& state, const std::string& body) {
  ScriptEngine engine;
  Prepare(&engine, Patch(body + "<exit code='0'/>"));
  for (auto _ : state) {
    BeginAnew(&state);
    if (engine.Run() != 0) {
      state.SkipWithError("the script failed");
    }
  }
  engine.Reset();
}

const char* const kFail = "<onerror><exit code='1'/></onerror>";

std::string Open(const std::string& format, const std::string& path) {
  return "<" + format + "Open path='" + path + "' handle='d'>" + kFail + "</" + format + "Open>";
}

std::string SaveAndClose(const std::string& format) {
  return "<" + format + "Save path='" + WorkPath("saved." + format) + "' handle='d'>" + kFail +
         "</" + format + "Save><" + format + "Close handle='d'/>";
}

// Commands for as many different items.
template <typename Write>
std::string ForItems(const Write& write) {
  std::string commands;
  for (int i = 0; i < kQuestions; ++i) {
    commands += write(i * (kItems / kQuestions) / 1'000, i * (kItems / kQuestions) % 1'000);
  }
  return commands;
}

std::string ItemXPath(int group, int item) {
  return "/root/group[" + std::to_string(group + 1) + "]/item[" + std::to_string(item + 1) +
         "]/name";
}

void XmlOpen(benchmark::State& state) {
  RunScript(state, Open("xml", XmlPath()) + "<xmlClose handle='d'/>");
}
BENCHMARK(XmlOpen)->Unit(benchmark::kMillisecond);

void TinyXmlOpen(benchmark::State& state) {
  const std::string path = XmlPath();
  for (auto _ : state) {
    BeginAnew(&state);
    TiXmlDocument document;
    if (!document.LoadFile(path, TIXML_ENCODING_UTF8)) {
      state.SkipWithError("not parsed");
    }
  }
}
BENCHMARK(TinyXmlOpen)->Unit(benchmark::kMillisecond);

void XmlReads(benchmark::State& state) {
  RunScript(state, Open("xml", XmlPath()) + ForItems([](int group, int item) {
                     return "<xmlGetValue handle='d' xpath='" + ItemXPath(group, item) +
                            "' var='v'>" + kFail + "</xmlGetValue>";
                   }) + SaveAndClose("xml"));
}
BENCHMARK(XmlReads)->Unit(benchmark::kMillisecond);

void LibxmlReads(benchmark::State& state) {
  const std::string path = XmlPath();
  std::vector<std::string> questions;
  ForItems([&](int group, int item) {
    questions.push_back(ItemXPath(group, item));
    return "";
  });
  for (auto _ : state) {
    BeginAnew(&state);
    xmlDocPtr document = xmlReadFile(path.c_str(), nullptr, XML_PARSE_HUGE);
    xmlXPathContextPtr context = xmlXPathNewContext(document);
    for (const std::string& question : questions) {
      xmlXPathObjectPtr found =
          xmlXPathEvalExpression(reinterpret_cast<const xmlChar*>(question.c_str()), context);
      xmlChar* text = xmlXPathCastToString(found);
      if (text[0] == 0) {
        state.SkipWithError("nothing found");
      }
      xmlFree(text);
      xmlXPathFreeObject(found);
    }
    xmlXPathFreeContext(context);
    xmlSaveFormatFileEnc(WorkPath("peer.xml").c_str(), document, "UTF-8", 1);
    xmlFreeDoc(document);
  }
}
BENCHMARK(LibxmlReads)->Unit(benchmark::kMillisecond);

void JsonReadsAndWrites(benchmark::State& state) {
  RunScript(state, Open("json", JsonPath()) + ForItems([](int group, int item) {
                     const std::string start =
                         "groups[" + std::to_string(group) + "][" + std::to_string(item) + "]";
                     return "<jsonGetValue handle='d' path='" + start + "name' var='v'>" + kFail +
                            "</jsonGetValue><jsonSetStringValue handle='d' path='" + start +
                            "value' value='%v%'>" + kFail + "</jsonSetStringValue>";
                   }) + SaveAndClose("json"));
}
BENCHMARK(JsonReadsAndWrites)->Unit(benchmark::kMillisecond);

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
void JsonCppReadsAndWrites(benchmark::State& state) {
  const std::string path = JsonPath();
  for (auto _ : state) {
    BeginAnew(&state);
    Json::Value root;
    if (!Json::Reader().parse(ReadFile(path), root, true)) {
      state.SkipWithError("not parsed");
    }
    ForItems([&](int group, int item) {
      Json::Value& place = root["groups"][group][item];
      place["value"] = place["name"].asString();
      return "";
    });
    WriteFile(WorkPath("peer.json"), Json::StyledWriter().write(root));
  }
}
BENCHMARK(JsonCppReadsAndWrites)->Unit(benchmark::kMillisecond);
#pragma GCC diagnostic pop

// Loads script and document for each walk: the last fetch of a walk fails, and a command that has
// failed stays failed.
void WalkSiblings(benchmark::State& state) {
  std::string text = "<root>";
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    text += "<item id='" + std::to_string(i) + "'/>";
  }
  const std::string path = WorkPath("siblings.xml");
  WriteFile(path, text + "</root>");
  const std::string script = Patch(
      "<xmlForEach handle='d' xpath='item' step='following-sibling::*' destHandle='e'><xmlGetValue "
      "handle='e' xpath='@id' var='v'/></xmlForEach><test left='%v%' operator='==' right='" +
      std::to_string(state.range(0) - 1) +
      "' type='number'><onTrue><exit code='0'/></onTrue></test><exit code='1'/>");
  for (auto _ : state) {
    state.PauseTiming();
    ScriptEngine engine;
    Prepare(&engine, script);
    auto document = std::make_shared<CCVNTinyXml>();
    if (!document->Load(cvn::Utf8ToWide(path))) {
      state.SkipWithError("not opened");
    }
    SetObject(u"d", std::move(document), ObjectType::XmlDocument, &ProcessObjects());
    state.ResumeTiming();
    if (engine.Run() != 0) {
      state.SkipWithError("the walk ended too early");
    }
    state.PauseTiming();
    engine.Reset();
    state.ResumeTiming();
  }
}
BENCHMARK(WalkSiblings)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

void ForOverPieces(benchmark::State& state) {
  std::string text;
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    text += "piece" + std::to_string(i) + ";";
  }
  ScriptEngine engine;
  Prepare(&engine, Patch("<for var='piece' value='%text%' delim=';'><assign var='last' "
                         "value='%piece%'/></for><exit code='0'/>"));
  SetVariable(u"text", cvn::Utf8ToWide(text), &ProcessVariables());
  for (auto _ : state) {
    benchmark::DoNotOptimize(engine.Run());
  }
  engine.Reset();
}
BENCHMARK(ForOverPieces)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tessel::bench
