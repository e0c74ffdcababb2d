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

TEST_F(Calculator, PutsTheHighestPriorityInForceAndOfEqualOnesTheFirstMet) {
  Exec(
      "insert into user_table values (1001, 'ann'); insert into group_table values (200, 'ops'), (201, 'dev');"
      "insert into user2group_table values (1001, 200), (1001, 201);"
      "insert into delegation_table values (1, 'A', '', 5), (2, 'B', '', 5), (3, 'C', '', 3), (4, 'D', '', 9),"
      "(5, 'E', '', -7), (6, 'F', '', -2), (7, 'G', '', 10)");
  const struct {
    const char *direct, *ops, *dev, *inForce, *why;
  } cases[] = {{"", "", "", "", "nothing is assigned"},
               {"2", "1", "", "1001|2", "a direct one comes before a group's"},
               {"", "2", "1", "1001|2", "the first group comes before the second"},
               {"2, 1", "", "", "1001|1", "the lower index comes first"},
               {"3", "4", "", "1001|4", "a group's may be higher"},
               {"4", "", "7", "1001|7", "priorities are numbers"},
               {"5", "6", "", "1001|6", "negative ones too"},
               {"5", "", "", "1001|5", "the default delegation is no candidate"}};
  for (const auto& test : cases) {
    const auto link = [](const std::string& table, const std::string& id, const std::string& delegations) {
      return "insert into " + table + " select " + id +
             ", delegationidx from delegation_table where delegationidx in (" + delegations + ");";
    };
    Exec("delete from user2delegation_table; delete from group2delegation_table;" +
         link("user2delegation_table", "1001", test.direct) + link("group2delegation_table", "200", test.ops) +
         link("group2delegation_table", "201", test.dev));
    EXPECT_TRUE(calculator.CalculateUser(*users[0]));
    EXPECT_EQ(InForce(), test.inForce) << test.why;
  }
  const int before = Writes();
  users = {users[0], User(1002, "")};
  EXPECT_FALSE(calculator.CalculateUser(users));
  EXPECT_TRUE(log.Has("user[1] (1002, ) is invalid"));
  users.clear();
  EXPECT_TRUE(calculator.CalculateUser(users));
  for (const char* unreadable : {"insert into user2delegation_table values (1001, 3); update delegation_table set "
                                 "priority = 'abc' where delegationidx = 3",
                                 "delete from user2delegation_table; drop view group2delegation_view"}) {
    log.Clear();
    Exec(unreadable);
    EXPECT_FALSE(calculator.CalculateUser(*User(1001, "ann")));
    EXPECT_TRUE(log.Has("Cannot find the highest delegation"));
  }
  EXPECT_EQ(Writes(), before);
}

TEST_F(Calculator, ComputesEachMemberOfSeveralGroupsOnce) {
  Exec(
      "insert into user_table values (1001, 'ann'), (1002, 'bob'); insert into group_table values (200, 'ops'),"
      "(201, 'dev'); insert into user2group_table values (1001, 200), (1001, 201), (1002, 201);"
      "insert into delegation_table values (1, 'A', '', 5); insert into group2delegation_table values (201, 1)");
  Groups groups{Group(200, "ops"), Group(201, "dev")};
  const int before = Writes();
  EXPECT_TRUE(calculator.CalculateUserInGroup(groups));
  EXPECT_EQ(Writes(), before + 2);
  EXPECT_EQ(InForce(), "1001|1 1002|1");
  groups.push_back(Group(202, ""));
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

/// What makes one step of a refresh fail, and the last two texts in the log.
struct Fault {
  const char* sql;
  FakeHost::Function lookup;
  Texts said;
};
void PrintTo(const Fault& fault, std::ostream* out) { *out << fault.said.front(); }

class Refresh : public Calculator, public ::testing::WithParamInterface<Fault> {};

TEST_P(Refresh, StopsAtTheFaultAndKeepsEveryAssignment) {
  host.AddUser("ann", 1001);
  host.AddUser("bob", 1002);
  host.AddGroup("ops", 200, {"ann"});
  Exec(
      "insert into user_table values (1001, 'ann'), (1002, 'bob'); insert into group_table values (200, 'ops');"
      "insert into user2group_table values (1001, 200); insert into delegation_table values (1, 'A', '', 5);"
      "insert into user2delegation_table values (1002, 1); insert into group2delegation_table values (200, 1);" +
      std::string(GetParam().sql));
  host.Fail(GetParam().lookup, NIMBO_LOOKUP_FAILED);
  const std::string assignments =
      "select * from user2delegation_table union all select * from group2delegation_table union all "
      "select * from user2group_table union all select * from user_table union all select * from group_table";
  const std::string before = Rows(assignments);
  EXPECT_FALSE(calculator.Refresh());
  const Texts texts = log.Texts();
  EXPECT_EQ(Texts(texts.end() - 2, texts.end()), GetParam().said);
  EXPECT_EQ(log.FileOf(GetParam().said[1]), "delegation_calculator.cpp");
  EXPECT_EQ(Rows(assignments), before);
}

constexpr FakeHost::Function kNoLookup = FakeHost::kFunctionCount;
INSTANTIATE_TEST_SUITE_P(
    Faults, Refresh,
    ::testing::Values(
        Fault{"insert into user_table values (5000000000, 'x')",
              kNoLookup,
              {"Delegation user List fail", "_RefreshUsers fail"}},
        Fault{"", FakeHost::kUserGetByUID, {"user[0] (1001, ann) refresh fail", "_RefreshUsers fail"}},
        Fault{"insert into group_table values (201, '')",
              kNoLookup,
              {"Delegation groups List fail", "_RefreshGroups fail"}},
        Fault{"", FakeHost::kGroupGetByGID, {"groups[0] (200, ops) refresh fail", "_RefreshGroups fail"}},
        Fault{"update delegation_table set priority = 'abc'",
              kNoLookup,
              {"Delegation List fail", "_Refresh Delegation fail"}},
        Fault{"insert into delegation_entry_table values (3000000000, 'x', '');"
              "insert into delegation2delegation_entry_table values (1, 3000000000)",
              kNoLookup,
              {"delegation[0] (1, A) refresh fail", "_Refresh Delegation fail"}},
        Fault{"create trigger t before insert on user2delegation_real_table begin select raise(abort, ''); end",
              kNoLookup,
              {"delegation assign delegation to user real fail", "CalculateUser fail!!"}},
        Fault{"delete from user2delegation_table; insert into user2delegation_real_table values (1002, 1);"
              "create trigger t before delete on user2delegation_real_table begin select raise(abort, ''); end",
              kNoLookup,
              {"default AssignDelegation to user fail", "CalculateUser fail!!"}}));

TEST_F(Calculator, TakesMoreThanHalfOfTenOrMoreVanishedUsersForAnOutage) {
  const struct {
    int stored, gone;
    const char* poison;
    bool allowed;
  } cases[] = {{9, 9, "", true},
               {10, 5, "", true},
               {11, 6, "", false},
               {10, 6, "insert into group_table values (1, '')", false}};
  for (const auto& test : cases) {
    host = FakeHost();
    host.configPath = database.Path();
    Exec("delete from user_table;" + std::string(test.poison));
    for (int i = 0; i < test.stored; ++i) {
      const std::string name = "n" + std::to_string(i);
      Exec("insert into user_table values (" + std::to_string(2000 + i) + ", '" + name + "')");
      if (i >= test.gone) host.AddUser(name, static_cast<unsigned int>(2000 + i));
    }
    EXPECT_EQ(calculator.Refresh(), test.allowed);
    EXPECT_EQ(log.Has(std::to_string(test.gone) + " of " + std::to_string(test.stored) +
                      " stored users are gone from the host: taken for an outage, nothing is refreshed"),
              !test.allowed);
    EXPECT_EQ(Rows("select count(*) from user_table"), std::to_string(test.stored - (test.allowed ? test.gone : 0)));
  }
}

}  // namespace
}  // namespace NIMBO::QUAYPOST_SERVER
