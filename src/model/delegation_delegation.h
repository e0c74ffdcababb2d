/// A delegation that an administrator created.
///
/// A user is tied to it in two ways: "normal", because an administrator assigned it (a user may have several), and
/// "real", because the calculator chose it as the one that is in force.
#pragma once

#include "role/role_role.h"

namespace NIMBO::QUAYPOST_SERVER {

class MAILSERVER_EXPORT DelegationCustomDelegation : public RoleCustomRole {
 public:
  /// Not stored (index -1), no name, colour "none", priority 0.
  DelegationCustomDelegation();
  DelegationCustomDelegation(int idx, std::string name, std::string color, int priority);

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
  /// Drops these entries, and the rows of those that no delegation uses any more.
  bool _UnassignPolicyToPolicyEntries(std::vector<std::shared_ptr<RoleRoleEntry>>& entries) override;
  /// Assigns, with rows for users that have none.
  bool AssignPolicyToUserNormal(RoleUser& user) override;
  bool AssignPolicyToUserNormal(std::vector<std::shared_ptr<RoleUser>>& users) override;
  /// Takes the delegation from the users, and deletes the rows of those that nothing else holds.
  bool UnassignPolicyToUserNormal(RoleUser& user) override;
  bool UnassignPolicyToUserNormal(std::vector<std::shared_ptr<RoleUser>>& users) override;
  /// Puts stored users under this delegation; writes nothing if one of them is not stored.
  bool AssignPolicyToUserReal(RoleUser& user) override;
  bool AssignPolicyToUserReal(std::vector<std::shared_ptr<RoleUser>>& users) override;
  bool UnassignPolicyToUserReal(RoleUser& user) override;
  bool UnassignPolicyToUserReal(std::vector<std::shared_ptr<RoleUser>>& users) override;
  bool UnassignPolicyToGroup(std::vector<std::shared_ptr<RoleGroup>>& groups) override;
  bool UnassignPolicyToGroup(RoleGroup& group) override;
  /// Makes `entries` the whole set; each is stored if no entry of the same type and data is.
  bool SetPolicyEntry(std::vector<std::shared_ptr<RoleRoleEntry>>& entries) override;
  /// Brings the entries in line with the default types: types that are no longer in the list go, new ones come with
  /// their default data, the others keep their data. Writes nothing when nothing has changed.
  bool Refresh(std::vector<std::shared_ptr<RoleRoleEntry>>& defaults) override;
  bool Refresh() override;
  std::shared_ptr<PolicyPolicyDBHandler> GetPolicyDBHandler() override;

  using RoleCustomRole::AssignPolicyToGroup;

  /// Every stored delegation; the filter is ignored.
  static bool List(Json::Value filter, std::vector<std::shared_ptr<RoleRole>>& out);
  /// The stored delegation of this index; false, without a log line, when there is none.
  static bool FromID(int idx, std::shared_ptr<RoleRole>& out);
};

}  // namespace NIMBO::QUAYPOST_SERVER
