// The script engine, compared with the least that each part of its work could cost.
#include <benchmark/benchmark.h>
#include <tinyxml.h>

#include <cstdio>
#include <ctime>

#include "bench/bench_support.h"

namespace tessel::bench {
namespace {

// The lower bound for a traced step: one line, formatted with its stamp by the C library, flushed.
void BareTraceLine(benchmark::State& state) {
  std::FILE* file = std::fopen(WorkPath("bare_trace.txt").c_str(), "w");
  char stamp[32];
  const std::time_t now = std::time(nullptr);
  std::strftime(stamp, sizeof(stamp), "%Y-%m-%d %H:%M:%S", std::localtime(&now));
  for (auto _ : state) {
    std::fprintf(file, "%s.%03d AddInt value '%s' to the variable %s\r\n", stamp, 123, "1", "i");
    std::fflush(file);
  }
  std::fclose(file);
}
BENCHMARK(BareTraceLine)->Iterations(1'000'000)->Unit(benchmark::kNanosecond);

// Counts to the given number of rounds; each is three commands and six trace lines.
void TracedLoop(benchmark::State& state) {
  const std::string rounds = std::to_string(state.range(0));
  const std::string script =
      "<assign var='i' value='0'/><addInt id='again' var='i' value='1'/>"
      "<test left='%i%' operator='&lt;' right='" +
      rounds + "' type='number'><onTrue><goto target='again'/></onTrue></test><exit code='0'/>";
  for (auto _ : state) {
    state.PauseTiming();
    std::remove(WorkPath("loop_trace.txt").c_str());
    OpenTraceFile(cvn::Utf8ToWide(WorkPath("loop_trace.txt")));
    {
      ScriptEngine engine;
      Prepare(&engine, Patch(script));
      state.ResumeTiming();
      benchmark::DoNotOptimize(engine.Run());
      state.PauseTiming();
      engine.Reset();
    }
    CloseTraceFile();
    state.ResumeTiming();
  }
}
BENCHMARK(TracedLoop)->Arg(333'333)->Iterations(2)->Unit(benchmark::kMillisecond);

std::string LongScript(int commands) {
  std::string body;
  for (int i = 0; i < commands; ++i) {
    const std::string number = std::to_string(i);
    switch (i % 4) {
      case 0:
        body += "<assign var=\"name" + number + "\" value=\"value of %name" + number + "%\"/>\n";
        break;
      case 1:
        body += "<addInt id=\"label" + number + "\" var=\"count\" value=\"1\"/>\n";
        break;
      case 2:
        body += "<trace value=\"step " + number + " of the script\"/>\n";
        break;
      default:
        body += "<test left=\"%count%\" operator=\"==\" right=\"" + number +
                "\" type=\"number\"><onTrue><nothing/></onTrue></test>\n";
    }
  }
  return Patch(body);
}

void TinyXmlParse(benchmark::State& state) {
  const std::string text = LongScript(100'000);
  for (auto _ : state) {
    TiXmlDocument document;
    document.Parse(text.c_str(), nullptr, TIXML_ENCODING_UTF8);
    benchmark::DoNotOptimize(document.RootElement());
  }
}
BENCHMARK(TinyXmlParse)->Unit(benchmark::kMillisecond);

void LoadScript(benchmark::State& state) {
  const std::string text = LongScript(100'000);
  for (auto _ : state) {
    ScriptEngine engine;
    Prepare(&engine, text);
    engine.Reset();
  }
}
BENCHMARK(LoadScript)->Unit(benchmark::kMillisecond);

// Takes a text apart piece by piece, as a loop over its pieces does.
void ConsumePieces(benchmark::State& state) {
  std::string text;
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    text += "piece" + std::to_string(i) + ";";
  }
  const std::string script =
      "<stringGet id='again' var='piece' fromIndex='0' maxCount='10000' toAnyChar=';' "
      "value='%rest%'/>"
      "<stringDelete var='rest' fromIndex='0' maxCount='10000' toAnyChar=';'/><stringTrim "
      "var='rest' chars=';'/>"
      "<test left='%piece%' operator='==' right='' type='string'><onTrue><exit "
      "code='0'/></onTrue></test>"
      "<goto target='again'/>";
  ScriptEngine engine;
  Prepare(&engine, Patch(script));
  for (auto _ : state) {
    SetVariable(u"rest", cvn::Utf8ToWide(text), &ProcessVariables());
    benchmark::DoNotOptimize(engine.Run());
  }
  engine.Reset();
}
BENCHMARK(ConsumePieces)->Arg(10'000)->Arg(100'000)->Arg(1'000'000)->Unit(benchmark::kMillisecond);

// Builds a text piece by piece.
void AppendPieces(benchmark::State& state) {
  const std::string script =
      "<assign var='text' value=''/><assign var='i' value='0'/><addString id='again' var='text' "
      "value='piece %i%;'/>"
      "<addInt var='i' value='1'/><test left='%i%' operator='&lt;' right='" +
      std::to_string(state.range(0)) +
      "' type='number'><onTrue><goto target='again'/></onTrue></test><exit code='0'/>";
  ScriptEngine engine;
  Prepare(&engine, Patch(script));
  for (auto _ : state) {
    benchmark::DoNotOptimize(engine.Run());
  }
  engine.Reset();
}
BENCHMARK(AppendPieces)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tessel::bench
