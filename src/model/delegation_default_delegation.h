/// The built-in delegation that everybody is under who has no other. It is never stored: its identity is fixed, its
/// entries are the default entries, its members are computed from the host's accounts, and a user is under it exactly
/// when no effective row of the user is stored. The setters do nothing.
#pragma once

#include "role/role_role.h"

namespace NIMBO::QUAYPOST_SERVER {

class MAILSERVER_EXPORT DelegationDefaultDelegation : public RoleDefaultRole {
 public:
  DelegationDefaultDelegation();

  int getPolicyIdx() override;
  void policyIdx(int value) override;
  std::string getName() override;
  void name(std::string value) override;
  std::string getColor() override;
  void color(std::string value) override;
  int getPriority() override;
  void priority(int value) override;
  std::string GetPolicyIdxKey() override;
  std::string GetNameKey() override;
  std::string GetColorKey() override;
  std::string GetPriorityKey() override;
  /// Takes each user off the first of its directly assigned delegations; further ones stay.
  bool AssignPolicyToUserNormal(RoleUser& user) override;
  bool AssignPolicyToUserNormal(std::vector<std::shared_ptr<RoleUser>>& users) override;
  /// Removes the users' effective rows.
  bool AssignPolicyToUserReal(RoleUser& user) override;
  bool AssignPolicyToUserReal(std::vector<std::shared_ptr<RoleUser>>& users) override;
  /// The default entries by type: 0, or -1 on failure.
  int FindBelongPolicyEntries(std::vector<std::shared_ptr<RoleRoleEntry>>& entries) override;
  std::shared_ptr<PolicyPolicyDBHandler> GetPolicyDBHandler() override;
  /// Replaces `users` with every supported host account that no stored delegation covers, by uid: 0, or -1 on failure,
  /// and then `users` is untouched.
  int _FindBelongUsersImp(std::vector<std::shared_ptr<RoleUser>>& users, bool real) override;

  /// Replaces `out` with one default delegation; true.
  static bool List(Json::Value filter, std::vector<std::shared_ptr<RoleRole>>& out);
};

}  // namespace NIMBO::QUAYPOST_SERVER
