/// An entry of the default delegation; made from the table of default entries, never stored.
#pragma once

#include <json/json.h>

#include "role/role_role_entry.h"

namespace NIMBO::QUAYPOST_SERVER {

class MAILSERVER_EXPORT DelegationDefaultDelegationEntry : public RoleDefaultEntry {
 public:
  /// Index -1, no type, no data.
  DelegationDefaultDelegationEntry();
  DelegationDefaultDelegationEntry(int idx, std::string type, std::string data);

  int getPolicyEntryIdx() override;
  void policyEntryIdx(int value) override;
  std::string getType() override;
  void type(std::string value) override;
  std::string getData() override;
  void data(std::string value) override;
  /// The default delegation: 0, or -1 on failure.
  int FindBelongPolicies(std::vector<std::shared_ptr<RoleRole>>& policies) override;
  /// Everybody under the default delegation by assignment: 0, or -1 on failure.
  int FindBelongUsers(std::vector<std::shared_ptr<RoleUser>>& users) override;
  std::shared_ptr<PolicyPolicyEntryDBHandler> GetPolicyEntryDBHandler() override;

  /// The default types, in table order.
  static bool ListDefaultType(std::vector<std::string>& types);
  /// Whether `type` is one of them, byte for byte.
  static bool CheckInDefaultType(std::string type);
  /// The default entries in byte order of their types; the filter is ignored.
  static bool List(Json::Value filter, std::vector<std::shared_ptr<RoleRoleEntry>>& out);
};

}  // namespace NIMBO::QUAYPOST_SERVER
