// Tells the stories of this directory: each is a list of steps, run one after the other on an empty host and database.
//
// A step may hold, in this order of effect:
//   "host"      sentences about the host ("add_user ann 1001", "fail UserGetByUID"; see TellHost)
//   "sql"       a statement that somebody else runs on the database
//   "create", "update", "delete", "refresh", "list", "infos", "users" or "values": one call of the API (see Call) with
//               this document; those of delegations are in the short form of support/documents.h
//   "returns"   its result; by default true
//   "log"       texts that it logs, in this order, others between them; without it, a call that returns true logs none
//   "announced" how often it announces the database; none if it returns false
//   "gives"     its output
//   "unchanged" true: the call leaves every table as it was
//   "tabs"      per user the tabs that are switched on; that no others open a web API method is checked with them
//   "answers"   results of DelegationUserAllowWebapi by "USER METHOD", or DelegationUserHasAllDomainDelegations by uid
//   "rows"      the rows of a table, or of a query that starts with "select"
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <set>

#include "api/delegation_api.h"
#include "storage/delegation_db_handler.h"
#include "support/documents.h"
#include "support/fake_host.h"
#include "support/log_capture.h"
#include "support/temp_database.h"
#include "tables/delegation_tab2webapi.h"

namespace NIMBO::QUAYPOST_SERVER {
namespace {

struct Story {
  std::string name;
  Json::Value steps;
};

void PrintTo(const Story& story, std::ostream* out) { *out << story.name; }

std::vector<Story> Stories() {
  std::vector<Story> stories;
  for (const auto& file : std::filesystem::directory_iterator(STORIES_DIRECTORY)) {
    if (file.path().extension() != ".json") continue;
    std::ifstream in(file.path());
    const Json::Value told = Parsed({std::istreambuf_iterator<char>(in), {}});
    for (const std::string& name : told.getMemberNames()) stories.push_back({name, told[name]});
  }
  return stories;
}

std::vector<std::string> Texts(const Json::Value& list) {
  std::vector<std::string> texts;
  for (const Json::Value& text : list) texts.push_back(text.asString());
  return texts;
}

void TellHost(const std::string& sentence) {
  FakeHost& host = FakeHost::Instance();
  std::istringstream words(sentence);
  std::string verb, name;
  unsigned int id = 0;
  words >> verb >> name;
  if (verb == "add_user" || verb == "add_group") words >> id;
  const std::vector<std::string> members{std::istream_iterator<std::string>(words), {}};

  static const std::map<std::string, FakeHost::Function> kFunctions{{"UserGetByUID", FakeHost::kUserGetByUID},
                                                                    {"GroupGetByGID", FakeHost::kGroupGetByGID},
                                                                    {"UserInfoEnum", FakeHost::kUserInfoEnum},
                                                                    {"SetFile", FakeHost::kSetFile},
                                                                    {"VanishLimit", FakeHost::kVanishLimit}};
  const std::map<std::string, std::function<void()>> verbs{
      {"add_user", [&] { host.AddUser(name, id); }},
      {"add_group", [&] { host.AddGroup(name, id, members); }},
      {"set_members", [&] { host.SetMembers(name, members); }},
      {"remove_user", [&] { host.RemoveUser(name); }},
      {"administrator", [&] { host.AddGroup("administrators", 90, {name}); }},
      {"fail", [&] { host.Fail(kFunctions.at(name), NIMBO_LOOKUP_FAILED); }},
      {"recover", [&] { host.Recover(); }}};
  verbs.at(verb)();
}

Json::Value Expanded(const Json::Value& brief) {
  if (!brief.isArray()) return Change(brief);
  Json::Value documents = Json::arrayValue;
  for (const Json::Value& one : brief) documents.append(Change(one));
  return documents;
}

// `out` holds the output of the call before; an update with "listed" takes it as its document.
bool Call(const Json::Value& step, Json::Value& out) {
  if (step.isMember("list")) return DelegationDelegationList(step["list"], out);
  if (step.isMember("infos")) return DelegationUserGroupDelegationInfoList(step["infos"], out);
  if (step.isMember("users")) return DelegationUserList(step["users"], out);
  if (step.isMember("values")) return DelegationDelegationEntryAllList(step["values"].asString(), out);
  if (step.isMember("refresh")) return DelegationRefresh();
  if (step.isMember("delete")) {
    Json::Value ids = step["delete"];
    return DelegationDelegationDelete(ids);
  }
  if (step.isMember("update")) {
    Json::Value change = step["update"] == "listed" ? out : Expanded(step["update"]);
    return DelegationDelegationUpdate(change);
  }
  if (!step.isMember("create")) return true;
  Json::Value change = Change(step["create"]);
  int id = -1;
  const bool created = DelegationDelegationCreate(change, id);
  out = id;
  return created;
}

void ExpectTabs(const std::string& user, const Json::Value& tabs) {
  Json::Value out;
  EXPECT_TRUE(DelegationUserDelegationEntriesGet(user, out));
  EXPECT_EQ(out["enable_tabs"], tabs) << user;
  std::map<std::string, std::set<std::string>> table;
  ASSERT_TRUE(DelegationUtilGetTab2WebapiSet(table));
  std::set<std::string> allowed = table["personal"];
  allowed.merge(std::set<std::string>(table["_allow_webapi_"]));
  for (const Json::Value& tab : tabs) allowed.merge(std::set<std::string>(table[tab.asString()]));
  for (const auto& [tab, methods] : table) {
    const std::string& method = *methods.begin();
    EXPECT_EQ(DelegationUserAllowWebapi(user, method), allowed.count(method) > 0 ? 0 : 1) << user << ' ' << method;
  }
}

class StoryTest : public ::testing::TestWithParam<Story> {};

TEST_P(StoryTest, ComesOutAsTold) {
  FakeHost& host = FakeHost::Instance();
  const TempDatabase database;
  LogCapture log;
  Json::Value out;
  ASSERT_NE(DelegationDBHandler::GetDelegationDBHandler(), nullptr);
  for (Json::ArrayIndex number = 0; number < GetParam().steps.size(); ++number) {
    const Json::Value& step = GetParam().steps[number];
    SCOPED_TRACE("step " + std::to_string(number + 1) + step.toStyledString());
    for (const std::string& sentence : Texts(step["host"])) TellHost(sentence);
    if (step.isMember("sql")) database.Exec(step["sql"].asString());
    const auto before = database.Contents();
    const auto announced = host.announcements.size();
    log.Clear();

    const bool returns = step.get("returns", true).asBool();
    EXPECT_EQ(Call(step, out), returns);
    const auto logged = log.Texts();
    auto line = logged.begin();
    for (const std::string& text : Texts(step["log"])) {
      line = std::find(line, logged.end(), text);
      ASSERT_NE(line++, logged.end()) << "not logged, or not in this order: " << text;
    }
    EXPECT_TRUE(logged.empty() || !returns || step.isMember("log"));
    if (!returns || step.isMember("announced")) {
      EXPECT_EQ(host.announcements.size() - announced, step.get("announced", 0).asUInt());
    }
    if (step.isMember("gives")) {
      const bool delegations = step.isMember("list") || step.isMember("infos");
      const Json::Value expected = delegations ? Expanded(step["gives"]) : step["gives"];
      EXPECT_EQ(out.toStyledString(), expected.toStyledString());
    }
    if (step.isMember("unchanged")) {
      EXPECT_EQ(database.Contents(), before);
    }
    for (const std::string& user : step["tabs"].getMemberNames()) ExpectTabs(user, step["tabs"][user]);
    for (const std::string& question : step["answers"].getMemberNames()) {
      const auto space = question.find(' ');
      const int answer = space == std::string::npos
                             ? DelegationUserHasAllDomainDelegations(static_cast<unsigned int>(std::stoul(question)))
                             : DelegationUserAllowWebapi(question.substr(0, space), question.substr(space + 1));
      EXPECT_EQ(answer, step["answers"][question].asInt()) << question;
    }
    for (const std::string& rows : step["rows"].getMemberNames()) {
      const std::string query = rows.starts_with("select") ? rows : "select * from " + rows;
      EXPECT_EQ(database.Rows(query), Texts(step["rows"][rows])) << rows;
    }
    if (HasFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(Stories, StoryTest, ::testing::ValuesIn(Stories()), [](const auto& told) {
  std::string name = told.param.name;
  std::replace_if(
      name.begin(), name.end(), [](unsigned char c) { return !std::isalnum(c); }, '_');
  return name;
});

}  // namespace
}  // namespace NIMBO::QUAYPOST_SERVER
