/// A host group in the delegation system. Keeps its stored members in step with the host group.
#pragma once

#include "role/role_group.h"

namespace NIMBO::QUAYPOST_SERVER {

class MAILSERVER_EXPORT DelegationGroup : public RoleGroup {
 public:
  /// gid 4294967295 (not set), no name.
  DelegationGroup();
  // NOLINTNEXTLINE(google-explicit-constructor): a copy of any group
  DelegationGroup(RoleGroup& other);
  DelegationGroup(const DelegationGroup& other) = default;
  DelegationGroup& operator=(const DelegationGroup& other) = default;
  DelegationGroup(unsigned int gid, std::string groupname);

  unsigned int getGid() override;
  void gid(unsigned int value) override;
  std::string getGroupname() override;
  void groupname(std::string& value) override;
  std::string GetGidKey() override;
  std::string GetNameKey() override;
  std::string GetTypeKey() override;
  std::string GetSystemTypeKey() override;
  /// Stores the host group's members as members, with rows for those that have none. The argument is not looked at.
  bool AssignGroupToUser(std::vector<std::shared_ptr<RoleUser>>& users) override;
  /// Removes all stored members, and the rows of those that nothing else holds. `users` becomes the former members.
  bool UnassignGroupToUser(std::vector<std::shared_ptr<RoleUser>>& users) override;
  /// Appends the host group's members. One that cannot be resolved fails the whole.
  bool FindNBOSUserTo(std::vector<std::shared_ptr<RoleUser>>& users) override;
  bool _RefreshNBOSGroupExist(std::string name) override;
  bool _RefreshNBOSGroupNotExist() override;
  std::shared_ptr<PolicyGroupDBHandler> GetGroupDBHandler() override;

  /// What _RefreshNBOSGroupExist comes to when only these members have left the host group, and only these have to be
  /// stored (again) behind everything else: takes out the one, with the rows of those that nothing else holds, and
  /// stores the others.
  bool ExchangeMembers(std::string name, std::vector<std::shared_ptr<RoleUser>>& leavers,
                       std::vector<std::shared_ptr<RoleUser>>& comers);

  /// Removes a group with its members. Of its delegations only the one of highest priority is taken from it; the links
  /// of the others stay behind.
  static bool DeleteChain(RoleGroup& group);
  /// One group after the other; stops at the first failure.
  static bool DeleteChain(std::vector<std::shared_ptr<RoleGroup>>& groups);
  /// Every stored group; the filter is ignored.
  static bool List(Json::Value filter, std::vector<std::shared_ptr<RoleGroup>>& groups);

 private:
  bool StoreMembers(std::vector<std::shared_ptr<RoleUser>>& members);
  bool RemoveMembers(std::vector<std::shared_ptr<RoleUser>>& members);
};

}  // namespace NIMBO::QUAYPOST_SERVER
