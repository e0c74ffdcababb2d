// What the framework does for records: creation beside links of earlier owners of the id, and names.
#include <functional>
#include <set>

#include "role/qualify.h"
#include "role/role_util.h"
#include "support/records.h"

namespace NIMBO::QUAYPOST_SERVER {
namespace {

using namespace std::string_literals;

/// Links of ids that are about to be given out (1001, 200, 1, 1), each beside one of others, and no rows.
class Creation : public DatabaseTest {
 protected:
  Creation() {
    Exec(
        "insert into user2delegation_table values (1001, 2), (1002, 1), (1002, 2);"
        "insert into user2delegation_real_table values (1001, 2), (1002, 1);"
        "insert into user2group_table values (1001, 300), (1002, 200), (1002, 300);"
        "insert into group2delegation_table values (200, 2), (300, 1), (300, 2);"
        "insert into delegation2delegation_entry_table values (1, 2), (2, 1), (2, 2)");
  }
  std::set<std::string> Contents() const {
    const Texts rows = database.Contents();
    return {rows.begin(), rows.end()};
  }

  const std::shared_ptr<RoleRole> delegation = Role(-1, "Helpdesk", 1);
  const std::shared_ptr<DelegationDelegationEntry> entry = Entry(-1, "queue", "true");
  const std::function<bool()> creations[4] = {
      [] { return RoleUser::Create(*User(1001, "ann")); },
      [] { return RoleGroup::Create(*GroupRecord(200, "ops")); },
      [this] { return RoleRole::Create(*delegation); },
      [this] { return entry->_CreateImp(); },
  };
};

TEST_F(Creation, DoesNotAdoptLinksOfAnEarlierOwnerOfTheId) {
  const struct {
    const char* stored;
    Texts removed;
  } cases[] = {
      {"user_table: 1001|ann", {"user2delegation_table: 1001|2", "user2group_table: 1001|300"}},  // is recalculated
      {"group_table: 200|ops", {"group2delegation_table: 200|2", "user2group_table: 1002|200"}},
      {"delegation_table: 1|Helpdesk|none|1",
       {"delegation2delegation_entry_table: 1|2", "group2delegation_table: 300|1", "user2delegation_real_table: 1002|1",
        "user2delegation_table: 1002|1"}},
      {"delegation_entry_table: 1|queue|true", {"delegation2delegation_entry_table: 2|1"}}};
  std::set<std::string> expected = Contents();
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_TRUE(creations[i]());
    expected.insert(cases[i].stored);
    for (const std::string& link : cases[i].removed) expected.erase(link);
    EXPECT_EQ(Contents(), expected);
  }
}

TEST_F(Creation, ThatCannotRemoveOldLinksStoresNothingAndGivesTheIndexBack) {
  for (const std::string table :
       {"user2delegation_table", "group2delegation_table", "delegation2delegation_entry_table"}) {
    Forbid("delete on " + table);
  }
  const std::set<std::string> before = Contents();
  for (const auto& create : creations) EXPECT_FALSE(create());
  EXPECT_EQ(Contents(), before);
  EXPECT_TRUE(delegation->getPolicyIdx() == -1 && entry->getPolicyEntryIdx() == -1);
}

TEST_F(Creation, RefusesAnIndexBeyondThirtyTwoBits) {
  Exec(
      "insert into delegation_table values (2147483647, 'last', 'none', 1);"
      "insert into delegation_entry_table values (2147483647, 'last', '')");
  const std::set<std::string> before = Contents();
  EXPECT_FALSE(creations[2]() || creations[3]());
  EXPECT_EQ(Contents(), before);
  EXPECT_TRUE(delegation->getPolicyIdx() == -1 && entry->getPolicyEntryIdx() == -1);
}

TEST(ShortName, IsQualifiedOnADomainHostUnlessItIsAlready) {
  FakeHost& host = FakeHost::Instance();
  const struct {
    NIMBOAccountType type;
    const char* domain;
    std::string name, expected;
  } cases[] = {
      {NIMBO_ACCOUNT_DOMAIN, "DOM", "ann", "DOM\\ann"},    {NIMBO_ACCOUNT_DOMAIN, "DOM", "OLD\\ann", "OLD\\ann"},
      {NIMBO_ACCOUNT_DOMAIN, "DOM", "ann@dom", "ann@dom"}, {NIMBO_ACCOUNT_DOMAIN, "", "ann", "ann"},
      {NIMBO_ACCOUNT_LOCAL, "DOM", "ann", "ann"},          {NIMBO_ACCOUNT_LDAP, "DOM", "ann", "ann"},
  };
  for (const auto& [type, domain, name, expected] : cases) {
    host.configuration.account_type = type;
    host.configuration.domain = domain;
    std::string full = name;
    EXPECT_TRUE(QualifyShortName(full));
    EXPECT_EQ(full, expected);
  }
}

TEST(Name, WithANulOrNoneAtAllIsNobody) {
  FakeHost& host = FakeHost::Instance();
  host.AddUser("ann", 1001);
  host.AddGroup("ops", 200);
  DelegationUser user;
  DelegationGroup group;
  std::string name = "ann\0x"s;
  EXPECT_FALSE(QualifyShortName(name) || RoleUtilUserGetFromFullUserName(name, user) ||
               RoleUser::FromShortUsername(name, user) || RoleUser::FromShortUsername("", user) ||
               RoleUtilShortName2FullRealName(false, name, name) || RoleUtilShortName2FullRealName(true, name, name) ||
               RoleGroup::FromTypeShortname("group", "ops\0"s, group) ||
               RoleGroup::FromTypeShortname("user", "ops", group));
  EXPECT_EQ(host.Lookups(), 0);
}

TEST(UniqueUsers, AreTheFirstOccurrencesInPlaceToo) {
  Users users;
  for (const unsigned int uid : {3u, 1u, 3u, 2u, 1u}) users.push_back(User(uid, "u"));
  const Users expected{users[0], users[1], users[3]};
  EXPECT_TRUE(RoleUtilUniqueRoleUser(users, users));
  EXPECT_EQ(users, expected);
}

}  // namespace
}  // namespace NIMBO::QUAYPOST_SERVER
