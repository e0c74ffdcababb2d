/// Collects the log lines that are written while it exists; one at a time. They are shown when the test fails.
///
///   LogCapture log;
///   EXPECT_FALSE(DelegationRefresh());
///   EXPECT_TRUE(log.Has("cannot refresh"));
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <string>
#include <vector>

#include "platform/mailserver.h"

class LogCapture {
 public:
  LogCapture() { NIMBO::QUAYPOST_SERVER::MaillogSetSink(&Collect, this); }
  ~LogCapture() {
    NIMBO::QUAYPOST_SERVER::MaillogSetSink(nullptr, nullptr);
    if (!::testing::Test::HasFailure()) return;
    for (const std::string& line : lines_) std::cerr << "log: " << line << '\n';
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  /// The lines, "FILE:LINE TEXT" each.
  const std::vector<std::string>& Lines() const { return lines_; }

  /// Their texts alone.
  std::vector<std::string> Texts() const {
    std::vector<std::string> texts;
    for (const std::string& line : lines_) texts.push_back(line.substr(line.find(' ') + 1));
    return texts;
  }

  /// Whether a line has exactly this text.
  bool Has(const std::string& text) const {
    const auto texts = Texts();
    return std::find(texts.begin(), texts.end(), text) != texts.end();
  }

  void Clear() { lines_.clear(); }

 private:
  static void Collect(void* self, const char* line) { static_cast<LogCapture*>(self)->lines_.push_back(line); }

  std::vector<std::string> lines_;
};
