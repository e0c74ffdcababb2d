/// A host account in the delegation system.
///
///   DelegationUser user;
///   if (RoleUser::FromShortUsername("ann", user)) user.FindRealBelongPolicyEntries(entries);
#pragma once

#include "role/role_user.h"

namespace NIMBO::QUAYPOST_SERVER {

class MAILSERVER_EXPORT DelegationUser : public RoleUser {
 public:
  /// uid 4294967295 (not set), no name.
  DelegationUser();
  // NOLINTNEXTLINE(google-explicit-constructor): a copy of any user
  DelegationUser(RoleUser& other);
  DelegationUser(const DelegationUser& other) = default;
  DelegationUser& operator=(const DelegationUser& other) = default;
  DelegationUser(unsigned int uid, std::string username);

  std::string getUsername() override;
  void username(const std::string& value) override;
  unsigned int getUid() override;
  void uid(unsigned int value) override;
  /// Removes the user with everything that hangs on it.
  bool _RefreshNBOSUserNotExist() override;
  /// Stores the account's present name if it has changed.
  bool _RefreshNBOSUserExist(std::string name) override;
  std::shared_ptr<PolicyUserDBHandler> GetUserDBHandler() override;
  std::string GetUIDKey() override;
  std::string GetUsernameKey() override;
  std::shared_ptr<RoleUser> newUserInst(unsigned int uid, std::string name) override;

  /// The entries of the effective delegation: 0 found, -1 error, 1 there is none stored (the default delegation is in
  /// effect) and `entries` is untouched.
  int FindRealBelongPolicyEntries(std::vector<std::shared_ptr<RoleRoleEntry>>& entries);

  /// The types of those entries that are switched on (data "true"), in their order, without a record for each; appends.
  /// 0 the effective delegation was read, -1 error, 1 there is none stored.
  int FindEnabledTypes(std::vector<std::string>& types);

  /// Takes the user off its direct delegations, puts it under the default one, takes it out of its groups and deletes
  /// its row; stops at the first failure.
  static bool DeleteChain(RoleUser& user);
  /// Every stored user; the filter is ignored.
  static bool List(Json::Value filter, std::vector<std::shared_ptr<RoleUser>>& users);
};

}  // namespace NIMBO::QUAYPOST_SERVER
