// What the exported functions do when the database, the account source or memory fails them.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>

#include "api/delegation_api.h"
#include "model/delegation_delegation.h"
#include "model/delegation_user.h"
#include "role/role_db_scope.h"
#include "storage/delegation_db_handler.h"
#include "support/documents.h"
#include "support/fake_host.h"
#include "support/log_capture.h"
#include "support/temp_database.h"

namespace NIMBO::QUAYPOST_SERVER {
namespace {

using Lines = std::vector<std::string>;
constexpr const char* kQueueMethod = "Webapi_Queue_Flush_v1";

// Two delegations, their holders, and changes on the host that a refresh has yet to find.
struct World {
  FakeHost& host = FakeHost::Instance() = FakeHost();
  TempDatabase database;
  LogCapture log;

  World() {
    unsigned int uid = 1000;
    for (const char* name : {"ann", "bob", "cyd", "dan", "eve"}) host.AddUser(name, ++uid);
    host.AddGroup("ops", 200, {"ann", "bob"});
    host.AddGroup("dev", 300, {"cyd"});
    int id = -1;
    Json::Value helpdesk = Change(R"({"name": "Helpdesk", "tabs": ["queue"], "to": ["group ops", "user dan"]})");
    Json::Value reports = Change(R"({"name": "Reports", "priority": 5, "tabs": ["log_log"], "to": ["user bob"]})");
    EXPECT_TRUE(DelegationDelegationCreate(helpdesk, id) && DelegationDelegationCreate(reports, id));
    database.Exec("update delegation_entry_table set type = 'old_tab' where type = 'log_log' and data = 'true'");
    host.SetMembers("ops", {"bob", "cyd"});
    host.RemoveUser("dan");
    host.announcements.clear();
    DelegationDBHandler::GetDelegationDBHandler()->SetBusyTimeout(1);
  }

  static sqlite3* LibrarysConnection() { return DelegationDBHandler::GetDelegationDBHandler()->GetDB(); }
};

Json::Value Bulky(const char* brief) {
  Json::Value change = Change(brief);
  change["queue"] = change["log_log"] = change["quaypost"] = std::string(1800, 'x');
  return change;
}

bool Create() {
  Json::Value change = Bulky(R"({"name": "New", "tabs": ["service"], "to": ["user eve", "group dev"]})");
  int id = -7;
  const bool created = DelegationDelegationCreate(change, id);
  EXPECT_EQ(id, created ? 3 : -7);
  return created;
}
bool Update() {
  Json::Value change = Bulky(R"({"id": 1, "name": "Desk", "tabs": ["service"], "to": ["user eve", "group dev"]})");
  return DelegationDelegationUpdate(change);
}
bool Delete() {
  Json::Value ids = Parsed("[1, 2]");
  return DelegationDelegationDelete(ids);
}

struct Write {
  const char* name;
  bool (*call)();
  bool grows;
};
void PrintTo(const Write& write, std::ostream* out) { *out << write.name; }

class WriteTest : public ::testing::TestWithParam<Write> {
 protected:
  WriteTest() {
    World world;
    before_ = world.database.Contents();
    EXPECT_TRUE(GetParam().call());
    EXPECT_EQ(world.host.announcements.size(), 1u);
    after_ = world.database.Contents();
    EXPECT_NE(before_, after_);
  }

  Lines before_;
  Lines after_;
};

TEST_P(WriteTest, OnALockedReadOnlyOrFullDatabaseItChangesNothing) {
  for (const char* state :
       {"BEGIN IMMEDIATE", "BEGIN; select * from user_table", "pragma query_only = 1", "pragma max_page_count = 1"}) {
    SCOPED_TRACE(state);
    const World world;
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(world.database.Path().c_str(), &other), SQLITE_OK);
    sqlite3* connection = *state == 'B' ? other : World::LibrarysConnection();
    EXPECT_EQ(sqlite3_exec(connection, state, nullptr, nullptr, nullptr), SQLITE_OK);
    const bool suffices = std::strstr(state, "max_page_count") && !GetParam().grows;
    EXPECT_EQ(GetParam().call(), suffices);
    sqlite3_close(other);
    EXPECT_EQ(world.database.Contents(), suffices ? after_ : before_);
    EXPECT_EQ(world.host.announcements.size(), suffices ? 1u : 0u);
  }
}

TEST_P(WriteTest, AsksTheHostBeforeItLocksAndAnnouncesAfterTheCommit) {
  World world;
  Lines announced;
  world.host.onLookup = [&] { EXPECT_FALSE(world.database.Locked()); };
  world.host.onAnnounce = [&] { announced = world.database.Contents(); };
  EXPECT_TRUE(GetParam().call());
  EXPECT_EQ(announced, after_);
}

TEST_P(WriteTest, InsideATransactionOfTheCallersItIsTheCallerWhoCommitsAndAnnounces) {
  const World world;
  {
    RoleDBScope scope(DelegationDBHandler::GetDelegationDBHandler(), RoleDBScope::kWrite);
    EXPECT_TRUE(GetParam().call());
  }
  EXPECT_EQ(world.database.Contents(), before_);
  EXPECT_TRUE(world.host.announcements.empty());
}

INSTANTIATE_TEST_SUITE_P(Api, WriteTest,
                         ::testing::Values(Write{"Create", Create, true}, Write{"Update", Update, true},
                                           Write{"Delete", Delete, false}, Write{"Refresh", DelegationRefresh, false}),
                         ::testing::PrintToStringParamName());

TEST(ApiFaultsTest, AssigningAsksTheHostBeforeItLocksToo) {
  World world;
  world.host.onLookup = [&] { EXPECT_FALSE(world.database.Locked()); };
  DelegationCustomDelegation reports(2, "Reports", "blue", 5);
  const Json::Value both = Change(R"({"to": ["user eve", "group dev"]})")["user_group"];
  Json::Value users, groups;
  ASSERT_TRUE(GetUserGroupTypeFromJsonArray(both, users, groups));
  EXPECT_TRUE(DelegationUserAssignDelegationV2(reports, users) && DelegationGroupAssignDelegationV2(reports, groups));
  EXPECT_EQ(world.database.Rows("select * from user2delegation_table where delegationidx = 2"), Lines{"1005|2"});
  EXPECT_EQ(world.database.Rows("select * from group2delegation_table where delegationidx = 2"), Lines{"300|2"});

  EXPECT_FALSE(DelegationUserAssignDelegationV2(reports, both) || DelegationGroupAssignDelegationV2(reports, both));
  EXPECT_TRUE(world.log.Has("userInfo has wrong paramter group"));
  EXPECT_FALSE(DelegationUserAssignDelegationV2(reports, 7) || DelegationGroupAssignDelegationV2(reports, "text"));
  EXPECT_TRUE(world.log.Has("info is not array"));
}

TEST(ApiFaultsTest, AnExceptionBecomesTheFailureValue) {
  const std::vector<std::function<bool()>> failed{[] { return !Create(); },
                                                  [] { return !Update(); },
                                                  [] { return !DelegationRefresh(); },
                                                  [] { return DelegationUserAllowWebapi("bob", kQueueMethod) == -1; },
                                                  [] { return !DelegationUserHasAllDomainDelegations(1002); },
                                                  [] {
                                                    Json::Value out;
                                                    return !DelegationUserDelegationEntriesGet("bob", out);
                                                  },
                                                  [] {
                                                    DelegationCustomDelegation reports(2, "Reports", "blue", 5);
                                                    return !DelegationUserAssignDelegationV2(
                                                        reports, Change(R"({"to": ["user eve"]})")["user_group"]);
                                                  }};
  for (const auto& call : failed) {
    World world;
    const Lines before = world.database.Contents();
    world.host.onLookup = [] { throw std::bad_alloc(); };
    EXPECT_TRUE(call());
    EXPECT_TRUE(world.log.Has("exception: std::bad_alloc"));
    EXPECT_EQ(world.database.Contents(), before);
  }
}

TEST(ApiFaultsTest, AnExceptionOfTheAnnouncementIsAFailedAnnouncement) {
  World world;
  world.host.onAnnounce = [] { throw std::bad_alloc(); };
  EXPECT_TRUE(DelegationRefresh());
  EXPECT_TRUE(world.log.Has("cannot trigger"));
  EXPECT_FALSE(Update());
  EXPECT_TRUE(world.log.Has("Trigger fail!!!"));
  EXPECT_EQ(world.database.Rows("select name from delegation_table where delegationidx = 1"), Lines{"Desk"});
}

TEST(ApiFaultsTest, AnExceptionInTheMiddleOfAWriteUndoesIt) {
  const World world;
  const Lines before = world.database.Contents();
  const auto throwOnce = [](void* last, const char* line) {
    *static_cast<std::string*>(last) = line;
    if (std::strstr(line, "FromID fail")) throw std::runtime_error("no room");
  };
  std::string last;
  MaillogSetSink(throwOnce, &last);
  Json::Value change = Change(R"({"id": 1, "name": "Desk", "tabs": ["service"], "to": ["user nobody"]})");
  EXPECT_FALSE(DelegationDelegationUpdate(change));
  MaillogSetSink(nullptr, nullptr);
  EXPECT_NE(last.find("exception: no room"), std::string::npos) << last;
  EXPECT_EQ(world.database.Contents(), before);
}

TEST(ApiFaultsTest, WithoutAnswersOfTheHostNobodyGetsIn) {
  for (const auto function : {FakeHost::kUserGet, FakeHost::kIsAdmin, FakeHost::kAccountType, FakeHost::kDomain}) {
    World world;
    world.host.Fail(function, NIMBO_LOOKUP_FAILED);
    EXPECT_EQ(DelegationUserAllowWebapi("bob", kQueueMethod), -1) << function;
  }
}

}  // namespace
}  // namespace NIMBO::QUAYPOST_SERVER
