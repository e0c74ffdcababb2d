// The four table handlers: what they read, skip, write and refuse.
#include "handlers/delegation_db_delegation.h"
#include "handlers/delegation_db_delegation_entry.h"
#include "handlers/delegation_db_group.h"
#include "handlers/delegation_db_user.h"
#include "support/records.h"

namespace NIMBO::QUAYPOST_SERVER {
namespace {

class Handlers : public DatabaseTest {
 protected:
  Handlers() {
    Exec(
        "insert into user_table values (1003, 'cid'), (1001, 'ann'), (1002, 'bob'), (1004, '');"
        "insert into group_table values (201, 'dev'), (200, 'ops'), (202, '');"
        "insert into delegation_table values (1, 'low', 'red', NULL), (2, 'high', NULL, 5), (3, 'mid', 'red', 3),"
        "                                    (4, '', 'red', 9);"
        "insert into delegation_entry_table values (1, 'service', ''), (2, 'queue', 'x'), (3, '', ''), (4, 'free', '');"
        "insert into user2delegation_table select 1001, delegationidx from delegation_table;"
        "insert into user2delegation_table select uid, 2 from user_table where uid != 1001 and uid != 1002;"
        "insert into user2delegation_real_table values (1001, 1), (1003, 99);"
        "insert into group2delegation_table select gid, 1 from group_table;"
        "insert into group2delegation_table select 200, delegationidx from delegation_table where delegationidx > 1;"
        "insert into user2group_table values (1003, 200), (1001, 200), (1004, 200), (1001, 202), (1001, 201);"
        "insert into delegation2delegation_entry_table values (1, 3), (1, 1), (1, 2), (2, 2), (4, 2)");
  }

  DelegationUserDBHandler ofUsers;
  DelegationGroupDBHandler ofGroups;
  DelegationDelegationDBHandler ofRoles;
  DelegationDelegationEntryDBHandler ofEntries;
  const std::shared_ptr<RoleUser> ann = User(1001, "ann"), bob = User(1002, "bob"), noUser = User(4294967295, "x");
  const std::shared_ptr<RoleGroup> ops = GroupRecord(200, "ops"), noGroup = GroupRecord(4294967295, "x");
  const std::shared_ptr<RoleRole> low = Role(1, "low"), high = Role(2, "high", 5), noRole = Role(-1, "new", -3);
  const std::shared_ptr<RoleRoleEntry> queue = Entry(2, "queue", "x"), noEntry = Entry(-1, "new", "");
  Users users;
  Groups groups;
  Roles roles;
  Entries entries;
};

TEST_F(Handlers, GiveValidRecordsInTheirOrder) {
  EXPECT_EQ(ofUsers.FindBelongPolicies(*ann, roles), 0);
  EXPECT_EQ(Show(roles), "2:high 3:mid 1:low");
  EXPECT_EQ(roles[0]->getColor() + std::to_string(roles[2]->getPriority()), "none-1") << "for NULL";
  EXPECT_EQ(ofUsers.FindRealBelongPolicies(*ann, roles), 0);
  EXPECT_EQ(Show(roles), "2:high 3:mid 1:low 1:low") << "appended";
  EXPECT_EQ(ofUsers.FindBelongPolicies(*bob, roles), 0) << "judged by what the list holds";
  roles.clear();
  EXPECT_EQ(ofUsers.FindRealBelongPolicies(*User(1003, "cid"), roles), 1) << "the delegation is gone";
  groups = {noGroup};
  EXPECT_EQ(ofUsers.FindBelongGroups(*ann, groups), 0);
  EXPECT_TRUE(ofRoles.FindBelongUsersNormal(*high, users) && ofRoles.FindBelongPolicyEntries(*low, entries));
  EXPECT_TRUE(ofEntries.FindBelongPolicies(*queue, roles));
  EXPECT_EQ(Show(groups) + ", " + Show(users) + ", " + Show(entries) + ", " + Show(roles),
            "200:ops 201:dev, 1001:ann 1003:cid, queue=x service=, 1:low 2:high");
  EXPECT_EQ(log.Texts(), (Texts{"DelegationEntry(3, , ) is not valid", "Delegation(, red) is not valid"}));
}

TEST_F(Handlers, ReadWhatTheyAreAskedWhileAUsersRowIsOpenFromTheSameState) {
  Exec("pragma journal_mode = wal");
  const auto visit = [&](const auto& role) {
    Exec("delete from delegation2delegation_entry_table");
    EXPECT_EQ(role->FindBelongPolicyEntries(entries), 0);
  };
  EXPECT_EQ(ofUsers.VisitRealBelongPolicies(*ann, visit), 0);
  EXPECT_EQ(Show(entries), "queue=x service=");
}

TEST_F(Handlers, FailInTheirOwnWordsWhereANumberIsNone) {
  Exec("insert into user2delegation_table values (1001, 3000000000)");
  for (const std::string poison : {"priority = 'abc'", "priority = 2147483648", "delegationidx = 3000000000"}) {
    Exec("update delegation_table set priority = 1; update delegation_table set " + poison +
         " where delegationidx = 2");
    EXPECT_EQ(ofUsers.FindBelongPolicies(*ann, roles), -1) << poison;
    EXPECT_FALSE(ofRoles.List(Json::nullValue, roles)) << poison;
    EXPECT_EQ(log.Texts(), (Texts{"convert data error", "convert data error"})) << poison;
    log.Clear();
  }
  Exec(
      "insert into user_table values (5000000000, 'x'); insert into user2group_table values (5000000000, 200);"
      "insert into delegation_entry_table values (3000000000, 'x', '')");
  EXPECT_FALSE(ofUsers.List(Json::nullValue, users));
  EXPECT_EQ(ofGroups.FindBelongUsers(*ops, users), -1);
  EXPECT_FALSE(ofEntries.Create(*noEntry));
  EXPECT_FALSE(ofEntries.List(Json::nullValue, entries));
  EXPECT_FALSE(ofGroups.List(Json::nullValue, groups));
  Exec(
      "update group_table set gid = 5000000000 where gid = 202;"
      "insert into user2group_table values (1001, 5000000000)");
  EXPECT_FALSE(ofGroups.List(Json::nullValue, groups));
  EXPECT_EQ(ofUsers.FindBelongGroups(*ann, groups), -1);
  EXPECT_EQ(log.Texts(), (Texts{"convert uid error", "convert data error", "parse policy entry index error",
                                "fail to search delegation entry", "update policy entry index error",
                                "gid grupname is invalid", "convert gid error", "convert uid error"}));
}

TEST_F(Handlers, WriteNothingForARecordThatIsNotValidOrAlreadyHasAnIndex) {
  const int before = Writes();
  users = {ann};
  groups = {ops};
  entries = {queue};
  EXPECT_FALSE(ofUsers.Update(*noUser) || ofGroups.Update(*noGroup) || ofRoles.Create(*high) ||
               ofRoles.Update(*noRole) || ofEntries.Create(*queue) || ofEntries.Update(*noEntry));
  EXPECT_EQ(
      log.Texts(),
      (Texts{"user is not valid", "group is not valid", "Delegation has setting before (2, high, none, 5)",
             "Delegation haven't setting before (-1, new, none, -3)",
             "Delegation Entry has setting before (2, queue, x)", "Delegation haven't setting before (-1, new)"}));
  EXPECT_FALSE(ofGroups.AssignGroupToUser(*noGroup, users) || ofRoles.AssignPolicyToUserReal(*noRole, users) ||
               ofRoles.AssignPolicyToGroup(*noRole, groups) || ofRoles.UnassignPolicyToGroup(*noRole, *ops) ||
               ofRoles.AssignPolicyEntryToPolicy(*noRole, entries));
  EXPECT_EQ(Writes(), before);
}

TEST_F(Handlers, SkipInvalidMembersOfAListAndWriteTheRest) {
  users = {ann, noUser, User(1003, "cid")};
  groups = {ops, noGroup, GroupRecord(201, "dev")};
  EXPECT_TRUE(ofGroups.UnassignGroupToUser(*ops, users) && ofRoles.UnassignPolicyToUserNormal(*high, users) &&
              ofRoles.UnassignPolicyToUserReal(*high, users) && ofRoles.UnassignPolicyToGroup(*low, groups));
  EXPECT_EQ(log.Texts(), Texts(4, "Error uses is invalid"));
  EXPECT_EQ(Rows("select * from user2group_table where gid = 200"), "1004|200");
  EXPECT_EQ(Rows("select * from user2delegation_table where delegationidx = 2"), "1004|2");
  EXPECT_EQ(Rows("select * from user2delegation_real_table"), "") << "whichever delegation the row names";
  EXPECT_EQ(Rows("select gid from group2delegation_table where delegationidx = 1"), "202");

  log.Clear();
  entries = {Entry(4, "free", ""), Entry(9, "gone", ""), Entry(3, "", ""), queue};
  EXPECT_TRUE(ofRoles.AssignPolicyEntryToPolicy(*low, entries));
  EXPECT_EQ(Rows("select * from delegation2delegation_entry_table where delegationidx = 1"), "1|2 1|4");
  EXPECT_TRUE(ofRoles.UnassignPolicyToPolicyEntries(*low, entries));
  EXPECT_EQ(log.Texts(), (Texts{"Delegation Entries [1] not exist, so skip it",
                                "Delegation Entries [2] not valid, so skip it", "Error delegation entry is invalid"}));
  EXPECT_EQ(Rows("select * from delegation2delegation_entry_table"), "2|2 4|2");
}

TEST_F(Handlers, DeleteAListWholeOrUpToTheFailureOrAroundIt) {
  Forbid("delete on user_table", "old.uid = 1002");
  Forbid("delete on group_table", "old.gid = 201");
  Forbid("delete on delegation_entry_table", "old.delegationentryidx = 2");
  users = {ann, bob, User(1003, "cid")};
  groups = {ops, GroupRecord(201, "dev"), GroupRecord(202, "")};
  EXPECT_FALSE(ofUsers.Delete(users) || ofGroups.Delete(groups));
  entries = {Entry(1, "service", ""), queue, Entry(4, "free", "")};
  EXPECT_TRUE(ofEntries.Delete(entries));
  EXPECT_EQ(Rows("select uid from user_table") + ", " + Rows("select gid from group_table") + ", " +
                Rows("select delegationentryidx from delegation_entry_table"),
            "1001 1002 1003 1004, 201 202, 2 3");
  EXPECT_TRUE(log.Has("Cannot delete") && log.Has("delegation entry (2, queue, x) cannot delete"));

  Forbid("insert on delegation2delegation_entry_table", "new.delegationentryidx = 3");
  entries = {queue, Entry(3, "x", "")};
  EXPECT_FALSE(ofRoles.AssignPolicyEntryToPolicy(*low, entries));
  EXPECT_EQ(Rows("select * from delegation2delegation_entry_table where delegationidx = 1"), "1|1 1|2 1|3");
}

TEST_F(Handlers, FindWhatNothingHoldsAnyMore) {
  Users idle{noUser};
  Exec("insert into user2group_table values (1005, 201); insert into user_table values (1005, 'eve')");
  users = {noUser, ann, bob, User(1003, ""), User(1004, "dan"), User(1005, "eve"), User(1009, "gone")};
  EXPECT_TRUE(ofUsers.GetNeedRemoveUser(users, idle));
  EXPECT_EQ(idle, Users{bob});
  Groups anyGroup{noGroup};
  groups = {ops, noGroup};
  EXPECT_TRUE(ofGroups.GetNeedRemoveGroup(groups, anyGroup));
  EXPECT_EQ(anyGroup, Groups{ops});
  Exec(
      "insert into delegation_table values (5, 'poison', '', 'abc');"
      "insert into delegation2delegation_entry_table values (5, 1)");
  Entries unheld{noEntry};
  entries = {queue, Entry(1, "service", ""), noEntry, Entry(4, "free", ""), Entry(9, "gone", "")};
  EXPECT_TRUE(ofEntries.GetNeedRemovePolicyEntries(entries, unheld));
  EXPECT_EQ(Show(unheld), "service= free=") << "one whose holders cannot be read counts as unheld";
  EXPECT_EQ(log.Texts(), (Texts{"we have invalid user in 0", "we have invalid user in 3", "we have invalid group in 1",
                                "Delegation(, red) is not valid", "convert data error", "FindBelongPolicies error",
                                "we have invalid delegationEntry in 2"}));

  Exec("drop view user2group_view");
  EXPECT_FALSE(ofUsers.GetNeedRemoveUser(users, idle)) << "a user whose links cannot be read never goes";
  EXPECT_TRUE(idle.empty() && log.Has("FindBelongGroups fail") && log.Has("_IsNeedRemoveUser has error"));
  EXPECT_EQ(log.FileOf("prepare error: [1]"), "delegation_db_user.cpp");
  Exec(
      "drop view user2delegation_view;"
      "create view user2delegation_view as select '1001' as uid, abs(-9223372036854775808), 1, 1, 1 as priority");
  EXPECT_FALSE(ofUsers.GetNeedRemoveUser(users, idle));
  EXPECT_TRUE(idle.empty() && log.Has("FindBelongPolicies error"));
  EXPECT_EQ(log.FileOf("sqlite3_step: [1] integer overflow"), "delegation_db_user.cpp");
}

}  // namespace
}  // namespace NIMBO::QUAYPOST_SERVER
