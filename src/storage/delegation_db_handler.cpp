// The delegation schema and how a file comes to it.
#include "storage/delegation_db_handler.h"

#include <set>

#include "base/log.h"
#include "role/role_db_scope.h"
#include "role/role_query.h"
#include "storage/delegation_db_strategy.h"

namespace NIMBO::QUAYPOST_SERVER {

namespace {

// Nine tables, an index on the first key column of each, and nine views. Run as one script in its own transaction.
constexpr const char* kSchema[] = {
    "CREATE TABLE user_table(uid INTEGER PRIMARY KEY,username TEXT);",
    "CREATE INDEX IDX_user_table_uid On user_table(uid);",
    "CREATE TABLE group_table(gid INTEGER,groupname TEXT, PRIMARY KEY ( gid) );",
    "CREATE INDEX IDX_group_table_gid On group_table(gid);",
    "CREATE TABLE delegation_table(delegationidx INTEGER PRIMARY KEY,name TEXT,color TEXT,priority INTEGER);",
    "CREATE INDEX IDX_delegation_table_delegationidx On delegation_table(delegationidx);",
    "CREATE TABLE delegation_entry_table(delegationentryidx INTEGER PRIMARY KEY,type TEXT,data TEXT);",
    "CREATE INDEX IDX_delegation_entry_table_delegationentryidx On delegation_entry_table(delegationentryidx);",
    "CREATE TABLE user2delegation_table(uid INTEGER,delegationidx INTEGER,FOREIGN KEY (uid) REFERENCES user_table "
    "(uid),FOREIGN KEY (delegationidx) REFERENCES delegation_table (delegationidx),PRIMARY KEY ( uid, delegationidx) "
    ");",
    "CREATE INDEX IDX_user2delegation_table_uid On user2delegation_table(uid);",
    "CREATE TABLE group2delegation_table(gid INTEGER,delegationidx INTEGER,FOREIGN KEY (gid) REFERENCES group_table "
    "(gid),FOREIGN KEY (delegationidx) REFERENCES delegation_table (delegationidx),PRIMARY KEY ( gid, delegationidx) "
    ");",
    "CREATE INDEX IDX_group2delegation_table_gid On group2delegation_table(gid);",
    "CREATE TABLE user2group_table(uid INTEGER,gid INTEGER,FOREIGN KEY (gid) REFERENCES group_table (gid),FOREIGN KEY "
    "(uid) REFERENCES user_table (uid),PRIMARY KEY ( gid, uid) );",
    "CREATE INDEX IDX_user2group_table_uid On user2group_table(uid);",
    "CREATE TABLE delegation2delegation_entry_table(delegationidx INTEGER,delegationentryidx INTEGER,FOREIGN KEY "
    "(delegationidx) REFERENCES delegation_table (delegationidx),FOREIGN KEY (delegationentryidx) REFERENCES "
    "delegation_entry_table (delegationentryidx),PRIMARY KEY (delegationidx, delegationentryidx));",
    "CREATE INDEX IDX_delegation2delegation_entry_table_delegationidx On "
    "delegation2delegation_entry_table(delegationidx);",
    "CREATE TABLE user2delegation_real_table(uid INTEGER PRIMARY KEY,delegationidx INTEGER,FOREIGN KEY (uid) "
    "REFERENCES user_table (uid),FOREIGN KEY (delegationidx) REFERENCES delegation_table (delegationidx));",
    "CREATE INDEX IDX_user2delegation_real_table_uid On user2delegation_real_table(uid);",
    "CREATE VIEW delegation2user_view as select user2delegation_table.delegationidx, user_table.uid, "
    "user_table.username from user2delegation_table inner join user_table on user2delegation_table.uid = "
    "user_table.uid;",
    "CREATE VIEW delegation2group_view as select group2delegation_table.delegationidx, group_table.gid, "
    "group_table.groupname  from group2delegation_table inner join group_table on (group2delegation_table.gid = "
    "group_table.gid);",
    "CREATE VIEW user2delegation_view as select user2delegation_table.uid, delegation_table.delegationidx, "
    "delegation_table.name, delegation_table.color, delegation_table.priority from user2delegation_table inner join "
    "delegation_table on user2delegation_table.delegationidx = delegation_table.delegationidx;",
    "CREATE VIEW group2delegation_view as select group2delegation_table.gid, delegation_table.delegationidx, "
    "delegation_table.name, delegation_table.color, delegation_table.priority from group2delegation_table inner join "
    "delegation_table on group2delegation_table.delegationidx = delegation_table.delegationidx;",
    "CREATE VIEW group2user_view as select user2group_table.gid, user2group_table.uid, user_table.username from "
    "user2group_table inner join user_table on user2group_table.uid = user_table.uid;",
    "CREATE VIEW user2group_view as select user2group_table.uid, user2group_table.gid, group_table.groupname from "
    "user2group_table inner join group_table on user2group_table.gid = group_table.gid;",
    "CREATE VIEW delegation2delegation_entry_view as select delegation2delegation_entry_table.delegationidx, "
    "delegation_entry_table.delegationentryidx, delegation_entry_table.type, delegation_entry_table.data from "
    "delegation2delegation_entry_table inner join delegation_entry_table on "
    "delegation2delegation_entry_table.delegationentryidx = delegation_entry_table.delegationentryidx;",
    "CREATE VIEW delegation_entry2delegation_view as select delegation2delegation_entry_table.delegationentryidx, "
    "delegation_table.delegationidx, delegation_table.name, delegation_table.color, delegation_table.priority from "
    "delegation2delegation_entry_table inner join delegation_table on delegation2delegation_entry_table.delegationidx "
    "= delegation_table.delegationidx;",
    "CREATE VIEW delegation2user_real_view as select user2delegation_real_table.delegationidx, user_table.uid, "
    "user_table.username from user2delegation_real_table inner join user_table on user2delegation_real_table.uid = "
    "user_table.uid;",
};

std::string CreationScript() {
  std::string script = "BEGIN TRANSACTION;";
  for (const char* statement : kSchema) script += statement;
  return script + "COMMIT TRANSACTION;";
}

}  // namespace

bool DelegationUtilGetUpdateFunc(std::vector<DelegationUpgradeFunc>& out) {
  static const auto& history = *new std::vector<DelegationUpgradeFunc>{{CreationScript(), nullptr}};
  out = history;
  return true;
}

DelegationDBHandler::DelegationDBHandler(const std::string& path) : RoleDBHandler(path) {}

DelegationDBHandler::~DelegationDBHandler() = default;

int DelegationDBHandler::_UpgradeDB(int version) {
  if (version < 0) return lastResult_ = FailLookup("Upgrade DB fail");
  std::vector<DelegationUpgradeFunc> history;
  if (!DelegationUtilGetUpdateFunc(history)) return lastResult_ = FailLookup("Faill cannot get th esqlite cmds");

  const auto exec = [this](const std::string& sql) {
    lastResult_ = sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr);
    if (lastResult_ == SQLITE_OK) return true;
    LogError("exec db schema fail, err=[%d], %s", lastResult_, sqlite3_errmsg(db_));
    if (db_ && sqlite3_get_autocommit(db_) == 0) sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
    return false;
  };
  // The script is run once; whoever died between it and the version has left all of it.
  const bool alreadyMade = version == 0 && HoldsCompleteSchema();
  for (int step = version; step < static_cast<int>(history.size()); ++step) {
    const DelegationUpgradeFunc& upgrade = history[static_cast<std::size_t>(step)];
    if (!upgrade.sql.empty() && !(step == 0 && alreadyMade) && !exec(upgrade.sql)) return -1;
    if (upgrade.func && !upgrade.func()) return FailLookup("execute func fail %i", step);
    if (!exec("pragma user_version = " + std::to_string(step + 1))) return -1;
  }
  return 0;
}

bool DelegationDBHandler::HoldsCompleteSchema() const {
  std::multiset<std::string> wanted;
  for (const std::string statement : kSchema) wanted.insert(statement.substr(0, statement.size() - 1));
  std::multiset<std::string> found;
  Query rows(*this, "select sql from sqlite_master where sql is not null");
  while (rows.Next()) found.insert(rows.Text(0));
  return rows.Done() && found == wanted;
}

RoleDBHandler* DelegationDBHandler::GetDelegationDBHandler() {
  RoleDBHandler* pinned = nullptr;
  if (RoleDBScope::Pinned(pinned)) return pinned;
  return DelegationDBStrategy::GetDelegationDBStrategy()->GetDelegationDBHandler();
}

void DelegationDBHandler::CloseDelegationDBHandler() { RoleDBHandler::CloseRoleDBHandler("delegation_interface"); }

}  // namespace NIMBO::QUAYPOST_SERVER
