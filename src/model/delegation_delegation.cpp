// A stored delegation: its users, groups and entries.
#include "model/delegation_delegation.h"

#include <map>
#include <optional>
#include <typeinfo>

#include "base/log.h"
#include "handlers/delegation_db_delegation.h"
#include "model/delegation_default_delegation_entry.h"
#include "model/delegation_delegation_entry.h"
#include "model/delegation_user.h"
#include "role/role_db_scope.h"
#include "storage/delegation_db_handler.h"

namespace NIMBO::QUAYPOST_SERVER {

DelegationCustomDelegation::DelegationCustomDelegation() = default;

DelegationCustomDelegation::DelegationCustomDelegation(int idx, std::string name, std::string color, int priority) {
  policyIdx_ = idx;
  name_ = std::move(name);
  color_ = std::move(color);
  priority_ = priority;
}

int DelegationCustomDelegation::getPolicyIdx() { return policyIdx_; }
void DelegationCustomDelegation::policyIdx(int value) { policyIdx_ = value; }
std::string DelegationCustomDelegation::getName() { return name_; }
void DelegationCustomDelegation::name(std::string value) { name_ = std::move(value); }
std::string DelegationCustomDelegation::getColor() { return color_; }
void DelegationCustomDelegation::color(std::string value) { color_ = std::move(value); }
int DelegationCustomDelegation::getPriority() { return priority_; }
void DelegationCustomDelegation::priority(int value) { priority_ = value; }
std::string DelegationCustomDelegation::GetPolicyIdxKey() { return "id"; }
std::string DelegationCustomDelegation::GetNameKey() { return "name"; }
std::string DelegationCustomDelegation::GetColorKey() { return "color"; }
std::string DelegationCustomDelegation::GetPriorityKey() { return "priority"; }

std::shared_ptr<PolicyPolicyDBHandler> DelegationCustomDelegation::GetPolicyDBHandler() {
  return std::make_shared<DelegationDelegationDBHandler>();
}

namespace {

std::vector<std::shared_ptr<RoleUser>> OneUser(RoleUser& user) { return {std::make_shared<DelegationUser>(user)}; }

}  // namespace

// ---- Users ----

bool DelegationCustomDelegation::AssignPolicyToUserNormal(RoleUser& user) {
  auto users = OneUser(user);
  return AssignPolicyToUserNormal(users);
}

bool DelegationCustomDelegation::AssignPolicyToUserNormal(std::vector<std::shared_ptr<RoleUser>>& users) {
  for (const auto& user : users) {
    if (!user->IsExist() && !RoleUser::Create(*user)) {
      return Fail("user cannot create %i %s", user->getUid(), user->getUsername());
    }
  }
  return GetPolicyDBHandler()->AssignPolicyToUserNormal(*this, users) || Fail("cannot assign delegation to user");
}

bool DelegationCustomDelegation::UnassignPolicyToUserNormal(RoleUser& user) {
  auto users = OneUser(user);
  return UnassignPolicyToUserNormal(users);
}

bool DelegationCustomDelegation::UnassignPolicyToUserNormal(std::vector<std::shared_ptr<RoleUser>>& users) {
  if (users.empty()) return true;
  if (!GetPolicyDBHandler()->UnassignPolicyToUserNormal(*this, users)) {
    return Fail("Delegation Unassign user normal fail");
  }
  std::vector<std::shared_ptr<RoleUser>> orphans;
  if (!users.front()->GetUserDBHandler()->GetNeedRemoveUser(users, orphans)) return Fail("GetNeedRemoveUser fail");
  return orphans.empty() || RoleUser::Delete(orphans) || Fail("DelegationUser::Delete fail");
}

bool DelegationCustomDelegation::AssignPolicyToUserReal(RoleUser& user) {
  auto users = OneUser(user);
  return AssignPolicyToUserReal(users);
}

bool DelegationCustomDelegation::AssignPolicyToUserReal(std::vector<std::shared_ptr<RoleUser>>& users) {
  for (const auto& user : users) {
    if (!user->IsExist()) return Fail("user doens't in database");
  }
  return GetPolicyDBHandler()->AssignPolicyToUserReal(*this, users) || Fail("cannot AssignPolicyToUserReal");
}

bool DelegationCustomDelegation::UnassignPolicyToUserReal(RoleUser& user) {
  auto users = OneUser(user);
  return UnassignPolicyToUserReal(users);
}

bool DelegationCustomDelegation::UnassignPolicyToUserReal(std::vector<std::shared_ptr<RoleUser>>& users) {
  return GetPolicyDBHandler()->UnassignPolicyToUserReal(*this, users) || Fail("cannot AssignPolicyToUserReal");
}

// ---- Groups ----

bool DelegationCustomDelegation::UnassignPolicyToGroup(std::vector<std::shared_ptr<RoleGroup>>& groups) {
  return groups.empty() || GetPolicyDBHandler()->UnassignPolicyToGroup(*this, groups) ||
         Fail("Delegation Unassign group fail");
}

bool DelegationCustomDelegation::UnassignPolicyToGroup(RoleGroup& group) {
  return GetPolicyDBHandler()->UnassignPolicyToGroup(*this, group) || Fail("Delegation Unassign group fail");
}

// ---- Entries ----

bool DelegationCustomDelegation::SetPolicyEntry(std::vector<std::shared_ptr<RoleRoleEntry>>& entries) {
  // The stored entries are listed once, unless entries of a caller's own kind come between.
  std::optional<DelegationDelegationEntry::Indexes> stored;
  const auto createIfNotFound = [&stored](RoleRoleEntry& entry) {
    if (typeid(entry) != typeid(DelegationDelegationEntry)) {
      stored.reset();
      return RoleCustomEntry::CreateIfNotFound(entry);
    }
    if (!stored && !DelegationDelegationEntry::ListIndexes(stored.emplace())) return false;
    return static_cast<DelegationDelegationEntry&>(entry).CreateIfNotFoundAmong(*stored);
  };
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (!createIfNotFound(*entries[i])) return Fail("CreateIfNotFound %lu fail", i);
  }
  return GetPolicyDBHandler()->AssignPolicyEntryToPolicy(*this, entries) ||
         Fail("cannot assign delegation to delegation entry");
}

bool DelegationCustomDelegation::_UnassignPolicyToPolicyEntries(std::vector<std::shared_ptr<RoleRoleEntry>>& entries) {
  if (entries.empty()) return true;
  if (!GetPolicyDBHandler()->UnassignPolicyToPolicyEntries(*this, entries)) return Fail("DeleteDelegationChain fail");
  std::vector<std::shared_ptr<RoleRoleEntry>> orphans;
  if (!entries.front()->GetPolicyEntryDBHandler()->GetNeedRemovePolicyEntries(entries, orphans)) {
    return Fail("GetNeedRemovePolicyEntries fail");
  }
  return orphans.empty() || RoleRoleEntry::Delete(orphans) || Fail("DelegationUser::Delete fail");
}

bool DelegationCustomDelegation::Refresh(std::vector<std::shared_ptr<RoleRoleEntry>>& defaults) {
  std::vector<std::shared_ptr<RoleRoleEntry>> current;
  if (FindBelongPolicyEntries(current) == kError) return Fail("FindBelongPolicyEntries fail");

  using Positions = std::map<std::string, std::size_t>;  // the first position of each type
  const auto positionsOf = [](const std::vector<std::shared_ptr<RoleRoleEntry>>& entries) {
    Positions positions;
    for (std::size_t i = 0; i < entries.size(); ++i) positions.emplace(entries[i]->getType(), i);
    return positions;
  };
  const Positions present = positionsOf(current);
  const Positions expected = positionsOf(defaults);

  std::vector<std::shared_ptr<RoleRoleEntry>> wanted;
  bool changed = false;
  for (const auto& [type, position] : present) {
    if (expected.contains(type)) {
      wanted.push_back(current[position]);
    } else {
      changed = true;
    }
  }
  for (const auto& [type, position] : expected) {
    if (present.contains(type)) continue;
    wanted.push_back(std::make_shared<DelegationDelegationEntry>(-1, type, defaults[position]->getData()));
    changed = true;
  }
  if (!changed) return true;

  // Within an exported call the set is exchanged in one step: if the new one cannot be stored, the old one stays.
  RoleDBScope step(DelegationDBHandler::GetDelegationDBHandler(), RoleDBScope::kStep);
  if (!_UnassignPolicyToPolicyEntries(current)) return Fail("Unassign Delegation entry fail");
  if (!SetPolicyEntry(wanted)) return Fail("SetPolicyEntry fail!");
  return step.Commit();
}

bool DelegationCustomDelegation::Refresh() {
  std::vector<std::shared_ptr<RoleRoleEntry>> defaults;
  if (!DelegationDefaultDelegationEntry::List(Json::nullValue, defaults)) {
    return Fail("cannot list DelegationDefaultDelegationEntry");
  }
  return Refresh(defaults) || Fail("cannot refresh delegation entry");
}

// ---- Lists ----

bool DelegationCustomDelegation::List(Json::Value filter, std::vector<std::shared_ptr<RoleRole>>& out) {
  return DelegationDelegationDBHandler().List(filter, out) || Fail("DelegationDelegation List is fail");
}

bool DelegationCustomDelegation::FromID(int idx, std::shared_ptr<RoleRole>& out) {
  std::vector<std::shared_ptr<RoleRole>> delegations;
  if (!List(Json::nullValue, delegations)) return Fail("cannot list delegation custom delegation");
  for (const auto& delegation : delegations) {
    if (delegation->getPolicyIdx() != idx) continue;
    out = delegation;
    return true;
  }
  return false;
}

}  // namespace NIMBO::QUAYPOST_SERVER
