// Users, groups, delegations and entries as records: refresh, removal, sharing, and who is under the default
// delegation.
#include "support/records.h"
#include "model/delegation_default_delegation.h"
#include "model/delegation_default_delegation_entry.h"
#include "support/documents.h"

namespace NIMBO::QUAYPOST_SERVER {
namespace {

class Records : public DatabaseTest {
 protected:
  Records() {
    Exec(
        "insert into user_table values (1001, 'ann'), (1002, 'bob'), (1003, 'cid');"
        "insert into group_table values (200, 'ops'), (201, 'dev');"
        "insert into delegation_table values (1, 'A', 'none', 5), (2, 'B', 'none', 9);"
        "insert into user2delegation_table values (1001, 1), (1001, 2);"
        "insert into user2delegation_real_table values (1001, 2), (1002, 1);"
        "insert into group2delegation_table values (200, 1), (200, 2);"
        "insert into user2group_table values (1001, 200), (1002, 200), (1003, 200), (1003, 201)");
  }
  // What delegation `idx` holds, by type.
  std::string EntriesOf(int idx) const {
    return Rows("select type || '=' || data from delegation2delegation_entry_view where delegationidx = " +
                std::to_string(idx) + " order by type");
  }

  const std::shared_ptr<DelegationUser> ann = User(1001, "ann"), bob = User(1002, "bob");
  const std::shared_ptr<DelegationGroup> ops = Group(200, "ops");
  const std::shared_ptr<RoleRole> a = Role(1, "A", 5), b = Role(2, "B", 9);
  Users users;
};

TEST_F(Records, OfAUserFollowTheAccountAndGoOnlyWhenItDoes) {
  const int before = Writes();
  host.AddUser("ann", 1001);
  EXPECT_TRUE(ann->Refresh());
  host.Fail(FakeHost::kUserGetByUID, NIMBO_LOOKUP_FAILED);
  EXPECT_FALSE(ann->Refresh());
  EXPECT_EQ(Writes(), before);
  host.Recover();
  host.RenameUser("ann", "anna");
  EXPECT_TRUE(ann->Refresh());
  EXPECT_EQ(ann->getUsername(), "ann") << "the record is not the row";
  host.RemoveUser("anna");
  Exec("insert into user2delegation_table values (1002, 1)");
  EXPECT_EQ(Rows("select * from user_table where uid = 1001"), "1001|anna");
  EXPECT_TRUE(ann->Refresh());
  EXPECT_EQ(Rows("select * from user2delegation_table"), "1002|1");
  EXPECT_EQ(Rows("select * from user2delegation_real_table"), "1002|1");
  EXPECT_EQ(Rows("select * from user_table"), "1002|bob 1003|cid");
  EXPECT_EQ(Rows("select * from user2group_table"), "1003|201") << "the whole group is left, until its own refresh";
}

TEST_F(Records, OfAUserStopHalfWayWhereALinkCannotGo) {
  Forbid("delete on user2delegation_table", "old.delegationidx = 1");
  EXPECT_FALSE(DelegationUser::DeleteChain(*ann));
  EXPECT_TRUE(log.Has("Delegation [1, A] cannot unassign user normal") && log.Has("user [1001, ann]"));
  EXPECT_EQ(Rows("select * from user2delegation_table"), "1001|1");
  EXPECT_EQ(Rows("select * from user2delegation_real_table where uid = 1001"), "1001|2");
  EXPECT_EQ(Rows("select username from user_table where uid = 1001"), "ann");
}

TEST_F(Records, OfAUserGiveTheEntriesOfTheEffectiveDelegation) {
  Exec(
      "insert into delegation_entry_table values (1, 'queue', 'true');"
      "insert into delegation2delegation_entry_table values (2, 1)");
  Entries entries{Entry(7, "left", "over")};
  EXPECT_EQ(User(1003, "cid")->FindRealBelongPolicyEntries(entries), 1);
  EXPECT_EQ(Show(entries), "left=over");
  EXPECT_EQ(ann->FindRealBelongPolicyEntries(entries), 0);
  EXPECT_EQ(Show(entries), "queue=true");
  Exec("update delegation_table set priority = 'abc'");
  EXPECT_EQ(ann->FindRealBelongPolicyEntries(entries), -1);
  EXPECT_TRUE(log.Has("Cannot find policyTemp"));
}

TEST_F(Records, OfAGroupTakeTheHostsMembersAndDropFormerOnesThatNothingElseHolds) {
  host.AddUser("ann", 1001);
  host.AddUser("dan", 1004);
  host.AddUser("eve", 1005);
  host.AddGroup("ops", 200, {"ann", "dan", "eve"});
  host.FailFor(FakeHost::kUserGet, "eve", NIMBO_LOOKUP_FAILED);
  const int before = Writes();
  EXPECT_FALSE(ops->AssignGroupToUser(users));
  EXPECT_TRUE(log.Has("RoleUtilUserGetFromFullUserName eve fail") && log.Has("Find NBOS user to user is fail"));
  EXPECT_EQ(Writes(), before);
  const int asked = host.Lookups();
  EXPECT_FALSE(Group(202, "web")->AssignGroupToUser(users));
  EXPECT_TRUE(log.Has("group not in db"));
  EXPECT_EQ(host.Lookups(), asked);
  host.Recover();
  EXPECT_TRUE(ops->Refresh());
  EXPECT_EQ(Rows("select * from user_table"), "1001|ann 1003|cid 1004|dan 1005|eve");
  EXPECT_EQ(Rows("select * from user2delegation_table order by 2"), "1001|1 1001|2");
  EXPECT_EQ(Rows("select * from user2group_table order by 1"), "1001|200 1003|201 1004|200 1005|200");
}

TEST_F(Records, OfAGroupGoWithMembersAndTheHighestDelegationOnly) {
  const int before = Writes();
  for (const int status : {int{NIMBO_LOOKUP_FAILED}, 1}) {
    host.Fail(FakeHost::kGroupGetByGID, status);
    EXPECT_FALSE(ops->Refresh());
  }
  EXPECT_EQ(Writes(), before);
  host.Recover();
  EXPECT_TRUE(ops->Refresh()) << "definitely gone";
  EXPECT_EQ(Rows("select * from group2delegation_table"), "200|1");
  EXPECT_EQ(Rows("select * from group_table"), "201|dev");
  EXPECT_EQ(Rows("select * from user_table"), "1001|ann 1003|cid");
  Exec("insert into group_table values (200, 'ops')");
  Forbid("delete on group_table", "old.gid = 201");
  Groups groups{Group(201, "dev"), ops};
  EXPECT_FALSE(DelegationGroup::DeleteChain(groups));
  EXPECT_TRUE(log.Has("Cannot delete delegation group") && log.Has("Delete chain fail.. [201, dev]"));
  EXPECT_EQ(Rows("select gid from group_table"), "200 201");
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
  EXPECT_EQ(log.Texts().back(), "SetPolicyEntry fail!");
  EXPECT_EQ(EntriesOf(1), "") << "outside an exported call nothing brings them back";
}

TEST_F(Records, OfEntriesAreSharedByTypeAndDataAndNeverReviveAnOldLink) {
  Entries first{Entry(-1, "queue", "true"), Entry(-1, "service", "true")};
  Entries second{Entry(-1, "service", "true"), Entry(-1, "queue", "TRUE")};
  EXPECT_TRUE(a->SetPolicyEntry(first) && b->SetPolicyEntry(second));
  EXPECT_EQ(Rows("select * from delegation_entry_table"), "1|queue|true 2|service|true 3|queue|TRUE");
  Exec(
      "delete from delegation2delegation_entry_table where delegationentryidx = 3;"
      "delete from delegation_entry_table where delegationentryidx = 3;"
      "update delegation_table set priority = 'abc' where delegationidx = 2");
  EXPECT_TRUE(a->_UnassignPolicyToPolicyEntries(first)) << "whose holders cannot be read goes";
  EXPECT_EQ(Rows("select * from delegation2delegation_entry_table"), "2|2");
  Entries third{Entry(-1, "queue", "true"), Entry(-1, "delegation", "true")};
  EXPECT_TRUE(a->SetPolicyEntry(third));
  EXPECT_EQ(EntriesOf(1) + " " + EntriesOf(2), "delegation=true queue=true ");
}

TEST_F(Records, OfADelegationAreDeletedWithEveryLink) {
  Exec(
      "insert into delegation_entry_table values (1, 'queue', 'true'), (2, 'service', 'true');"
      "insert into delegation2delegation_entry_table values (1, 1), (1, 2), (1, 9), (2, 2);"
      "insert into user2delegation_table values (1002, 1), (1009, 1);"
      "insert into user2delegation_real_table values (1009, 1); insert into group2delegation_table values (209, 1)");
  Roles roles{a};
  EXPECT_TRUE(RoleRole::DeleteChain(roles));
  for (const char* table : {"delegation_table", "user2delegation_table", "user2delegation_real_table",
                            "group2delegation_table", "delegation2delegation_entry_table"}) {
    EXPECT_EQ(Rows("select distinct delegationidx from " + std::string(table)), "2") << table;
  }
  EXPECT_EQ(Rows("select type from delegation_entry_table"), "service");
  EXPECT_EQ(Rows("select username from user_table"), "ann bob cid") << "a group still holds bob";
}

TEST_F(Records, OfADelegationAreFoundByIndexAndPutInForceForStoredUsersOnly) {
  std::shared_ptr<RoleRole> found;
  EXPECT_FALSE(DelegationCustomDelegation::FromID(3, found));
  EXPECT_TRUE(!found && log.Lines().empty());
  EXPECT_TRUE(DelegationCustomDelegation::FromID(2, found));
  EXPECT_EQ(Show(*found), "2:B");
  users = {User(1003, "cid"), User(1009, "eve")};
  EXPECT_FALSE(found->AssignPolicyToUserReal(users));
  EXPECT_TRUE(log.Has("user doens't in database"));
  EXPECT_EQ(Rows("select * from user2delegation_real_table"), "1001|2 1002|1");
  Exec("update delegation_table set priority = 'abc' where delegationidx = 1");
  EXPECT_FALSE(DelegationCustomDelegation::FromID(2, found));
  EXPECT_TRUE(log.Has("DelegationDelegation List is fail") && log.Has("cannot list delegation custom delegation"));
}

TEST_F(Records, OfTheDefaultDelegationTakeTheFirstAssignmentOnly) {
  DelegationDefaultDelegation everybody;
  users = {bob, ann};
  EXPECT_TRUE(everybody.AssignPolicyToUserNormal(users));
  EXPECT_EQ(Rows("select * from user2delegation_table"), "1001|1");
  EXPECT_EQ(Rows("select * from user2delegation_real_table"), "1002|1");
  EXPECT_TRUE(everybody.AssignPolicyToUserReal(users) && everybody.AssignPolicyToUserReal(users));
  EXPECT_EQ(Rows("select * from user2delegation_real_table"), "");
  Exec("drop view user2delegation_view");
  EXPECT_FALSE(everybody.AssignPolicyToUserNormal(*ann));
  EXPECT_TRUE(log.Has("Cannot find users [1001, ann] belong delegation"));
}

TEST_F(Records, OfTheDefaultDelegationAreAllSupportedAccountsThatNoOtherCovers) {
  DelegationDefaultDelegation everybody;
  const std::pair<const char*, unsigned int> accounts[] = {
      {"zoe", 4000000000}, {"ann", 1001}, {"bob", 1002}, {"mail", 8}, {"cid", 1003}};
  for (const auto& [name, uid] : accounts) host.AddUser(name, uid);
  host.unsupported = {"mail"};
  host.EnumerateWithoutUid("zoe");
  host.EnumerateWithoutUid("ann");
  EXPECT_EQ(everybody.FindBelongUsersNormal(users), 0);
  EXPECT_EQ(Show(users), "1002:bob 1003:cid 4000000000:zoe") << "by uid";
  host.FailFor(FakeHost::kRealNameGet, "cid", NIMBO_LOOKUP_FAILED);
  EXPECT_EQ(everybody.FindBelongUsersReal(users), 0);
  EXPECT_EQ(Show(users), "1003:cid 4000000000:zoe");
  EXPECT_EQ(log.Texts(), Texts{"Convert to realname fail cid"});

  const std::pair<FakeHost::Function, const char*> faults[] = {
      {FakeHost::kUserGet, "Cannot get user zoe"},
      {FakeHost::kAccountType, "Cannot get RoleMailConfCurrentAuthTypeGet"},
      {FakeHost::kDomain, "Get mailconf get fail MCK_SMTP_WIN_DOMAIN_SHORT_NAME"}};
  for (const auto& [function, text] : faults) {
    host.Recover();
    host.Fail(function, NIMBO_LOOKUP_FAILED);
    EXPECT_EQ(everybody.FindBelongUsersReal(users), -1);
    EXPECT_EQ(log.FileOf(text), "delegation_default_delegation.cpp");
  }
  Exec("drop view delegation2user_view");
  EXPECT_EQ(DelegationDefaultDelegationEntry().FindBelongUsers(users), -1);
  EXPECT_TRUE(log.Has("pPolicies[0]->FindBelongUsersNormal fail") && log.Has("FindBelongUsersNormal fail"));
  EXPECT_EQ(Show(users), "1003:cid 4000000000:zoe") << "a list that fails is not replaced";
}

TEST(EntryDocument, IsReadByKindAndWrittenWithoutItsIndex) {
  const struct {
    const char* document;
    const char* log;
    int idx;
    const char* shown;
  } cases[] = {{R"({"type": "service", "data": "true"})", "", -1, "service=true"},
               {R"({"type": "queue", "id": 7, "more": []})", "", 7, "queue="},
               {R"({"type": "Queue", "data": "true"})", "Wrong type [Queue] here", -1, "="},
               {R"({"data": "true"})", "Wrong parameter", -1, "="},
               {R"({"type": 5})", "Wrong parameter", -1, "="},
               {R"({"type": "queue", "data": true})", "Wrong parameter", -1, "="},
               {R"({"type": "queue", "data": "true\u0000x"})", "Wrong parameter", -1, "="},
               {R"({"type": "queue", "id": "7"})", "Wrong parameter", -1, "="},
               {R"(["type"])", "Wrong parameter", -1, "="}};
  for (const auto& test : cases) {
    LogCapture log;
    Json::Value document = Parsed(test.document);
    DelegationDelegationEntry entry;
    EXPECT_EQ(DelegationDelegationEntry::FromJson(document, entry), *test.log == '\0') << test.document;
    EXPECT_EQ(log.Texts(), *test.log ? Texts{test.log} : Texts{});
    EXPECT_EQ(Show(entry), test.shown) << test.document;
    EXPECT_EQ(entry.getPolicyEntryIdx(), test.idx) << test.document;
  }
  Json::Value out = 5;
  EXPECT_TRUE(DelegationDelegationEntry::ToJson(*Entry(7, "queue", "x"), out));
  EXPECT_EQ(out, Parsed(R"({"type": "queue", "data": "x"})"));
}

}  // namespace
}  // namespace NIMBO::QUAYPOST_SERVER
