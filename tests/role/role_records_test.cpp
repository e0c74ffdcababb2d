// What the framework does for records: creation beside links of earlier owners of the id, and full names.
#include "role/qualify.h"

#include <algorithm>

#include "support/records.h"

namespace NIMBO::QUAYPOST_SERVER {
namespace {

using Creation = DatabaseTest;

TEST_F(Creation, DoesNotAdoptLinksOfAnEarlierOwnerOfTheId) {
  Exec(  // of 1001, 200, 1 and 1, each beside one of others
      "insert into user2delegation_table values (1001, 2), (1002, 1), (1002, 2);"
      "insert into user2delegation_real_table values (1001, 2), (1002, 1);"
      "insert into user2group_table values (1001, 300), (1002, 200), (1002, 300);"
      "insert into group2delegation_table values (200, 2), (300, 1), (300, 2);"
      "insert into delegation2delegation_entry_table values (1, 2), (2, 1), (2, 2)");
  Texts expected = database.Contents();
  const auto expect = [&](bool created, const char* stored, const Texts& removed) {
    EXPECT_TRUE(created);
    expected.push_back(stored);
    for (const std::string& link : removed) std::erase(expected, link);
    Texts found = database.Contents();
    std::sort(found.begin(), found.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(found, expected);
  };
  expect(RoleUser::Create(*User(1001, "ann")), "user_table: 1001|ann",
         {"user2delegation_table: 1001|2", "user2group_table: 1001|300"});  // the effective row is recalculated
  expect(RoleGroup::Create(*GroupRecord(200, "ops")), "group_table: 200|ops",
         {"group2delegation_table: 200|2", "user2group_table: 1002|200"});
  expect(RoleRole::Create(*Role(-1, "Helpdesk", 1)), "delegation_table: 1|Helpdesk|none|1",
         {"delegation2delegation_entry_table: 1|2", "group2delegation_table: 300|1",
          "user2delegation_real_table: 1002|1", "user2delegation_table: 1002|1"});
  expect(Entry(-1, "queue", "true")->_CreateImp(), "delegation_entry_table: 1|queue|true",
         {"delegation2delegation_entry_table: 2|1"});
}

TEST_F(Creation, RefusesAnIndexBeyondThirtyTwoBits) {
  Exec(
      "insert into delegation_table values (2147483647, 'last', 'none', 1);"
      "insert into delegation_entry_table values (2147483647, 'last', '')");
  const Texts before = database.Contents();
  const auto delegation = Role(-1, "Helpdesk", 1);
  const auto entry = Entry(-1, "queue", "true");
  EXPECT_FALSE(RoleRole::Create(*delegation) || entry->_CreateImp());
  EXPECT_EQ(database.Contents(), before);
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

}  // namespace
}  // namespace NIMBO::QUAYPOST_SERVER
