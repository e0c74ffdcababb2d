// A user's refresh, removal and effective entries.
#include "model/delegation_user.h"

#include "base/log.h"
#include "handlers/delegation_db_delegation.h"
#include "handlers/delegation_db_user.h"
#include "model/delegation_default_delegation.h"
#include "role/role_db_scope.h"
#include "role/role_group.h"
#include "storage/delegation_db_handler.h"

namespace NIMBO::QUAYPOST_SERVER {

DelegationUser::DelegationUser() = default;
DelegationUser::DelegationUser(RoleUser& other) : RoleUser(other.getUid(), other.getUsername()) {}
DelegationUser::DelegationUser(unsigned int uid, std::string username) : RoleUser(uid, std::move(username)) {}

std::string DelegationUser::getUsername() { return username_; }
void DelegationUser::username(const std::string& value) { username_ = value; }
unsigned int DelegationUser::getUid() { return uid_; }
void DelegationUser::uid(unsigned int value) { uid_ = value; }
std::string DelegationUser::GetUIDKey() { return "id"; }
std::string DelegationUser::GetUsernameKey() { return "name"; }

std::shared_ptr<PolicyUserDBHandler> DelegationUser::GetUserDBHandler() {
  return std::make_shared<DelegationUserDBHandler>();
}

std::shared_ptr<RoleUser> DelegationUser::newUserInst(unsigned int uid, std::string name) {
  return std::make_shared<DelegationUser>(uid, std::move(name));
}

bool DelegationUser::_RefreshNBOSUserExist(std::string name) {
  if (getUsername() == name) return true;
  const auto renamed = newUserInst(getUid(), name);
  return RoleUser::Update(*renamed) || Fail("Update fail [%i, %s]", renamed->getUid(), renamed->getUsername());
}

bool DelegationUser::_RefreshNBOSUserNotExist() { return DeleteChain(*this) || Fail("user delete chain fail"); }

bool DelegationUser::DeleteChain(RoleUser& user) {
  // Within an exported call the links go together with the row or not at all.
  RoleDBScope step(DelegationDBHandler::GetDelegationDBHandler(), RoleDBScope::kStep);

  std::vector<std::shared_ptr<RoleRole>> policies;
  DelegationDefaultDelegation defaultDelegation;
  if (user.FindBelongPolicies(policies) == kFound) {
    for (const auto& policy : policies) {
      if (!policy->UnassignPolicyToUserNormal(user)) {
        LogError("Delegation [%i, %s] cannot unassign user normal", policy->getPolicyIdx(), policy->getName());
        return Fail("user [%i, %s]", user.getUid(), user.getUsername());
      }
    }
  }

  if (!defaultDelegation.AssignPolicyToUserReal(user)) return Fail("Fail cannot assignDelegation user to default");

  std::vector<std::shared_ptr<RoleGroup>> groups;
  if (user.FindBelongGroups(groups) == kFound) {
    for (const auto& group : groups) {
      std::vector<std::shared_ptr<RoleUser>> alone{user.newUserInst(user.getUid(), user.getUsername())};
      if (!group->UnassignGroupToUser(alone)) return Fail("cannot unassign group to user");
    }
  }

  std::vector<std::shared_ptr<RoleUser>> alone{user.newUserInst(user.getUid(), user.getUsername())};
  if (!RoleUser::Delete(alone)) {
    return Fail("user [%i, %s] cannot delete!?!? why", user.getUid(), user.getUsername());
  }
  return step.Commit();
}

int DelegationUser::FindRealBelongPolicyEntries(std::vector<std::shared_ptr<RoleRoleEntry>>& entries) {
  std::vector<std::shared_ptr<RoleRole>> policies;
  const int found = DelegationUserDBHandler().FindRealBelongPolicies(*this, policies);
  if (found == kError) return FailLookup("Cannot find policyTemp");
  if (found == kNothing) return kNothing;
  entries.clear();
  return policies.front()->FindBelongPolicyEntries(entries);
}

int DelegationUser::FindEnabledTypes(std::vector<std::string>& types) {
  bool complete = true;
  const int found = DelegationUserDBHandler().VisitRealBelongPolicies(*this, [&](const auto& policy) {
    complete = complete && DelegationDelegationDBHandler().FindEnabledTypes(*policy, types);
  });
  if (found == kError) return FailLookup("Cannot find policyTemp");
  return complete ? found : kError;
}

bool DelegationUser::List(Json::Value filter, std::vector<std::shared_ptr<RoleUser>>& users) {
  return DelegationUserDBHandler().List(filter, users) || Fail("List fail");
}

}  // namespace NIMBO::QUAYPOST_SERVER
