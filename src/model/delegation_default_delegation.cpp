// The built-in delegation and who is under it.
#include "model/delegation_default_delegation.h"

#include <algorithm>
#include <map>

#include "base/log.h"
#include "handlers/delegation_db_delegation.h"
#include "model/delegation_default_delegation_entry.h"
#include "model/delegation_delegation.h"
#include "model/delegation_user.h"
#include "role/host_accounts.h"
#include "role/role_util.h"

namespace NIMBO::QUAYPOST_SERVER {

DelegationDefaultDelegation::DelegationDefaultDelegation() = default;

int DelegationDefaultDelegation::getPolicyIdx() { return -2; }
void DelegationDefaultDelegation::policyIdx(int) {}
std::string DelegationDefaultDelegation::getName() { return "__NIMBOLT_DEFAULT_DELEGATION__"; }
void DelegationDefaultDelegation::name(std::string) {}
std::string DelegationDefaultDelegation::getColor() { return "none"; }
void DelegationDefaultDelegation::color(std::string) {}
int DelegationDefaultDelegation::getPriority() { return 0; }
void DelegationDefaultDelegation::priority(int) {}
std::string DelegationDefaultDelegation::GetPolicyIdxKey() { return "id"; }
std::string DelegationDefaultDelegation::GetNameKey() { return "name"; }
std::string DelegationDefaultDelegation::GetColorKey() { return "color"; }
std::string DelegationDefaultDelegation::GetPriorityKey() { return "priority"; }

std::shared_ptr<PolicyPolicyDBHandler> DelegationDefaultDelegation::GetPolicyDBHandler() {
  return std::make_shared<DelegationDelegationDBHandler>();
}

bool DelegationDefaultDelegation::AssignPolicyToUserNormal(RoleUser& user) {
  std::vector<std::shared_ptr<RoleUser>> users{std::make_shared<DelegationUser>(user)};
  return AssignPolicyToUserNormal(users);
}

bool DelegationDefaultDelegation::AssignPolicyToUserNormal(std::vector<std::shared_ptr<RoleUser>>& users) {
  for (const auto& user : users) {
    std::vector<std::shared_ptr<RoleRole>> policies;
    const int found = user->FindBelongPolicies(policies);
    if (found == kError) {
      return Fail("Cannot find users [%i, %s] belong delegation", user->getUid(), user->getUsername());
    }
    if (found == kNothing) continue;
    const auto& first = policies.front();
    if (!first->UnassignPolicyToUserNormal(*user) || !first->UnassignPolicyToUserReal(*user)) {
      return Fail("Cannot unassign users [%i, %s]", user->getUid(), user->getUsername());
    }
  }
  return true;
}

bool DelegationDefaultDelegation::AssignPolicyToUserReal(RoleUser& user) {
  std::vector<std::shared_ptr<RoleUser>> users{std::make_shared<DelegationUser>(user)};
  return AssignPolicyToUserReal(users);
}

bool DelegationDefaultDelegation::AssignPolicyToUserReal(std::vector<std::shared_ptr<RoleUser>>& users) {
  return GetPolicyDBHandler()->UnassignPolicyToUserReal(*this, users) || Fail("cannot UnassignPolicyToUserReal");
}

int DelegationDefaultDelegation::FindBelongPolicyEntries(std::vector<std::shared_ptr<RoleRoleEntry>>& entries) {
  return DelegationDefaultDelegationEntry::List(Json::nullValue, entries) ? kFound : kError;
}

bool DelegationDefaultDelegation::List(Json::Value, std::vector<std::shared_ptr<RoleRole>>& out) {
  out = {std::make_shared<DelegationDefaultDelegation>()};
  return true;
}

namespace {

using Uids = std::map<unsigned int, bool>;

struct UserInfoEnumData {
  std::vector<std::shared_ptr<RoleUser>>* users;
  const Uids* covered;
};

int CollectUncovered(const NIMBOUSER* account, void* context) {
  constexpr int kNameBytes = 492;
  if (!context) return FailLookup("pUserInfoEnumData is null");
  const auto& data = *static_cast<UserInfoEnumData*>(context);
  if (!account || !data.users || !data.covered) {
    return FailLookup("pUser == NULL or pUserList == NULL or pUid2UserExistMap == NULL");
  }
  if (checkUnsupportedUser(account->szName)) return 0;

  unsigned int uid = account->uid;
  if (uid == 0xFFFFFFFF) {
    NIMBOUSER* found = nullptr;
    const int status = NIMBOUserGet(account->szName, &found);
    const HostUser resolved(found);
    if (status != NIMBO_OK) {
      LogError("Cannot get user %s", account->szName);
      return status;
    }
    uid = resolved->uid;
  }
  if (data.covered->contains(uid)) return 0;

  char realName[kNameBytes] = "";
  if (NBLIBUserRealNameGet(account->szName, realName, kNameBytes) != NIMBO_OK) {
    LogError("Convert to realname fail %s", account->szName);
    std::snprintf(realName, sizeof realName, "%s", account->szName);
  }
  data.users->push_back(std::make_shared<DelegationUser>(uid, realName));
  return 0;
}

bool sort_by_puid(const std::shared_ptr<RoleUser>& a, const std::shared_ptr<RoleUser>& b) {
  return a->getUid() < b->getUid();
}

}  // namespace

int DelegationDefaultDelegation::_FindBelongUsersImp(std::vector<std::shared_ptr<RoleUser>>& users, bool real) {
  std::vector<std::shared_ptr<RoleRole>> delegations;
  if (!DelegationCustomDelegation::List(Json::nullValue, delegations)) {
    return FailLookup("DelegationCustomDelegation::List fail....");
  }
  Uids covered;
  for (std::size_t i = 0; i < delegations.size(); ++i) {
    std::vector<std::shared_ptr<RoleUser>> members;
    if (real && delegations[i]->FindBelongUsersReal(members) == kError) {
      return FailLookup("pPolicies[%lu]->FindBelongUsers fail", i);
    }
    if (!real && delegations[i]->FindBelongUsersNormal(members) == kError) {
      return FailLookup("pPolicies[%lu]->FindBelongUsersNormal fail", i);
    }
    for (const auto& member : members) covered[member->getUid()] = true;
  }

  AUTH_TYPE type{};
  if (!RoleMailConfCurrentAuthTypeGet(type)) return FailLookup("Cannot get RoleMailConfCurrentAuthTypeGet");
  std::string shortName;
  if (!RoleMailConfWinDomainShortNameGet(shortName)) {
    return FailLookup("Get mailconf get fail MCK_SMTP_WIN_DOMAIN_SHORT_NAME");
  }

  std::vector<std::shared_ptr<RoleUser>> collected;
  UserInfoEnumData context{&collected, &covered};
  const char* domain = type == AUTH_TYPE_WIN_DOMAIN ? shortName.c_str() : nullptr;
  if (NBLIBUserInfoEnum(type, domain, 0, -1, CollectUncovered, &context) < 0) return kError;
  std::sort(collected.begin(), collected.end(), sort_by_puid);
  users = std::move(collected);
  return kFound;
}

}  // namespace NIMBO::QUAYPOST_SERVER
