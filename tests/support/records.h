/// A test on an empty delegation database, and short forms for records and lists of them.
#pragma once

#include <gtest/gtest.h>

#include "model/delegation_delegation.h"
#include "model/delegation_delegation_entry.h"
#include "model/delegation_group.h"
#include "model/delegation_user.h"
#include "storage/delegation_db_handler.h"
#include "support/fake_host.h"
#include "support/log_capture.h"
#include "support/temp_database.h"

namespace NIMBO::QUAYPOST_SERVER {

using Users = std::vector<std::shared_ptr<RoleUser>>;
using Groups = std::vector<std::shared_ptr<RoleGroup>>;
using Roles = std::vector<std::shared_ptr<RoleRole>>;
using Entries = std::vector<std::shared_ptr<RoleRoleEntry>>;
using Texts = std::vector<std::string>;

inline auto User(unsigned int uid, const std::string& name) { return std::make_shared<DelegationUser>(uid, name); }
inline auto GroupRecord(unsigned int gid, const std::string& name) {
  return std::make_shared<DelegationGroup>(gid, name);
}
inline auto Role(int idx, const std::string& name, int priority = 0) {
  return std::make_shared<DelegationCustomDelegation>(idx, name, "none", priority);
}
inline auto Entry(int idx, const std::string& type, const std::string& data) {
  return std::make_shared<DelegationDelegationEntry>(idx, type, data);
}

inline std::string Show(RoleRole& role) { return std::to_string(role.getPolicyIdx()) + ":" + role.getName(); }
inline std::string Show(RoleRoleEntry& entry) { return entry.getType() + "=" + entry.getData(); }
/// The records of a list, a blank between them.
template <class Record>
std::string Show(const std::vector<std::shared_ptr<Record>>& records) {
  std::string shown;
  for (const auto& record : records) shown += (shown.empty() ? "" : " ") + Show(*record);
  return shown;
}

class DatabaseTest : public ::testing::Test {
 protected:
  DatabaseTest() { Handle(); }

  static RoleDBHandler* Handle() { return DelegationDBHandler::GetDelegationDBHandler(); }
  /// Rows that the library has inserted, changed or deleted so far.
  static int Writes() { return sqlite3_total_changes(Handle()->GetDB()); }

  void Exec(const std::string& sql) const { database.Exec(sql); }
  /// The rows of a query, columns joined with '|', a blank between the rows.
  std::string Rows(const std::string& sql) const {
    std::string shown;
    for (const std::string& row : database.Rows(sql)) shown += (shown.empty() ? "" : " ") + row;
    return shown;
  }
  /// From now on `event` (such as "delete on user_table") fails.
  void Forbid(const std::string& event) const {
    Exec("create trigger 'no " + event + "' before " + event + " begin select raise(abort, ''); end");
  }

  FakeHost& host = FakeHost::Instance();
  TempDatabase database;
  LogCapture log;
};

}  // namespace NIMBO::QUAYPOST_SERVER
