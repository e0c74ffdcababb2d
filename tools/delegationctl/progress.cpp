// What is being done at the moment, in one line on the terminal.
#include "progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <iostream>

#include "output.h"

namespace delegationctl {

namespace {
constexpr char kClearLine[] = "\r\033[K";
}

Progress::Progress() : terminal_(isatty(STDERR_FILENO) != 0) {}

Progress::~Progress() {
  if (shown_) std::cerr << kClearLine << std::flush;
}

void Progress::Show(const std::string& what, std::size_t done, std::size_t total) {
  constexpr auto kPause = std::chrono::milliseconds(100);
  const auto now = std::chrono::steady_clock::now();
  if (!terminal_ || (what == what_ && now - last_ < kPause)) return;
  std::cerr << kClearLine << Printable(what);
  if (total > 0) std::cerr << fmt::format(": {} of {}", done, total);
  std::cerr << std::flush;
  shown_ = true;
  what_ = what;
  last_ = now;
}

}  // namespace delegationctl
