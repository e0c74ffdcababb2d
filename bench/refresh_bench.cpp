// What a refresh costs, and how long it keeps others from checking.
//
// usage: refresh_bench [--quick]
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <tuple>

#include "api/delegation_api.h"
#include "pairs.h"
#include "platform/nimbsdk.h"
#include "storage/delegation_db_handler.h"
#include "world.h"

using namespace bench;
using namespace NIMBO::QUAYPOST_SERVER;

namespace {

// A host of n users in files, and a database.
struct World {
  World(const Directory& where, int n) : directory(where), passwd(where / "passwd"), group(where / "group"), users(n) {
    Move(0);
    Require(NIMBOUseAccountFiles(passwd.c_str(), group.c_str()) == NIMBO_OK, "cannot use " + passwd);
    WriteConfiguration(directory);
  }
  void Move(int moved) const { WriteAccounts(passwd, group, users, moved); }

  const Directory& directory;
  const std::string passwd;
  const std::string group;
  const int users;
};

double RefreshTime() {
  return NanosecondsOf([] { Require(DelegationRefresh(), "the library has failed"); });
}

// The first refresh stores everybody, the second finds one user in a hundred in other groups, the third no change.
void MeasureRefresh(int users) {
  const Directory directory(Directory::kDisk);
  const World world(directory, users);
  MakeDatabase(directory / "delegation.db", 0);
  const Plain db(directory / "delegation.db");
  Print("refresh_first", users, {{"library_ns", RefreshTime()}});
  Require(db.Rows("select count(*) from user_table")[0] == std::to_string(users), "users are missing");
  world.Move(users / 100);
  Print("refresh_changed", users, {{"library_ns", RefreshTime()}});
  Print("refresh_unchanged", users, {{"library_ns", RefreshTime()}});
}

// How many pages the library has written so far.
int PagesWritten() {
  int pages = 0, unused = 0;
  sqlite3_db_status(DelegationDBHandler::GetDelegationDBHandler()->GetDB(), SQLITE_DBSTATUS_CACHE_WRITE, &pages,
                    &unused, 0);
  return pages;
}

// The COMMIT of so many rewritten pages, by itself.
double CommitTime(const std::string& path, int pages) {
  const Plain db(path);
  db.Exec(
      "pragma cache_spill = off; begin; drop table if exists page; create table page(id integer primary key, data)");
  Statement(db,
            "insert into page with recursive c(i) as (select 1 union all select i + 1 from c where i < ?1) "
            "select i, randomblob(4000) from c")
      .Run(pages);
  db.Exec("commit; begin; update page set data = randomblob(4000)");
  return NanosecondsOf([&] { db.Exec("commit"); });
}

// The longest check in another process while `operation` runs. That one has accounts of its own, which stay.
double LongestCheckDuring(const World& world, const std::function<void()>& operation) {
  const std::string own = world.directory / "own";
  const std::string command = "exec " CHECKER " " + (world.directory / "mailserver.conf ") +
                              std::to_string(world.users) + " 0 " + own + ".passwd " + own + ".group";
  std::FILE* checker = popen(command.c_str(), "r");
  int process = 0;
  double longest = 0;
  Require(std::fscanf(checker, "%d", &process) == 1, "failed: " + command);
  operation();
  kill(process, SIGTERM);
  Require(std::fscanf(checker, "%lf", &longest) == 1, "failed: " + command);
  pclose(checker);
  return longest;
}

// Of several rounds the one that other work on the machine has disturbed least.
void MeasureOthers(int users, int rounds) {
  const Directory directory(Directory::kDisk);
  const World world(directory, users);
  WriteAccounts(directory / "own.passwd", directory / "own.group", users);
  const std::string path = directory / "delegation.db";
  MakeDatabase(path, users);
  Require(DelegationRefresh(), "the library has failed");
  double rewriting = 1e18, commit = 1, unchanged = 1e18, idle = 1e18;
  int pages = 0;
  for (int round = 0; round < rounds; ++round) {
    world.Move(round % 2 == 0 ? users : 0);
    const int before = PagesWritten();
    double duration = 0;
    const double longest = LongestCheckDuring(world, [&] { duration = RefreshTime(); });
    pages = PagesWritten() - before;
    const double limit = CommitTime(directory / "commit.db", pages);
    if (longest / limit < rewriting / commit) std::tie(rewriting, commit) = std::tie(longest, limit);
    unchanged = std::min(unchanged, LongestCheckDuring(world, [&] { duration = RefreshTime(); }));
    idle = std::min(idle, LongestCheckDuring(world, [&] { usleep(static_cast<useconds_t>(duration / 1000)); }));
  }
  Print("check_during_refresh", users,
        {{"library_ns", rewriting}, {"limit_ns", commit}, {"ratio", rewriting / commit}, {"pages", pages}});
  Print("check_during_unchanged", users, {{"library_ns", unchanged}, {"idle_ns", idle}});
}

}  // namespace

int main(int argc, char**) {
  const bool quick = argc > 1;
  for (const int users : quick ? std::vector{1000, 10000} : std::vector{1000, 10000, 100000}) MeasureRefresh(users);
  MeasureOthers(quick ? 2000 : 20000, 5);
}
