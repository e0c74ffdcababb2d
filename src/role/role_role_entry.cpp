// The framework's part of role entries.
#include "role/role_role_entry.h"

#include "role/belongs.h"
#include "role/policy_db_handlers.h"
#include "role/role_db_scope.h"
#include "role/role_util.h"

namespace NIMBO::QUAYPOST_SERVER {

RoleRoleEntry::RoleRoleEntry() = default;
RoleRoleEntry::RoleRoleEntry(int idx, std::string type, std::string data)
    : policyEntryIdx_(idx), type_(std::move(type)), data_(std::move(data)) {}
RoleRoleEntry::~RoleRoleEntry() = default;

bool RoleRoleEntry::_DeleteImp() { return GetPolicyEntryDBHandler()->Delete(*this); }

bool RoleRoleEntry::_CreateImp() {
  const auto handler = GetPolicyEntryDBHandler();
  RoleDBScope scope(handler->getRoleDBHandler(), RoleDBScope::kWrite);
  if (!handler->Create(*this)) return false;
  if (handler->RemoveOldLinks(*this) && scope.Commit()) return true;
  policyEntryIdx(-1);
  return false;
}

bool RoleRoleEntry::_UpdateImp() { return GetPolicyEntryDBHandler()->Update(*this); }

bool RoleRoleEntry::IsExist() { return GetPolicyEntryDBHandler()->IsExist(*this); }

int RoleRoleEntry::FindBelongPolicies(std::vector<std::shared_ptr<RoleRole>>& policies) {
  return FoundIn(policies, GetPolicyEntryDBHandler()->FindBelongPolicies(*this, policies));
}

int RoleRoleEntry::FindBelongUsers(std::vector<std::shared_ptr<RoleUser>>& users) {
  std::vector<std::shared_ptr<RoleRole>> policies;
  if (FindBelongPolicies(policies) == kError) return kError;
  std::vector<std::shared_ptr<RoleUser>> all;
  for (const auto& policy : policies) {
    std::vector<std::shared_ptr<RoleUser>> own;
    if (policy->FindBelongUsersNormal(own) == kError) return kError;
    all.insert(all.end(), own.begin(), own.end());
  }
  return FoundIn(users, RoleUtilUniqueRoleUser(all, users));
}

bool RoleRoleEntry::Delete(std::vector<std::shared_ptr<RoleRoleEntry>>& entries) {
  return entries.empty() || entries.front()->GetPolicyEntryDBHandler()->Delete(entries);
}

RoleCustomEntry::~RoleCustomEntry() = default;

bool RoleCustomEntry::IsValid() { return getPolicyEntryIdx() > 0 && !getType().empty(); }

bool RoleCustomEntry::CreateIfNotFound(RoleRoleEntry& entry) { return entry._CreateIfNotFoundImp(); }

RoleDefaultEntry::~RoleDefaultEntry() = default;

bool RoleDefaultEntry::_DeleteImp() { return false; }
bool RoleDefaultEntry::_CreateImp() { return false; }
bool RoleDefaultEntry::_CreateIfNotFoundImp() { return false; }
bool RoleDefaultEntry::_UpdateImp() { return false; }
bool RoleDefaultEntry::IsValid() { return true; }
bool RoleDefaultEntry::IsExist() { return GetPolicyEntryDBHandler()->IsExist(*this); }

}  // namespace NIMBO::QUAYPOST_SERVER
