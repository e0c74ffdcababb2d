/// One permission item of a role: a type and its data.
///
/// RoleRoleEntry is the interface, RoleCustomEntry the base of entries that are stored, RoleDefaultEntry the base of
/// the built-in role's entries, which are not.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/export.h"

namespace NIMBO::QUAYPOST_SERVER {

class PolicyPolicyEntryDBHandler;
class RoleUser;
class RoleRole;

class MAILSERVER_EXPORT RoleRoleEntry {
 public:
  virtual int getPolicyEntryIdx() = 0;
  virtual void policyEntryIdx(int value) = 0;
  virtual std::string getType() = 0;
  virtual void type(std::string value) = 0;
  virtual std::string getData() = 0;
  virtual void data(std::string value) = 0;
  virtual bool _DeleteImp();
  /// Stores a new entry and sets its index; links to an earlier entry of the same index are not adopted.
  virtual bool _CreateImp();
  /// Takes the index of the stored entry of the same type and data, or stores a new one.
  virtual bool _CreateIfNotFoundImp() = 0;
  virtual bool _UpdateImp();
  virtual bool IsValid() = 0;
  /// A row with the index is stored.
  virtual bool IsExist();
  /// The roles that hold the entry: 0 found, 1 none, -1 error.
  virtual int FindBelongPolicies(std::vector<std::shared_ptr<RoleRole>>& policies);
  /// The users to whom those roles are assigned directly, each once; same coding.
  virtual int FindBelongUsers(std::vector<std::shared_ptr<RoleUser>>& users);
  virtual std::shared_ptr<PolicyPolicyEntryDBHandler> GetPolicyEntryDBHandler() = 0;

  /// Deletes the rows of these entries; an empty list is true.
  static bool Delete(std::vector<std::shared_ptr<RoleRoleEntry>>& entries);

 protected:
  RoleRoleEntry();
  RoleRoleEntry(int idx, std::string type, std::string data);
  ~RoleRoleEntry();

  int policyEntryIdx_ = -1;
  std::string type_;
  std::string data_;
};

/// A stored entry.
class MAILSERVER_EXPORT RoleCustomEntry : public RoleRoleEntry {
 public:
  /// The index is positive and the type is not empty.
  bool IsValid() override;

  /// Calls the record's _CreateIfNotFoundImp.
  static bool CreateIfNotFound(RoleRoleEntry& entry);

 protected:
  using RoleRoleEntry::RoleRoleEntry;
  ~RoleCustomEntry();
};

/// An entry of the built-in role. It has no row: storing, changing and deleting it are refused (false).
class MAILSERVER_EXPORT RoleDefaultEntry : public RoleRoleEntry {
 public:
  bool _DeleteImp() override;
  bool _CreateImp() override;
  bool _CreateIfNotFoundImp() override;
  bool _UpdateImp() override;
  bool IsValid() override;
  bool IsExist() override;

 protected:
  using RoleRoleEntry::RoleRoleEntry;
  ~RoleDefaultEntry();
};

}  // namespace NIMBO::QUAYPOST_SERVER
