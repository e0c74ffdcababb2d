// Why a user may or may not do something.
#include "admin/explain.h"

#include <algorithm>
#include <memory>

#include "admin/journal.h"
#include "admin/methods.h"
#include "admin/remedies.h"
#include "admin/rows.h"
#include "admin/state.h"
#include "admin/to_json.h"
#include "api/delegation_api.h"
#include "model/delegation_user.h"
#include "platform/mailserver.h"
#include "platform/nimbsdk.h"
#include "role/role_db_scope.h"
#include "role/role_role_entry.h"
#include "storage/delegation_db_handler.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

namespace {

using Gids = std::set<unsigned int>;

// ---- What the host says before the database is asked ----

struct Account {
  DelegationUser user;
  bool administrator = false;
  std::optional<Gids> groups;  // nothing: could not be asked
};

std::optional<Gids> GroupsOf(const std::string& name) {
  std::vector<unsigned int> gids(64);
  int count = NIMBOUserListGroups(name.c_str(), gids.data(), static_cast<int>(gids.size()));
  if (count > static_cast<int>(gids.size())) {
    gids.resize(static_cast<std::size_t>(count));
    count = NIMBOUserListGroups(name.c_str(), gids.data(), count);
  }
  if (count < 0) return std::nullopt;
  return Gids(gids.begin(), gids.begin() + std::min(count, static_cast<int>(gids.size())));
}

Account FindAccount(const std::string& user) {
  Account account;
  if (!RoleUser::FromShortUsername(user, account.user)) {
    throw Error(Error::kAccounts, "the user \"" + user + "\" is unknown or could not be looked up");
  }
  const std::string name = account.user.getUsername();
  const int administrator = NBLIBGroupIsAdminGroupMem(name.c_str(), 0);
  if (administrator < 0) throw Error(Error::kAccounts, "the administrators group could not be looked up");
  account.administrator = administrator == 1;
  account.groups = GroupsOf(name);
  return account;
}

// ---- What is stored ----

struct Stored {
  State state;
  User user;                             // not in `state` when the database does not know the uid
  bool known = false;                    // it does
  std::optional<unsigned int> namesake;  // another stored uid with the user's name
  std::optional<int> ambiguous;          // a delegation with two entries of one type, which stops every change
};

sqlite3* Database() {
  RoleDBHandler* const handle = DelegationDBHandler::GetDelegationDBHandler();
  if (!handle) throw Error(Error::kDatabase, "the delegation database cannot be opened");
  return handle->GetDB();
}

Stored ReadStored(unsigned int uid, const std::string& name) {
  Stored stored;
  stored.state = ReadStateOf(uid);
  const auto found = stored.state.users.find(uid);
  stored.known = found != stored.state.users.end();
  if (stored.known) {
    stored.user = found->second;
  } else {
    // An access check goes by the effective row also where there is no user for it.
    stored.user = User{uid, name, {}, {}, {}};
    Rows effective(Database(), "select delegationidx from user2delegation_real_table where uid = ?", uid);
    if (effective.Next()) {
      const int id = static_cast<int>(effective.Number(0));
      if (stored.state.delegations.contains(id)) stored.user.effective = id;
    }
  }
  Rows namesakes(Database(), "select uid from user_table where username = ? and uid <> ? limit 1", name, uid);
  if (namesakes.Next()) stored.namesake = static_cast<unsigned int>(namesakes.Number(0));
  Rows repeated(
      Database(),
      "select delegationidx from delegation2delegation_entry_view group by delegationidx, type having count(*) "
      "> 1 order by delegationidx");
  while (!stored.ambiguous && repeated.Next()) {
    const int id = static_cast<int>(repeated.Number(0));
    if (stored.state.delegations.contains(id)) stored.ambiguous = id;
  }
  return stored;
}

// The tabs that the access check sees.
void ReadTabs(DelegationUser& user, Explanation& explanation) {
  std::vector<std::shared_ptr<RoleRoleEntry>> entries;
  if (user.FindRealBelongPolicyEntries(entries) == -1) {
    throw Error(Error::kDatabase, "the delegation in effect for " + explanation.user + " cannot be read");
  }
  for (const auto& entry : entries) {
    if (entry->getData() != "true") continue;
    const std::string tab = entry->getType();
    (CountMethods(tab) == 0 ? explanation.unknownTabs : explanation.tabs).insert(tab);
  }
}

Holding HoldingOf(const Delegation& delegation) { return {delegation.id, delegation.name, delegation.priority}; }

Standing StandingOf(const Candidate& candidate, const Candidate& winner) {
  if (candidate.delegation == winner.delegation) {
    return candidate.group == winner.group ? Standing::kWinner : Standing::kAgain;
  }
  if (candidate.delegation->priority < winner.delegation->priority) return Standing::kLowerPriority;
  if (candidate.group == winner.group) return Standing::kHigherId;
  return winner.group ? Standing::kLaterGroup : Standing::kAfterDirect;
}

void AddCandidates(const Stored& stored, Explanation& explanation) {
  const std::vector<Candidate> candidates = stored.state.CandidatesOf(stored.user);
  for (const Candidate& candidate : candidates) {
    ExplainedCandidate& out = explanation.candidates.emplace_back();
    out.delegation = HoldingOf(*candidate.delegation);
    if (candidate.group) {
      out.gid = candidate.group->gid;
      out.group = candidate.group->name;
    }
    out.standing = StandingOf(candidate, candidates.front());
    out.tabs = TabsOf(*candidate.delegation);
    std::set_difference(out.tabs.begin(), out.tabs.end(), explanation.tabs.begin(), explanation.tabs.end(),
                        std::inserter(out.lost, out.lost.end()));
  }
}

// ---- Where the host differs from it ----

// Whether the user is a member by the listing that a refresh goes by; nothing when it fails.
std::optional<bool> IsListedMember(const std::string& group, const std::string& user) {
  int type = 0;
  const auto ignore = [](const NIMBOUSER*, void*) { return 0; };
  // Enumerates the accounts, so that the members are not looked up one by one.
  if (!MailserverAccountType(type) || NBLIBUserInfoEnum(type, nullptr, 0, 0, ignore, nullptr) < 0) return std::nullopt;
  NBLIBSZLIST* list = NBLIBCSzListAlloc(0);
  std::optional<bool> answer;
  if (list && NIMBOGroupListMember(group.c_str(), &list) == NIMBO_OK) {
    answer = false;
    for (int i = 0; i < NBLIBCSzListCount(list); ++i) answer = *answer || user == NBLIBCSzListGet(list, i);
  }
  NBLIBCSzListFree(list);
  return answer;
}

// Compares the memberships, and what else the host says, with what is stored.
class Comparison {
 public:
  Comparison(const Stored& stored, const Account& account, Explanation& explanation)
      : stored_(stored), account_(account), explanation_(explanation), refreshed_(stored.user) {}

  void Run() {
    CompareUser();
    CompareGroups();
    CompareEffective();
    if (!stored_.ambiguous) return;
    Add("repeated_type",
        "\"" + stored_.state.delegations.at(*stored_.ambiguous).name +
            "\" has two entries of one type; nothing can be changed before delegationctl check --repair");
  }

  // The user as a refresh from the host would leave it.
  const User& Refreshed() const { return refreshed_; }

 private:
  void Add(const char* code, const std::string& text) { explanation_.differences.push_back({code, text}); }

  void CompareUser() {
    const std::string uid = std::to_string(explanation_.uid);
    if (stored_.known && stored_.user.name != explanation_.user) {
      Add("renamed", "uid " + uid + " is stored as \"" + stored_.user.name +
                         "\": the account was renamed, or the uid was given to another one");
    }
    if (stored_.namesake) {
      Add("other_uid", "the name is also stored with uid " + std::to_string(*stored_.namesake) +
                           ", whose delegations are not this user's");
    }
  }

  void CompareGroups() {
    if (!account_.groups) {
      Add("host", "the host could not be asked for the groups of the user");
      return;
    }
    std::erase_if(refreshed_.groups, [&](unsigned int gid) { return !Stays(stored_.state.groups.at(gid)); });
    for (const unsigned int gid : *account_.groups) {
      const auto group = stored_.state.groups.find(gid);
      const auto& groups = stored_.user.groups;
      const bool isStored = std::find(groups.begin(), groups.end(), gid) != groups.end();
      if (group != stored_.state.groups.end() && !isStored && Joined(group->second)) refreshed_.groups.push_back(gid);
    }
  }

  // Whether a stored membership is one on the host too.
  bool Stays(const Group& group) {
    if (group.delegations.empty()) return true;  // of no consequence
    NIMBOGROUP* found = nullptr;
    const int status = NIMBOGroupGetByGID(group.gid, &found);
    const std::string name = found ? found->szName : "";
    NIMBOGroupFree(found);
    if (status == NIMBO_NOT_FOUND) {
      Add("group_gone",
          "the host has no group \"" + group.name + "\" (gid " + std::to_string(group.gid) + ") any more");
      return false;
    }
    if (status != NIMBO_OK) {
      Add("host", "the host could not be asked for the group \"" + group.name + "\"");
      return true;
    }
    if (name != group.name) {
      Add("group_renamed", "gid " + std::to_string(group.gid) + " is stored as \"" + group.name +
                               "\"; the host calls it \"" + name + "\"");
    }
    if (account_.groups->contains(group.gid) || IsListed(name).value_or(true)) return true;
    Add("left_group", "the host has the user no longer in the group \"" + name + "\"");
    return false;
  }

  // Whether the host has a member in a group that the database does not have there.
  bool Joined(const Group& group) {
    if (group.delegations.empty()) return false;
    NIMBOGROUP* found = nullptr;
    const bool exists = NIMBOGroupGetByGID(group.gid, &found) == NIMBO_OK;
    const std::string name = found ? found->szName : "";
    NIMBOGroupFree(found);
    if (!exists || !IsListed(name).value_or(false)) return false;
    Add("joined_group", "the host has the user in the group \"" + name + "\"; the database does not yet");
    return true;
  }

  std::optional<bool> IsListed(const std::string& group) {
    const auto listed = IsListedMember(group, explanation_.user);
    if (!listed) Add("host", "the host could not be asked for the members of the group \"" + group + "\"");
    return listed;
  }

  void CompareEffective() {
    const std::vector<Candidate> due = stored_.state.CandidatesOf(stored_.user);
    const std::optional<int> winner = due.empty() ? std::nullopt : std::optional<int>(due.front().delegation->id);
    if (winner == stored_.user.effective) return;
    const auto described = [&](const std::optional<int>& id) {
      return id ? "\"" + stored_.state.delegations.at(*id).name + "\" (id " + std::to_string(*id) + ")" : "the default";
    };
    Add("effective", "in effect is " + described(stored_.user.effective) + "; by what is stored it ought to be " +
                         described(winner));
  }

  const Stored& stored_;
  const Account& account_;
  Explanation& explanation_;
  User refreshed_;
};

// Whether the host surely has every user and group to whom the delegation is assigned. Of many users: not surely.
bool IsUpToDate(const State& state, const Delegation& delegation) {
  constexpr int kMost = 4;  // each lookup takes milliseconds where there are many accounts
  for (const unsigned int gid : delegation.groups) {
    NIMBOGROUP* group = nullptr;
    const int status = NIMBOGroupGet(state.groups.at(gid).name.c_str(), &group);
    NIMBOGroupFree(group);
    if (status != NIMBO_OK) return false;
  }
  int count = 0;
  Rows names(Database(), "select username from delegation2user_view where delegationidx = ? limit ?", delegation.id,
             kMost + 1);
  while (names.Next()) {
    NIMBOUSER* user = nullptr;
    const int status = NIMBOUserGet(names.Text(0).c_str(), &user);
    NIMBOUserFree(user);
    if (status != NIMBO_OK || ++count > kMost) return false;
  }
  return true;
}

// ---- The answer ----

void Ask(const Question& question, Explanation& explanation) {
  explanation.question = question;
  if (question.method.empty() && question.tab.empty()) return;
  if (question.tab.empty()) {
    const MethodTabs through = TabsOfMethod(question.method);
    explanation.everybody = through.everybody;
    explanation.tabsNeeded = through.tabs;
  } else {
    explanation.tabsNeeded = {question.tab};
  }
}

Verdict OwnVerdict(const Explanation& explanation) {
  if (explanation.administrator) return Verdict::kAllowed;
  const bool forMethod = explanation.question.tab.empty();
  if (forMethod && !explanation.unknownTabs.empty()) return Verdict::kFailed;
  const auto& tabs = explanation.tabs;
  const bool held = std::any_of(explanation.tabsNeeded.begin(), explanation.tabsNeeded.end(),
                                [&](const std::string& tab) { return tabs.contains(tab); });
  return held || explanation.everybody ? Verdict::kAllowed : Verdict::kNotAllowed;
}

// A method's verdict is the access check's own. That it is not what everything else says cannot be explained.
void Judge(const std::string& user, Explanation& explanation) {
  if (explanation.question.method.empty() && explanation.question.tab.empty()) return;
  explanation.verdict = OwnVerdict(explanation);
  if (explanation.question.method.empty()) return;
  const int access = DelegationUserAllowWebapi(user, explanation.question.method);
  const Verdict checked = access == 0 ? Verdict::kAllowed : access == 1 ? Verdict::kNotAllowed : Verdict::kFailed;
  if (checked == Verdict::kFailed && *explanation.verdict != Verdict::kFailed) {
    throw Error(Error::kDatabase, "the access check for " + explanation.user + " failed");
  }
  if (checked != *explanation.verdict) {
    throw Error(Error::kSystem, "the access check for " + explanation.user + " differs from its explanation");
  }
}

const char* NameOf(Standing standing) {
  switch (standing) {
    case Standing::kWinner:
      return "winner";
    case Standing::kLowerPriority:
      return "lower_priority";
    case Standing::kAfterDirect:
      return "after_direct";
    case Standing::kLaterGroup:
      return "later_group";
    case Standing::kHigherId:
      return "higher_id";
    case Standing::kAgain:
      return "again";
  }
  return "";
}

const char* NameOf(Remedy::Kind kind) {
  switch (kind) {
    case Remedy::kRefresh:
      return "refresh";
    case Remedy::kSwitchOn:
      return "switch_on";
    case Remedy::kPriority:
      return "priority";
    case Remedy::kAssign:
      return "assign";
    case Remedy::kCreate:
      return "create";
  }
  return "";
}

Json::Value JsonOf(const ExplainedCandidate& candidate) {
  Json::Value out = ToJsonObject(candidate.delegation);
  out["group"] = candidate.gid ? Json::Value(candidate.group) : Json::Value();
  out["gid"] = candidate.gid ? Json::Value(*candidate.gid) : Json::Value();
  out["standing"] = NameOf(candidate.standing);
  out["tabs"] = ToJsonArray(candidate.tabs);
  out["lost"] = ToJsonArray(candidate.lost);
  return out;
}

Json::Value JsonOf(const Remedy& remedy) {
  Json::Value out;
  out["kind"] = NameOf(remedy.kind);
  out["command"] = remedy.command;
  if (remedy.delegation.id > 0) out["delegation"] = ToJsonObject(remedy.delegation);
  if (!remedy.tab.empty()) out["tab"] = remedy.tab;
  return out;
}

}  // namespace

Json::Value Explanation::ToJson() const {
  Json::Value out;
  out["user"] = user;
  out["uid"] = uid;
  out["administrator"] = administrator;
  out["in_effect"] = ToJsonObject(effective);
  out["tabs"] = ToJsonArray(tabs);
  out["unknown_tabs"] = ToJsonArray(unknownTabs);
  out["candidates"] = out["differences"] = Json::arrayValue;
  for (const ExplainedCandidate& candidate : candidates) out["candidates"].append(JsonOf(candidate));
  for (const Difference& difference : differences) {
    Json::Value& entry = out["differences"].append(Json::objectValue);
    entry["code"] = difference.code;
    entry["text"] = difference.text;
  }
  out["last_refresh"] = lastRefresh ? Json::Value(static_cast<Json::Int64>(*lastRefresh)) : Json::Value();
  if (!verdict) return out;
  const bool forMethod = question.tab.empty();
  out[forMethod ? "method" : "tab"] = forMethod ? question.method : question.tab;
  out["allowed"] = *verdict == Verdict::kAllowed;
  out["failed"] = *verdict == Verdict::kFailed;
  out["everybody"] = everybody;
  out["tabs_needed"] = ToJsonArray(tabsNeeded);
  out["remedies"] = Json::arrayValue;
  for (const Remedy& remedy : remedies) out["remedies"].append(JsonOf(remedy));
  return out;
}

Explanation Explain(const std::string& user, const Question& question) {
  if (!question.method.empty() && !question.tab.empty()) {
    throw Error(Error::kInput, "the question is either a method or a tab");
  }
  const NIMBOAccountScope accounts(NIMBOAccountScope::kRemember);
  Account account = FindAccount(user);
  Explanation explanation;
  explanation.user = account.user.getUsername();
  explanation.uid = account.user.getUid();
  explanation.administrator = account.administrator;
  explanation.lastRefresh = LastRefresh();
  Ask(question, explanation);

  Stored stored;
  {
    const RoleDBScope snapshot(DelegationDBHandler::GetDelegationDBHandler(), RoleDBScope::kRead);
    stored = ReadStored(explanation.uid, explanation.user);
    ReadTabs(account.user, explanation);
    Judge(user, explanation);
  }
  if (stored.user.effective) explanation.effective = HoldingOf(stored.state.delegations.at(*stored.user.effective));
  AddCandidates(stored, explanation);

  Comparison comparison(stored, account, explanation);
  comparison.Run();
  if (explanation.verdict == Verdict::kNotAllowed && !stored.ambiguous) {
    stored.user.name = explanation.user;
    explanation.remedies = FindRemedies(
        stored.state, stored.user, comparison.Refreshed(), explanation.tabsNeeded,
        [&](const Delegation& delegation) { return !stored.namesake && IsUpToDate(stored.state, delegation); });
  }
  return explanation;
}

}  // namespace NIMBO::QUAYPOST_SERVER::admin
