// delegationctl explain: why a user may or may not do something, and what would change that.
#include <fmt/format.h>

#include <algorithm>
#include <ctime>

#include "admin/explain.h"
#include "asking.h"
#include "errors.h"
#include "names.h"
#include "platform/nimbsdk.h"
#include "verbs.h"

namespace delegationctl {

using namespace NIMBO::QUAYPOST_SERVER;
using admin::ExplainedCandidate, admin::Explanation, admin::Remedy, admin::Standing, admin::Verdict;

namespace {

struct Arguments {
  std::string user;
  std::string question;
  bool exact = false;
};

std::string List(const std::set<std::string>& names) { return Joined({names.begin(), names.end()}); }

// "tab queue", "tabs log_list, queue"
std::string TabList(const std::set<std::string>& tabs) { return (tabs.size() == 1 ? "tab " : "tabs ") + List(tabs); }

// The first line.
std::string Headline(const Explanation& explanation) {
  const std::string user = Printable(explanation.user);
  if (explanation.verdict) {
    const bool allowed = *explanation.verdict == Verdict::kAllowed;
    return fmt::format("{}: {} {}\n", allowed ? "yes" : "no", user, Described(explanation.question, !allowed));
  }
  if (explanation.administrator) return user + " may do everything\n";
  if (!explanation.effective) return user + " is under the default delegation and has no tabs\n";
  return fmt::format("{} is under {} and has {}\n", user, Quoted(explanation.effective->name),
                     explanation.tabs.empty() ? "no tabs" : TabList(explanation.tabs));
}

std::string Place(Standing standing) {
  switch (standing) {
    case Standing::kWinner:
      return "ought to be in effect";
    case Standing::kLowerPriority:
      return "outranked";
    case Standing::kAfterDirect:
      return "of equal priority, but the direct one comes first";
    case Standing::kLaterGroup:
      return "of equal priority, but the group that was stored first comes first";
    case Standing::kHigherId:
      return "of equal priority, but the lower id comes first";
    case Standing::kAgain:
      return "the same once more";
  }
  return "";
}

// What has become of one candidate. `again`: of the one in effect, through something else.
std::string Result(const ExplainedCandidate& candidate, const Explanation& explanation, bool again) {
  if (explanation.effective == candidate.delegation) {
    if (again) return Place(Standing::kAgain);
    return "in effect: " + (candidate.tabs.empty() ? "no tabs" : List(candidate.tabs));
  }
  const std::string result = Place(candidate.standing);
  if (candidate.lost.empty()) return result + "; no tab is lost";
  const bool one = candidate.lost.size() == 1;
  return fmt::format("{}; its {} {} lost", result, TabList(candidate.lost), one ? "is" : "are");
}

std::string CandidateLines(const Explanation& explanation, bool color) {
  if (explanation.candidates.empty()) {
    return fmt::format("  no delegation is assigned to {}, neither directly nor through a group\n",
                       Printable(explanation.user));
  }
  Table table;
  table.Column("  DELEGATION").Column("PRIORITY", Table::kRight).Column("THROUGH").Column("RESULT");
  bool seen = false;
  for (const ExplainedCandidate& candidate : explanation.candidates) {
    table.Row({"  " + candidate.delegation.name, std::to_string(candidate.delegation.priority),
               candidate.gid ? "group " + candidate.group : "direct", Result(candidate, explanation, seen)});
    seen = seen || explanation.effective == candidate.delegation;
  }
  return table.Text(color);
}

std::string Condition(const Remedy& remedy, const Explanation& explanation) {
  const std::string name = Quoted(remedy.delegation.name);
  switch (remedy.kind) {
    case Remedy::kRefresh:
      return "what is stored were brought up to date";
    case Remedy::kSwitchOn:
      return fmt::format("{} also had {}", name,
                         explanation.tabsNeeded.size() == 1 ? "it" : "the tab " + Printable(remedy.tab));
    case Remedy::kPriority:
      return name + " came first";
    case Remedy::kAssign:
      return fmt::format("{} were assigned to {}", name, Printable(explanation.user));
    case Remedy::kCreate:
      return "a new delegation gave it";
  }
  return "";
}

std::string RemedyLines(const Explanation& explanation) {
  std::size_t width = 0;
  for (const Remedy& remedy : explanation.remedies) width = std::max(width, Condition(remedy, explanation).size());
  std::string lines;
  for (const Remedy& remedy : explanation.remedies) {
    lines += fmt::format("    {:<{}}    {}\n", Condition(remedy, explanation), width, remedy.command);
  }
  return lines;
}

// What was asked for, and what would give it.
std::string QuestionLines(const Explanation& explanation) {
  if (!explanation.verdict || explanation.administrator) return "";
  const std::string user = Printable(explanation.user);
  const bool forMethod = explanation.question.tab.empty();
  if (explanation.everybody) return "\n  every user may call the method, with or without a tab\n";
  if (explanation.tabsNeeded.empty()) return "\n  no tab contains the method; only administrators may call it\n";
  const std::string where = forMethod ? "the method is in " + TabList(explanation.tabsNeeded) : "";
  const bool nothingHelps = *explanation.verdict == Verdict::kAllowed || explanation.remedies.empty();
  if (nothingHelps) return forMethod ? "\n  " + where + "\n" : "";
  const std::string wish = forMethod ? where + "; " + user + " would have it if\n" : user + " would have the tab if\n";
  return "\n  " + wish + RemedyLines(explanation);
}

std::string Ago(std::time_t time) {
  const auto seconds = static_cast<std::size_t>(std::max<std::time_t>(std::time(nullptr) - time, 0));
  constexpr std::size_t kMinute = 60, kHour = 60 * kMinute, kDay = 24 * kHour;
  if (seconds < kMinute) return "just now";
  if (seconds < 2 * kHour) return Count(seconds / kMinute, "minute") + " ago";
  return seconds < 2 * kDay ? Count(seconds / kHour, "hour") + " ago" : Count(seconds / kDay, "day") + " ago";
}

std::string FreshnessLines(const Explanation& explanation) {
  const std::string age = explanation.lastRefresh ? ", " + Ago(*explanation.lastRefresh) : "";
  if (explanation.differences.empty()) {
    return fmt::format("  members of groups as of the last refresh{}; the host says the same now\n", age);
  }
  std::string lines =
      fmt::format("  members of groups as of the last refresh{}; delegationctl refresh brings them up to date\n", age);
  for (const auto& difference : explanation.differences) lines += "    " + Printable(difference.text) + "\n";
  return lines;
}

std::string Text(const Explanation& explanation, bool color) {
  return Headline(explanation) +
         fmt::format("\n  {} (uid {}) is {}in the administrators group\n", Printable(explanation.user), explanation.uid,
                     explanation.administrator ? "" : "not ") +
         CandidateLines(explanation, color) + QuestionLines(explanation) + FreshnessLines(explanation);
}

Answer Explain(Session& session, const Arguments& arguments) {
  const NIMBOAccountScope accounts(NIMBOAccountScope::kRemember);
  ResolveUser(arguments.user);
  const admin::Question question =
      arguments.question.empty() ? admin::Question() : ReadQuestion(arguments.question, arguments.exact);
  const Explanation explanation = admin::Explain(arguments.user, question);
  if (explanation.verdict == Verdict::kFailed) {
    const std::string delegation = explanation.effective ? explanation.effective->name : "";
    throw Exit(errors::kAccessCheck,
               fmt::format("every access check for {} fails: {} switches on {}, which the web interface does not know",
                           Quoted(explanation.user), Quoted(delegation), List(explanation.unknownTabs)),
               "delegationctl refresh takes such entries out");
  }

  Answer answer;
  answer.json = explanation.ToJson();
  answer.text = Text(explanation, session.Color());
  if (!explanation.verdict && explanation.effective) answer.quiet = Printable(explanation.effective->name) + "\n";
  answer.status = explanation.verdict == Verdict::kNotAllowed ? kNo : kDone;
  return answer;
}

}  // namespace

void AddExplain(CommandLine& line) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* verb = line.Add({"explain", "ask", "USER [METHOD|TAB] [--exact]",
                             "why USER may or may not: what USER could be under, which counts, what would be needed",
                             "delegationctl --demo explain eva Webapi_Queue_Flush_v1"},
                            [arguments](Session& session) { return Explain(session, *arguments); });
  verb->add_option("USER", arguments->user)->required();
  verb->add_option("METHOD|TAB", arguments->question);
  verb->add_flag("--exact", arguments->exact, "ask also about a method that no tab contains")->disable_flag_override();
}

}  // namespace delegationctl
