// Transactions: nesting, what lets a scope commit, and what happens when another process is in the way.
#include "role/role_db_scope.h"

#include <gtest/gtest.h>

#include "model/delegation_user.h"
#include "role/role_query.h"
#include "storage/delegation_db_handler.h"
#include "support/temp_database.h"

namespace NIMBO::QUAYPOST_SERVER {
namespace {

using Rows = std::vector<std::string>;

bool StoresUser(unsigned int uid, const std::string& name = "ann") {
  DelegationUser user(uid, name);
  return RoleUser::Create(user);
}

class Scope : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(handle_, nullptr); }
  Rows Uids() const { return database_.Rows("select uid from user_table"); }

  TempDatabase database_;
  RoleDBHandler* handle_ = DelegationDBHandler::GetDelegationDBHandler();
};

TEST_F(Scope, KeepsWhatItAndTheScopesAroundItCommit) {
  for (const bool commit : {false, true}) {
    RoleDBScope outer(handle_, RoleDBScope::kWrite);
    EXPECT_TRUE(StoresUser(1));
    for (const auto kind : {RoleDBScope::kWrite, RoleDBScope::kStep}) {
      const unsigned int first = kind == RoleDBScope::kWrite ? 10 : 20;
      {
        RoleDBScope undone(handle_, kind);
        EXPECT_TRUE(StoresUser(first));
      }
      RoleDBScope kept(handle_, kind);
      EXPECT_TRUE(StoresUser(first + 1));
      EXPECT_TRUE(kept.Commit());
    }
    {
      RoleDBScope joined(handle_, RoleDBScope::kRead);
      EXPECT_TRUE(StoresUser(30));
    }
    EXPECT_TRUE(database_.Locked());
    EXPECT_EQ(Uids(), Rows{}) << "nobody sees it before the outermost commit";
    if (!commit) outer.Rollback();
    EXPECT_EQ(outer.Commit(), commit);
    EXPECT_FALSE(database_.Locked());
    EXPECT_EQ(Uids(), commit ? (Rows{"1", "11", "21", "30"}) : Rows{});
  }
}

TEST_F(Scope, OfReadsIsOneSnapshot) {
  database_.Exec("pragma journal_mode = wal");
  DelegationUser user(1, "ann");
  RoleDBScope scope(handle_, RoleDBScope::kRead);
  EXPECT_FALSE(user.IsExist());
  database_.Exec("insert into user_table values (1, 'ann')");
  EXPECT_FALSE(user.IsExist());
  EXPECT_FALSE(StoresUser(2)) << "it would be lost with the snapshot";
  EXPECT_TRUE(scope.Commit());
  EXPECT_TRUE(user.IsExist());
}

TEST_F(Scope, ReadsAStatementThatIsBeingReadAsAnotherOne) {
  const RoleDBScope scope(handle_, RoleDBScope::kRead);
  const auto select = [](const char* values) { return "select column1 from (values " + std::string(values) + ")"; };
  Query outer(*handle_, select("('a'), ('b')"));
  for (const char* expected : {"a", "b"}) {
    ASSERT_TRUE(outer.Next());
    EXPECT_EQ(outer.Text(0), expected);
    Query inner(*handle_, select("('it''s'), ('d')"));
    ASSERT_TRUE(inner.Next());
    EXPECT_EQ(inner.Text(0), "it's");
  }
  EXPECT_FALSE(outer.Next());
  EXPECT_TRUE(outer.Done());
  Query quoted(*handle_, select("('''it''s''')"));
  ASSERT_TRUE(quoted.Next());
  EXPECT_EQ(quoted.Text(0), "'it's'");
}

TEST_F(Scope, LetsReadersInUntilItCommits) {
  sqlite3_exec(handle_->GetDB(), "pragma cache_size = 1", nullptr, nullptr, nullptr);
  RoleDBScope scope(handle_, RoleDBScope::kWrite);
  for (unsigned int uid = 1; uid <= 300; ++uid) ASSERT_TRUE(StoresUser(uid, std::string(1000, 'x')));
  EXPECT_EQ(Uids(), Rows{});
}

TEST_F(Scope, OfABatchStoresAllOfItOrNothing) {
  RoleSQLCmd cmds;
  cmds.Add("insert into user_table values (1, 'ann')");
  cmds.Add("insert into no_such_table values (1)");
  EXPECT_NE(handle_->ExeCmds(cmds, true), 0);
  EXPECT_FALSE(database_.Locked());
  EXPECT_EQ(Uids(), Rows{});
  RoleDBScope scope(handle_, RoleDBScope::kWrite);
  EXPECT_TRUE(StoresUser(2));
  EXPECT_NE(handle_->ExeCmds(cmds, true), 0);
  {
    RoleDBScope step(handle_, RoleDBScope::kStep);
    EXPECT_TRUE(StoresUser(3));
    EXPECT_NE(handle_->ExeCmds(cmds, true), 0);
    EXPECT_FALSE(step.Commit()) << "of the batch only a part is done";
  }
  EXPECT_TRUE(scope.Commit());
  EXPECT_EQ(Uids(), Rows{"2"});
}

TEST_F(Scope, WhoseTransactionIsGoneStoresNothingMore) {
  RoleSQLCmd cmds;
  cmds.Add("insert into user_table values (1, 'ann')");
  RoleDBScope scope(handle_, RoleDBScope::kWrite);
  sqlite3_exec(handle_->GetDB(), "rollback", nullptr, nullptr, nullptr);  // as SQLite itself does after some errors
  EXPECT_TRUE(handle_->ExeCmds(cmds, true) != 0 && handle_->ExeCmds(cmds, false) != 0 && !scope.Commit());
  EXPECT_EQ(Uids(), Rows{});
}

TEST_F(Scope, MayEndBeforeTheOnesInsideItAndKeepsItsHandleOpen) {
  {
    RoleDBScope outer(handle_, RoleDBScope::kWrite);
    RoleDBScope inner(handle_, RoleDBScope::kWrite);
    EXPECT_TRUE(StoresUser(1));
    DelegationDBHandler::CloseDelegationDBHandler();
    EXPECT_TRUE(outer.Commit());
    EXPECT_FALSE(StoresUser(2) || inner.Commit());
  }
  RoleDBHandler* pinned = nullptr;
  EXPECT_FALSE(RoleDBScope::Pinned(pinned));
  EXPECT_EQ(Uids(), Rows{"1"});
}

TEST_F(Scope, ThatCannotBeginLeavesItsWorkWithoutADatabase) {
  handle_->SetBusyTimeout(20);
  sqlite3* writer = nullptr;
  sqlite3_open(database_.Path().c_str(), &writer);
  sqlite3_exec(writer, "begin immediate", nullptr, nullptr, nullptr);
  {
    RoleDBScope scope(handle_, RoleDBScope::kWrite);
    ASSERT_EQ(sqlite3_close(writer), SQLITE_OK) << "free again, but not for this scope";
    EXPECT_FALSE(StoresUser(1) || DelegationUser(1, "ann").IsExist() || scope.Usable() || scope.Commit());
  }
  EXPECT_TRUE(StoresUser(2));
  EXPECT_EQ(Uids(), Rows{"2"});
}

TEST_F(Scope, CommitsAfterBadInputButNotAfterAFailureOfTheEnvironment) {
  const std::pair<int, bool> cases[] = {
      {SQLITE_CONSTRAINT, true}, {SQLITE_TOOBIG, true}, {SQLITE_FULL, false}, {SQLITE_READONLY, false}};
  for (const auto& [result, commits] : cases) {
    database_.Exec("delete from user_table");
    RoleDBScope outer(handle_, RoleDBScope::kWrite);
    EXPECT_TRUE(StoresUser(1));
    {
      RoleDBScope inner(handle_, RoleDBScope::kStep);
      RoleDBScope::NoteWriteResult(result);
      EXPECT_EQ(inner.Commit(), commits) << result;
    }
    EXPECT_EQ(outer.Commit(), commits) << result;
    EXPECT_EQ(Uids(), commits ? Rows{"1"} : Rows{}) << result;
  }
}

}  // namespace
}  // namespace NIMBO::QUAYPOST_SERVER
