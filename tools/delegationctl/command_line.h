// The command line: global options in any position, one verb, and help that shows the verbs by what they are for.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "output.h"
#include "session.h"

namespace delegationctl {

// What --help says about a verb.
struct VerbHelp {
  const char* name;
  const char* group;  // "look", "ask", "change", "file" or "care"
  const char* usage;  // behind the name
  const char* does;
  const char* example;  // a command line for the demo world
};

class CommandLine {
 public:
  using Run = std::function<Answer(Session&)>;

  CommandLine();

  // Declares a verb. `mayCreate`: it may make a database that --db names and that does not exist.
  CLI::App* Add(const VerbHelp& help, Run run, bool mayCreate = false);

  // `names`, not a CLI positional, takes the arguments behind the verb's positionals: CLI11 would take a name in square
  // brackets for a list.
  void TakeMoreNames(CLI::App* verb, std::vector<std::string>& names);

  // Parses; throws usage. Afterwards either HelpText() is not empty, or Verb() is the verb.
  void Parse(int argc, const char* const* argv);

  const std::string& HelpText() const { return help_; }
  bool HelpIsVersion() const { return version_; }
  const Globals& Options() const { return globals_; }
  Answer RunVerb(Session& session) const;
  bool MayCreate() const;

 private:
  struct Verb {
    VerbHelp help;
    Run run;
    bool mayCreate;
    std::vector<std::string>* moreNames = nullptr;
  };
  class HelpFormatter;

  void RequireNoExtras();
  const Verb& Chosen() const;

  CLI::App app_;
  Globals globals_;
  std::string help_;
  bool version_ = false;
  std::map<const CLI::App*, Verb> verbs_;
  const CLI::App* chosen_ = nullptr;
};

// Declares a list option that is given as "a,b" or several times; see SplitNames.
CLI::Option* AddNameList(CLI::App* verb, const std::string& option, std::vector<std::string>& lists,
                         const std::string& description);

}  // namespace delegationctl
