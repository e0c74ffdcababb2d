// Which files get the schema, and which file the library works on.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "storage/delegation_db_handler.h"
#include "storage/delegation_db_strategy.h"
#include "support/fake_host.h"
#include "support/log_capture.h"
#include "support/temp_database.h"

namespace NIMBO::QUAYPOST_SERVER {
namespace {

using Rows = std::vector<std::string>;

RoleDBHandler* Current() { return DelegationDBHandler::GetDelegationDBHandler(); }
Rows Schema(const TempDatabase& database) { return database.Rows("select sql from sqlite_master order by sql"); }
Rows Version(const TempDatabase& database) { return database.Rows("pragma user_version"); }

TEST(Schema, OfANewFileHasNineTablesIndexesAndViewsAndVersionOne) {
  TempDatabase database;
  ASSERT_NE(Current(), nullptr);
  EXPECT_EQ(database.Rows("select type, count(*) from sqlite_master where sql is not null group by type"),
            (Rows{"index|9", "table|9", "view|9"}));
  EXPECT_EQ(Version(database), Rows{"1"});
}

TEST(Schema, IsMadeByOneAtATime) {
  TempDatabase database;
  const int lock = open((database.Path() + ".lock").c_str(), O_CREAT | O_RDONLY, 0640);
  EXPECT_EQ(flock(lock, LOCK_EX), 0);
  std::atomic<bool> given_back = false;
  std::thread other([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    given_back = true;
    close(lock);
  });
  EXPECT_TRUE(Current() && given_back);
  other.join();
}

TEST(Schema, OfAFileThatHasAVersionIsLeftAlone) {
  for (const char* version : {"1", "7", "-1"}) {
    TempDatabase database;
    database.Exec(std::string("create table mark(x); pragma user_version = ") + version);
    LogCapture log;
    EXPECT_EQ(Current() == nullptr, *version == '-') << version;
    EXPECT_EQ(log.Has("Upgrade DB fail"), *version == '-');
    EXPECT_EQ(Schema(database), Rows{"CREATE TABLE mark(x)"});
    EXPECT_EQ(Version(database), Rows{version});
  }
}

TEST(Schema, AtVersionZeroIsAcceptedOnlyWhenItIsComplete) {
  for (const std::string change : {"", "create table other(x)", "drop table user_table",
                                   "drop view group2user_view; create view group2user_view as select 1"}) {
    TempDatabase database;
    ASSERT_NE(Current(), nullptr);
    DelegationDBHandler::CloseDelegationDBHandler();
    database.Exec("insert into delegation_table values (1, 'a', 'none', 1); pragma user_version = 0;" + change);
    const Rows before = Schema(database);
    EXPECT_EQ(Current() != nullptr, change.empty()) << change;
    EXPECT_EQ(Schema(database), before) << change;
    EXPECT_EQ(Version(database), Rows{change.empty() ? "1" : "0"});
    EXPECT_EQ(database.Rows("select name from delegation_table"), Rows{"a"});
  }
}

TEST(Strategy, OfCustomPathsSharesAHandleByPathButNotWithTheDefaultOne) {
  TempDatabase database;
  RoleDBHandler* const configured = Current();
  ASSERT_NE(configured, nullptr);
  const auto custom = std::make_shared<DelegationCustomPathDBStrategy>(database.Path());
  RoleDBHandler* const other = custom->GetDelegationDBHandler();
  EXPECT_TRUE(other && other != configured);
  EXPECT_EQ(DelegationCustomPathDBStrategy(database.Path()).GetDelegationDBHandler(), other);
  EXPECT_NE(DelegationCustomPathDBStrategy(database.Path() + "2").GetDelegationDBHandler(), other);

  DelegationDBStrategy::SetDelegationDBStrategy(custom);
  EXPECT_EQ(Current(), other);
  DelegationDBStrategy::SetDelegationDBStrategy(nullptr);
  EXPECT_EQ(Current(), configured) << "still open";
  DelegationDBHandler::CloseDelegationDBHandler();
  EXPECT_NE(other->GetDB(), nullptr) << "only the default one is closed";
}

TEST(Strategy, ThatCannotOpenItsFileTriesAgainAtTheNextCall) {
  TempDatabase database;
  FakeHost& host = FakeHost::Instance();
  const std::string directory = database.Directory() + "/later";
  DelegationCustomPathDBStrategy custom(directory + "/custom.db");
  host.configuration.database.clear();
  EXPECT_EQ(Current(), nullptr);
  host.configuration.database = directory + "/delegation.db";
  EXPECT_TRUE(!Current() && !custom.GetDelegationDBHandler());
  std::filesystem::create_directory(directory);
  EXPECT_TRUE(Current() && custom.GetDelegationDBHandler());
}

}  // namespace
}  // namespace NIMBO::QUAYPOST_SERVER
