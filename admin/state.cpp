// Reading everything in one transaction, and the rule of the highest priority.
#include "admin/state.h"

#include <algorithm>

#include "admin/rows.h"
#include "role/role_db_scope.h"
#include "storage/delegation_db_handler.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

Error::~Error() = default;

namespace {

constexpr unsigned int kNoId = 4294967295;

// `whose` is "", or " where uid = N" to read one user only.
void ReadRecords(sqlite3* db, const std::string& whose, State& state) {
  Rows delegations(db, "select delegationidx, name, ifnull(color, 'none'), priority from delegation_table");
  while (delegations.Next()) {
    Delegation delegation;
    delegation.id = static_cast<int>(delegations.Number(0));
    delegation.name = delegations.Text(1);
    delegation.color = delegations.Text(2);
    delegation.priority = static_cast<int>(delegations.Number(3));
    if (delegation.id > 0 && !delegation.name.empty()) state.delegations.emplace(delegation.id, std::move(delegation));
  }
  Rows users(db, "select uid, username from user_table" + whose);
  while (users.Next()) {
    User user;
    user.uid = static_cast<unsigned int>(users.Number(0));
    user.name = users.Text(1);
    if (user.uid != kNoId && !user.name.empty()) state.users.emplace_hint(state.users.end(), user.uid, std::move(user));
  }
  Rows groups(db, "select gid, groupname from group_table");
  while (groups.Next()) {
    Group group;
    group.gid = static_cast<unsigned int>(groups.Number(0));
    group.name = groups.Text(1);
    if (group.gid != kNoId && !group.name.empty()) state.groups.emplace(group.gid, std::move(group));
  }
}

// The record under `id`, or null.
template <class Records, class Id>
auto* Find(Records& records, Id id) {
  const auto found = records.find(static_cast<typename Records::key_type>(id));
  return found == records.end() ? nullptr : &found->second;
}

void ReadLinks(sqlite3* db, const std::string& whose, State& state) {
  Rows entries(db,
               "select delegationidx, type, ifnull(data, '') from delegation2delegation_entry_view order by "
               "delegationidx, delegationentryidx");
  while (entries.Next()) {
    if (Delegation* delegation = Find(state.delegations, entries.Number(0))) {
      const auto [entry, first] = delegation->entries.emplace(entries.Text(1), entries.Text(2));
      if (!first && entries.Text(2) == "true") entry->second = "true";  // which switches the tab on
    }
  }
  Rows direct(db, "select uid, delegationidx from user2delegation_table" + whose + " order by uid, delegationidx");
  while (direct.Next()) {
    User* user = Find(state.users, direct.Number(0));
    Delegation* delegation = Find(state.delegations, direct.Number(1));
    if (!user || !delegation) continue;
    user->direct.push_back(delegation->id);
    delegation->users.push_back(user->uid);
  }
  Rows inherited(db, "select gid, delegationidx from group2delegation_table order by gid, delegationidx");
  while (inherited.Next()) {
    Group* group = Find(state.groups, inherited.Number(0));
    Delegation* delegation = Find(state.delegations, inherited.Number(1));
    if (!group || !delegation) continue;
    group->delegations.push_back(delegation->id);
    delegation->groups.push_back(group->gid);
  }
  Rows members(db, "select uid, gid from user2group_table" + whose + " order by rowid");
  while (members.Next()) {
    User* user = Find(state.users, members.Number(0));
    Group* group = Find(state.groups, members.Number(1));
    if (!user || !group) continue;
    user->groups.push_back(group->gid);
    group->members.push_back(user->uid);
  }
  Rows effective(db, "select uid, delegationidx from user2delegation_real_table" + whose);
  while (effective.Next()) {
    User* user = Find(state.users, effective.Number(0));
    if (user && Find(state.delegations, effective.Number(1))) user->effective = static_cast<int>(effective.Number(1));
  }
}

}  // namespace

std::vector<Candidate> State::CandidatesOf(const User& user) const {
  std::vector<Candidate> candidates;
  for (const int id : user.direct) candidates.push_back({&delegations.at(id), nullptr});
  for (const unsigned int gid : user.groups) {
    const Group& group = groups.at(gid);
    for (const int id : group.delegations) candidates.push_back({&delegations.at(id), &group});
  }
  std::stable_sort(candidates.begin(), candidates.end(), [](const Candidate& a, const Candidate& b) {
    return a.delegation->priority > b.delegation->priority;
  });
  return candidates;
}

const Delegation* State::Effective(const User& user) const {
  return user.effective ? &delegations.at(*user.effective) : nullptr;
}

std::set<std::string> State::TabsOf(const User& user) const {
  const Delegation* effective = Effective(user);
  return effective ? admin::TabsOf(*effective) : std::set<std::string>();
}

const User* State::FindUser(const std::string& name) const {
  const auto found =
      std::find_if(users.begin(), users.end(), [&](const auto& entry) { return entry.second.name == name; });
  return found == users.end() ? nullptr : &found->second;
}

std::set<std::string> TabsOf(const Delegation& delegation) {
  std::set<std::string> tabs;
  for (const auto& [type, data] : delegation.entries) {
    if (data == "true") tabs.insert(type);
  }
  return tabs;
}

namespace {

State Read(const std::string& whose) {
  const RoleDBScope scope(DelegationDBHandler::GetDelegationDBHandler(), RoleDBScope::kRead);
  RoleDBHandler* const handle = DelegationDBHandler::GetDelegationDBHandler();
  if (!scope.Usable() || !handle) throw Error(Error::kDatabase, "the delegation database cannot be opened");
  State state;
  ReadRecords(handle->GetDB(), whose, state);
  ReadLinks(handle->GetDB(), whose, state);
  return state;
}

}  // namespace

State ReadState() { return Read(""); }

State ReadStateOf(unsigned int uid) { return Read(" where uid = " + std::to_string(uid)); }

}  // namespace NIMBO::QUAYPOST_SERVER::admin
