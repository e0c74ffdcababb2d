/// A stored delegation entry: one row for each distinct pair of type and data, shared by the delegations that hold it.
#pragma once

#include <json/json.h>

#include <map>
#include <utility>

#include "role/role_role_entry.h"

namespace NIMBO::QUAYPOST_SERVER {

class MAILSERVER_EXPORT DelegationDelegationEntry : public RoleCustomEntry {
 public:
  /// Not stored (index -1), no type, no data.
  DelegationDelegationEntry();
  DelegationDelegationEntry(int idx, std::string type, std::string data);

  int getPolicyEntryIdx() override;
  void policyEntryIdx(int value) override;
  std::string getType() override;
  void type(std::string value) override;
  std::string getData() override;
  void data(std::string value) override;
  bool _CreateIfNotFoundImp() override;

  /// The stored entries: index by type and data.
  using Indexes = std::map<std::pair<std::string, std::string>, int>;
  static bool ListIndexes(Indexes& stored);
  /// _CreateIfNotFoundImp among entries listed before; what it creates it adds to them.
  bool CreateIfNotFoundAmong(Indexes& stored);

  std::shared_ptr<PolicyPolicyEntryDBHandler> GetPolicyEntryDBHandler() override;

  /// Reads {"type", "data", "id"}: the type must be a default type; data is "" and the index -1 where missing.
  static bool FromJson(Json::Value& in, RoleRoleEntry& out);
  /// {"type", "data"}.
  static bool ToJson(RoleRoleEntry& in, Json::Value& out);
  /// Every stored entry; the filter is ignored.
  static bool List(Json::Value filter, std::vector<std::shared_ptr<RoleRoleEntry>>& out);
};

}  // namespace NIMBO::QUAYPOST_SERVER
