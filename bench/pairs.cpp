// Google Benchmark runs the pairs in turns; its reporter puts the two sides together.
#include "pairs.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <map>
#include <vector>

namespace bench {

namespace {

std::deque<Pair> pairs;

// Keeps the best turn of each side, and prints them side by side at the end.
class PairReporter : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }

  void ReportRuns(const std::vector<Run>& turns) override {
    for (const Run& turn : turns) {
      if (turn.run_type != Run::RT_Iteration) continue;
      const double time = 1e9 * turn.cpu_accumulated_time / static_cast<double>(turn.iterations);
      const auto best = best_.try_emplace(turn.run_name.function_name, time).first;
      best->second = std::min(best->second, time);
    }
  }

  void Finalize() override {
    for (std::size_t i = 0; i < pairs.size(); ++i) {
      const double library = best_["library " + std::to_string(i)], limit = best_["limit " + std::to_string(i)];
      Print(pairs[i].name, pairs[i].n, {{"library_ns", library}, {"limit_ns", limit}, {"ratio", library / limit}});
    }
  }

 private:
  std::map<std::string, double> best_;
};

void Register(const std::string& name, const Pair& pair, const std::function<void()>& operation) {
  const auto turn = [&](benchmark::State& state) {
    pair.setup();
    for ([[maybe_unused]] auto iteration : state) {
      if (pair.before) {
        state.PauseTiming();
        pair.before();
        state.ResumeTiming();
      }
      operation();
    }
  };
  // Short turns: some of them are not interrupted.
  benchmark::RegisterBenchmark(name.c_str(), turn)->MinTime(0.004)->Repetitions(pair.turns);
}

}  // namespace

void Measure(const Pair& pair) {
  const std::string number = std::to_string(pairs.size());
  const Pair& kept = pairs.emplace_back(pair);
  Register("library " + number, kept, kept.library);
  Register("limit " + number, kept, kept.limit);
}

int RunAll() {
  char program[] = "bench", in_turns[] = "--benchmark_enable_random_interleaving=true";
  char* arguments[] = {program, in_turns, nullptr};
  int count = 2;
  benchmark::Initialize(&count, arguments);
  PairReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  return EXIT_SUCCESS;
}

void Print(const std::string& name, int n, std::initializer_list<std::pair<const char*, double>> figures) {
  std::printf("{\"name\": \"%s\", \"n\": %d", name.c_str(), n);
  for (const auto& [figure, value] : figures) std::printf(", \"%s\": %.6g", figure, value);
  std::puts("}");
  std::fflush(stdout);
}

double NanosecondsOf(const std::function<void()>& operation) {
  const auto start = std::chrono::steady_clock::now();
  operation();
  return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count();
}

void Require(bool condition, const std::string& message) {
  if (condition) return;
  std::fprintf(stderr, "%s\n", message.c_str());
  std::exit(EXIT_FAILURE);
}

}  // namespace bench
