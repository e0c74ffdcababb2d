// Keeps a group's stored members in step with the host group.
#include "model/delegation_group.h"

#include "base/log.h"
#include "handlers/delegation_db_group.h"
#include "handlers/delegation_db_user.h"
#include "model/delegation_user.h"
#include "role/host_accounts.h"
#include "role/role_role.h"
#include "role/role_util.h"
#include "storage/delegation_db_handler.h"

namespace NIMBO::QUAYPOST_SERVER {

DelegationGroup::DelegationGroup() = default;
DelegationGroup::DelegationGroup(RoleGroup& other) : RoleGroup(other.getGid(), other.getGroupname()) {}
DelegationGroup::DelegationGroup(unsigned int gid, std::string groupname) : RoleGroup(gid, std::move(groupname)) {}

unsigned int DelegationGroup::getGid() { return gid_; }
void DelegationGroup::gid(unsigned int value) { gid_ = value; }
std::string DelegationGroup::getGroupname() { return groupname_; }
void DelegationGroup::groupname(std::string& value) { groupname_ = value; }
std::string DelegationGroup::GetGidKey() { return "id"; }
std::string DelegationGroup::GetNameKey() { return "name"; }
std::string DelegationGroup::GetTypeKey() { return "type"; }
std::string DelegationGroup::GetSystemTypeKey() { return "group"; }

std::shared_ptr<PolicyGroupDBHandler> DelegationGroup::GetGroupDBHandler() {
  return std::make_shared<DelegationGroupDBHandler>();
}

bool DelegationGroup::FindNBOSUserTo(std::vector<std::shared_ptr<RoleUser>>& users) {
  constexpr int kInitialNames = 1024;
  HostNames names(NBLIBCSzListAlloc(kInitialNames));
  if (!names) {
    RoleDBScope::NoteEnvironmentFailure();
    return Fail("Out of memory");
  }
  HostGroup group;
  if (FindHostGroup(getGid(), group) != HostAnswer::kFound) return Fail("cannot get NIMBOGroupGetLocalByGID");
  if (ListHostMembers(group->szName, names) != HostAnswer::kFound) {
    return Fail("Cannot get NIMBOGroupListMember %s", group->szName);
  }
  for (int i = 0; i < NBLIBCSzListCount(names.get()); ++i) {
    const char* name = NBLIBCSzListGet(names.get(), i);
    DelegationUser member;
    if (!RoleUtilUserGetFromFullUserName(name, member)) return Fail("RoleUtilUserGetFromFullUserName %s fail", name);
    users.push_back(std::make_shared<DelegationUser>(member.getUid(), member.getUsername()));
  }
  return true;
}

bool DelegationGroup::AssignGroupToUser(std::vector<std::shared_ptr<RoleUser>>&) {
  if (!IsExist()) return Fail("group not in db");
  std::vector<std::shared_ptr<RoleUser>> members;
  if (!FindNBOSUserTo(members)) return Fail("Find NBOS user to user is fail");
  return StoreMembers(members);
}

bool DelegationGroup::StoreMembers(std::vector<std::shared_ptr<RoleUser>>& members) {
  for (const auto& member : members) {
    if (member->IsExist()) continue;
    DelegationUser user(member->getUid(), member->getUsername());
    if (!RoleUser::Create(user)) {
      return Fail("Delegation user (%i %s) cannot create", user.getUid(), user.getUsername());
    }
  }
  return GetGroupDBHandler()->AssignGroupToUser(*this, members) || Fail("cannot assign group to user");
}

bool DelegationGroup::UnassignGroupToUser(std::vector<std::shared_ptr<RoleUser>>& users) {
  users.clear();
  if (FindBelongUsers(users) == kError) return Fail("Fail to find belong user");
  return RemoveMembers(users);
}

bool DelegationGroup::RemoveMembers(std::vector<std::shared_ptr<RoleUser>>& members) {
  if (!GetGroupDBHandler()->UnassignGroupToUser(*this, members)) return Fail("cannot assign group to user");
  std::vector<std::shared_ptr<RoleUser>> removable;
  if (!DelegationUserDBHandler().GetNeedRemoveUser(members, removable)) return Fail("GetNeedRemoveUser fail");
  return RoleUser::Delete(removable) || Fail("DelegationUser::Delete fail");
}

bool DelegationGroup::_RefreshNBOSGroupExist(std::string name) {
  DelegationGroup current(getGid(), name);
  if (!RoleGroup::Update(current)) return Fail("Update fail [%i, %s]", getGid(), name);

  // Within an exported call the members are exchanged in one step: if the new ones cannot be stored, the old ones stay.
  RoleDBScope step(DelegationDBHandler::GetDelegationDBHandler(), RoleDBScope::kStep);
  std::vector<std::shared_ptr<RoleUser>> unused;
  if (!UnassignGroupToUser(unused)) {
    return Fail("Unassign group to user fail [%i, %s]", getGid(), getGroupname());
  }
  unused.clear();
  if (!AssignGroupToUser(unused)) return Fail("Assign group to user fail [%i, %s]", getGid(), getGroupname());
  return step.Commit();
}

bool DelegationGroup::ExchangeMembers(std::string name, std::vector<std::shared_ptr<RoleUser>>& leavers,
                                      std::vector<std::shared_ptr<RoleUser>>& comers) {
  DelegationGroup current(getGid(), name);
  if (getGroupname() != name && !RoleGroup::Update(current)) return Fail("Update fail [%i, %s]", getGid(), name);
  RoleDBScope step(DelegationDBHandler::GetDelegationDBHandler(), RoleDBScope::kStep);
  if (!leavers.empty() && !RemoveMembers(leavers)) {
    return Fail("Unassign group to user fail [%i, %s]", getGid(), getGroupname());
  }
  if (!comers.empty() && !StoreMembers(comers)) {
    return Fail("Assign group to user fail [%i, %s]", getGid(), getGroupname());
  }
  return step.Commit();
}

bool DelegationGroup::_RefreshNBOSGroupNotExist() {
  return DeleteChain(*this) || Fail("group [%i, %s] cannot delete!?!? why", getGid(), getGroupname());
}

bool DelegationGroup::DeleteChain(RoleGroup& group) {
  // Within an exported call the links go together with the row or not at all.
  RoleDBScope step(DelegationDBHandler::GetDelegationDBHandler(), RoleDBScope::kStep);

  std::vector<std::shared_ptr<RoleRole>> policies;
  if (group.FindBelongPolicies(policies) == kFound) {
    const auto& highest = policies.front();
    if (!highest->UnassignPolicyToGroup(group)) {
      LogError("Delegation [%i, %s] cannot unassign user", highest->getPolicyIdx(), highest->getName());
      return Fail("group cannot unassign delegation [%i, %s]", group.getGid(), group.getGroupname());
    }
  }
  std::vector<std::shared_ptr<RoleUser>> users;
  if (group.FindBelongUsers(users) != kError && !group.UnassignGroupToUser(users)) {
    return Fail("Cannot unassign the group %i %s", group.getGid(), group.getGroupname());
  }
  if (!RoleGroup::Delete(group)) return Fail("Cannot delete delegation group");
  return step.Commit();
}

bool DelegationGroup::DeleteChain(std::vector<std::shared_ptr<RoleGroup>>& groups) {
  for (const auto& group : groups) {
    if (!DeleteChain(*group)) return Fail("Delete chain fail.. [%i, %s]", group->getGid(), group->getGroupname());
  }
  return true;
}

bool DelegationGroup::List(Json::Value filter, std::vector<std::shared_ptr<RoleGroup>>& groups) {
  return DelegationGroupDBHandler().List(filter, groups);
}

}  // namespace NIMBO::QUAYPOST_SERVER
