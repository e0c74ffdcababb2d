/// The delegation database: a RoleDBHandler with the delegation schema.
///
///   RoleDBHandler* db = DelegationDBHandler::GetDelegationDBHandler();   // null when it cannot be opened
///
/// Which file that is says the current DelegationDBStrategy; inside a RoleDBScope it is the scope's handle. The pointer
/// stays the registry's: nobody frees it.
#pragma once

#include <string>
#include <vector>

#include "role/role_db_handler.h"

namespace NIMBO::QUAYPOST_SERVER {

/// One step of the schema's history: step i (from 0) raises the schema to version i + 1.
struct DelegationUpgradeFunc {
  std::string sql;           ///< run with one sqlite3_exec; empty: none
  bool (*func)() = nullptr;  ///< run after it; the step fails if it answers false; null: none
};

/// Replaces `out` with the schema's history; true.
MAILSERVER_EXPORT bool DelegationUtilGetUpdateFunc(std::vector<DelegationUpgradeFunc>& out);

class MAILSERVER_EXPORT DelegationDBHandler : public RoleDBHandler {
 public:
  explicit DelegationDBHandler(const std::string& path);
  ~DelegationDBHandler() override;

  /// Runs the steps that a file of `version` lacks, each followed by its own `pragma user_version`, so that a failure
  /// leaves the last completed version. A file above the newest known version is taken as it is. A file of version 0
  /// that holds exactly the complete schema (its creator died before the version was written) is given its version.
  /// 0 on success, -1 on failure.
  int _UpgradeDB(int version) override;

  static RoleDBHandler* GetDelegationDBHandler();

  /// Closes the handle that the default strategy opened; a custom strategy's stays.
  static void CloseDelegationDBHandler();

 private:
  bool HoldsCompleteSchema() const;
};

}  // namespace NIMBO::QUAYPOST_SERVER
