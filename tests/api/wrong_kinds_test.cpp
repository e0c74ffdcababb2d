// Every member of every document that the exported functions take, with values of every kind of JSON.
#include <gtest/gtest.h>

#include <algorithm>

#include "api/delegation_api.h"
#include "model/delegation_user.h"
#include "support/documents.h"
#include "support/fake_host.h"
#include "support/log_capture.h"
#include "support/temp_database.h"

namespace NIMBO::QUAYPOST_SERVER {
namespace {

const Json::Value kKinds = Parsed(
    R"([null, true, 7, -1, 1.5, 7.0, 5000000000, 18446744073709551615, 1e300, "text", "", "1\u0000", [], [1], {},
        {"a": [{}]}])");

struct Member {
  const char* path;
  const char* accepted;  // those of kKinds that are right there
  bool storedBefore;     // whether create stores the delegation before it comes to it
  const char* message;
};

const Member kMembers[] = {
    {".name", R"(["text"])", false, "Delegation from Json fail"},
    {".color", R"(["text", ""])", false, "Delegation from Json fail"},
    {".priority", "[7, -1]", false, "Delegation from Json fail"},
    {".queue", R"([null, true, 7, -1, 1.5, 7.0, 5000000000, 18446744073709551615, 1e300, "text", ""])", false,
     "Delegation Entry [queue] has no usable value"},
    {".user_group", "[[]]", true, "Cannot get GetUserGroupTypeFromJsonArray"},
    {".user_group[0]", "[]", true, "Cannot get GetUserGroupTypeFromJsonArray"},
    {".user_group[0].type", "[]", true, "Cannot get GetUserGroupTypeFromJsonArray"},
    {".user_group[0].name", "[]", true, "DelegationGroupAssignDelegationV2 FAIL"},
    {".user_group[1].name", "[]", true, "DelegationUserAssignDelegationV2 FAIL"},
};

bool IsIn(const Json::Value& kind, const char* list) {
  const Json::Value accepted = Parsed(list);
  return std::find(accepted.begin(), accepted.end(), kind) != accepted.end();
}

TEST(WrongKindsTest, AreRefusedAtEveryMemberAndLeaveTheDelegationAsItWas) {
  FakeHost::Instance().AddUser("ann", 1001);
  FakeHost::Instance().AddGroup("ops", 200, {"ann"});
  const TempDatabase database;
  LogCapture log;
  Json::Value right = Change(R"({"name": "Helpdesk", "tabs": ["queue"], "to": ["group ops", "user ann"]})");
  int id = -1;
  ASSERT_TRUE(DelegationDelegationCreate(right, id));
  for (const Member& member : kMembers) {
    for (const Json::Value& kind : kKinds) {
      SCOPED_TRACE(member.path + (" = " + kind.toStyledString()));
      Json::Value change = right;
      Json::Path(member.path).make(change) = kind;
      const bool accepted = IsIn(kind, member.accepted);
      const auto before = database.Contents();
      log.Clear();
      EXPECT_EQ(DelegationDelegationCreate(change, id = -1), accepted);
      EXPECT_EQ(log.Has(member.message), !accepted);
      EXPECT_EQ(id > 0, accepted || member.storedBefore);
      database.Exec("delete from delegation_table where delegationidx > 1");
      if (accepted) continue;
      EXPECT_TRUE(member.storedBefore || database.Contents() == before);

      change["id"] = 1;
      log.Clear();
      EXPECT_FALSE(DelegationDelegationUpdate(change));
      EXPECT_TRUE(log.Has(member.message));
      std::vector<std::shared_ptr<RoleUser>> users;
      EXPECT_FALSE(DelegationDelegationUpdateImpFromSingle(change, users));
      EXPECT_TRUE(users.empty());
      EXPECT_EQ(database.Rows("select * from delegation_table"), std::vector<std::string>{"1|Helpdesk|blue|10"});
      EXPECT_EQ(database.Rows("select * from user2delegation_real_table"), std::vector<std::string>{"1001|1"});
    }
  }
  for (const Json::Value& kind : kKinds) {
    right["id"] = kind;
    EXPECT_EQ(DelegationDelegationUpdate(right), kind == 1) << kind;
    Json::Value ids;
    ids.append(kind);
    EXPECT_FALSE(DelegationDelegationDelete(ids)) << kind;
  }
}

}  // namespace
}  // namespace NIMBO::QUAYPOST_SERVER
