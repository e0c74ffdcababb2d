/// A role: a name, a colour, a priority and a set of entries, assigned to users and groups.
///
/// RoleRole is the interface, RoleCustomRole the base of roles that are stored, RoleDefaultRole the base of the one
/// built-in role that everybody has who has no other.
#pragma once

#include <json/json.h>

#include <memory>
#include <string>
#include <vector>

#include "base/export.h"

namespace NIMBO::QUAYPOST_SERVER {

class PolicyPolicyDBHandler;
class RoleUser;
class RoleGroup;
class RoleRoleEntry;

class MAILSERVER_EXPORT RoleRole {
 public:
  virtual int getPolicyIdx() = 0;
  virtual void policyIdx(int value) = 0;
  virtual std::string getName() = 0;
  virtual void name(std::string value) = 0;
  virtual std::string getColor() = 0;
  virtual void color(std::string value) = 0;
  virtual int getPriority() = 0;
  virtual void priority(int value) = 0;
  virtual std::string GetPolicyIdxKey() = 0;
  virtual std::string GetNameKey() = 0;
  virtual std::string GetColorKey() = 0;
  virtual std::string GetPriorityKey() = 0;
  virtual bool _CreateImp() = 0;
  virtual bool _UpdateImp() = 0;
  virtual bool _DeleteImp() = 0;
  virtual bool _DeleteChainImp() = 0;
  virtual bool _UnassignPolicyToPolicyEntries(std::vector<std::shared_ptr<RoleRoleEntry>>& entries) = 0;
  virtual bool IsValid() = 0;
  virtual bool IsExist() = 0;
  virtual bool AssignPolicyToUserNormal(RoleUser& user) = 0;
  virtual bool AssignPolicyToUserNormal(std::vector<std::shared_ptr<RoleUser>>& users) = 0;
  virtual bool UnassignPolicyToUserNormal(RoleUser& user) = 0;
  virtual bool UnassignPolicyToUserNormal(std::vector<std::shared_ptr<RoleUser>>& users) = 0;
  virtual bool AssignPolicyToUserReal(RoleUser& user) = 0;
  virtual bool AssignPolicyToUserReal(std::vector<std::shared_ptr<RoleUser>>& users) = 0;
  virtual bool UnassignPolicyToUserReal(RoleUser& user) = 0;
  virtual bool UnassignPolicyToUserReal(std::vector<std::shared_ptr<RoleUser>>& users) = 0;
  virtual bool AssignPolicyToGroup(std::vector<std::shared_ptr<RoleGroup>>& groups) = 0;
  virtual bool AssignPolicyToGroup(RoleGroup& group) = 0;
  virtual bool UnassignPolicyToGroup(std::vector<std::shared_ptr<RoleGroup>>& groups) = 0;
  virtual bool UnassignPolicyToGroup(RoleGroup& group) = 0;
  virtual bool SetPolicyEntry(std::vector<std::shared_ptr<RoleRoleEntry>>& entries) = 0;
  virtual int FindBelongUsersNormal(std::vector<std::shared_ptr<RoleUser>>& users) = 0;
  virtual int FindBelongUsersReal(std::vector<std::shared_ptr<RoleUser>>& users) = 0;
  virtual int FindBelongGroups(std::vector<std::shared_ptr<RoleGroup>>& groups) = 0;
  virtual int FindBelongPolicyEntries(std::vector<std::shared_ptr<RoleRoleEntry>>& entries) = 0;
  virtual bool Refresh(std::vector<std::shared_ptr<RoleRoleEntry>>& defaults) = 0;
  virtual bool Refresh() = 0;
  virtual std::shared_ptr<PolicyPolicyDBHandler> GetPolicyDBHandler() = 0;

  /// Stores a new role; it needs a name, and its index is set on success. Links that an earlier role of the same index
  /// has left are not adopted.
  static bool Create(RoleRole& role);
  /// Stores the fields of a stored role.
  static bool Update(RoleRole& role);
  /// Removes each role with its assignments and entry links; stops at the first failure. An empty list is true.
  static bool DeleteChain(std::vector<std::shared_ptr<RoleRole>>& roles);
  /// {"id", "name", "color", "priority"} under the record's own keys.
  static bool ToJson(RoleRole& role, Json::Value& out);
  /// Reads a role: "name" (a string, not empty), "color" (a string), "priority" (an integer within 32 bits) and,
  /// optionally, "id" (the same; -1 without it). Any other kind, a missing member or a NUL in a text is false.
  static bool FromJson(Json::Value& in, RoleRole& out);

 protected:
  ~RoleRole();

  int policyIdx_ = -1;
  std::string name_;
  std::string color_ = "none";
  int priority_ = 0;
};

/// A stored role. Every operation here forwards to the handler operation of the same name.
class MAILSERVER_EXPORT RoleCustomRole : public RoleRole {
 public:
  bool _CreateImp() override;
  bool _UpdateImp() override;
  bool _DeleteImp() override;
  /// Takes the role from its effective users, its direct users and its groups, drops its entries and whatever link
  /// still carries its index, and deletes it. Stops at the first failure.
  bool _DeleteChainImp() override;
  /// The index is positive and the name is not empty.
  bool IsValid() override;
  bool IsExist() override;
  bool AssignPolicyToGroup(std::vector<std::shared_ptr<RoleGroup>>& groups) override;
  bool AssignPolicyToGroup(RoleGroup& group) override;
  int FindBelongUsersNormal(std::vector<std::shared_ptr<RoleUser>>& users) override;
  int FindBelongUsersReal(std::vector<std::shared_ptr<RoleUser>>& users) override;
  int FindBelongGroups(std::vector<std::shared_ptr<RoleGroup>>& groups) override;
  int FindBelongPolicyEntries(std::vector<std::shared_ptr<RoleRoleEntry>>& entries) override;

 protected:
  ~RoleCustomRole();
};

/// The built-in role. It has no row, so whatever would store, change or delete one is refused (false), nobody can be
/// taken off it (false), and no group has it; it is always valid and in line with the default entries.
class MAILSERVER_EXPORT RoleDefaultRole : public RoleRole {
 public:
  bool _CreateImp() override;
  bool _UpdateImp() override;
  bool _DeleteImp() override;
  bool _DeleteChainImp() override;
  bool _UnassignPolicyToPolicyEntries(std::vector<std::shared_ptr<RoleRoleEntry>>& entries) override;
  bool IsValid() override;
  bool IsExist() override;
  bool UnassignPolicyToUserNormal(RoleUser& user) override;
  bool UnassignPolicyToUserNormal(std::vector<std::shared_ptr<RoleUser>>& users) override;
  bool UnassignPolicyToUserReal(RoleUser& user) override;
  bool UnassignPolicyToUserReal(std::vector<std::shared_ptr<RoleUser>>& users) override;
  bool AssignPolicyToGroup(std::vector<std::shared_ptr<RoleGroup>>& groups) override;
  bool AssignPolicyToGroup(RoleGroup& group) override;
  bool UnassignPolicyToGroup(std::vector<std::shared_ptr<RoleGroup>>& groups) override;
  bool UnassignPolicyToGroup(RoleGroup& group) override;
  bool SetPolicyEntry(std::vector<std::shared_ptr<RoleRoleEntry>>& entries) override;
  /// Everybody whom no stored role covers by assignment (Normal) or by effect (Real): _FindBelongUsersImp.
  int FindBelongUsersNormal(std::vector<std::shared_ptr<RoleUser>>& users) override;
  int FindBelongUsersReal(std::vector<std::shared_ptr<RoleUser>>& users) override;
  int FindBelongGroups(std::vector<std::shared_ptr<RoleGroup>>& groups) override;
  bool Refresh(std::vector<std::shared_ptr<RoleRoleEntry>>& defaults) override;
  bool Refresh() override;

  virtual int _FindBelongUsersImp(std::vector<std::shared_ptr<RoleUser>>& users, bool real) = 0;

 protected:
  ~RoleDefaultRole();
};

}  // namespace NIMBO::QUAYPOST_SERVER
