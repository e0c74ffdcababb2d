// The repair: everything in one transaction, after a survey made inside it.
#include <memory>
#include <optional>
#include <set>

#include "admin/accounts.h"
#include "admin/announce.h"
#include "admin/check.h"
#include "admin/rows.h"
#include "admin/survey.h"
#include "api/delegation_api.h"
#include "calculator/delegation_calculator.h"
#include "model/delegation_default_delegation_entry.h"
#include "model/delegation_delegation.h"
#include "model/delegation_user.h"
#include "platform/nimbsdk.h"
#include "role/role_db_scope.h"
#include "storage/delegation_db_handler.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

namespace {

void Run(sqlite3* db, const std::string& sql) { Rows(db, sql).Run(); }

void RemoveOrphans(sqlite3* db) {
  for (const auto& [table, column, parent, other] : kLinks) {
    Run(db, std::string("delete from ") + table + " where not exists (select 1 from " + parent + " where " + parent +
                "." + column + " = " + table + "." + column + ")");
  }
}

void RemoveImpossibleIds(sqlite3* db) {
  Run(db, "delete from user_table where uid not between 0 and 4294967294");
  Run(db, "delete from group_table where gid not between 0 and 4294967294");
}

void RemoveRecords(sqlite3* db, const std::string& table, const std::string& id, const std::vector<unsigned int>& ids) {
  const std::string statement = "delete from " + table + " where " + id + " = ?";
  for (const unsigned int each : ids) Rows(db, statement, each).Run();
}

// Gives records without a name the host's, or removes those whose id the host definitely has not.
void NameRecords(sqlite3* db, const std::string& table, const std::string& id, const std::string& name,
                 std::optional<Account> (*withId)(unsigned int)) {
  std::vector<unsigned int> nameless;
  Rows rows(db, "select " + id + " from " + table + " where ifnull(" + name + ", '') = ''");
  while (rows.Next()) nameless.push_back(static_cast<unsigned int>(rows.Number(0)));
  const std::string statement = "update " + table + " set " + name + " = ? where " + id + " = ?";
  for (const unsigned int each : nameless) {
    if (const auto account = withId(each)) {
      Rows(db, statement, account->name, each).Run();
    } else {
      RemoveRecords(db, table, id, {each});
    }
  }
}

// Of several entries of one type the one that allows less stays; of equal ones the first.
void RemoveRepeatedTypes(sqlite3* db) {
  std::vector<std::pair<long long, long long>> surplus;
  {
    std::set<std::pair<long long, std::string>> kept;
    Rows rows(db,
              "select delegationidx, delegationentryidx, type from delegation2delegation_entry_view order by "
              "delegationidx, type, data is 'true', delegationentryidx");
    while (rows.Next()) {
      if (!kept.emplace(rows.Number(0), rows.Text(2)).second) surplus.emplace_back(rows.Number(0), rows.Number(1));
    }
  }
  for (const auto& [delegation, entry] : surplus) {
    Rows(db, "delete from delegation2delegation_entry_table where delegationidx = ? and delegationentryidx = ?",
         delegation, entry)
        .Run();
  }
}

// What a refresh does that needs no host.
bool RecomputeFromStored() {
  std::vector<std::shared_ptr<RoleRoleEntry>> defaults;
  std::vector<std::shared_ptr<RoleRole>> delegations;
  if (!DelegationDefaultDelegationEntry::List(Json::nullValue, defaults)) return false;
  if (!DelegationCustomDelegation::List(Json::nullValue, delegations)) return false;
  for (const auto& delegation : delegations) {
    if (!delegation->Refresh(defaults)) return false;
  }
  std::vector<std::shared_ptr<RoleUser>> users;
  if (!DelegationUser::List(Json::nullValue, users)) return false;
  std::erase_if(users, [](const auto& user) { return !user->IsValid(); });
  DelegationCalculator calculator;
  return calculator.CalculateUser(users) && calculator.RemoveUnsupported();
}

Survey Look() {
  Survey survey;
  SurveyStored(survey, {});
  SurveyHost(survey, {});
  if (survey.findings.Blocked()) {
    throw Error(Error::kRefused, "a stored row cannot be read and must be mended first; nothing was repaired");
  }
  return survey;
}

void RepairAll(sqlite3* db, const Survey& survey) {
  const bool askHost = survey.findings.HostTrusted();
  RemoveImpossibleIds(db);
  if (askHost) {
    RemoveRecords(db, "user_table", "uid", survey.reusedUids);
    RemoveRecords(db, "group_table", "gid", survey.reusedGids);
    NameRecords(db, "user_table", "uid", "username", UserWithId);
    NameRecords(db, "group_table", "gid", "groupname", GroupWithId);
  }
  RemoveOrphans(db);
  RemoveRepeatedTypes(db);
  if (!(askHost ? DelegationRefresh() : RecomputeFromStored())) {
    throw Error(askHost ? Error::kAccounts : Error::kDatabase, "the refresh failed; nothing was repaired");
  }
  RemoveOrphans(db);  // a group that is removed leaves some
}

}  // namespace

bool Repair(Json::Value& result) {
  const NIMBOAccountScope accounts(NIMBOAccountScope::kEnumerate);
  Look();  // asks the host before the database is locked
  {
    RoleDBScope scope(DelegationDBHandler::GetDelegationDBHandler(), RoleDBScope::kWrite);
    RoleDBHandler* const handle = DelegationDBHandler::GetDelegationDBHandler();
    if (!scope.Usable() || !handle) throw Error(Error::kDatabase, "the delegation database cannot be locked");
    RepairAll(handle->GetDB(), Look());
    if (!scope.Commit()) throw Error(Error::kDatabase, "the repair cannot be stored; nothing was repaired");
  }
  result["announced"] = Announce();
  return true;
}

}  // namespace NIMBO::QUAYPOST_SERVER::admin
