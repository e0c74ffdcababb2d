// Users, groups, delegations and entries as records, and what they are assigned by.
#include "support/records.h"
#include "api/delegation_api.h"
#include "role/role_db_scope.h"
#include "support/documents.h"

namespace NIMBO::QUAYPOST_SERVER {
namespace {

class Records : public DatabaseTest {
 protected:
  Records() {
    Exec(
        "insert into user_table values (1001, 'ann'), (1002, 'bob');"
        "insert into group_table values (200, 'ops');"
        "insert into delegation_table values (1, 'A', 'none', 5), (2, 'B', 'none', 9);"
        "insert into user2group_table values (1001, 200), (1002, 200)");
  }
  // What delegation `idx` holds, by type.
  std::string EntriesOf(int idx) const {
    return Rows("select type || '=' || data from delegation2delegation_entry_view where delegationidx = " +
                std::to_string(idx) + " order by type");
  }

  const std::shared_ptr<RoleRole> a = Role(1, "A", 5);
};

TEST_F(Records, OfAGroupKeepItsMembersWithinACallThatCannotStoreNewOnes) {
  host.AddUser("eve", 1005);
  host.AddGroup("ops", 200, {"eve"});
  Forbid("insert on user2group_table");
  RoleDBScope call(Handle(), RoleDBScope::kWrite);
  EXPECT_FALSE(GroupRecord(200, "ops")->Refresh());
  EXPECT_TRUE(call.Commit());
  EXPECT_EQ(Rows("select uid from user2group_table where gid = 200 order by 1"), "1001 1002");
}

TEST_F(Records, AreInForceForStoredUsersOnly) {
  Users users{User(1001, "ann"), User(1009, "eve")};
  EXPECT_FALSE(a->AssignPolicyToUserReal(users));
  EXPECT_EQ(Rows("select * from user2delegation_real_table"), "");
}

TEST_F(Records, OfADelegationFollowTheDefaultTypesAndKeepTheirData) {
  Exec(
      "insert into delegation_entry_table values (1, 'queue', 'true'), (2, 'old', 'true'), (3, 'gone', 'x');"
      "insert into delegation2delegation_entry_table values (1, 1), (1, 2), (1, 3), (2, 2)");
  Entries defaults{Entry(-2, "service", "false"), Entry(-3, "queue", "false"), Entry(-4, "queue", "later")};
  EXPECT_TRUE(a->Refresh(defaults));
  EXPECT_EQ(EntriesOf(1), "queue=true service=false") << "queue, nobody's for a moment, is back with its data";
  EXPECT_EQ(EntriesOf(2), "old=true");
  EXPECT_EQ(Rows("select type from delegation_entry_table order by 1"), "old queue service");
  const int before = Writes();
  EXPECT_TRUE(a->Refresh(defaults)) << "in line";
  EXPECT_EQ(Writes(), before);
  Exec("update delegation_entry_table set type = 'gone' where type = 'service'");
  Forbid("insert on delegation_entry_table");
  EXPECT_FALSE(a->Refresh(defaults));
  EXPECT_EQ(EntriesOf(1), "") << "outside an exported call nothing brings them back";
}

TEST_F(Records, AreAssignedByAListOfTheirKindAndAnExceptionIsAFailure) {
  DelegationCustomDelegation low(1, "A", "none", 5);
  const Json::Value group = Change(R"({"to": ["group ops"]})")["user_group"];
  EXPECT_FALSE(DelegationUserAssignDelegationV2(low, group) || DelegationUserAssignDelegationV2(low, 7) ||
               DelegationGroupAssignDelegationV2(low, "text"));
  EXPECT_EQ(log.Texts(), (Texts{"userInfo has wrong paramter group", "info is not array", "info is not array"}));
  host.Fail(FakeHost::kAccountType, FakeHost::kThrows);
  EXPECT_EQ(DelegationUserAllowWebapi("ann", "Webapi_Queue_Flush_v1"), -1);
  EXPECT_TRUE(log.Has("exception: the platform throws"));
}

}  // namespace
}  // namespace NIMBO::QUAYPOST_SERVER
