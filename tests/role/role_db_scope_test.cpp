// Transactions: nesting, what lets a scope commit, and what happens when another process is in the way.
#include "role/role_db_scope.h"

#include <gtest/gtest.h>

#include <functional>

#include "model/delegation_delegation.h"
#include "model/delegation_delegation_entry.h"
#include "model/delegation_group.h"
#include "model/delegation_user.h"
#include "storage/delegation_db_handler.h"
#include "support/fake_host.h"
#include "support/log_capture.h"
#include "support/temp_database.h"

namespace NIMBO::QUAYPOST_SERVER {
namespace {

using Rows = std::vector<std::string>;

bool StoresUser(unsigned int uid, const std::string& name = "ann") {
  DelegationUser user(uid, name);
  return RoleUser::Create(user);
}

/// A connection as another process has one.
class OtherConnection {
 public:
  explicit OtherConnection(const TempDatabase& database) { sqlite3_open(database.Path().c_str(), &db_); }
  ~OtherConnection() { sqlite3_close(db_); }
  OtherConnection(const OtherConnection&) = delete;
  OtherConnection& operator=(const OtherConnection&) = delete;
  bool Exec(const char* sql) { return sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) == SQLITE_OK; }

 private:
  sqlite3* db_ = nullptr;
};

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

TEST_F(Scope, OfAStepAloneIsNothing) {
  RoleDBScope step(handle_, RoleDBScope::kStep);
  RoleDBHandler* pinned = nullptr;
  EXPECT_TRUE(step.Usable() && !RoleDBScope::Pinned(pinned));
  EXPECT_TRUE(StoresUser(1));
  step.Rollback();
  EXPECT_EQ(Uids(), Rows{"1"});
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
  OtherConnection writer(database_);
  ASSERT_TRUE(writer.Exec("begin immediate"));
  {
    RoleDBScope scope(handle_, RoleDBScope::kWrite);
    ASSERT_TRUE(writer.Exec("rollback")) << "free again, but not for this scope";
    DelegationUser user(1, "ann");
    DelegationGroup group(1, "ops");
    DelegationCustomDelegation delegation(-1, "Helpdesk", "none", 1);
    DelegationDelegationEntry entry(-1, "queue", "true");
    LogCapture log;
    EXPECT_FALSE(RoleUser::Create(user) || RoleGroup::Create(group) || RoleRole::Create(delegation) ||
                 entry._CreateImp() || user.IsExist());
    EXPECT_EQ(log.Texts(), Rows(5, "Open delegationDBHandler cannot open before"));
    EXPECT_FALSE(scope.Usable() || scope.Commit());
  }
  EXPECT_TRUE(StoresUser(2));
  EXPECT_EQ(Uids(), Rows{"2"});
}

TEST_F(Scope, WhoseCommitFailsIsRolledBackAndReadersGetIn) {
  handle_->SetBusyTimeout(20);
  OtherConnection reader(database_);
  ASSERT_TRUE(reader.Exec("begin; select * from user_table"));
  RoleDBScope scope(handle_, RoleDBScope::kWrite);
  EXPECT_TRUE(StoresUser(1));
  EXPECT_FALSE(scope.Commit());
  EXPECT_EQ(Uids(), Rows{}) << "a pending commit would have shut this reader out";
  ASSERT_TRUE(reader.Exec("commit"));
  EXPECT_TRUE(StoresUser(2));
  EXPECT_EQ(Uids(), Rows{"2"});
}

TEST_F(Scope, CommitsAfterBadInputButNotAfterAFailureOfTheEnvironment) {
  FakeHost& host = FakeHost::Instance();
  DelegationUser user(99, "nobody");
  DelegationGroup group(99, "none");
  const auto findUser = [&] { return RoleUser::FromShortUsername("nobody", user); };
  const auto findGroup = [&] { return RoleGroup::FromTypeShortname("group", "none", group); };
  constexpr auto kNone = FakeHost::kFunctionCount;
  const struct {
    const char* what;
    bool commits;
    FakeHost::Function failing;
    std::function<bool()> work;
  } cases[] = {
      {"constraint", true, kNone, [] { return StoresUser(1); }},
      {"over-long text", true, kNone, [] { return StoresUser(2, std::string(3000, 'x')); }},
      {"unknown user", true, kNone, findUser},
      {"unknown group", true, kNone, findGroup},
      {"user lookup", false, FakeHost::kUserGet, findUser},
      {"group lookup", false, FakeHost::kGroupGet, findGroup},
      {"uid lookup", false, FakeHost::kUserGetByUID, [&] { return user.Refresh(); }},
      {"gid lookup", false, FakeHost::kGroupGetByGID, [&] { return group.Refresh(); }},
      {"configuration", false, FakeHost::kAccountType, findUser},
      {"full disk", false, kNone, [] { return RoleDBScope::NoteWriteResult(SQLITE_FULL), false; }},
  };
  for (const auto& [what, commits, failing, work] : cases) {
    database_.Exec("delete from user_table");
    host.Fail(failing, NIMBO_LOOKUP_FAILED);
    {
      RoleDBScope outer(handle_, RoleDBScope::kWrite);
      EXPECT_TRUE(StoresUser(1));
      {
        RoleDBScope inner(handle_, RoleDBScope::kStep);
        EXPECT_FALSE(work()) << what;
        EXPECT_EQ(inner.Commit(), commits) << what;
      }
      EXPECT_EQ(outer.Commit(), commits) << what;
    }
    host.Recover();
    EXPECT_EQ(Uids(), commits ? Rows{"1"} : Rows{}) << what;
    EXPECT_TRUE(StoresUser(5)) << what << " concerns that scope only";
  }
}

}  // namespace
}  // namespace NIMBO::QUAYPOST_SERVER
