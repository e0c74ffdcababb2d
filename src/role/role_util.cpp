// Names, account sources and lists of users.
#include "role/role_util.h"

#include <unordered_set>

#include "base/json.h"
#include "platform/mailserver.h"
#include "role/host_accounts.h"
#include "role/qualify.h"
#include "role/role_user.h"

namespace NIMBO::QUAYPOST_SERVER {

bool RoleUtilUniqueRoleUser(std::vector<std::shared_ptr<RoleUser>>& in, std::vector<std::shared_ptr<RoleUser>>& out) {
  std::unordered_set<unsigned int> seen;
  std::vector<std::shared_ptr<RoleUser>> unique;  // a list of its own: `in` and `out` may be the same
  for (const auto& user : in) {
    if (seen.insert(user->getUid()).second) unique.push_back(user);
  }
  out = std::move(unique);
  return true;
}

bool QualifyShortName(std::string& name) {
  if (name.empty() || HasNul(name)) return false;
  AUTH_TYPE type{};
  std::string domain;
  if (!RoleMailConfCurrentAuthTypeGet(type) || !RoleMailConfWinDomainShortNameGet(domain)) {
    RoleDBScope::NoteEnvironmentFailure();
    return false;
  }
  const bool qualified = name.find_first_of("\\@") != std::string::npos;
  if (type == AUTH_TYPE_WIN_DOMAIN && !domain.empty() && !qualified) name = domain + "\\" + name;
  return true;
}

bool RoleUtilShortName2FullRealName(bool qualify, const std::string& shortName, std::string& fullName) {
  std::string name = shortName;
  if (qualify ? !QualifyShortName(name) : name.empty() || HasNul(name)) return false;
  HostUser account;
  if (FindHostUser(name, account) != HostAnswer::kFound) return false;
  fullName = account->szName;
  return true;
}

bool RoleUtilUserGetFromFullUserName(std::string fullName, RoleUser& out) {
  HostUser account;
  if (HasNul(fullName) || FindHostUser(fullName, account) != HostAnswer::kFound) return false;
  out.uid(account->uid);
  out.username(account->szName);
  return true;
}

bool RoleMailConfCurrentAuthTypeGet(AUTH_TYPE& type) {
  int configured = 0;
  if (!MailserverAccountType(configured)) return false;
  type = static_cast<AUTH_TYPE>(configured);
  return true;
}

bool RoleMailConfWinDomainShortNameGet(std::string& name) { return MailserverDomainShortName(name); }

namespace {

void PrefetchMembers(const HostGroup& group) {
  HostNames names(NBLIBCSzListAlloc(0));
  if (!group || !names || ListHostMembers(group->szName, names) != HostAnswer::kFound) return;
  HostUser member;
  for (int i = 0; i < NBLIBCSzListCount(names.get()); ++i) FindHostUser(NBLIBCSzListGet(names.get(), i), member);
}

}  // namespace

void RoleUtilPrefetchUser(unsigned int uid) {
  HostUser account;
  FindHostUser(uid, account);
}

void RoleUtilPrefetchUser(const std::string& shortName) {
  std::string fullName;
  RoleUtilShortName2FullRealName(true, shortName, fullName);
}

void RoleUtilPrefetchGroup(unsigned int gid) {
  HostGroup group;
  FindHostGroup(gid, group);
  PrefetchMembers(group);
}

void RoleUtilPrefetchGroup(const std::string& name) {
  HostGroup group;
  if (HasNul(name)) return;
  FindHostGroup(name, group);
  PrefetchMembers(group);
}

}  // namespace NIMBO::QUAYPOST_SERVER
