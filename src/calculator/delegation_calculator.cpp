// The rule of the highest priority, and the refresh of everything.
#include "calculator/delegation_calculator.h"

#include <algorithm>
#include <limits>
#include <typeinfo>
#include <unordered_map>

#include "base/log.h"
#include "handlers/delegation_db_delegation.h"
#include "handlers/delegation_db_group.h"
#include "model/delegation_default_delegation.h"
#include "model/delegation_default_delegation_entry.h"
#include "model/delegation_delegation.h"
#include "model/delegation_group.h"
#include "model/delegation_user.h"
#include "model/group_members.h"
#include "platform/mailserver.h"
#include "role/host_accounts.h"
#include "role/role_db_scope.h"
#include "role/role_util.h"

namespace NIMBO::QUAYPOST_SERVER {

namespace {

// What the groups give that were asked, for the length of one calculation. A record of a caller's own kind is asked
// each time.
class GroupPolicies {
 public:
  int Find(RoleGroup& group, std::vector<std::shared_ptr<RoleRole>>& policies) {
    if (typeid(group) != typeid(DelegationGroup)) return group.FindBelongPolicies(policies);
    const auto known = known_.find(group.getGid());
    if (known != known_.end()) {
      policies = known->second;
      return kFound;
    }
    const int found = group.FindBelongPolicies(policies);
    if (found != kError) known_.emplace(group.getGid(), policies);
    return found;
  }

 private:
  std::unordered_map<unsigned int, std::vector<std::shared_ptr<RoleRole>>> known_;
};

int FindHighest(RoleUser& user, GroupPolicies& groupPolicies, std::shared_ptr<RoleRole>& out) {
  std::vector<std::shared_ptr<RoleRole>> candidates;
  if (user.FindBelongPolicies(candidates) == kError) return kError;
  std::vector<std::shared_ptr<RoleGroup>> groups;
  if (user.FindBelongGroups(groups) == kError) return kError;
  for (const auto& group : groups) {
    std::vector<std::shared_ptr<RoleRole>> inherited;
    if (groupPolicies.Find(*group, inherited) == kError) return kError;
    candidates.insert(candidates.end(), inherited.begin(), inherited.end());
  }
  if (candidates.empty()) return kNothing;
  out = candidates.front();
  for (const auto& candidate : candidates) {
    if (out->getPriority() < candidate->getPriority()) out = candidate;  // on equal priority the earlier one stays
  }
  return kFound;
}

}  // namespace

int DelegationCalculator::FindHighestPriorityDelegation(RoleUser& user, std::shared_ptr<RoleRole>& out) {
  GroupPolicies groupPolicies;
  return FindHighest(user, groupPolicies, out);
}

bool DelegationCalculator::CalculateUser(std::vector<std::shared_ptr<RoleUser>>& users) {
  for (std::size_t i = 0; i < users.size(); ++i) {
    if (!users[i]->IsValid()) {
      return Fail("user[%lu] (%i, %s) is invalid", i, users[i]->getUid(), users[i]->getUsername());
    }
  }
  DelegationDefaultDelegation defaultDelegation;
  GroupPolicies groupPolicies;
  for (const auto& user : users) {
    std::shared_ptr<RoleRole> best;
    const int found = FindHighest(*user, groupPolicies, best);
    if (found == kError) return Fail("Cannot find the highest delegation");
    if (found == kNothing) {
      if (!defaultDelegation.AssignPolicyToUserReal(*user)) return Fail("default AssignDelegation to user fail");
    } else if (!best->AssignPolicyToUserReal(*user)) {
      return Fail("delegation assign delegation to user real fail");
    }
  }
  return true;
}

bool DelegationCalculator::CalculateUser(RoleUser& user) {
  std::vector<std::shared_ptr<RoleUser>> users{std::make_shared<DelegationUser>(user)};
  return CalculateUser(users);
}

bool DelegationCalculator::_GetAllGroupsUsers(std::vector<std::shared_ptr<RoleGroup>>& groups,
                                              std::vector<std::shared_ptr<RoleUser>>& users) {
  std::vector<std::shared_ptr<RoleUser>> all;
  for (const auto& group : groups) {
    std::vector<std::shared_ptr<RoleUser>> members;
    if (group->FindBelongUsers(members) == kError) return Fail("cannot find belong user");
    all.insert(all.end(), members.begin(), members.end());
  }
  return RoleUtilUniqueRoleUser(all, users) || Fail("Canoot unique delegation user");
}

bool DelegationCalculator::CalculateUserInGroup(std::vector<std::shared_ptr<RoleGroup>>& groups) {
  for (std::size_t i = 0; i < groups.size(); ++i) {
    if (!groups[i]->IsValid()) {
      return Fail("group[%lu] (%i, %s) is invalid", i, groups[i]->getGid(), groups[i]->getGroupname());
    }
  }
  std::vector<std::shared_ptr<RoleUser>> users;
  if (!_GetAllGroupsUsers(groups, users)) return Fail("_GetAllGroupsUsers fail");
  return CalculateUser(users) || Fail("Calculate User fail");
}

bool DelegationCalculator::CalculateUserInGroup(RoleGroup& group) {
  std::vector<std::shared_ptr<RoleGroup>> groups{std::make_shared<DelegationGroup>(group)};
  return CalculateUserInGroup(groups);
}

bool DelegationCalculator::_RefreshUsers() {
  std::vector<std::shared_ptr<RoleUser>> users;
  if (!DelegationUser::List(Json::nullValue, users)) return Fail("Delegation user List fail");
  for (std::size_t i = 0; i < users.size(); ++i) {
    if (!users[i]->Refresh()) {
      return Fail("user[%lu] (%i, %s) refresh fail", i, users[i]->getUid(), users[i]->getUsername());
    }
  }
  return true;
}

namespace {

// Refreshes group after group, writing only what changes. A refresh takes out all members and stores those that the
// host has, behind everything else; so a membership can stay where it is when it stands behind its user's memberships
// in the groups before. (Of equal priorities the one of the first membership counts.)
// Outside a transaction, where a failure leaves what was done before it, every group is refreshed step by step.
class GroupRefresher {
 public:
  GroupRefresher() {
    RoleDBHandler* pinned = nullptr;
    all_known_ = RoleDBScope::Pinned(pinned);
  }

  bool Refresh(DelegationGroup& group) {
    HostGroup hostGroup;
    HostMembers members;
    std::vector<std::shared_ptr<RoleUser>> leavers;
    std::vector<std::shared_ptr<RoleUser>> comers;
    // Where the members of a group that is not looked through come to stand is not known to the groups behind it
    // either.
    all_known_ = all_known_ && ReadHostGroup(group, hostGroup, members) && Compare(group, members, leavers, comers);
    return all_known_ ? group.ExchangeMembers(hostGroup->szName, leavers, comers) : group.Refresh();
  }

 private:
  // False when somebody's name has changed, or is not known.
  bool Compare(RoleGroup& group, const HostMembers& members, std::vector<std::shared_ptr<RoleUser>>& leavers,
               std::vector<std::shared_ptr<RoleUser>>& comers) {
    std::vector<DelegationGroupDBHandler::Membership> stored;
    if (!DelegationGroupDBHandler().ListMemberships(group, stored)) return false;
    std::vector<bool> settled(members.list.size());
    for (const auto& [row, uid, username] : stored) {
      const auto found = members.position.find(uid);
      const bool stays = found != members.position.end();
      if (username.empty() || (stays && members.list[found->second].name != username)) return false;
      if (!stays) leavers.push_back(std::make_shared<DelegationUser>(uid, username));
      if (!stays || row < last_row_[uid]) continue;
      last_row_[uid] = row;
      settled[found->second] = true;
    }
    for (std::size_t i = 0; i < settled.size(); ++i) {
      if (settled[i]) continue;
      const auto& [uid, name] = members.list[i];
      comers.push_back(std::make_shared<DelegationUser>(uid, name));
      last_row_[uid] = std::numeric_limits<long long>::max();
    }
    return true;
  }

  bool all_known_ = false;
  std::unordered_map<unsigned int, long long> last_row_;  // of each user's memberships in the groups so far
};

}  // namespace

bool DelegationCalculator::_RefreshGroups() {
  std::vector<std::shared_ptr<RoleGroup>> groups;
  if (!DelegationGroup::List(Json::nullValue, groups)) return Fail("Delegation groups List fail");
  GroupRefresher refresher;
  for (std::size_t i = 0; i < groups.size(); ++i) {
    if (!refresher.Refresh(static_cast<DelegationGroup&>(*groups[i]))) {
      return Fail("groups[%lu] (%i, %s) refresh fail", i, groups[i]->getGid(), groups[i]->getGroupname());
    }
  }
  return true;
}

bool DelegationCalculator::_RefreshDelegation() {
  std::vector<std::shared_ptr<RoleRole>> delegations;
  if (!DelegationCustomDelegation::List(Json::nullValue, delegations)) return Fail("Delegation List fail");
  std::vector<std::shared_ptr<RoleRoleEntry>> defaultEntries;
  if (!DelegationDefaultDelegationEntry::List(Json::nullValue, defaultEntries)) {
    return Fail("DelegationDefaultPoliyEntry list fail");
  }
  for (std::size_t i = 0; i < delegations.size(); ++i) {
    if (!delegations[i]->Refresh(defaultEntries)) {
      return Fail("delegation[%lu] (%i, %s) refresh fail", i, delegations[i]->getPolicyIdx(),
                  delegations[i]->getName());
    }
  }
  return true;
}

namespace {

// Whether so many of the stored records are gone from the host that it is rather the host that is not all there.
bool LooksLikeOutage(std::size_t gone, std::size_t stored, int limitPercent) {
  constexpr std::size_t kFewRecords = 10;
  return stored >= kFewRecords && gone * 100 > stored * static_cast<std::size_t>(limitPercent);
}

}  // namespace

void DelegationCalculator::Prefetch() {
  std::vector<std::shared_ptr<RoleUser>> users;
  if (DelegationUser::List(Json::nullValue, users)) {
    for (const auto& user : users) RoleUtilPrefetchUser(user->getUid());
  }
  std::vector<std::shared_ptr<RoleGroup>> groups;
  if (DelegationGroup::List(Json::nullValue, groups)) {
    for (const auto& group : groups) RoleUtilPrefetchGroup(group->getGid());
  }
}

bool DelegationCalculator::CheckVanished() {
  int limit = 0;
  if (!MailserverVanishLimit(limit)) {
    RoleDBScope::NoteEnvironmentFailure();
    return Fail("cannot get the vanish limit");
  }
  // A list that cannot be read fails the refresh before anything is deleted from it.
  std::vector<std::shared_ptr<RoleUser>> users;
  if (DelegationUser::List(Json::nullValue, users)) {
    HostUser account;
    const auto gone = static_cast<std::size_t>(std::count_if(users.begin(), users.end(), [&](const auto& user) {
      return FindHostUser(user->getUid(), account) == HostAnswer::kNotFound;
    }));
    if (LooksLikeOutage(gone, users.size(), limit)) {
      return Fail("%lu of %lu stored users are gone from the host: taken for an outage, nothing is refreshed", gone,
                  users.size());
    }
  }
  std::vector<std::shared_ptr<RoleGroup>> groups;
  if (DelegationGroup::List(Json::nullValue, groups)) {
    HostGroup hostGroup;
    const auto gone = static_cast<std::size_t>(std::count_if(groups.begin(), groups.end(), [&](const auto& group) {
      return FindHostGroup(group->getGid(), hostGroup) == HostAnswer::kNotFound;
    }));
    if (LooksLikeOutage(gone, groups.size(), limit)) {
      return Fail("%lu of %lu stored groups are gone from the host: taken for an outage, nothing is refreshed", gone,
                  groups.size());
    }
  }
  return true;
}

bool DelegationCalculator::Refresh() {
  const NIMBOAccountScope accounts(NIMBOAccountScope::kEnumerate);
  if (!CheckVanished()) return false;
  if (!_RefreshUsers()) return Fail("_RefreshUsers fail");
  if (!_RefreshGroups()) return Fail("_RefreshGroups fail");
  if (!_RefreshDelegation()) return Fail("_Refresh Delegation fail");
  std::vector<std::shared_ptr<RoleUser>> users;
  if (!DelegationUser::List(Json::nullValue, users)) return Fail("cannot list all users");
  return CalculateUser(users) || Fail("CalculateUser fail!!");
}

bool DelegationCalculator::RemoveUnsupported() { return DelegationDelegationDBHandler().RemoveUnsupportedReal(); }

bool DelegationCalculator::Trigger() {
  NIMBOMailNodeCluster cluster;
  std::string path;
  if (!GetUserGroupDelegationConfigPath(path)) return Fail("GetUserGroupDelegationConfigPath fail");
  return cluster.setFile("delegation_db", path, nullptr) || Fail("Fail to set file %s", path);
}

}  // namespace NIMBO::QUAYPOST_SERVER
