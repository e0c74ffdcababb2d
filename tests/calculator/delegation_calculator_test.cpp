// Which delegation is in force, and what is announced.
#include "calculator/delegation_calculator.h"

#include "support/records.h"

namespace NIMBO::QUAYPOST_SERVER {
namespace {

class Calculator : public DatabaseTest {
 protected:
  std::string InForce() const { return Rows("select * from user2delegation_real_table"); }

  DelegationCalculator calculator;
};

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
  Users users{ann, bob};
  EXPECT_TRUE(calculator.CalculateUser(users));
  EXPECT_EQ(InForce(), "1001|1 1002|2");
  bob->valid = false;
  EXPECT_FALSE(calculator.CalculateUser(users));
}

TEST_F(Calculator, LeavesInForceWhatItCannotReadAnew) {
  Exec(
      "insert into user_table values (1001, 'ann'); insert into user2delegation_table values (1001, 1), (1001, 2);"
      "insert into group_table values (200, 'ops'); insert into user2group_table values (1001, 200);"
      "insert into delegation_table values (1, 'A', '', -7), (2, 'B', '', 9)");
  const auto ann = User(1001, "ann");
  Users users{ann, User(1002, "")};
  EXPECT_FALSE(calculator.CalculateUser(users));
  EXPECT_TRUE(calculator.CalculateUser(*ann));
  for (const char* unreadable : {"update delegation_table set priority = 'abc' where delegationidx = 1",
                                 "update delegation_table set priority = 1; drop view group2delegation_view"}) {
    Exec(unreadable);
    EXPECT_FALSE(calculator.CalculateUser(*ann));
  }
  EXPECT_EQ(InForce(), "1001|2");
}

TEST_F(Calculator, AnnouncesTheDatabaseFile) {
  EXPECT_TRUE(calculator.Trigger());
  EXPECT_EQ(host.announcements.at(0).name + " " + host.announcements[0].path, "delegation_db " + database.Path());
}

}  // namespace
}  // namespace NIMBO::QUAYPOST_SERVER
