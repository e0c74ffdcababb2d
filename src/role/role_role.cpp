// The framework's part of role records: documents, creation, and what stored roles and the built-in one share.
#include "role/role_role.h"

#include "base/json.h"
#include "base/log.h"
#include "role/belongs.h"
#include "role/policy_db_handlers.h"
#include "role/role_db_scope.h"

namespace NIMBO::QUAYPOST_SERVER {

RoleRole::~RoleRole() = default;

bool RoleRole::Create(RoleRole& role) { return !role.getName().empty() && role._CreateImp(); }

bool RoleRole::Update(RoleRole& role) { return role.IsValid() && role._UpdateImp(); }

bool RoleRole::DeleteChain(std::vector<std::shared_ptr<RoleRole>>& roles) {
  for (const auto& role : roles) {
    if (!role->_DeleteChainImp()) return false;
  }
  return true;
}

bool RoleRole::ToJson(RoleRole& role, Json::Value& out) {
  out[role.GetPolicyIdxKey()] = role.getPolicyIdx();
  out[role.GetNameKey()] = role.getName();
  out[role.GetColorKey()] = role.getColor();
  out[role.GetPriorityKey()] = role.getPriority();
  return true;
}

bool RoleRole::FromJson(Json::Value& in, RoleRole& out) {
  const Json::Value& document = in;
  if (!document.isObject()) return false;
  std::string name;
  std::string color;
  int priority = 0;
  int idx = -1;
  if (!ReadString(document[out.GetNameKey()], name) || name.empty()) return false;
  if (!ReadString(document[out.GetColorKey()], color)) return false;
  if (!ReadInt(document[out.GetPriorityKey()], priority)) return false;
  if (HasMember(document, out.GetPolicyIdxKey()) && !ReadInt(document[out.GetPolicyIdxKey()], idx)) return false;
  out.policyIdx(idx);
  out.name(name);
  out.color(color);
  out.priority(priority);
  return true;
}

RoleCustomRole::~RoleCustomRole() = default;

bool RoleCustomRole::_CreateImp() {
  const auto handler = GetPolicyDBHandler();
  RoleDBScope scope(handler->getRoleDBHandler(), RoleDBScope::kWrite);
  if (!handler->Create(*this)) return false;
  if (handler->RemoveOldLinks(*this) && scope.Commit()) return true;
  policyIdx(-1);
  return false;
}

bool RoleCustomRole::_UpdateImp() { return GetPolicyDBHandler()->Update(*this); }

bool RoleCustomRole::_DeleteImp() { return GetPolicyDBHandler()->Delete(*this); }

bool RoleCustomRole::_DeleteChainImp() {
  std::vector<std::shared_ptr<RoleUser>> users;
  if (FindBelongUsersReal(users) == kError || !UnassignPolicyToUserReal(users)) return false;
  users.clear();
  if (FindBelongUsersNormal(users) == kError || !UnassignPolicyToUserNormal(users)) return false;
  std::vector<std::shared_ptr<RoleGroup>> groups;
  if (FindBelongGroups(groups) == kError || !UnassignPolicyToGroup(groups)) return false;
  std::vector<std::shared_ptr<RoleRoleEntry>> entries;
  if (FindBelongPolicyEntries(entries) == kError || !_UnassignPolicyToPolicyEntries(entries)) return false;
  return GetPolicyDBHandler()->RemoveOldLinks(*this) && _DeleteImp();
}

bool RoleCustomRole::IsValid() { return getPolicyIdx() > 0 && !getName().empty(); }

bool RoleCustomRole::IsExist() { return GetPolicyDBHandler()->IsExist(*this); }

bool RoleCustomRole::AssignPolicyToGroup(std::vector<std::shared_ptr<RoleGroup>>& groups) {
  return GetPolicyDBHandler()->AssignPolicyToGroup(*this, groups);
}

bool RoleCustomRole::AssignPolicyToGroup(RoleGroup& group) {
  return GetPolicyDBHandler()->AssignPolicyToGroup(*this, group);
}

int RoleCustomRole::FindBelongUsersNormal(std::vector<std::shared_ptr<RoleUser>>& users) {
  return FoundIn(users, GetPolicyDBHandler()->FindBelongUsersNormal(*this, users));
}

int RoleCustomRole::FindBelongUsersReal(std::vector<std::shared_ptr<RoleUser>>& users) {
  return FoundIn(users, GetPolicyDBHandler()->FindBelongUsersReal(*this, users));
}

int RoleCustomRole::FindBelongGroups(std::vector<std::shared_ptr<RoleGroup>>& groups) {
  return FoundIn(groups, GetPolicyDBHandler()->FindBelongGroups(*this, groups));
}

int RoleCustomRole::FindBelongPolicyEntries(std::vector<std::shared_ptr<RoleRoleEntry>>& entries) {
  return FoundIn(entries, GetPolicyDBHandler()->FindBelongPolicyEntries(*this, entries));
}

RoleDefaultRole::~RoleDefaultRole() = default;

bool RoleDefaultRole::_CreateImp() { return false; }
bool RoleDefaultRole::_UpdateImp() { return false; }
bool RoleDefaultRole::_DeleteImp() { return false; }
bool RoleDefaultRole::_DeleteChainImp() { return false; }
bool RoleDefaultRole::_UnassignPolicyToPolicyEntries(std::vector<std::shared_ptr<RoleRoleEntry>>&) { return false; }
bool RoleDefaultRole::IsValid() { return true; }
bool RoleDefaultRole::IsExist() { return GetPolicyDBHandler()->IsExist(*this); }
bool RoleDefaultRole::UnassignPolicyToUserNormal(RoleUser&) { return false; }
bool RoleDefaultRole::UnassignPolicyToUserNormal(std::vector<std::shared_ptr<RoleUser>>&) { return false; }
bool RoleDefaultRole::UnassignPolicyToUserReal(RoleUser&) { return false; }
bool RoleDefaultRole::UnassignPolicyToUserReal(std::vector<std::shared_ptr<RoleUser>>&) { return false; }
bool RoleDefaultRole::AssignPolicyToGroup(std::vector<std::shared_ptr<RoleGroup>>&) { return false; }
bool RoleDefaultRole::AssignPolicyToGroup(RoleGroup&) { return false; }
bool RoleDefaultRole::UnassignPolicyToGroup(std::vector<std::shared_ptr<RoleGroup>>&) { return false; }
bool RoleDefaultRole::UnassignPolicyToGroup(RoleGroup&) { return false; }
bool RoleDefaultRole::SetPolicyEntry(std::vector<std::shared_ptr<RoleRoleEntry>>&) { return false; }

int RoleDefaultRole::FindBelongUsersNormal(std::vector<std::shared_ptr<RoleUser>>& users) {
  return _FindBelongUsersImp(users, false);
}

int RoleDefaultRole::FindBelongUsersReal(std::vector<std::shared_ptr<RoleUser>>& users) {
  return _FindBelongUsersImp(users, true);
}

int RoleDefaultRole::FindBelongGroups(std::vector<std::shared_ptr<RoleGroup>>&) { return kNothing; }
bool RoleDefaultRole::Refresh(std::vector<std::shared_ptr<RoleRoleEntry>>&) { return true; }
bool RoleDefaultRole::Refresh() { return true; }

}  // namespace NIMBO::QUAYPOST_SERVER
