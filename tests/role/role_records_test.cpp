// What the framework does for records: creation, documents, names and lists.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "model/delegation_delegation.h"
#include "model/delegation_delegation_entry.h"
#include "model/delegation_group.h"
#include "model/delegation_user.h"
#include "role/qualify.h"
#include "role/role_util.h"
#include "storage/delegation_db_handler.h"
#include "support/fake_host.h"
#include "support/temp_database.h"

namespace NIMBO::QUAYPOST_SERVER {
namespace {

using namespace std::string_literals;
using Rows = std::vector<std::string>;

/// Links of ids that are about to be given out (1001, 200, 1, 1), each beside one of others, and no rows.
class Creation : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE(DelegationDBHandler::GetDelegationDBHandler(), nullptr);
    database_.Exec(
        "insert into user2delegation_table values (1001, 2), (1002, 1), (1002, 2);"
        "insert into user2delegation_real_table values (1001, 2), (1002, 1);"
        "insert into user2group_table values (1001, 300), (1002, 200), (1002, 300);"
        "insert into group2delegation_table values (200, 2), (300, 1), (300, 2);"
        "insert into delegation2delegation_entry_table values (1, 2), (2, 1), (2, 2)");
  }
  Rows Links() const {
    return database_.Rows(
        "select 'user-delegation', * from user2delegation_table union all "
        "select 'real', * from user2delegation_real_table union all select 'user-group', * from user2group_table union "
        "all select 'group-delegation', * from group2delegation_table union all select 'entry', * from "
        "delegation2delegation_entry_table order by 1, 2, 3");
  }
  Rows Stored() const {
    return database_.Rows(
        "select username from user_table union all select groupname from group_table union all "
        "select name from delegation_table union all select type from delegation_entry_table");
  }

  TempDatabase database_;
  DelegationUser user_{1001, "ann"};
  DelegationGroup group_{200, "ops"};
  DelegationCustomDelegation delegation_{-1, "Helpdesk", "none", 1};
  DelegationDelegationEntry entry_{-1, "queue", "true"};
  const std::function<bool()> creations_[4] = {
      [this] { return RoleUser::Create(user_); },
      [this] { return RoleGroup::Create(group_); },
      [this] { return RoleRole::Create(delegation_); },
      [this] { return entry_._CreateImp(); },
  };
};

TEST_F(Creation, DoesNotAdoptLinksOfAnEarlierOwnerOfTheId) {
  const Rows removed[] = {
      {"user-delegation|1001|2", "user-group|1001|300"},  // the effective delegation is recalculated, not lost
      {"group-delegation|200|2", "user-group|1002|200"},
      {"entry|1|2", "group-delegation|300|1", "real|1002|1", "user-delegation|1002|1"},
      {"entry|2|1"},
  };
  Rows expected = Links();
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_TRUE(creations_[i]());
    for (const std::string& link : removed[i]) std::erase(expected, link);
    EXPECT_EQ(Links(), expected) << "creation " << i;
  }
  EXPECT_EQ(Stored(), (Rows{"ann", "ops", "Helpdesk", "queue"}));
}

TEST_F(Creation, ThatCannotRemoveOldLinksStoresNothingAndGivesTheIndexBack) {
  for (const std::string table :
       {"user2delegation_table", "group2delegation_table", "delegation2delegation_entry_table"}) {
    database_.Exec("create trigger keep_" + table + " before delete on " + table +
                   " begin select raise(abort, 'kept'); end");
  }
  const Rows links = Links();
  for (const auto& create : creations_) EXPECT_FALSE(create());
  EXPECT_EQ(Stored(), Rows{});
  EXPECT_EQ(Links(), links);
  EXPECT_EQ(delegation_.getPolicyIdx(), -1);
  EXPECT_EQ(entry_.getPolicyEntryIdx(), -1);
}

TEST_F(Creation, RefusesAnIndexBeyondThirtyTwoBits) {
  database_.Exec(
      "insert into delegation_table values (2147483647, 'last', 'none', 1);"
      "insert into delegation_entry_table values (2147483647, 'last', '')");
  EXPECT_FALSE(RoleRole::Create(delegation_));
  EXPECT_FALSE(entry_._CreateImp());
  EXPECT_EQ(delegation_.getPolicyIdx(), -1);
  EXPECT_EQ(entry_.getPolicyEntryIdx(), -1);
  EXPECT_EQ(Stored(), (Rows{"last", "last"}));
}

TEST_F(Creation, StoresATextWholeOrRefusesIt) {
  Rows accepted;
  for (const std::string unit : {"x", "\u00e4", "'"}) {
    const std::size_t written = unit == "'" ? 2 : unit.size();  // a quote is doubled
    for (std::size_t size = 1944; size <= 1951; ++size) {
      std::string name;
      while ((name.size() / unit.size() + 1) * written <= size) name += unit;
      DelegationCustomDelegation delegation(-1, name, "none", 20);
      const bool fits = name.size() / unit.size() * written <= 1947;  // what is left of a statement of 2047 bytes
      EXPECT_EQ(RoleRole::Create(delegation), fits) << unit << size;
      if (fits) accepted.push_back(name);
    }
  }
  EXPECT_TRUE(Stored() == accepted);
}

TEST(RoleDocument, IsReadOnlyWhereEveryMemberHasItsKind) {
  const Json::Value kinds[] = {
      Json::nullValue,  true, 1, -7, Json::Int64{1} << 31, 1.5, "x", "", "x\0y"s, "1", Json::arrayValue,
      Json::objectValue};
  const std::pair<std::string, std::vector<std::size_t>> accepted[] = {
      {"name", {6, 9}}, {"color", {6, 7, 9}}, {"priority", {2, 3}}, {"id", {2, 3}}};
  const auto reads = [](Json::Value document) {
    DelegationCustomDelegation role;
    const bool read = RoleRole::FromJson(document, role);
    EXPECT_EQ(role.getName().empty(), !read) << document;
    return read;
  };
  Json::Value whole;
  whole["id"] = 3;
  whole["name"] = "Helpdesk";
  whole["color"] = "red";
  whole["priority"] = 20;
  EXPECT_TRUE(reads(whole));
  for (const auto& [member, indexes] : accepted) {
    Json::Value document = whole;
    for (std::size_t i = 0; i < std::size(kinds); ++i) {
      document[member] = kinds[i];
      EXPECT_EQ(reads(document), std::find(indexes.begin(), indexes.end(), i) != indexes.end()) << document;
    }
    document.removeMember(member);
    EXPECT_EQ(reads(document), member == "id") << document;
  }
  for (const Json::Value& document : kinds) EXPECT_FALSE(reads(document)) << document;
}

TEST(ShortName, IsQualifiedOnADomainHostUnlessItIsAlready) {
  FakeHost& host = FakeHost::Instance();
  const struct {
    int type;
    const char* domain;
    std::string name, expected;
  } cases[] = {
      {NIMBO_ACCOUNT_DOMAIN, "DOM", "ann", "DOM\\ann"},    {NIMBO_ACCOUNT_DOMAIN, "DOM", "OLD\\ann", "OLD\\ann"},
      {NIMBO_ACCOUNT_DOMAIN, "DOM", "ann@dom", "ann@dom"}, {NIMBO_ACCOUNT_DOMAIN, "", "ann", "ann"},
      {NIMBO_ACCOUNT_LOCAL, "DOM", "ann", "ann"},          {NIMBO_ACCOUNT_LDAP, "DOM", "ann", "ann"},
  };
  for (const auto& [type, domain, name, expected] : cases) {
    host.accountType = type;
    host.domain = domain;
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
  EXPECT_FALSE(RoleGroup::FromTypeShortname("user", "ops", group));
  for (const std::string& rest : {"\0"s, "\0x"s}) {
    std::string name = "ann" + rest;
    EXPECT_FALSE(QualifyShortName(name));
    EXPECT_FALSE(RoleUser::FromShortUsername(name, user));
    EXPECT_FALSE(RoleUtilUserGetFromFullUserName(name, user));
    EXPECT_FALSE(RoleUtilShortName2FullRealName(false, name, name));
    EXPECT_FALSE(RoleUtilShortName2FullRealName(true, name, name));
    EXPECT_FALSE(RoleGroup::FromTypeShortname("group", "ops" + rest, group));
  }
  EXPECT_FALSE(RoleUser::FromShortUsername("", user));
  EXPECT_EQ(host.Lookups(), 0);
  EXPECT_FALSE(user.IsValid() || group.IsValid());
}

TEST(UniqueUsers, AreTheFirstOccurrencesInPlaceToo) {
  std::vector<std::shared_ptr<RoleUser>> users;
  for (const unsigned int uid : {3u, 1u, 3u, 2u, 1u}) users.push_back(std::make_shared<DelegationUser>(uid, "u"));
  const std::vector<std::shared_ptr<RoleUser>> expected{users[0], users[1], users[3]};
  EXPECT_TRUE(RoleUtilUniqueRoleUser(users, users));
  EXPECT_EQ(users, expected);
}

}  // namespace
}  // namespace NIMBO::QUAYPOST_SERVER
