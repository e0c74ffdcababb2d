/// Why a user may or may not do something: what the user could be under, which of it counts and why, what the rest
/// would have given, and what would turn a no into a yes.
///
///   const Explanation explanation = Explain("eva", {.method = "Webapi_Queue_Flush_v1"});
///   if (explanation.verdict == Verdict::kNotAllowed) Show(explanation.remedies);
///
/// It reads what it needs about this one user; nothing is changed. Not for several threads.
#pragma once

#include <json/json.h>

#include <ctime>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "admin/effect.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

/// What is asked: a method, a tab, or nothing in particular.
struct Question {
  std::string method;
  std::string tab;
};

/// What the access check answers.
enum class Verdict {
  kAllowed,
  kNotAllowed,
  kFailed,  ///< the access check answers with an error, which counts as no
};

/// How one candidate fares against the winner.
enum class Standing {
  kWinner,
  kLowerPriority,
  kAfterDirect,  ///< equal priority, but the winner is assigned directly
  kLaterGroup,   ///< equal priority, but the winner comes through a membership that was stored earlier
  kHigherId,     ///< equal priority through the same, but the winner's id is lower
  kAgain,        ///< the winner itself, through something else
};

/// One delegation that the user could be under, through one thing.
struct ExplainedCandidate {
  Holding delegation;
  std::optional<unsigned int> gid;  ///< nothing: assigned directly
  std::string group;
  Standing standing = Standing::kWinner;
  std::set<std::string> tabs;
  std::set<std::string> lost;  ///< those of `tabs` that the user does not have
};

/// Something by which the stored answer and the host, or the rule, differ.
struct Difference {
  std::string code;  ///< see Explain
  std::string text;
};

/// One change that would turn the no into a yes.
struct Remedy {
  enum Kind {
    kRefresh,   ///< nothing but a refresh from the host
    kSwitchOn,  ///< the delegation that counts gets the tab
    kPriority,  ///< one that the user has and that has the tab comes to count
    kAssign,    ///< the user is given one that has the tab
    kCreate,    ///< the user is given a new one
  };
  Kind kind;
  Holding delegation;  ///< none for kRefresh and kCreate
  std::string tab;
  int priority = 0;     ///< the new one, for kPriority
  std::string command;  ///< a delegationctl command line, for a POSIX shell
};

struct MAILSERVER_EXPORT Explanation {
  std::string user;  ///< the account's canonical name
  unsigned int uid = 0;
  bool administrator = false;                  ///< a member of the host's administrators group, who may call everything
  std::vector<ExplainedCandidate> candidates;  ///< as stored, the winner first
  std::optional<Holding> effective;            ///< as stored, by which access is checked; nothing: the default
  std::set<std::string> tabs;                  ///< those that `effective` switches on
  std::set<std::string> unknownTabs;           ///< switched on, but no tabs: they make every check of the user fail

  std::vector<Difference> differences;
  std::optional<std::time_t> lastRefresh;  ///< nothing: not known

  Question question;
  std::optional<Verdict> verdict;    ///< nothing: nothing was asked
  bool everybody = false;            ///< every account may call the method
  std::set<std::string> tabsNeeded;  ///< each of them gives what was asked for
  std::vector<Remedy> remedies;      ///< each alone is enough; those that give least first

  Json::Value ToJson() const;
};

/// Explains. `user` is a short name as for the access check; a method's verdict is DelegationUserAllowWebapi's, a tab's
/// is yes for whom the stored effective delegation gives it and for administrators.
///
/// Codes of differences: "effective" (the stored effective delegation is not the one that the stored assignments give),
/// "renamed" (the uid is stored under another name), "other_uid" (the name is stored under another uid), "left_group",
/// "joined_group", "group_gone", "group_renamed" (a group that has delegations), "host" (the host could not be asked),
/// "repeated_type" (some delegation has two entries of one type: nothing can be changed, so there are no remedies).
///
/// Throws Error: kInput for a question that is both, kAccounts for an unknown user or an account that could not be
/// looked up, kDatabase.
MAILSERVER_EXPORT Explanation Explain(const std::string& user, const Question& question);

}  // namespace NIMBO::QUAYPOST_SERVER::admin
