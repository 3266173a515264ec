// processRun with a wait, compared with a bare loop of posix_spawn and waitpid.
#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/bench_support.h"

namespace tessel::bench {
namespace {

constexpr int kRuns = 1000;

void BareSpawns(benchmark::State& state) {
  char program[] = "/bin/true";
  char* const arguments[] = {program, nullptr};
  for (auto _ : state) {
    for (int i = 0; i < kRuns; ++i) {
      pid_t child = 0;
      if (posix_spawn(&child, program, nullptr, nullptr, arguments, environ) != 0 ||
          waitpid(child, nullptr, 0) != child) {
        state.SkipWithError("a program didn't start");
        return;
      }
    }
  }
}
BENCHMARK(BareSpawns)->Unit(benchmark::kMillisecond)->Iterations(1);

void ProcessRuns(benchmark::State& state) {
  std::string body;
  for (int i = 0; i < kRuns; ++i) {
    body +=
        "<processRun path='Z:\\bin\\true' waittime='-1'><onerror><exit code='1'/></onerror>"
        "</processRun>";
  }
  ScriptEngine engine;
  Prepare(&engine, Patch(body + "<exit code='0'/>"));
  OpenTraceFile(cvn::Utf8ToWide(WorkPath("processes.txt")));
  for (auto _ : state) {
    if (engine.Run() != 0) {
      state.SkipWithError("a program didn't start");
    }
  }
  CloseTraceFile();
}
BENCHMARK(ProcessRuns)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace
}  // namespace tessel::bench
