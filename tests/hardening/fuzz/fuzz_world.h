// A throw-away mail host for the fuzz targets, and what must hold whatever is done to it: ann has Desk, ann and the
// group ops (bob) have Office. A broken promise ends the process, which is how libFuzzer learns of it.
//
//   static const FuzzWorld world;
//   world.Reset();   // the database as it was
//   ...
//   world.CheckRules();
#pragma once

#include <json/json.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <string_view>

#include "api/delegation_api.h"
#include "platform/mailserver.h"
#include "platform/nimbsdk.h"
#include "role/role_query.h"
#include "storage/delegation_db_handler.h"
#include "support/invariants.h"
#include "tables/tab2webapi_table.h"

namespace NIMBO::QUAYPOST_SERVER {

inline void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "BROKEN: %s\n", what);
  std::abort();
}

// With every member that a change needs; those of `change` count.
inline Json::Value Completed(const Json::Value& change) {
  Json::Value whole;
  DelegationDelegationDefaultEntriesGet(whole);
  whole["name"] = "New";
  whole["color"] = "none";
  whole["priority"] = 5;
  for (const std::string& member : change.getMemberNames()) whole[member] = change[member];
  return whole;
}

class FuzzWorld {
 public:
  static constexpr const char* kUsers[] = {"ann", "bob"};
  static constexpr const char* kMethod = "Webapi_Queue_Flush_v1";
  // The delegations that are assigned to the user r.uid, directly or through a group.
  static constexpr const char* kAssigned =
      "(select delegationidx from user2delegation_table where uid = r.uid union select delegationidx from "
      "group2delegation_table join user2group_table using (gid) where uid = r.uid)";

  FuzzWorld() : directory_((std::filesystem::temp_directory_path() / "fuzz-XXXXXX").string()) {
    Require(mkdtemp(directory_.data()), "a directory can be made");
    MaillogSetSink(CheckLogLine, nullptr);
    Write("conf", "[delegation]\ndatabase = " + Path("db") + "\n[accounts]\nvanish_limit = 100\n");
    Write("passwd", "ann:x:1001:100::/:\nbob:x:1002:100::/:\ncarol:x:1003:100::/:\nhenry:x:1008:100::/:\n");
    Write("group", "administrators:x:90:henry\nops:x:200:bob\nstaff:x:201:ann,carol\n");
    MailserverSetConfigFile(Path("conf"));
    NIMBOUseAccountFiles(Path("passwd").c_str(), Path("group").c_str());
    for (const char* change : {R"({"name": "Desk", "queue": "true", "user_group": [{"type": "user", "name": "ann"}]})",
                               R"({"name": "Office", "priority": 20, "log_log": "true", "all_domain_quota": "true",
                   "user_group": [{"type": "group", "name": "ops"}, {"type": "user", "name": "ann"}]})"}) {
      Json::Value document;
      int id = -1;
      Json::Reader().parse(change, document);
      Require(DelegationDelegationCreate(document = Completed(document), id), "the world can be made");
    }
    DelegationDBHandler::CloseDelegationDBHandler();
    std::ifstream file(Path("db"), std::ios::binary);
    image_.assign(std::istreambuf_iterator<char>(file), {});
  }
  ~FuzzWorld() { std::filesystem::remove_all(directory_); }
  FuzzWorld(const FuzzWorld&) = delete;
  FuzzWorld& operator=(const FuzzWorld&) = delete;

  std::string Path(const char* name) const { return directory_ + "/" + name; }
  const std::string& Image() const { return image_; }

  // The file looks old: such a one is not read again for every question.
  void Write(const char* name, std::string_view bytes) const {
    std::ofstream(Path(name), std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    std::filesystem::last_write_time(Path(name), std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
  }

  void Reset() const { Reset(image_); }
  void Reset(const std::string& image) const {
    DelegationDBHandler::CloseDelegationDBHandler();
    for (const char* file : {"db-wal", "db-shm", "db-journal"}) std::filesystem::remove(Path(file));
    Write("db", image);
  }

  // The first column of a query over the present database; of one that fails, what it gave before.
  static std::set<std::string> Column(const std::string& sql) {
    std::set<std::string> values;
    const RoleDBHandler* handler = DelegationDBHandler::GetDelegationDBHandler();
    if (!handler) return values;
    Query rows(*handler, sql);
    while (rows.Next()) values.insert(rows.Text(0));
    return values;
  }

  // The rows keep their rules, and nobody may do what was not granted.
  static void CheckRules() {
    Require(Column(kBroken).empty(), "the rules of the rows");
    for (const char* name : kUsers) CheckAccess(name, kMethod, kAssigned);
  }

  // A user may call `method` only as an administrator or through a tab that the delegations in `held` give: SQL for
  // delegation ids, r.uid being the user's.
  static void CheckAccess(const std::string& name, const std::string& method, const std::string& held) {
    if (DelegationUserAllowWebapi(name, method) != 0) return;
    NIMBOUSER* user = nullptr;
    Require(NIMBOUserGet(name.c_str(), &user) == NIMBO_OK, "who may do something is on the host");
    std::set<std::string> tabs =
        Column("select type from delegation2delegation_entry_view, (select " + std::to_string(user->uid) +
               " as uid) r where data = 'true' and delegationidx in " + held);
    tabs.insert({"_allow_webapi_", "personal"});
    bool justified = NBLIBGroupIsAdminGroupMem(user->szName, 0) == 1;
    for (const auto& [tab, methods] : *Tab2WebapiTable()) {
      justified = justified || (tabs.contains(tab) && methods.contains(method));
    }
    Require(justified, "nobody may do what was not granted");
    NIMBOUserFree(user);
  }

 private:
  // "FILE:LINE TEXT", at most 2,047 bytes, none of them a control byte.
  static void CheckLogLine(void*, const char* text) {
    const std::string_view line(text);
    const std::size_t colon = line.find(':');
    Require(colon != 0 && line.size() > colon && std::isdigit(line[colon + 1]), "a log line names its source");
    Require(line.size() <= 2047, "a log line is short");
    for (const char byte : line) Require(!std::iscntrl(static_cast<unsigned char>(byte)), "a log line is printable");
  }

  std::string directory_;
  std::string image_;
};

}  // namespace NIMBO::QUAYPOST_SERVER
