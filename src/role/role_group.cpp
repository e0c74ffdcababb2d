// The framework's part of a group record.
#include "role/role_group.h"

#include "base/json.h"
#include "base/log.h"
#include "role/belongs.h"
#include "role/host_accounts.h"
#include "role/policy_db_handlers.h"

namespace NIMBO::QUAYPOST_SERVER {

namespace {
constexpr unsigned int kNoGid = 0xFFFFFFFF;
}

RoleGroup::RoleGroup() : gid_(kNoGid) {}
RoleGroup::RoleGroup(unsigned int gid, std::string groupname) : gid_(gid), groupname_(std::move(groupname)) {}
RoleGroup::~RoleGroup() = default;

bool RoleGroup::IsValid() { return getGid() != kNoGid && !getGroupname().empty(); }

int RoleGroup::FindBelongPolicies(std::vector<std::shared_ptr<RoleRole>>& policies) {
  return GetGroupDBHandler()->FindBelongPolicies(*this, policies);
}

int RoleGroup::FindBelongPolicyEntries(std::vector<std::shared_ptr<RoleRoleEntry>>& entries) {
  std::vector<std::shared_ptr<RoleRole>> policies;
  if (FindBelongPolicies(policies) == kError) return kError;
  return FindEntriesOf(policies, entries);
}

bool RoleGroup::IsExist() { return GetGroupDBHandler()->IsExist(*this); }

int RoleGroup::FindBelongUsers(std::vector<std::shared_ptr<RoleUser>>& users) {
  return GetGroupDBHandler()->FindBelongUsers(*this, users);
}

bool RoleGroup::Refresh() {
  HostGroup group;
  switch (FindHostGroup(getGid(), group)) {
    case HostAnswer::kFound:
      return _RefreshNBOSGroupExist(group->szName);
    case HostAnswer::kNotFound:
      return _RefreshNBOSGroupNotExist();
    default:
      return Fail("cannot look up group [%i, %s]", getGid(), getGroupname());
  }
}

bool RoleGroup::_CreateImp() {
  const auto handler = GetGroupDBHandler();
  RoleDBScope scope(handler->getRoleDBHandler(), RoleDBScope::kWrite);
  return handler->Create(*this) && handler->RemoveOldLinks(*this) && scope.Commit();
}

bool RoleGroup::FromTypeShortname(std::string type, std::string name, RoleGroup& out) {
  if (type != out.GetSystemTypeKey() || HasNul(name)) return false;
  HostGroup group;
  if (FindHostGroup(name, group) != HostAnswer::kFound) return false;
  std::string groupname = group->szName;
  out.gid(group->gid);
  out.groupname(groupname);
  return true;
}

bool RoleGroup::Create(RoleGroup& group) { return group._CreateImp(); }

bool RoleGroup::Update(RoleGroup& group) { return group.GetGroupDBHandler()->Update(group); }

bool RoleGroup::Delete(RoleGroup& group) { return group.GetGroupDBHandler()->Delete(group); }

bool RoleGroup::ToJson(RoleGroup& group, Json::Value& out) {
  out[group.GetGidKey()] = group.getGid();
  out[group.GetNameKey()] = group.getGroupname();
  out[group.GetTypeKey()] = group.GetSystemTypeKey();
  return true;
}

}  // namespace NIMBO::QUAYPOST_SERVER
