// Who may: all accounts of the host and of the database, each with its effective delegation and the source of that.
#include "admin/access.h"

#include <algorithm>
#include <memory>
#include <unordered_map>
#include <unordered_set>

#include "admin/methods.h"
#include "admin/rows.h"
#include "admin/state.h"
#include "admin/to_json.h"
#include "model/delegation_delegation.h"
#include "platform/mailserver.h"
#include "platform/nimbsdk.h"
#include "role/role_db_scope.h"
#include "role/role_role_entry.h"
#include "storage/delegation_db_handler.h"
#include "tables/delegation_default_entries.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

namespace {

constexpr unsigned int kNoId = 4294967295;

// ---- The host ----

struct HostAccount {
  std::string name;
  unsigned int uid = kNoId;
};

[[noreturn]] void LookupFailed(const std::string& what) {
  throw Error(Error::kAccounts, what + " could not be looked up");
}

// The uid of the account, or nothing when there definitely is none.
std::optional<unsigned int> UidOf(const std::string& name) {
  NIMBOUSER* user = nullptr;
  const int status = NIMBOUserGet(name.c_str(), &user);
  const unsigned int uid = user ? user->uid : kNoId;
  NIMBOUserFree(user);
  if (status == NIMBO_NOT_FOUND) return std::nullopt;
  if (status != NIMBO_OK) LookupFailed("the account \"" + name + "\"");
  return uid;
}

std::optional<HostAccount> AccountOf(unsigned int uid) {
  NIMBOUSER* user = nullptr;
  const int status = NIMBOUserGetByUID(uid, &user);
  const HostAccount account{user ? user->szName : "", uid};
  NIMBOUserFree(user);
  if (status == NIMBO_NOT_FOUND) return std::nullopt;
  if (status != NIMBO_OK) LookupFailed("the account with uid " + std::to_string(uid));
  return account;
}

std::vector<HostAccount> EnumerateAccounts() {
  int type = 0;
  std::vector<HostAccount> accounts;
  const auto collect = [](const NIMBOUSER* user, void* context) {
    static_cast<std::vector<HostAccount>*>(context)->push_back({user->szName, user->uid});
    return 0;
  };
  if (!MailserverAccountType(type) || NBLIBUserInfoEnum(type, nullptr, 0, -1, collect, &accounts) < 0) {
    throw Error(Error::kAccounts, "the host's accounts could not be listed");
  }
  std::erase_if(accounts, [](HostAccount& account) {
    if (account.uid != kNoId) return false;
    const auto uid = UidOf(account.name);
    account.uid = uid.value_or(kNoId);
    return !uid;
  });
  return accounts;
}

bool IsAdministrator(const std::string& name) {
  const int answer = NBLIBGroupIsAdminGroupMem(name.c_str(), 0);
  if (answer < 0) LookupFailed("whether \"" + name + "\" is an administrator");
  return answer == 1;
}

// ---- The database ----

// A delegation's switched-on entries as the access check reads them. One that cannot be read gives nothing.
void ReadTabs(int id, ReviewedDelegation& delegation) {
  std::shared_ptr<RoleRole> record;
  std::vector<std::shared_ptr<RoleRoleEntry>> entries;
  if (!DelegationCustomDelegation::FromID(id, record) || record->FindBelongPolicyEntries(entries) == -1) return;
  for (const auto& entry : entries) {
    if (entry->getData() != "true") continue;
    const std::string tab = entry->getType();
    (CountMethods(tab) == 0 ? delegation.unknownTabs : delegation.tabs).insert(tab);
  }
}

// What is stored, at one moment.
class Stored {
 public:
  Stored() {
    RoleDBHandler* const handle = DelegationDBHandler::GetDelegationDBHandler();
    const RoleDBScope snapshot(handle, RoleDBScope::kRead);
    state_ = ReadState();
    // Access goes by these rows alone, also where there is no user for one.
    Rows rows(handle->GetDB(), "select uid, delegationidx from user2delegation_real_table");
    while (rows.Next()) {
      const int id = static_cast<int>(rows.Number(1));
      if (state_.delegations.contains(id)) effective_.emplace(static_cast<unsigned int>(rows.Number(0)), id);
    }
    for (const auto& [id, delegation] : state_.delegations) ReadTabs(id, Add(delegation));
    for (const auto& [uid, id] : effective_) ++delegations_.at(id).inEffect;
  }

  const std::map<int, ReviewedDelegation>& Delegations() const { return delegations_; }

  bool Knows(unsigned int uid) const { return state_.users.contains(uid) || effective_.contains(uid); }

  std::set<unsigned int> Uids() const {
    std::set<unsigned int> uids;
    for (const auto& [uid, user] : state_.users) uids.insert(uid);
    for (const auto& [uid, id] : effective_) uids.insert(uid);
    return uids;
  }

  // The stored name, "" if there is none.
  std::string NameOf(unsigned int uid) const {
    const auto user = state_.users.find(uid);
    return user == state_.users.end() ? "" : user->second.name;
  }

  // Fills in what the database knows about the account.
  void Complete(Access& access) const {
    const auto effective = effective_.find(access.uid);
    if (effective == effective_.end()) return;
    const int id = effective->second;
    access.effective = delegations_.at(id).delegation;
    const auto user = state_.users.find(access.uid);
    if (user == state_.users.end()) return;
    const auto holds = [id](const std::vector<int>& ids) { return std::find(ids.begin(), ids.end(), id) != ids.end(); };
    access.direct = holds(user->second.direct);
    for (const unsigned int gid : user->second.groups) {
      const Group& group = state_.groups.at(gid);
      if (holds(group.delegations)) access.groups.push_back(group.name);
    }
  }

 private:
  ReviewedDelegation& Add(const Delegation& delegation) {
    ReviewedDelegation& out = delegations_[delegation.id];
    out.delegation = {delegation.id, delegation.name, delegation.priority};
    out.color = delegation.color;
    for (const unsigned int uid : delegation.users) out.users.push_back(state_.users.at(uid).name);
    for (const unsigned int gid : delegation.groups) out.groups.push_back(state_.groups.at(gid).name);
    return out;
  }

  State state_;
  std::unordered_map<unsigned int, int> effective_;
  std::map<int, ReviewedDelegation> delegations_;
};

// ---- Both together ----

// Every account that the host lists or the database knows, by uid.
std::vector<Access> Gather(const Stored& stored) {
  std::vector<Access> all;
  std::unordered_set<unsigned int> listed;
  const auto add = [&](const HostAccount& account) {
    Access& access = all.emplace_back();
    access.uid = account.uid;
    access.name = account.name;
    access.administrator = IsAdministrator(account.name);
    stored.Complete(access);
  };
  for (const HostAccount& account : EnumerateAccounts()) {
    listed.insert(account.uid);
    add(account);
  }
  // A directory may answer about accounts that it does not list.
  for (const unsigned int uid : stored.Uids()) {
    if (listed.contains(uid)) continue;
    if (const auto account = AccountOf(uid)) {
      add(*account);
      continue;
    }
    Access& access = all.emplace_back();
    access.uid = uid;
    access.name = stored.NameOf(uid);
    access.gone = true;
    stored.Complete(access);
  }
  std::stable_sort(all.begin(), all.end(), [](const Access& a, const Access& b) { return a.uid < b.uid; });
  return all;
}

bool Overlap(const std::set<std::string>& some, const std::set<std::string>& others) {
  return std::any_of(some.begin(), some.end(), [&](const std::string& one) { return others.contains(one); });
}

}  // namespace

Json::Value Access::ToJson() const {
  Json::Value out;
  out["uid"] = uid;
  out["name"] = name;
  out["gone"] = gone;
  out["administrator"] = administrator;
  out["in_effect"] = ToJsonObject(effective);
  out["direct"] = direct;
  out["groups"] = ToJsonArray(groups);
  return out;
}

Json::Value Permitted::ToJson() const {
  Json::Value out;
  const bool forMethod = question.tab.empty();
  out[forMethod ? "method" : "tab"] = forMethod ? question.method : question.tab;
  out["everybody"] = everybody;
  out["tabs_needed"] = ToJsonArray(tabsNeeded);
  out["accounts"] = Json::arrayValue;
  for (const Access& access : accounts) out["accounts"].append(access.ToJson());
  return out;
}

Permitted WhoCan(const Question& question) {
  if (question.method.empty() == question.tab.empty()) {
    throw Error(Error::kInput, "the question is either a method or a tab");
  }
  Permitted permitted;
  permitted.question = question;
  const bool forMethod = question.tab.empty();
  permitted.tabsNeeded = {question.tab};
  if (forMethod) {
    MethodTabs through = TabsOfMethod(question.method);
    permitted.everybody = through.everybody;
    permitted.tabsNeeded = std::move(through.tabs);
  }

  const NIMBOAccountScope accounts(NIMBOAccountScope::kEnumerate);
  const Stored stored;
  std::map<int, bool> enough;  // by delegation
  std::set<int> failing;
  for (const auto& [id, delegation] : stored.Delegations()) {
    if (forMethod && !delegation.unknownTabs.empty()) failing.insert(id);
    enough[id] = Overlap(permitted.tabsNeeded, delegation.tabs);
  }
  permitted.accounts = Gather(stored);
  std::erase_if(permitted.accounts, [&](const Access& access) {
    if (access.gone) return true;
    if (access.administrator) return false;
    if (!access.effective) return !permitted.everybody;
    if (failing.contains(access.effective->id)) return true;
    return !permitted.everybody && !enough.at(access.effective->id);
  });
  for (Access& access : permitted.accounts) {
    if (!access.effective || (enough.at(access.effective->id) && !failing.contains(access.effective->id))) continue;
    access.effective.reset();  // gives nothing of what was asked for
    access.direct = false;
    access.groups.clear();
  }
  return permitted;
}

const std::set<std::string>& Review::TabsOf(const Access& access) const {
  static const std::set<std::string> none;
  const auto found = std::find_if(delegations.begin(), delegations.end(), [&](const ReviewedDelegation& delegation) {
    return access.effective && delegation.delegation == *access.effective;
  });
  return found == delegations.end() || access.gone ? none : found->tabs;
}

Json::Value Review::ToJson() const {
  Json::Value out;
  out["tabs"] = ToJsonArray(tabs);
  out["delegations"] = out["accounts"] = Json::arrayValue;
  for (const ReviewedDelegation& delegation : delegations) {
    Json::Value& entry = out["delegations"].append(ToJsonObject(delegation.delegation));
    entry["color"] = delegation.color;
    entry["tabs"] = ToJsonArray(delegation.tabs);
    entry["unknown_tabs"] = ToJsonArray(delegation.unknownTabs);
    entry["users"] = ToJsonArray(delegation.users);
    entry["groups"] = ToJsonArray(delegation.groups);
    entry["in_effect"] = static_cast<Json::UInt64>(delegation.inEffect);
  }
  for (const Access& access : accounts) {
    out["accounts"].append(access.ToJson())["tabs"] = ToJsonArray(TabsOf(access));
  }
  return out;
}

Review MakeReview() {
  const NIMBOAccountScope accounts(NIMBOAccountScope::kEnumerate);
  Review review;
  DelegationUtilGetAllDefaultTypeDelegationEntry(review.tabs);
  const Stored stored;
  for (const auto& [id, delegation] : stored.Delegations()) review.delegations.push_back(delegation);
  std::stable_sort(review.delegations.begin(), review.delegations.end(),
                   [](const ReviewedDelegation& a, const ReviewedDelegation& b) {
                     return a.delegation.priority > b.delegation.priority;
                   });
  review.accounts = Gather(stored);
  std::erase_if(review.accounts,
                [&](const Access& access) { return !access.administrator && !stored.Knows(access.uid); });
  return review;
}

}  // namespace NIMBO::QUAYPOST_SERVER::admin
