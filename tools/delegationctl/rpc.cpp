// delegationctl rpc: JSON-RPC 2.0 over the exported functions, one JSON text per line on stdin and stdout.
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <string_view>

#include "errors.h"
#include "output.h"
#include "rpc_admin.h"
#include "rpc_answer.h"
#include "verbs.h"

namespace delegationctl {

namespace {

constexpr std::size_t kLongestLine = 8U << 20U;

// Reads lines as they come; of one that is too long it keeps nothing but that.
class LineReader {
 public:
  enum Kind { kEnd, kLine, kTooLong };

  Kind Next(std::string& line) {
    line.clear();
    bool tooLong = false, any = false;
    while (Fill()) {
      any = true;
      const std::string_view rest(buffer_.data() + begin_, end_ - begin_);
      const std::size_t newline = rest.find('\n');
      const std::string_view part = rest.substr(0, newline);
      tooLong = tooLong || line.size() + part.size() > kLongestLine;
      if (tooLong) {
        line.clear();
      } else {
        line += part;
      }
      begin_ += part.size();
      if (newline == std::string_view::npos) continue;
      ++begin_;
      return tooLong ? kTooLong : kLine;
    }
    return !any ? kEnd : tooLong ? kTooLong : kLine;
  }

 private:
  bool Fill() {
    if (begin_ < end_) return true;
    ssize_t size = 0;
    do {
      size = read(STDIN_FILENO, buffer_.data(), buffer_.size());
    } while (size < 0 && errno == EINTR);
    begin_ = 0;
    end_ = size > 0 ? static_cast<std::size_t>(size) : 0;
    return end_ > 0;
  }

  std::array<char, 65536> buffer_{};
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

Answer Rpc(Session& session) {
  if (session.Options().json) throw Exit(errors::kBadUsage, "rpc speaks JSON by itself", "leave out --json");
  if (session.Options().dryRun || !session.Options().actor.empty()) {
    throw Exit(errors::kBadUsage, "rpc takes neither --dry-run nor --actor",
               "admin.diff shows an effect, and the methods admin.* take an \"actor\"");
  }
  session.GetLog().StopCollecting();
  RpcDatabase() = session.Options().database;
  LineReader reader;
  std::string line;
  for (LineReader::Kind kind = reader.Next(line); kind != LineReader::kEnd; kind = reader.Next(line)) {
    const std::optional<Json::Value> answer = kind == LineReader::kTooLong ? ParseErrorAnswer() : AnswerTo(line);
    if (!answer) continue;
    const std::string text = JsonText(*answer) + "\n";
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
      if (errno == EPIPE) break;  // nobody is listening any more
      throw Exit(errors::kOutput, "the answer cannot be written");
    }
  }
  return {};
}

}  // namespace

void AddRpc(CommandLine& line) {
  line.Add({"rpc", "care", "", "JSON-RPC 2.0, one text per line, over the exported functions",
            "echo '{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"DelegationRefresh\"}' | delegationctl --demo rpc"},
           Rpc, true);
}

}  // namespace delegationctl
