// The exported functions under every single failure of files, memory and the host's answers: a write is done wholly or
// not at all, nobody is locked out by it, and no answer lets somebody in. HARDENING=long in the environment tries every
// point; otherwise what fails persistently, on a full disk or for want of memory is tried in strides.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <tuple>

#include "api/delegation_api.h"
#include "hardening/fault_points.h"
#include "model/delegation_delegation.h"
#include "platform/mailserver.h"
#include "role/role_db_scope.h"
#include "role/role_role_entry.h"
#include "role/role_user.h"
#include "storage/delegation_db_handler.h"
#include "support/documents.h"
#include "support/fake_host.h"
#include "support/invariants.h"
#include "support/temp_database.h"

namespace NIMBO::QUAYPOST_SERVER {
namespace {

using Lines = std::vector<std::string>;

// What an exported function is given and gives: made before the failure, looked at after it.
struct Call {
  Json::Value in, out, filter, assignees;
  std::string user = "bob", type = "queue", method = "Webapi_Queue_Flush_v1";
  int id = -7;
  DelegationCustomDelegation helpdesk{1, "Helpdesk", "blue", 10};
  std::vector<std::shared_ptr<RoleUser>> users;
  std::vector<std::shared_ptr<RoleRoleEntry>> entries;

  explicit Call(const char* document) : in(Parsed(document)) {
    filter["detail"] = true;
    if (in.isObject()) {
      in = Change(in);
      in["quaypost"] = std::string(1800, 'x');
      assignees = in["user_group"];
    } else if (in.isArray() && in[0].isObject()) {
      for (Json::Value& change : in) change = Change(change);
    }
  }

  std::string Answer(bool result) const {
    std::string answer = std::to_string(result) + " " + out.toStyledString() + type;
    for (const auto& holder : users) answer += " " + holder->getUsername();
    return answer + " " + std::to_string(entries.size());
  }
};

struct Operation {
  const char* name;
  const char* document;
  bool (*call)(Call&);
  bool settles = true;  // recalculates and announces
};
void PrintTo(const Operation& operation, std::ostream* out) { *out << operation.name; }

#define CHANGE R"("tabs": ["service"], "to": ["user eve", "group dev"])"
const Operation kWrites[] = {
    {"Create", R"({"name": "New", "priority": 20, )" CHANGE "}",
     [](Call& c) { return DelegationDelegationCreate(c.in, c.id); }},
    {"UpdateOne", R"({"id": 1, "name": "Desk", )" CHANGE "}", [](Call& c) { return DelegationDelegationUpdate(c.in); }},
    {"UpdateSeveral", R"([{"id": 1, "name": "Desk", )" CHANGE R"(}, {"id": 2, "name": "Old", "tabs": [], "to": []}])",
     [](Call& c) { return DelegationDelegationUpdate(c.in); }},
    {"Delete", "[1, 2]", [](Call& c) { return DelegationDelegationDelete(c.in); }},
    {"Refresh", "null", [](Call&) { return DelegationRefresh(); }},
    {"UpdateAlone", R"({"id": 1, "name": "Desk", )" CHANGE "}",
     [](Call& c) { return DelegationDelegationUpdateImpFromSingle(c.in, c.users); }, false},
    {"AssignUsers", R"({"to": ["user eve", "user bob"]})",
     [](Call& c) { return DelegationUserAssignDelegationV2(c.helpdesk, c.assignees); }, false},
    {"AssignGroups", R"({"to": ["group dev"]})",
     [](Call& c) { return DelegationGroupAssignDelegationV2(c.helpdesk, c.assignees); }, false}};

const Operation kReads[] = {
    {"List", "null", [](Call& c) { return DelegationDelegationList(std::move(c.filter), c.out); }},
    {"Values", "null", [](Call& c) { return DelegationDelegationEntryAllList(std::move(c.type), c.out); }},
    {"Defaults", "null", [](Call& c) { return DelegationDelegationDefaultEntriesGet(c.out); }},
    {"Default", "null", [](Call& c) { return DelegationDefaultDelegationEntryGet(std::move(c.type), c.user); }},
    {"Users", "null", [](Call& c) { return DelegationUserList(std::move(c.filter), c.out); }},
    {"Details", "null", [](Call& c) { return DelegationUserGroupDelegationInfoList(std::move(c.filter), c.out); }},
    {"Split", R"({"to": ["user eve", "group dev"]})",
     [](Call& c) { return GetUserGroupTypeFromJsonArray(c.assignees, c.out, c.filter); }},
    {"Entries", R"({"name": "New"})",
     [](Call& c) { return DelegationDelegationEntryFromDelegationJson(c.in, c.entries); }},
    {"Holders", "null", [](Call& c) { return GetDelegationUsers(c.helpdesk, c.users); }},
    {"Tabs", "null", [](Call& c) { return DelegationUserDelegationEntriesGet(std::move(c.user), c.out); }},
    {"HasAllDomain", "null", [](Call&) { return DelegationUserHasAllDomainDelegations(1005); }},
    {"HasNoAllDomain", "null", [](Call&) { return DelegationUserHasAllDomainDelegations(1002); }},
    {"Allow", "null", [](Call& c) { return DelegationUserAllowWebapi(std::move(c.user), std::move(c.method)) == 0; }},
    {"AllowAdministrator", "null", [](Call& c) { return DelegationUserAllowWebapi("ann", std::move(c.method)) == 0; }},
    {"Refuse", "null", [](Call& c) { return DelegationUserAllowWebapi("eve", std::move(c.method)) == 0; }}};

// Two delegations, their holders, and changes on the host that a refresh has yet to find. The database file is made
// once and put back, byte for byte, before each call; the host likewise.
class FaultsTest : public ::testing::TestWithParam<std::tuple<Operation, int>> {
 protected:
  static constexpr int kLookup = FaultPoint::kMemory + 1;

  struct Series {  // of points: the nth time that ...
    bool persists = false;
    FakeHost::Function function = FakeHost::kUserGet;
    int status = NIMBO_LOOKUP_FAILED;
  };
  struct State {
    std::string bytes;
    Lines contents;
  };

  FaultsTest() {
    unsigned int uid = 1000;
    for (const char* name : {"ann", "bob", "cyd", "dan", "eve"}) host_.AddUser(name, ++uid);
    host_.AddGroup("ops", 200, {"ann", "bob"});
    host_.AddGroup("dev", 300, {"cyd"});
    host_.AddGroup("administrators", 90, {"ann"});
    for (const char* document : {R"({"name": "Helpdesk", "tabs": ["queue"], "to": ["group ops", "user dan"]})",
                                 R"({"name": "Reports", "priority": 5, "tabs": ["log_log", "all_domain_alias"],
                                     "to": ["user bob", "user eve"]})"}) {
      Call call(document);
      EXPECT_TRUE(DelegationDelegationCreate(call.in, call.id));
    }
    database_.Exec("update delegation_entry_table set type = 'old_tab' where type = 'log_log' and data = 'true'");
    host_.SetMembers("ops", {"bob", "cyd"});
    host_.RemoveUser("dan");
    host_.announcements.clear();
    initialHost_ = host_;
    DelegationDBHandler::CloseDelegationDBHandler();
    before_ = Now();
    ExpectSettled();
    MaillogSetSink([](void* last, const char* line) { std::snprintf(static_cast<char*>(last), 256, "%s", line); },
                   log_);
  }

  ~FaultsTest() override {
    MaillogSetSink(nullptr, nullptr);
    RecordProperty("points", std::to_string(points_));
    if (IsLong()) std::printf("%ld points\n", points_);
  }

  static bool IsLong() { return std::getenv("HARDENING") && std::getenv("HARDENING") == std::string("long"); }

  void PutBack() {
    DelegationDBHandler::CloseDelegationDBHandler();
    for (const char* suffix : {"-journal", "-wal", "-shm"}) std::filesystem::remove(database_.Path() + suffix);
    std::ofstream(database_.Path(), std::ios::binary) << before_.bytes;
    host_ = initialHost_;
    log_[0] = '\0';
  }

  std::string Bytes() const {
    std::ostringstream bytes;
    for (const char* suffix : {"", "-wal"}) bytes << std::ifstream(database_.Path() + suffix, std::ios::binary).rdbuf();
    return bytes.str();
  }
  State Now() const { return {Bytes(), database_.Contents()}; }
  bool Is(const State& state) const { return Bytes() == state.bytes || database_.Contents() == state.contents; }

  void ExpectSettled() const {
    EXPECT_EQ(database_.Rows(kBroken), Lines());
    EXPECT_EQ(database_.Rows(kNotDue), Lines());
  }

  // Others can read and write at once.
  static void ExpectUnlocked(const TempDatabase& database) { database.Exec("begin exclusive; rollback"); }

  std::vector<Series> AllSeries() const {
    std::vector<Series> all;
    if (kind_ != kLookup) return {{false}, {true}};
    for (int function = 0; function < FakeHost::kFunctionCount; ++function) {
      if (function == FakeHost::kSetFile) continue;  // comes behind the commit
      all.push_back({false, static_cast<FakeHost::Function>(function), NIMBO_LOOKUP_FAILED});
      all.push_back({false, all.back().function, function < FakeHost::kUserGet ? FakeHost::kThrows : NIMBO_NOT_FOUND});
    }
    return all;
  }

  // Runs `attempt`, which answers whether the failure came about, for one point after the other until it does not.
  template <class Attempt>
  void Sweep(Attempt attempt) {
    for (const Series& series : AllSeries()) {
      series_ = series;
      for (n_ = 1; !HasFailure(); n_ += Stride()) {
        SCOPED_TRACE("point " + std::to_string(n_) + (series.persists ? " and all behind it" : "") + ", function " +
                     std::to_string(series.function) + ", status " + std::to_string(series.status));
        if (!attempt()) break;
        ++points_;
      }
    }
  }

  long Stride() const {
    const bool isEvery = IsLong() || kind_ == kLookup || (kind_ == FaultPoint::kFile && !series_.persists);
    if (!isEvery) return 1 + n_ / 8;
    return kind_ == FaultPoint::kMemory && n_ >= 5000 ? n_ / 100 : 1;
  }

  // Calls the operation with the failure at the present point; whether the failure came about.
  bool Fails(Call& call, bool& done) {
    if (kind_ != kLookup) {
      const FaultPoint fault(static_cast<FaultPoint::Kind>(kind_), n_, series_.persists);
      done = operation_.call(call);
      return fault.Hit();
    }
    const long due = host_.Calls(series_.function) + n_;
    host_.FailNth(series_.function, static_cast<int>(n_), series_.status);
    done = operation_.call(call);
    return host_.Calls(series_.function) >= due;
  }

  FakeHost& host_ = FakeHost::Instance();
  TempDatabase database_;
  FakeHost initialHost_;
  State before_;
  Series series_;
  long n_ = 1;
  long points_ = 0;
  char log_[256] = "";  // the last line
  const Operation operation_ = std::get<0>(GetParam());
  const int kind_ = std::get<1>(GetParam());
};

class WriteFaultsTest : public FaultsTest {
 protected:
  // "There is no such account" is an answer like any other: the call may do what follows from it, but nobody gains.
  void ExpectNobodyGained(const State& after) const {
    EXPECT_EQ(database_.Rows(kBroken), Lines());
    for (const std::string& row : database_.Contents()) {
      const bool isLink = row.starts_with("user2group_table") || row.find("2delegation_table: ") != std::string::npos;
      const auto has = [&row](const Lines& lines) { return std::find(lines.begin(), lines.end(), row) != lines.end(); };
      EXPECT_TRUE(!isLink || has(before_.contents) || has(after.contents)) << row;
    }
  }
};

TEST_P(WriteFaultsTest, IsDoneWhollyOrNotAtAllAndLocksNobodyOut) {
  for (const char* journalMode : {"delete", "wal"}) {
    if (*journalMode == 'w' && (!IsLong() || kind_ > FaultPoint::kDiskFull)) break;
    PutBack();
    database_.Exec(std::string("pragma journal_mode = ") + journalMode);
    before_ = Now();
    Lines announced;
    host_.onLookup = [this] { EXPECT_FALSE(database_.Locked()) << "while the host is asked"; };
    host_.onAnnounce = [&] { announced = database_.Contents(); };
    Call undisturbed(operation_.document);
    EXPECT_TRUE(operation_.call(undisturbed));
    const State after = Now();
    EXPECT_NE(after.contents, before_.contents);
    EXPECT_EQ(announced, operation_.settles ? after.contents : Lines()) << "behind the commit";
    if (operation_.settles) ExpectSettled();

    PutBack();
    {
      RoleDBScope scope(DelegationDBHandler::GetDelegationDBHandler(), RoleDBScope::kWrite);
      Call inside(operation_.document);
      EXPECT_TRUE(operation_.call(inside));
    }
    EXPECT_TRUE(Is(before_) && host_.announcements.empty()) << "the caller commits and announces";
    Sweep([&] {
      PutBack();
      DelegationDBHandler::GetDelegationDBHandler()->SetBusyTimeout(1);
      Call call(operation_.document);
      bool done = false;
      const bool hit = Fails(call, done);
      ExpectUnlocked(database_);
      EXPECT_TRUE(done || (hit && log_[0])) << "fails without a reason or without a word";
      if (hit && series_.status == NIMBO_NOT_FOUND) {
        if (operation_.settles) ExpectNobodyGained(after);
        return true;
      }
      const bool stored = done || std::strstr(log_, "Trigger fail!!!");  // or only the announcement failed
      EXPECT_TRUE(Is(stored ? after : before_)) << journalMode << ", stored: " << stored;
      EXPECT_TRUE(stored || (host_.announcements.empty() && call.id == -7));
      EXPECT_TRUE(hit || host_.announcements.size() == (operation_.settles ? 1u : 0u));
      if (stored || (!IsLong() && points_ % 8 != 0)) return hit;

      host_ = initialHost_;
      Call again(operation_.document);
      EXPECT_TRUE(operation_.call(again) && Is(after)) << log_;
      ExpectUnlocked(database_);
      return hit;
    });
  }
  EXPECT_GT(points_, 0);
}

class ReadFaultsTest : public FaultsTest {};

TEST_P(ReadFaultsTest, AnswersAsEverOrRefuses) {
  PutBack();
  Call undisturbed(operation_.document);
  const std::string answer = undisturbed.Answer(operation_.call(undisturbed));
  const Json::Value noTab = Parsed(R"({"enable_tabs": []})");
  Sweep([&] {
    PutBack();
    if (kind_ == FaultPoint::kBusy) DelegationDBHandler::GetDelegationDBHandler()->SetBusyTimeout(1);
    Call call(operation_.document);  // opening the file is swept as well
    bool done = false;
    const bool hit = Fails(call, done);
    ExpectUnlocked(database_);
    EXPECT_TRUE(Is(before_));
    if (call.Answer(done) != answer) {
      EXPECT_TRUE(hit && (!done || call.out == noTab)) << call.Answer(done);
      EXPECT_TRUE(log_[0]) << "refused without a word";
    }
    host_ = initialHost_;
    Call again(operation_.document);
    EXPECT_EQ(again.Answer(operation_.call(again)), answer);
    return hit;
  });
}

class NewFileFaultsTest : public FaultsTest {};

TEST_P(NewFileFaultsTest, HasTheWholeSchemaOrNone) {
  constexpr const char* kSchema =
      "select sql from sqlite_master union all select user_version from pragma_user_version";
  const Lines complete = database_.Rows(kSchema);
  Sweep([&] {
    const TempDatabase database;
    Call call(operation_.document);
    bool done = false;
    const bool hit = Fails(call, done);
    EXPECT_TRUE(done || (hit && log_[0]));
    if (std::filesystem::exists(database.Path())) {
      ExpectUnlocked(database);
      const std::size_t rows = database.Rows(kSchema).size();
      EXPECT_TRUE(rows == complete.size() || (!done && rows == 1)) << rows;
    }
    Call again(operation_.document);
    EXPECT_TRUE(operation_.call(again)) << log_;
    EXPECT_EQ(database.Rows(kSchema), complete);
    return hit;
  });
}

std::string Name(const ::testing::TestParamInfo<FaultsTest::ParamType>& info) {
  constexpr const char* kKinds[] = {"File", "DiskFull", "Busy", "DatabaseMemory", "Memory", "Lookup"};
  return std::string(std::get<0>(info.param).name) + kKinds[std::get<1>(info.param)];
}
using ::testing::Combine, ::testing::Range, ::testing::Values, ::testing::ValuesIn;
INSTANTIATE_TEST_SUITE_P(Api, WriteFaultsTest, Combine(ValuesIn(kWrites), Range(0, 6)), Name);
INSTANTIATE_TEST_SUITE_P(Api, ReadFaultsTest, Combine(ValuesIn(kReads), Range(0, 6)), Name);
INSTANTIATE_TEST_SUITE_P(Api, NewFileFaultsTest,
                         Combine(Values(kReads[0]), Values(FaultPoint::kFile, FaultPoint::kDiskFull,
                                                           FaultPoint::kDatabaseMemory, FaultPoint::kMemory)),
                         Name);

}  // namespace
}  // namespace NIMBO::QUAYPOST_SERVER
