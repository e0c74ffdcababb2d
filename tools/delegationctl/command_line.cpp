// The command line: global options in any position, one verb, and help that shows the verbs by what they are for.
#include "command_line.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "errors.h"
#include "names.h"
#include "output.h"

namespace delegationctl {

namespace {

constexpr char kSynopsis[] = "usage: delegationctl [global options] VERB [NAME] [options]\n";

// Stands before an argument that CLI11 must take as it is: behind "--", it would hand options to the application again.
constexpr char kLiteral = '\x01';

std::string WithoutMark(const std::string& argument) {
  return argument.empty() || argument[0] != kLiteral ? argument : argument.substr(1);
}

// The arguments without the program's name and the first "--", last one first, as CLI11 wants them. Throws usage.
std::vector<std::string> Marked(int argc, const char* const* argv) {
  std::vector<std::string> arguments;
  bool literal = false;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (!literal && argument == "--") {
      literal = true;
      continue;
    }
    if (argument.empty()) throw Exit(errors::kBadUsage, "one of the arguments is empty");
    // CLI11 would take the next argument for the value.
    if (!literal && argument.rfind("--", 0) == 0 && argument.find('=') == argument.size() - 1) {
      throw Exit(errors::kBadUsage, fmt::format("the option {} has no value", Quoted(argument)));
    }
    const bool mark = literal || argument[0] == kLiteral;
    arguments.push_back(mark ? kLiteral + argument : argument);
  }
  std::reverse(arguments.begin(), arguments.end());
  return arguments;
}

// "--option: 1 required N missing", "--option: At Most 1 required but received 2" or "option was given a disallowed
// flag override"
std::string Wording(const CLI::ArgumentMismatch& error) {
  const std::string text = error.what();
  const std::string name = text.substr(0, text.find_first_of(": "));
  if (text.find("disallowed") != std::string::npos) return fmt::format("the option \"--{}\" takes no value", name);
  const bool none = text.find("missing") != std::string::npos;
  return fmt::format("the option {} {}", Quoted(name), none ? "has no value" : "is given more than once");
}

std::string HelpLine(const std::string& name, const std::string& description) {
  return fmt::format("  {:<22}  {}\n", name, description);
}

std::string OptionLines(const CLI::App& app) {
  std::string out;
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_positional()) continue;
    const std::string value = option->get_type_name().empty() ? "" : " " + option->get_type_name();
    std::string name = option->get_snames().empty() ? "" : "-" + option->get_snames().front();
    for (const std::string& longName : option->get_lnames()) name += (name.empty() ? "--" : ", --") + longName;
    out += HelpLine(name + (option->check_lname("demo") ? "[=DIR]" : value), option->get_description());
  }
  return out;
}

}  // namespace

class CommandLine::HelpFormatter : public CLI::FormatterBase {
 public:
  explicit HelpFormatter(const CommandLine& line) : line_(line) {}

  std::string make_help(const CLI::App* app, std::string, CLI::AppFormatMode) const override {
    return app->get_parent() ? OfVerb(*app) : OfAll(*app);
  }

 private:
  std::string OfAll(const CLI::App& app) const {
    std::string out =
        std::string("Who may administer what on this mail server: delegations and their assignees.\n\n") + kSynopsis;
    for (const char* group : {"look", "ask", "change", "file", "care"}) {
      out += fmt::format("\n{}\n", group);
      for (const CLI::App* verb : app.get_subcommands([](const CLI::App*) { return true; })) {
        const VerbHelp& help = line_.verbs_.at(verb).help;
        if (std::strcmp(help.group, group) == 0) out += HelpLine(help.name, help.does);
      }
    }
    return out + "\nglobal options\n" + OptionLines(app) +
           "\nexit status: 0 done or yes, 1 no, 2 wrong command line, 3 failed, 4 no such name, 5 refused\n"
           "try it:      delegationctl --demo list\n";
  }

  std::string OfVerb(const CLI::App& app) const {
    const VerbHelp& help = line_.verbs_.at(&app).help;
    return fmt::format("usage: delegationctl [global options] {}{}{}\n\n{}\n\noptions\n{}\nexample\n  $ {}\n",
                       help.name, *help.usage ? " " : "", help.usage, help.does, OptionLines(app), help.example);
  }

  const CommandLine& line_;
};

CommandLine::CommandLine() : app_("", "delegationctl") {
  app_.formatter(std::make_shared<HelpFormatter>(*this));
  app_.set_help_flag("-h,--help", "this text, or a verb's");
  app_.require_subcommand(0, 1)->allow_extras()->fallthrough();
  const auto flag = [this](const char* name, bool& target, const char* description) {
    app_.add_flag(name, target, description)->disable_flag_override();
  };
  flag("--json", globals_.json, "answer with one JSON object");
  flag("-q,--quiet", globals_.quiet, "names only, one per line, or the exit status alone");
  flag("-n,--dry-run", globals_.dryRun, "show who would gain and lose what, and change nothing");
  flag("-y,--yes", globals_.yes, "do not ask");
  app_.add_option("--actor", globals_.actor, "the user who wants a change: refused what that user may not do")
      ->type_name("NAME");
  flag("--force", globals_.force, "override a guard (see refresh)");
  app_.add_option("--db", globals_.database, "the database, else DELEGATIONCTL_DB or the configured one")
      ->type_name("FILE");
  app_.add_flag("--demo{}", globals_.demoDirectory, "work in a throw-away world, or in one that is kept in DIR");
  flag("-v", globals_.verbose, "the library's log on stderr");
  app_.add_option("--color", globals_.color, "auto, always or never; never with NO_COLOR")->type_name("WHEN");
  app_.add_flag("--version", version_, "the version")->disable_flag_override();
}

CLI::App* CommandLine::Add(const VerbHelp& help, Run run, bool mayCreate) {
  CLI::App* verb = app_.add_subcommand(help.name, help.does);
  verbs_.emplace(verb, Verb{help, std::move(run), mayCreate});
  return verb;
}

void CommandLine::TakeMoreNames(CLI::App* verb, std::vector<std::string>& names) { verbs_.at(verb).moreNames = &names; }

void CommandLine::Parse(int argc, const char* const* argv) {
  for (CLI::App* verb : app_.get_subcommands([](const CLI::App*) { return true; })) {
    for (CLI::Option* option :
         verb->get_options([](const CLI::Option* o) { return o->get_items_expected_max() > 0; })) {
      option->transform(WithoutMark);
    }
  }
  try {
    app_.parse(Marked(argc, argv));
  } catch (const CLI::CallForHelp&) {
    help_ = app_.help();
    return;
  } catch (const CLI::RequiredError& error) {
    const std::string text = error.what();
    throw Exit(errors::kBadUsage, text.substr(0, text.find(' ')) + " is missing");
  } catch (const CLI::ArgumentMismatch& error) {
    throw Exit(errors::kBadUsage, Wording(error));
  } catch (const CLI::ParseError& error) {
    std::string text = error.what();
    if (!text.empty()) text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
    throw Exit(errors::kBadUsage, Printable(text));
  }
  globals_.demo = app_.count("--demo") > 0;
  if (version_) {
    help_ = "delegationctl " DELEGATIONCTL_VERSION "\n";
    return;
  }
  if (!app_.get_subcommands().empty()) chosen_ = app_.get_subcommands().front();
  RequireNoExtras();
  if (!chosen_) throw Exit(errors::kBadUsage, "a verb is missing");
  if (globals_.color != "auto" && globals_.color != "always" && globals_.color != "never") {
    throw Exit(errors::kBadUsage, fmt::format("--color {} is not known", Quoted(globals_.color)),
               "it is auto, always or never");
  }
}

void CommandLine::RequireNoExtras() {
  std::vector<std::string> names, options;
  for (const CLI::App* app : {static_cast<const CLI::App*>(&app_), chosen_}) {
    if (!app) continue;
    for (const CLI::Option* option : app->get_options()) {
      for (const std::string& name : option->get_lnames()) options.push_back("--" + name);
    }
  }
  for (const auto& [verb, entry] : verbs_) names.push_back(entry.help.name);
  for (const std::string& argument : app_.remaining(true)) {
    if (!chosen_ && argument[0] == kLiteral) continue;  // a verb stands before "--"
    const std::string extra = WithoutMark(argument);
    const bool option = argument.size() > 1 && argument[0] == '-';
    if (!option && chosen_ && Chosen().moreNames) {
      Chosen().moreNames->push_back(extra);
      continue;
    }
    const char* kind = option ? "there is no option" : chosen_ ? "unexpected argument" : "there is no verb";
    const std::string remedy = option ? DidYouMean(extra, options) : chosen_ ? "" : DidYouMean(extra, names);
    throw Exit(errors::kBadUsage, fmt::format("{} {}", kind, Quoted(extra)), remedy);
  }
}

const CommandLine::Verb& CommandLine::Chosen() const { return verbs_.at(chosen_); }

Answer CommandLine::RunVerb(Session& session) const { return Chosen().run(session); }

bool CommandLine::MayCreate() const { return Chosen().mayCreate; }

CLI::Option* AddNameList(CLI::App* verb, const std::string& option, std::vector<std::string>& lists,
                         const std::string& description) {
  return verb->add_option(option, lists, description)->allow_extra_args(false);
}

}  // namespace delegationctl
