// What changes and listings cost: recalculation, create, the entries of a delegation, the list of delegations.
//
// usage: store_bench [--quick]
#include <memory>
#include <optional>

#include "api/delegation_api.h"
#include "calculator/delegation_calculator.h"
#include "handlers/delegation_db_delegation.h"
#include "model/delegation_delegation.h"
#include "model/delegation_delegation_entry.h"
#include "model/delegation_user.h"
#include "pairs.h"
#include "platform/nimbsdk.h"
#include "role/role_db_scope.h"
#include "storage/delegation_db_handler.h"
#include "tables/delegation_default_entries.h"
#include "world.h"

using namespace bench;
using namespace NIMBO::QUAYPOST_SERVER;

namespace {

using Users = std::vector<std::shared_ptr<RoleUser>>;
using Entries = std::vector<std::shared_ptr<RoleRoleEntry>>;

// Everything that a pair's closures work on.
struct World {
  World(const Directory& directory, const std::string& name, int users, int delegations = kDelegations)
      : path((MakeDatabase(directory / name, users, delegations), directory / name)), aside(path), limit(path) {}
  const std::string path;
  const Plain aside;  ///< prepares between the turns, so that both sides find the file changed by somebody else
  const Plain limit;
};

template <class Body>
void InWriteScope(Body body) {
  RoleDBScope scope(DelegationDBHandler::GetDelegationDBHandler(), RoleDBScope::kWrite);
  Require(body() && scope.Commit(), "the library has failed");
}

// Both sides must leave the same behind.
void Compare(const World& world, const Pair& pair, const std::string& query) {
  std::vector<std::string> found[2];
  for (const auto* side : {&pair.library, &pair.limit}) {
    pair.setup();
    if (pair.before) pair.before();
    (*side)();
    found[side == &pair.limit] = world.aside.Rows(query);
  }
  Require(found[0] == found[1] && !found[0].empty(), pair.name + ": library and limit disagree");
}

// ---- Recalculation ----

// Of everybody, where nobody has an effective delegation yet, or where all have the right one already.
void MeasureRecalculation(const Directory& directory, int n, bool unchanged) {
  const std::string name = unchanged ? "recalculate_unchanged" : "recalculate";
  const auto world = std::make_shared<World>(directory, name + std::to_string(n) + ".db", n);
  auto users = std::make_shared<Users>();
  Require(DelegationUser::List(Json::nullValue, *users), "cannot list");
  Pair pair{name, n, 9};
  pair.setup = [=] { UseDatabase(world->path); };
  if (!unchanged) pair.before = [=] { world->aside.Exec("delete from user2delegation_real_table"); };
  pair.library = [=] { InWriteScope([&] { return DelegationCalculator().CalculateUser(*users); }); };
  pair.limit = [=] { world->limit.Exec(std::string("begin immediate; ") + kRecalculate + "; commit"); };
  if (n == 1000) Compare(*world, pair, "select * from user2delegation_real_table order by 1");
  Measure(pair);
}

// ---- Create ----

Json::Value Document(int assignees) {
  Json::Value document;
  std::vector<std::string> types;
  DelegationUtilGetAllDefaultTypeDelegationEntry(types);
  for (const std::string& type : types) document[type] = type < "n" ? "true" : "false";
  document["name"] = "Created";
  document["color"] = "none";
  document["priority"] = 50;
  for (int i = 0; i < assignees; ++i) {
    Json::Value assignee;
    assignee["type"] = "user";
    assignee["name"] = UserName(i);
    document["user_group"].append(assignee);
  }
  return document;
}

enum class Prepared { kEachTime, kOnce };

// A statement of a create, prepared anew for each run or once for all of them.
class Step {
 public:
  Step(const Plain& db, const char* sql, Prepared prepared) : db_(db), sql_(sql) {
    if (prepared == Prepared::kOnce) once_.emplace(db, sql);
  }
  template <class... Values>
  void Run(const Values&... values) const {
    if (once_) {
      once_->Run(values...);
    } else {
      Statement(db_, sql_).Run(values...);
    }
  }

 private:
  const Plain& db_;
  const char* const sql_;
  std::optional<Statement> once_;
};

// What a create by the rules asks and writes, in one transaction and with one host lookup for each assignee.
void WriteCreated(const Plain& db, const Json::Value& document, Prepared prepared) {
  const NIMBOAccountScope accounts(NIMBOAccountScope::kRemember);
  std::vector<std::pair<unsigned int, std::string>> users;
  for (const Json::Value& assignee : document["user_group"]) {
    NIMBOUSER* user = nullptr;
    Require(NIMBOUserGet(assignee["name"].asCString(), &user) == NIMBO_OK, "no such account");
    users.emplace_back(user->uid, user->szName);
    NIMBOUserFree(user);
  }
  db.Exec("begin immediate");
  Statement(db, "insert into delegation_table(name, color, priority) values(?1, 'none', ?2)")
      .Run(document["name"].asString(), document["priority"].asInt());
  const long long id = sqlite3_last_insert_rowid(db.get());
  const Statement stored(db, "select delegationentryidx, type, data from delegation_entry_table");
  const Step link(db, "insert into delegation2delegation_entry_table values(?1, ?2)", prepared);
  for (stored.Bind(); stored.Next();) {
    if (document[stored.Text(1)] == stored.Text(2)) link.Run(id, stored.Int(0));
  }
  // Whether the user is known; if not, the row, and no links that a former owner of the uid has left.
  const Step known(db, "select exists (select 1 from user_table where uid = ?1)", prepared);
  const Step user(db, "insert into user_table values(?1, ?2)", prepared);
  const Step policies(db, "delete from user2delegation_table where uid = ?1", prepared);
  const Step groups(db, "delete from user2group_table where uid = ?1", prepared);
  const Step assigned(db, "insert or replace into user2delegation_table values(?1, ?2)", prepared);
  for (const auto& [uid, name] : users) {
    known.Run(uid);
    user.Run(uid, name);
    policies.Run(uid);
    groups.Run(uid);
    assigned.Run(uid, id);
  }
  // Of the direct and the inherited ones the highest.
  const Step direct(db, "select * from user2delegation_view where uid = ?1 order by priority desc", prepared);
  const Step inherited(db, "select * from user2group_view where uid = ?1", prepared);
  const Step effective(db, "insert or replace into user2delegation_real_table values(?1, ?2)", prepared);
  for (const auto& [uid, name] : users) {
    direct.Run(uid);
    inherited.Run(uid);
    effective.Run(uid, id);
  }
  db.Exec("commit");
}

// A delegation for n users that the database does not know yet.
void MeasureCreate(const Directory& directory, int n, Prepared prepared) {
  const std::string measured = prepared == Prepared::kOnce ? "create_prepared_once" : "create";
  const std::string name = measured + std::to_string(n);
  const auto world = std::make_shared<World>(directory, name + ".db", 0);
  world->limit.Exec("pragma cache_spill = off");
  const std::string passwd = directory / name + ".passwd", group = directory / name + ".group";
  WriteAccounts(passwd, group, n);
  const auto document = std::make_shared<Json::Value>(Document(n));
  Pair pair{measured, n, n > 1000 ? 3 : 9};
  pair.setup = [=] {
    UseDatabase(world->path);
    NIMBOUseAccountFiles(passwd.c_str(), group.c_str());
  };
  pair.before = [=] {
    world->aside.Exec(
        "begin; delete from user_table; delete from user2delegation_table; delete from user2delegation_real_table; "
        "delete from delegation2delegation_entry_table where delegationidx > 20; delete from delegation_table where "
        "delegationidx > 20; commit");
  };
  pair.library = [=] {
    int id = -1;
    Require(DelegationDelegationCreate(*document, id), "the library has failed");
  };
  pair.limit = [=] { WriteCreated(world->limit, *document, prepared); };
  if (n == 1000) {
    Compare(*world, pair,
            "select 1, * from user_table union all select 2, * from user2delegation_table union all select 3, * from "
            "user2delegation_real_table union all select 4, * from delegation2delegation_entry_table union all select "
            "delegationidx, name || color, priority from delegation_table order by 1, 2, 3");
  }
  Measure(pair);
}

// ---- Entries ----

// Stores no links, so that only finding the entries is left of SetPolicyEntry.
class FindingOnly : public DelegationCustomDelegation {
 public:
  FindingOnly() : DelegationCustomDelegation(1, "Delegation 0", "none", 0) {}
  std::shared_ptr<PolicyPolicyDBHandler> GetPolicyDBHandler() override {
    struct Handler : DelegationDelegationDBHandler {
      bool AssignPolicyEntryToPolicy(RoleRole&, Entries&) override { return true; }
    };
    return std::make_shared<Handler>();
  }
};

void MeasureFinding(const Directory& directory) {
  const auto world = std::make_shared<World>(directory, "entries.db", 1000);
  const auto find = [] {
    std::vector<std::string> types;
    DelegationUtilGetAllDefaultTypeDelegationEntry(types);
    Entries entries;
    for (const std::string& type : types) {
      entries.push_back(std::make_shared<DelegationDelegationEntry>(-1, type, type < "n" ? "true" : "false"));
    }
    const bool done = FindingOnly().SetPolicyEntry(entries);
    return done && entries.front()->getPolicyEntryIdx() > 0;
  };
  const auto list = [] {
    Entries stored;
    return DelegationDelegationEntry::List(Json::nullValue, stored) && stored.size() == 58;
  };
  Pair pair{"find_entries", 29};
  pair.setup = [=] { UseDatabase(world->path); };
  pair.library = [=] { InWriteScope(find); };
  pair.limit = [=] { InWriteScope(list); };
  Measure(pair);
}

// ---- List ----

Json::Value ListWithOneStatement(const Plain& db) {
  static const Statement rows(db,
                              "select d.delegationidx, name, color, priority, type, data from delegation_table d join "
                              "delegation2delegation_entry_table l on l.delegationidx = d.delegationidx join "
                              "delegation_entry_table e on e.delegationentryidx = l.delegationentryidx order by 1");
  Json::Value list = Json::arrayValue;
  Json::Value* document = nullptr;
  for (rows.Bind(); rows.Next();) {
    const auto id = static_cast<int>(rows.Int(0));
    if (!document || (*document)["id"] != id) {
      document = &list.append(Json::objectValue);
      (*document)["id"] = id;
      (*document)["name"] = rows.Text(1);
      (*document)["color"] = rows.Text(2);
      (*document)["priority"] = static_cast<int>(rows.Int(3));
    }
    (*document)[rows.Text(4)] = rows.Text(5);
  }
  return list;
}

void MeasureList(const Directory& directory) {
  const auto world = std::make_shared<World>(directory, "list.db", 1000, 100);
  const auto list = [] {
    Json::Value delegations;
    Require(DelegationDelegationList(Json::nullValue, delegations), "the library has failed");
    return delegations;
  };
  Require(list() == ListWithOneStatement(world->limit), "list: library and limit disagree");
  Pair pair{"list", 100};
  pair.setup = [=] { UseDatabase(world->path); };
  pair.library = list;
  pair.limit = [=] { ListWithOneStatement(world->limit); };
  Measure(pair);
}

}  // namespace

int main(int argc, char**) {
  const bool quick = argc > 1;
  const Directory memory(Directory::kMemory);
  WriteConfiguration(memory);
  for (const int n : quick ? std::vector{1000, 10000} : std::vector{1000, 10000, 100000}) {
    MeasureRecalculation(memory, n, false);
    MeasureRecalculation(memory, n, true);
    MeasureCreate(memory, n, Prepared::kEachTime);
  }
  MeasureCreate(memory, 1000, Prepared::kOnce);
  MeasureFinding(memory);
  MeasureList(memory);
  return RunAll();
}
