// Opening a file safely, a handle that follows the file at its path, and several processes on one file.
#include "role/role_db_handler.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <optional>

#include "role/role_db_scope.h"
#include "storage/delegation_db_handler.h"
#include "storage/delegation_db_strategy.h"
#include "support/log_capture.h"
#include "support/temp_database.h"

namespace NIMBO::QUAYPOST_SERVER {
namespace {

namespace fs = std::filesystem;
using Rows = std::vector<std::string>;

RoleDBHandler* Current() { return DelegationDBHandler::GetDelegationDBHandler(); }

bool StoresUser(RoleDBHandler* handle, int uid) {
  RoleSQLCmd cmds;
  cmds.Add("insert into user_table values (" + std::to_string(uid) + ", 'ann')");
  return handle && handle->ExeCmds(cmds, true) == 0;
}

Rows Uids(const TempDatabase& database) { return database.Rows("select uid from user_table"); }

TEST(DatabaseFile, IsMadeForOwnerAndGroupWhateverTheUmask) {
  for (const mode_t mask : {0u, 077u}) {
    TempDatabase database;
    const mode_t before = umask(mask);
    EXPECT_NE(Current(), nullptr);
    umask(before);
    EXPECT_EQ(fs::status(database.Path()).permissions(), fs::perms{0640}) << "umask " << mask;
  }
}

TEST(DatabaseFile, ThatSomebodyElseMayHaveChosenIsRefused) {
  const std::pair<std::string, std::function<void(const std::string&)>> cases[] = {
      {" is not a regular file", [](auto& path) { fs::create_symlink("good.db", path); }},
      {" is not a regular file", [](auto& path) { fs::create_symlink("none.db", path); }},
      {" is not a regular file", [](auto& path) { fs::create_directory(path); }},
      {" can be written by everybody",
       [](auto& path) {
         fs::copy(fs::path(path).replace_filename("good.db"), path);
         fs::permissions(path, fs::perms{0642});
       }},
  };
  for (const auto& [reason, make] : cases) {
    TempDatabase database;
    EXPECT_NE(DelegationCustomPathDBStrategy(database.Directory() + "/good.db").GetDelegationDBHandler(), nullptr);
    make(database.Path());
    LogCapture log;
    EXPECT_EQ(Current(), nullptr);
    EXPECT_EQ(log.Texts(), (Rows{"database file " + database.Path() + reason, "delegation db error"}));
    EXPECT_FALSE(fs::exists(database.Directory() + "/none.db"));
  }
}

TEST(DatabaseFile, MayLieBehindALinkedDirectoryAndHaveANameLikeAUri) {
  TempDatabase database;
  const fs::path before = fs::current_path();
  fs::current_path(database.Directory());
  fs::create_directory("real");
  fs::create_directory_symlink("real", "link");
  for (const std::string name : {"link/a.db", "file:a.db?mode=memory"}) {
    EXPECT_TRUE(StoresUser(DelegationCustomPathDBStrategy(name).GetDelegationDBHandler(), 1)) << name;
    EXPECT_TRUE(fs::is_regular_file(name)) << name;
  }
  fs::current_path(before);
}

int SwitchForeignKeysOn(sqlite3* db, char**, const void*) {
  return sqlite3_db_config(db, SQLITE_DBCONFIG_ENABLE_FKEY, 1, nullptr);
}

TEST(Connection, IsDefensiveAndChecksNoForeignKeysWhateverTheDefaults) {
  TempDatabase database;
  const auto extension = reinterpret_cast<void (*)()>(&SwitchForeignKeysOn);
  sqlite3_auto_extension(extension);
  RoleDBHandler* handle = Current();
  sqlite3_cancel_auto_extension(extension);
  ASSERT_NE(handle, nullptr);
  const std::pair<int, int> settings[] = {
      {SQLITE_DBCONFIG_ENABLE_FKEY, 0}, {SQLITE_DBCONFIG_DEFENSIVE, 1}, {SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0}};
  for (const auto& [setting, expected] : settings) {
    int value = -1;
    sqlite3_db_config(handle->GetDB(), setting, -1, &value);
    EXPECT_EQ(value, expected) << setting;
  }
}

TEST(Handle, OfAVanishedFileIsGoneUntilTheFileIsBack) {
  TempDatabase database;
  RoleDBHandler* const handle = Current();
  for (const bool close : {false, true}) {
    fs::rename(database.Path(), database.Path() + ".away");
    if (close) DelegationDBHandler::CloseDelegationDBHandler();
    LogCapture log;
    EXPECT_EQ(Current(), nullptr);
    EXPECT_EQ(log.Texts(), (Rows{"database file " + database.Path() + " has vanished", "delegation db error"}));
    DelegationCustomPathDBStrategy otherwise(database.Directory() + "/./delegation.db");
    EXPECT_EQ(otherwise.GetDelegationDBHandler(), nullptr);
    EXPECT_FALSE(fs::exists(database.Path())) << "from a new file nobody would have anything";
    fs::rename(database.Path() + ".away", database.Path());
    EXPECT_TRUE(StoresUser(Current(), close));
    EXPECT_TRUE(close || Current() == handle);
  }
}

pid_t Fork(const std::function<bool()>& work) {
  const pid_t child = fork();
  if (child == 0) _exit(work() ? 0 : 1);
  return child;
}

bool Succeeded(pid_t child) {
  int status = -1;
  return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST(Processes, ForkedBetweenCallsHaveAConnectionEach) {
  TempDatabase database;
  RoleDBHandler* const handle = Current();
  ASSERT_NE(handle, nullptr);
  sqlite3* const connection = handle->GetDB();
  const auto storeSome = [](int first) {
    bool stored = true;
    for (int uid = first; uid < first + 25; ++uid) stored = StoresUser(Current(), uid) && stored;
    return stored;
  };
  const pid_t child = Fork([&] {
    const bool refused = !StoresUser(handle, 99);  // the parent's connection
    return refused && Current() == handle && storeSome(100);
  });
  EXPECT_TRUE(storeSome(0));
  EXPECT_TRUE(Succeeded(child));
  EXPECT_EQ(handle->GetDB(), connection);
  EXPECT_EQ(Uids(database).size(), 50u);
}

TEST(Processes, ForkedInsideATransactionHaveNoDatabase) {
  TempDatabase database;
  RoleDBHandler* const handle = Current();
  std::optional<RoleDBScope> scope(std::in_place, handle, RoleDBScope::kWrite);
  ASSERT_TRUE(StoresUser(handle, 1));
  LogCapture log;
  const auto hasNone = [&] {
    if (DelegationCustomPathDBStrategy(database.Path()).GetDelegationDBHandler()) return false;
    if (Current() || scope->Usable() || StoresUser(handle, 2) || scope->Commit()) return false;
    scope.reset();
    if (DelegationCustomPathDBStrategy(database.Path()).GetDelegationDBHandler()) return false;
    const bool refused = !Current() && !StoresUser(handle, 3);
    DelegationDBHandler::CloseDelegationDBHandler();
    return refused && !Current() && !DelegationCustomPathDBStrategy(database.Path()).GetDelegationDBHandler() &&
           log.Has("process " + std::to_string(getpid()) +
                   " was forked with a database in use: it has none until it calls exec");
  };
  EXPECT_TRUE(Succeeded(Fork(hasNone)));
  EXPECT_TRUE(database.Locked()) << "the parent still holds its lock";
  EXPECT_TRUE(scope->Commit());
  EXPECT_EQ(Uids(database), Rows{"1"});
}

// The parent's close would remove the log that the child writes to.
TEST(Processes, ForkedWithAWriteAheadLogOpenHaveNoDatabase) {
  for (const bool switchedWhileOpen : {false, true}) {
    TempDatabase database;
    EXPECT_TRUE(!switchedWhileOpen || StoresUser(Current(), 0));
    database.Exec("pragma journal_mode = wal");
    ASSERT_TRUE(StoresUser(Current(), 1));
    EXPECT_TRUE(Succeeded(Fork([] { return !Current(); })));
    EXPECT_TRUE(StoresUser(Current(), 2));
  }
}

}  // namespace
}  // namespace NIMBO::QUAYPOST_SERVER
