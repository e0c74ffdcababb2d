// Which files get the schema, and which file the library works on.
#include <gtest/gtest.h>

#include <filesystem>

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

TEST(Schema, OfAFileThatHasAVersionIsLeftAlone) {
  for (const char* version : {"1", "7", "-1"}) {
    TempDatabase database;
    database.Exec(std::string("create table mark(x); pragma user_version = ") + version);
    LogCapture log;
    EXPECT_EQ(Current() == nullptr, *version == '-') << version;
    EXPECT_EQ(log.FileOf("Upgrade DB fail"), *version == '-' ? "delegation_db_handler.cpp" : "");
    EXPECT_EQ(Schema(database), Rows{"CREATE TABLE mark(x)"});
    EXPECT_EQ(Version(database), Rows{version});
  }
}

TEST(Schema, AtVersionZeroIsAcceptedOnlyWhenItIsComplete) {
  const std::pair<std::string, std::string> cases[] = {
      {"", ""},
      {"drop view group2user_view", "user_table"},
      {"create table other(x)", "user_table"},
      {"drop view group2user_view; create view group2user_view as select 1", "user_table"},
      {"drop table user_table", "group_table"},
  };
  for (const auto& [change, existing] : cases) {
    TempDatabase database;
    ASSERT_NE(Current(), nullptr);
    DelegationDBHandler::CloseDelegationDBHandler();
    database.Exec("insert into delegation_table values (1, 'a', 'none', 1); pragma user_version = 0;" + change);
    const Rows before = Schema(database);
    LogCapture log;
    EXPECT_EQ(Current() != nullptr, change.empty()) << change;
    EXPECT_EQ(log.FileOf("exec db schema fail, err=[1], table " + existing + " already exists"),
              change.empty() ? "" : "delegation_db_handler.cpp");
    EXPECT_EQ(Schema(database), before) << change;
    EXPECT_EQ(Version(database), Rows{change.empty() ? "1" : "0"});
    EXPECT_EQ(database.Rows("select name from delegation_table"), Rows{"a"});
  }
}

TEST(Strategy, OfCustomPathsSharesAHandleByPathButNotWithTheDefaultOne) {
  TempDatabase database;
  FakeHost& host = FakeHost::Instance();
  RoleDBHandler* const configured = Current();
  ASSERT_NE(configured, nullptr);
  EXPECT_EQ(Current(), configured);
  EXPECT_EQ(host.Calls(FakeHost::kConfigPath), 1) << "opened once";

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
  EXPECT_NE(Current(), nullptr);
  EXPECT_EQ(host.Calls(FakeHost::kConfigPath), 2) << "and opened afresh";
}

TEST(Strategy, ThatCannotOpenItsFileTriesAgainAtTheNextCall) {
  TempDatabase database;
  FakeHost& host = FakeHost::Instance();
  const std::string directory = database.Directory() + "/later";
  DelegationCustomPathDBStrategy custom(directory + "/custom.db");
  host.configuration.database.clear();
  LogCapture log;
  EXPECT_TRUE(!Current() && log.Has("GetUserGroupDelegationConfigPath fail"));
  host.configuration.database = directory + "/delegation.db";
  log.Clear();
  EXPECT_TRUE(!Current() && !custom.GetDelegationDBHandler());
  EXPECT_EQ(log.FileOf("delegation db error"), "delegation_db_strategy.cpp");
  std::filesystem::create_directory(directory);
  EXPECT_TRUE(Current() && custom.GetDelegationDBHandler());
}

}  // namespace
}  // namespace NIMBO::QUAYPOST_SERVER
