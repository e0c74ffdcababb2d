// The host, the database, and SQLite without the library.
#include "world.h"

#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>

#include "pairs.h"
#include "platform/mailserver.h"
#include "storage/delegation_db_handler.h"
#include "storage/delegation_db_strategy.h"
#include "tables/delegation_default_entries.h"

namespace bench {

using namespace NIMBO::QUAYPOST_SERVER;

// ---- Files ----

Directory::Directory(Where where)
    : path_(where == kMemory ? "/dev/shm/" : std::filesystem::current_path().string() + "/") {
  path_ += "bench-XXXXXX";
  Require(mkdtemp(path_.data()) != nullptr, "cannot make " + path_);
}

Directory::~Directory() { std::filesystem::remove_all(path_); }

namespace {

// A file that has changed just now is read again at every use; hosts are not like that.
void MakeOlder(const std::string& path) {
  std::filesystem::last_write_time(path, std::filesystem::file_time_type::clock::now() - std::chrono::seconds(10));
}

}  // namespace

void WriteAccounts(const std::string& passwd, const std::string& group, int users, int moved) {
  std::ofstream accounts(passwd);
  accounts << "root:x:0:0:root:/root:/bin/sh\n";
  std::vector<std::string> members(kGroups);
  for (int i = 0; i < users; ++i) {
    accounts << UserName(i) << ":x:" << UserId(i) << ":100:User " << i << ":/home/" << UserName(i) << ":/bin/sh\n";
    const int first = i + (i < moved ? 1 : 0);
    for (const int number : {first % kGroups, (first + 1 + i / kGroups % (kGroups - 1)) % kGroups}) {
      std::string& list = members[static_cast<std::size_t>(number)];
      list += (list.empty() ? "" : ",") + UserName(i);
    }
  }
  std::ofstream groups(group);
  groups << "root:x:0:\nusers:x:100:\n";
  for (int i = 0; i < kGroups; ++i) {
    groups << "g" << i << ":x:" << 50000 + i << ":" << members[static_cast<std::size_t>(i)] << "\n";
  }
  groups << "administrators:x:60000:\n";
  accounts.close();
  groups.close();
  Require(accounts && groups, "cannot write " + passwd);
  MakeOlder(passwd);
  MakeOlder(group);
}

void WriteConfiguration(const Directory& directory) {
  std::ofstream(directory / "mailserver.conf") << "[delegation]\ndatabase = " << directory / "delegation.db"
                                               << "\n[log]\ntarget = " << directory / "log"
                                               << "\n";
  MakeOlder(directory / "mailserver.conf");
  MailserverSetConfigFile(directory / "mailserver.conf");
}

// ---- SQLite ----

Plain::Plain(const std::string& path) {
  Require(sqlite3_open(path.c_str(), &db_) == SQLITE_OK, "cannot open " + path);
  sqlite3_busy_timeout(db_, 60000);
}

void Plain::Exec(const std::string& sql) const {
  Require(sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK, sql + ": " + sqlite3_errmsg(db_));
}

std::vector<std::string> Plain::Rows(const std::string& sql) const {
  std::vector<std::string> rows;
  const Statement statement(*this, sql);
  for (statement.Bind(); statement.Next();) {
    std::string& row = rows.emplace_back();
    for (int i = 0; i < statement.Columns(); ++i) row += std::string(i > 0 ? "|" : "") + statement.Text(i);
  }
  return rows;
}

Statement::Statement(const Plain& db, const std::string& sql) {
  Require(sqlite3_prepare_v2(db.get(), sql.c_str(), -1, &statement_, nullptr) == SQLITE_OK, sql);
}

bool Statement::Next() const {
  const int result = sqlite3_step(statement_);
  if (result == SQLITE_ROW) return true;
  Require(result == SQLITE_DONE, std::string("cannot run ") + sqlite3_sql(statement_));
  sqlite3_reset(statement_);
  return false;
}

// ---- The database ----

const char* const kRecalculate =
    "insert or replace into user2delegation_real_table select uid, delegationidx from ("
    " select uid, delegationidx, row_number() over (partition by uid order by priority desc, direct desc, place) as nth"
    " from (select uid, delegationidx, priority, 1 as direct, ud.rowid as place from user2delegation_table ud"
    "        join delegation_table using (delegationidx)"
    "       union all select uid, delegationidx, priority, 0, ug.rowid from user2group_table ug"
    "        join group2delegation_table using (gid) join delegation_table using (delegationidx))) where nth = 1";

void UseDatabase(const std::string& path) {
  DelegationDBStrategy::SetDelegationDBStrategy(std::make_shared<DelegationCustomPathDBStrategy>(path));
  Require(DelegationDBHandler::GetDelegationDBHandler() != nullptr, "cannot open " + path);
}

void MakeDatabase(const std::string& path, int users, int delegations) {
  UseDatabase(path);
  const Plain db(path);
  db.Exec("begin; create temp table n(i integer primary key)");
  Statement(db,
            "insert into n with recursive c(i) as (select 0 union all select i + 1 from c where i + 1 < ?1) select i "
            "from c")
      .Run(std::max(users, kGroups));
  std::vector<std::string> types;
  DelegationUtilGetAllDefaultTypeDelegationEntry(types);
  const Statement entry(db, "insert into delegation_entry_table(type, data) values(?1, ?2)");
  for (const std::string& type : types) {
    for (const std::string data : {"false", "true"}) entry.Run(type, data);
  }
  Statement(db, "insert into delegation_table select i + 1, 'Delegation ' || i, 'none', i / 2 from n where i < ?1")
      .Run(delegations);
  Statement(db,
            "insert into delegation2delegation_entry_table select delegationidx, delegationentryidx from "
            "delegation_table, delegation_entry_table where (data = 'true') = "
            "((delegationidx + (delegationentryidx - 1) / 2) % 3 = 0)")
      .Run();
  Statement(db, "insert into group_table select 50000 + i, 'g' || i from n where i < ?1").Run(kGroups);
  Statement(db, "insert into group2delegation_table select 50000 + i, i % ?1 + 1 from n where i < 80").Run(delegations);
  Statement(db, "insert into user_table select 100000 + i, 'u' || i from n where i < ?1").Run(users);
  for (const char* place : {"i % 100", "(i + 1 + i / 100 % 99) % 100"}) {
    Statement(db, "insert into user2group_table select 100000 + i, 50000 + " + std::string(place) +
                      " from n where i < ?1 order by 2, 1")
        .Run(users);
  }
  Statement(db, "insert into user2delegation_table select 100000 + i, i % ?2 + 1 from n where i < ?1 and i % 10 = 0")
      .Run(users, delegations);
  db.Exec(std::string(kRecalculate) + "; commit");
}

}  // namespace bench
