// Users, groups, delegations and entries as records: removal, types, and who is under the default delegation.
#include "support/records.h"
#include "api/delegation_api.h"
#include "model/delegation_default_delegation.h"
#include "model/delegation_default_delegation_entry.h"
#include "role/role_db_scope.h"
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
  const std::shared_ptr<DelegationGroup> ops = GroupRecord(200, "ops");
  const std::shared_ptr<RoleRole> a = Role(1, "A", 5), b = Role(2, "B", 9);
  Users users;
};

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

TEST_F(Records, OfAGroupStayWhenAMemberCannotBeLookedUpOrTheGroupIsNotStored) {
  host.AddUser("ann", 1001);
  host.AddUser("eve", 1005);
  host.AddGroup("ops", 200, {"ann", "eve"});
  const int before = Writes();
  host.FailNth(FakeHost::kUserGet, 2, NIMBO_LOOKUP_FAILED);
  EXPECT_FALSE(ops->AssignGroupToUser(users));
  EXPECT_TRUE(log.Has("RoleUtilUserGetFromFullUserName eve fail") && log.Has("Find NBOS user to user is fail"));
  const int asked = host.Lookups();
  EXPECT_FALSE(GroupRecord(202, "web")->AssignGroupToUser(users));
  EXPECT_TRUE(log.Has("group not in db"));
  EXPECT_EQ(host.Lookups(), asked);
  EXPECT_EQ(Writes(), before);
}

TEST_F(Records, OfAGroupKeepItsMembersWithinACallThatCannotStoreNewOnes) {
  host.AddUser("eve", 1005);
  host.AddGroup("ops", 200, {"eve"});
  Forbid("insert on user2group_table");
  RoleDBScope call(Handle(), RoleDBScope::kWrite);
  EXPECT_FALSE(ops->Refresh());
  EXPECT_TRUE(call.Commit());
  EXPECT_EQ(Rows("select uid from user2group_table where gid = 200 order by 1"), "1001 1002 1003");
}

TEST_F(Records, OfGroupsAreDeletedUpToOneThatCannotBe) {
  Forbid("delete on group_table", "old.gid = 201");
  Groups groups{GroupRecord(201, "dev"), ops};
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
  const std::string tooLong(492, 'z');
  const std::pair<std::string, unsigned int> accounts[] = {
      {tooLong, 4000000000}, {"ann", 1001}, {"bob", 1002}, {"mail", 8}, {"cid", 1003}};
  for (const auto& [name, uid] : accounts) host.AddUser(name, uid);
  EXPECT_EQ(everybody.FindBelongUsersNormal(users), 0);
  const std::string cut = " 4000000000:" + tooLong.substr(1);
  EXPECT_EQ(Show(users), "1002:bob 1003:cid" + cut) << "by uid";
  EXPECT_EQ(log.Texts(), Texts{"Convert to realname fail " + tooLong});
  EXPECT_EQ(everybody.FindBelongUsersReal(users), 0);
  EXPECT_EQ(Show(users), "1003:cid" + cut);

  const std::pair<FakeHost::Function, const char*> faults[] = {
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
  EXPECT_EQ(Show(users), "1003:cid" + cut) << "a list that fails is not replaced";
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

TEST(EntryDocument, IsReadByKindAndWrittenWithoutItsIndex) {
  const struct {
    const char* document;
    const char* log;
    int idx;
    const char* shown;
  } cases[] = {{R"({"type": "service", "data": "true"})", "", -1, "service=true"},
               {R"({"type": "queue", "id": 7, "more": []})", "", 7, "queue="},
               {R"({"type": "Queue", "data": "true"})", "Wrong type [Queue] here", -1, "="},
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
