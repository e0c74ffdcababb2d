// The host's accounts, through the library's records where it takes names itself.
#include "admin/accounts.h"

#include "admin/error.h"
#include "model/delegation_group.h"
#include "model/delegation_user.h"
#include "platform/nimbsdk.h"
#include "role/role_util.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

namespace {

// Returns nothing for NIMBO_NOT_FOUND, and throws otherwise.
std::nullopt_t NothingIfNotFound(int status, const std::string& what) {
  if (status != NIMBO_NOT_FOUND) throw Error(Error::kAccounts, "the " + what + " could not be looked up");
  return std::nullopt;
}

// The library looks accounts up by name and says only yes or no; this says which no it was.
int UserStatus(std::string name) {
  AUTH_TYPE type{};
  std::string domain;
  if (!RoleMailConfCurrentAuthTypeGet(type) || !RoleMailConfWinDomainShortNameGet(domain)) return NIMBO_LOOKUP_FAILED;
  const bool qualified = name.find_first_of("\\@") != std::string::npos;
  if (type == AUTH_TYPE_WIN_DOMAIN && !domain.empty() && !qualified) name = domain + "\\" + name;
  NIMBOUSER* user = nullptr;
  const int status = NIMBOUserGet(name.c_str(), &user);
  NIMBOUserFree(user);
  return status;
}

int GroupStatus(const std::string& name) {
  NIMBOGROUP* group = nullptr;
  const int status = NIMBOGroupGet(name.c_str(), &group);
  NIMBOGroupFree(group);
  return status;
}

}  // namespace

std::optional<Account> UserNamed(const std::string& name) {
  if (name.empty()) return std::nullopt;
  DelegationUser user;
  if (RoleUser::FromShortUsername(name, user)) return Account{user.getUid(), user.getUsername()};
  return NothingIfNotFound(UserStatus(name), "user \"" + name + "\"");
}

std::optional<Account> GroupNamed(const std::string& name) {
  if (name.empty()) return std::nullopt;
  DelegationGroup group;
  if (RoleGroup::FromTypeShortname("group", name, group)) return Account{group.getGid(), group.getGroupname()};
  return NothingIfNotFound(GroupStatus(name), "group \"" + name + "\"");
}

std::optional<Account> UserWithId(unsigned int uid) {
  NIMBOUSER* user = nullptr;
  const int status = NIMBOUserGetByUID(uid, &user);
  if (status != NIMBO_OK) return NothingIfNotFound(status, "user with the uid " + std::to_string(uid));
  const Account account{user->uid, user->szName};
  NIMBOUserFree(user);
  return account;
}

std::optional<Account> GroupWithId(unsigned int gid) {
  NIMBOGROUP* group = nullptr;
  const int status = NIMBOGroupGetByGID(gid, &group);
  if (status != NIMBO_OK) return NothingIfNotFound(status, "group with the gid " + std::to_string(gid));
  const Account account{group->gid, group->szName};
  NIMBOGroupFree(group);
  return account;
}

}  // namespace NIMBO::QUAYPOST_SERVER::admin
