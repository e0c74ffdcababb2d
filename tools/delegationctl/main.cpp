// delegationctl: administers the delegations of a mail server from the command line.
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iostream>

#include "admin/error.h"
#include "command_line.h"
#include "errors.h"
#include "output.h"
#include "session.h"
#include "verbs.h"

namespace delegationctl {

using namespace NIMBO::QUAYPOST_SERVER;

namespace {

// A file that is opened later must not become standard input, output or error. Reading and writing fail as before.
void OccupyClosedStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(stream, F_GETFD) == -1) open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

bool WantsJson(int argc, const char* const* argv) {
  for (int i = 1; i < argc && std::strcmp(argv[i], "--") != 0; ++i) {
    if (std::strcmp(argv[i], "--json") == 0) return true;
  }
  return false;
}

void Print(const std::string& text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
    throw Exit(errors::kOutput, "the answer cannot be written");
  }
}

int Say(const Answer& answer, bool json, bool quiet) {
  Print(json ? JsonText(answer.json) + "\n" : quiet ? answer.quiet : answer.text);
  return answer.status;
}

// The remedy, or where to look for one.
std::string Hint(const Exit& exit, const std::vector<std::string>& log) {
  if (!exit.remedy.empty()) return exit.remedy;
  if (exit.status == kUsage) return "delegationctl --help lists the verbs, delegationctl VERB --help their options";
  return exit.status == kFailed && !log.empty() ? "the log says: " + Joined(log, "; ") : "";
}

int Say(const Exit& exit, const std::vector<std::string>& log, bool json) {
  const std::string hint = Hint(exit, log);
  std::cerr << "delegationctl: " << exit.text << '\n';
  if (!hint.empty()) std::cerr << "  " << hint << '\n';
  if (json && exit.code != errors::kOutput.code) {
    Json::Value error;
    error["code"] = exit.code;
    error["message"] = exit.text;
    error["hint"] = hint;
    error["log"] = JsonArray(log);
    Json::Value document;
    document["error"] = error;
    std::cout << JsonText(document) << std::endl;
  }
  return exit.status;
}

int Run(const CommandLine& line, Log& log) {
  const Globals& options = line.Options();
  Session session(options, log, line.MayCreate());
  return Say(line.RunVerb(session), options.json, options.quiet);
}

int Help(const CommandLine& line) {
  Answer answer;
  answer.text = answer.quiet = line.HelpText();
  answer.json[line.HelpIsVersion() ? "version" : "help"] =
      line.HelpIsVersion() ? DELEGATIONCTL_VERSION : line.HelpText();
  return Say(answer, line.Options().json, false);
}

int Main(int argc, const char* const* argv) {
  OccupyClosedStreams();
  std::signal(SIGPIPE, SIG_IGN);  // a reader that has gone is a failed write
  const bool json = WantsJson(argc, argv);
  const auto lines = [](const Log* log) { return log ? log->Lines() : std::vector<std::string>(); };
  std::unique_ptr<Log> log;
  try {
    CommandLine line;
    AddList(line);
    AddShow(line);
    AddUsers(line);
    AddTabs(line);
    AddHistory(line);
    AddReview(line);
    AddCan(line);
    AddWhoCan(line);
    AddExplain(line);
    AddCreate(line);
    AddUpdate(line);
    AddDelete(line);
    AddAssign(line);
    AddUnassign(line);
    AddExport(line);
    AddDiff(line);
    AddApply(line);
    AddRefresh(line);
    AddUndo(line);
    AddCheck(line);
    AddRpc(line);
    line.Parse(argc, argv);
    if (!line.HelpText().empty()) return Help(line);
    log = std::make_unique<Log>(line.Options().verbose);
    return Run(line, *log);
  } catch (const Exit& exit) {
    return Say(exit, lines(log.get()), json);
  } catch (const admin::Error& error) {
    return Say(FromAdmin(error), lines(log.get()), json);
  } catch (const std::exception& error) {
    return Say(Exit(errors::kInternal, fmt::format("unexpected: {}", Printable(error.what()))), lines(log.get()), json);
  }
}

}  // namespace
}  // namespace delegationctl

int main(int argc, char** argv) { return delegationctl::Main(argc, argv); }
