// What is being done at the moment, in one line on the terminal: for work that may take longer than a second.
#pragma once

#include <chrono>
#include <string>

namespace delegationctl {

// Shows nothing unless standard error is a terminal; the line goes with the object.
class Progress {
 public:
  Progress();
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // "users: 3000 of 100000"; `total` 0 shows `what` alone. At most ten times a second, and at once for something new.
  void Show(const std::string& what, std::size_t done = 0, std::size_t total = 0);

 private:
  const bool terminal_;
  bool shown_ = false;
  std::string what_;
  std::chrono::steady_clock::time_point last_;
};

// Shows `what` while `work` runs; what that returns.
template <class Work>
auto Showing(const std::string& what, Work work) {
  Progress progress;
  progress.Show(what);
  return work();
}

}  // namespace delegationctl
