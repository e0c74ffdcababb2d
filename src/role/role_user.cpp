// The framework's part of a user record.
#include "role/role_user.h"

#include "base/json.h"
#include "base/log.h"
#include "role/belongs.h"
#include "role/host_accounts.h"
#include "role/policy_db_handlers.h"
#include "role/qualify.h"
#include "role/role_util.h"

namespace NIMBO::QUAYPOST_SERVER {

namespace {
constexpr unsigned int kNoUid = 0xFFFFFFFF;
}

RoleUser::RoleUser() : uid_(kNoUid) {}
RoleUser::RoleUser(unsigned int uid, std::string username) : uid_(uid), username_(std::move(username)) {}
RoleUser::~RoleUser() = default;

bool RoleUser::IsValid() { return getUid() != kNoUid && !getUsername().empty(); }

bool RoleUser::IsExist() { return GetUserDBHandler()->IsExist(*this); }

bool RoleUser::Refresh() {
  HostUser account;
  switch (FindHostUser(getUid(), account)) {
    case HostAnswer::kFound:
      return _RefreshNBOSUserExist(account->szName);
    case HostAnswer::kNotFound:
      return _RefreshNBOSUserNotExist();
    default:
      return Fail("cannot look up the account of user [%i, %s]", getUid(), getUsername());
  }
}

int RoleUser::FindBelongPolicies(std::vector<std::shared_ptr<RoleRole>>& policies) {
  return GetUserDBHandler()->FindBelongPolicies(*this, policies);
}

int RoleUser::FindBelongGroups(std::vector<std::shared_ptr<RoleGroup>>& groups) {
  return GetUserDBHandler()->FindBelongGroups(*this, groups);
}

int RoleUser::FindBelongPolicyEntries(std::vector<std::shared_ptr<RoleRoleEntry>>& entries) {
  std::vector<std::shared_ptr<RoleRole>> policies;
  if (FindBelongPolicies(policies) == kError) return kError;
  return FindEntriesOf(policies, entries);
}

bool RoleUser::FromID(unsigned int uid, RoleUser& out) {
  HostUser account;
  if (FindHostUser(uid, account) != HostAnswer::kFound) return false;
  out.uid(account->uid);
  out.username(account->szName);
  return true;
}

bool RoleUser::FromShortUsername(std::string name, RoleUser& out) {
  return QualifyShortName(name) && RoleUtilUserGetFromFullUserName(name, out);
}

bool RoleUser::Create(RoleUser& user) {
  const auto handler = user.GetUserDBHandler();
  RoleDBScope scope(handler->getRoleDBHandler(), RoleDBScope::kWrite);
  return handler->Create(user) && handler->RemoveOldLinks(user) && scope.Commit();
}

bool RoleUser::Update(RoleUser& user) { return user.GetUserDBHandler()->Update(user); }

bool RoleUser::Delete(std::vector<std::shared_ptr<RoleUser>>& users) {
  return users.empty() || users.front()->GetUserDBHandler()->Delete(users);
}

bool RoleUser::ToJson(RoleUser& user, Json::Value& out) {
  out[user.GetUIDKey()] = user.getUid();
  out[user.GetUsernameKey()] = user.getUsername();
  return true;
}

}  // namespace NIMBO::QUAYPOST_SERVER
