/// Pairs of measurements: the library, and the limit of what could be done with the same file, in one run.
///
///   Pair pair{"list", 100};
///   pair.library = [&] { ... };
///   pair.limit = [&] { ... };
///   Measure(pair);
///   RunAll();        // {"name": "list", "n": 100, "library_ns": 812, "limit_ns": 406, "ratio": 2.00}
///
/// The two sides take turns in random order, again and again. What counts is processor time, the kernel's included, and
/// the best turn of each side: other work on the machine can only add to it.
#pragma once

#include <functional>
#include <initializer_list>
#include <string>
#include <utility>

namespace bench {

struct Pair {
  std::string name;
  int n;                                ///< the number of users or of whatever else the cost may depend on
  int turns = 100;                      ///< of each side
  std::function<void()> setup = [] {};  ///< before each turn
  std::function<void()> before = {};    ///< before each operation, not measured
  std::function<void()> library = {}, limit = {};
};

/// Puts the pair down for RunAll.
void Measure(const Pair& pair);

/// Runs all pairs and prints a line for each. The exit status.
int RunAll();

/// Prints one line: {"name": ..., "n": ..., FIGURE: ..., ...}.
void Print(const std::string& name, int n, std::initializer_list<std::pair<const char*, double>> figures);

/// The nanoseconds that `operation` takes.
double NanosecondsOf(const std::function<void()>& operation);

/// Ends the program with a message unless `condition` holds: no figure comes from two sides that did different things.
void Require(bool condition, const std::string& message);

}  // namespace bench
