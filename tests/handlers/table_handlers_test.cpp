// What the table handlers take from rows that nobody should have written, and while another row is open.
#include "handlers/delegation_db_delegation_entry.h"
#include "handlers/delegation_db_user.h"
#include "support/records.h"

namespace NIMBO::QUAYPOST_SERVER {
namespace {

class Handlers : public DatabaseTest {
 protected:
  Handlers() {
    Exec(
        "insert into user_table values (1001, 'ann'), (1002, 'bob');"
        "insert into delegation_table values (1, 'low', 'red', NULL), (2, 'high', NULL, 5), (3, '', 'red', 9);"
        "insert into delegation_entry_table values (1, 'service', ''), (2, 'queue', 'x'), (3, '', ''), (4, 'free', '');"
        "insert into user2delegation_table select 1001, delegationidx from delegation_table;"
        "insert into user2delegation_real_table values (1001, 1);"
        "insert into delegation2delegation_entry_table values (1, 3), (1, 1), (1, 2), (2, 2)");
  }

  DelegationUserDBHandler ofUsers;
  const std::shared_ptr<RoleUser> ann = User(1001, "ann"), bob = User(1002, "bob");
  Roles roles;
  Entries entries;
};

TEST_F(Handlers, AppendValidRecordsInTheirOrder) {
  EXPECT_EQ(ofUsers.FindRealBelongPolicies(*ann, roles), 0);
  EXPECT_EQ(ofUsers.FindBelongPolicies(*ann, roles), 0);
  EXPECT_EQ(Show(roles), "1:low 2:high 1:low");
  EXPECT_EQ(roles[1]->getColor() + std::to_string(roles[0]->getPriority()), "none-1") << "for NULL";
  roles.clear();
  EXPECT_EQ(ofUsers.FindRealBelongPolicies(*bob, roles), 1);
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

TEST_F(Handlers, TakeAnEntryWithUnreadableHoldersForFreeButNeverAUserWithUnreadableLinks) {
  Exec(
      "insert into delegation_table values (4, 'poison', '', 'abc');"
      "insert into delegation2delegation_entry_table values (4, 1)");
  entries = {Entry(2, "queue", "x"), Entry(1, "service", ""), Entry(4, "free", ""), Entry(9, "gone", "")};
  Entries free;
  EXPECT_TRUE(DelegationDelegationEntryDBHandler().GetNeedRemovePolicyEntries(entries, free));
  EXPECT_EQ(Show(free), "service= free=");
  Users users{ann, bob, User(1009, "gone")}, idle;
  EXPECT_TRUE(ofUsers.GetNeedRemoveUser(users, idle));
  EXPECT_EQ(idle, Users{bob});
  Exec("drop view user2group_view");
  EXPECT_FALSE(ofUsers.GetNeedRemoveUser(users, idle));
  EXPECT_TRUE(idle.empty());
}

}  // namespace
}  // namespace NIMBO::QUAYPOST_SERVER
