// Which delegation is in force, and what stops a refresh.
#include "calculator/delegation_calculator.h"

#include "support/records.h"

namespace NIMBO::QUAYPOST_SERVER {
namespace {

class Calculator : public DatabaseTest {
 protected:
  std::string InForce() const { return Rows("select * from user2delegation_real_table"); }

  DelegationCalculator calculator;
  Users users{User(1001, "ann"), User(1002, "bob")};
};

TEST_F(Calculator, PutsTheHighestPriorityInForceUnlessItCannotBeRead) {
  Exec(
      "insert into user_table values (1001, 'ann'); insert into group_table values (200, 'ops');"
      "insert into user2group_table values (1001, 200);"
      "insert into delegation_table values (1, 'A', '', -7), (2, 'B', '', 9), (3, 'C', '', 10), (4, 'D', '', 10);"
      "insert into user2delegation_table select 1001, delegationidx from delegation_table");
  users = {users[0], User(1002, "")};
  EXPECT_FALSE(calculator.CalculateUser(users));
  EXPECT_TRUE(log.Has("user[1] (1002, ) is invalid"));
  EXPECT_TRUE(calculator.CalculateUser(*users[0]));
  EXPECT_EQ(InForce(), "1001|3");
  users.clear();
  EXPECT_TRUE(calculator.CalculateUser(users));
  for (const char* unreadable : {"update delegation_table set priority = 'abc' where delegationidx = 4",
                                 "update delegation_table set priority = 1; drop view group2delegation_view"}) {
    log.Clear();
    Exec(unreadable);
    EXPECT_FALSE(calculator.CalculateUser(*User(1001, "ann")));
    EXPECT_TRUE(log.Has("Cannot find the highest delegation"));
  }
  EXPECT_EQ(InForce(), "1001|3");
}

TEST_F(Calculator, ComputesEachMemberOfSeveralGroupsOnce) {
  Exec(
      "insert into user_table values (1001, 'ann'), (1002, 'bob'); insert into group_table values (200, 'ops'),"
      "(201, 'dev'); insert into user2group_table values (1001, 200), (1001, 201), (1002, 201);"
      "insert into delegation_table values (1, 'A', '', 5); insert into group2delegation_table values (201, 1)");
  Groups groups{GroupRecord(200, "ops"), GroupRecord(201, "dev")};
  const int before = Writes();
  EXPECT_TRUE(calculator.CalculateUserInGroup(groups));
  EXPECT_EQ(Writes(), before + 2);
  EXPECT_EQ(InForce(), "1001|1 1002|1");
  groups.push_back(GroupRecord(202, ""));
  EXPECT_FALSE(calculator.CalculateUserInGroup(groups));
  EXPECT_TRUE(log.Has("group[2] (202, ) is invalid"));
  Exec("drop view group2user_view");
  EXPECT_FALSE(calculator.CalculateUserInGroup(*groups[0]));
  EXPECT_TRUE(log.Has("cannot find belong user") && log.Has("_GetAllGroupsUsers fail"));
}

// Records of a caller's own kind decide for themselves, each time.
TEST_F(Calculator, AsksWhatACallersOwnRecordsOverride) {
  struct Shifts : DelegationGroup {
    int FindBelongPolicies(std::vector<std::shared_ptr<RoleRole>>& policies) override {
      policies.push_back(Role(++asked, "shift", 50));
      return 0;
    }
    int asked = 0;
  };
  struct Worker : DelegationUser {
    using DelegationUser::DelegationUser;
    bool IsValid() override { return valid; }
    int FindBelongPolicies(std::vector<std::shared_ptr<RoleRole>>& policies) override {
      policies.push_back(Role(9, "own", 40));
      return 0;
    }
    int FindBelongGroups(Groups& groups) override {
      groups.push_back(shifts);
      return 0;
    }
    bool valid = true;
    std::shared_ptr<Shifts> shifts;
  };
  Exec("insert into user_table values (1001, 'ann'), (1002, 'bob')");
  const auto shifts = std::make_shared<Shifts>();
  const auto ann = std::make_shared<Worker>(1001, "ann"), bob = std::make_shared<Worker>(1002, "bob");
  ann->shifts = bob->shifts = shifts;
  users = {ann, bob};
  EXPECT_TRUE(calculator.CalculateUser(users));
  EXPECT_EQ(InForce(), "1001|1 1002|2");
  bob->valid = false;
  EXPECT_FALSE(calculator.CalculateUser(users));
}

TEST_F(Calculator, OutsideATransactionTakesAllMembersOutBeforeItStoresThem) {
  host.AddUser("ann", 1001);
  host.AddUser("bob", 1002);
  host.AddGroup("ops", 200, {"ann", "bob"});
  Exec(
      "insert into user_table values (1001, 'ann'); insert into group_table values (200, 'ops');"
      "insert into user2group_table values (1001, 200)");
  Forbid("insert on user2group_table", "new.uid = 1002");
  EXPECT_FALSE(calculator.Refresh());
  EXPECT_EQ(Rows("select uid from user2group_table"), "");
}

TEST_F(Calculator, AnnouncesTheDatabaseFileOrSaysWhyNot) {
  EXPECT_TRUE(calculator.Trigger());
  EXPECT_EQ(host.announcements.at(0).name + " " + host.announcements[0].path, "delegation_db " + database.Path());
  host.Fail(FakeHost::kSetFile, 1);
  EXPECT_FALSE(calculator.Trigger());
  host.Fail(FakeHost::kConfigPath, 1);
  EXPECT_FALSE(calculator.Trigger());
  EXPECT_EQ(log.Texts(), (Texts{"Fail to set file " + database.Path(), "GetUserGroupDelegationConfigPath fail"}));
}

}  // namespace
}  // namespace NIMBO::QUAYPOST_SERVER
