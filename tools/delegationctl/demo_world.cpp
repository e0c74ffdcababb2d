// The throw-away world of --demo: invented accounts in two small files, and a database with two delegations.
#include "demo_world.h"

#include <fmt/format.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>

#include "api/delegation_api.h"
#include "errors.h"
#include "output.h"
#include "platform/mailserver.h"
#include "platform/nimbsdk.h"

namespace delegationctl {

using namespace NIMBO::QUAYPOST_SERVER;
namespace fs = std::filesystem;

namespace {

constexpr char kPasswd[] =
    "ann:x:1001:100:Ann Archer:/home/ann:/bin/sh\n"
    "bob:x:1002:100:Bob Baker:/home/bob:/bin/sh\n"
    "carol:x:1003:100:Carol Cooper:/home/carol:/bin/sh\n"
    "dave:x:1004:100:Dave Draper:/home/dave:/bin/sh\n"
    "eva:x:1005:100:Eva Fletcher:/home/eva:/bin/sh\n"
    "frank:x:1006:100:Frank Glover:/home/frank:/bin/sh\n"
    "grace:x:1007:100:Grace Hooper:/home/grace:/bin/sh\n"
    "henry:x:1008:100:Henry Joiner:/home/henry:/bin/sh\n";

constexpr char kGroup[] =
    "users:x:100:\n"
    "administrators:x:2000:henry\n"
    "helpdesk:x:2001:bob,carol,eva,frank\n"
    "postmasters:x:2002:dave\n"
    "office:x:2003:eva,frank\n";

constexpr char kConfiguration[] =
    "# The demo world of delegationctl; this file marks its directory.\n"
    "[delegation]\n"
    "database = {0}/delegation.db\n"
    "[accounts]\n"
    "type = local\n"
    "[log]\n"
    "target = {0}/log\n";

struct DemoDelegation {
  const char* name;
  const char* color;
  int priority;
  std::initializer_list<const char*> tabs;
  const char* user;
  const char* group;
};

const DemoDelegation kDelegations[] = {
    {"Postmaster",
     "red",
     100,
     {"all_domain_alias", "log_log", "mail_delivery", "queue", "service"},
     "ann",
     "postmasters"},
    {"Helpdesk", "none", 20, {"log_list", "queue"}, "grace", "helpdesk"},
};

void Write(const fs::path& path, const std::string& text) {
  std::ofstream file(path);
  file << text;
  if (!file.flush()) throw Exit(errors::kDemo, fmt::format("cannot write {}", Quoted(path.string())));
}

bool Store(const DemoDelegation& delegation) {
  Json::Value document;
  if (!DelegationDelegationDefaultEntriesGet(document)) return false;
  for (const char* tab : delegation.tabs) document[tab] = "true";
  document["name"] = delegation.name;
  document["color"] = delegation.color;
  document["priority"] = delegation.priority;
  const auto assign = [&](const char* type, const char* name) {
    Json::Value& assignee = document["user_group"].append(Json::objectValue);
    assignee["type"] = type;
    assignee["name"] = name;
  };
  assign("user", delegation.user);
  assign("group", delegation.group);
  int id = -1;
  return DelegationDelegationCreate(document, id);
}

std::string NewDirectory() {
  std::string path = (fs::temp_directory_path() / "delegationctl-demo-XXXXXX").string();
  if (!mkdtemp(path.data())) throw Exit(errors::kDemo, fmt::format("cannot make the directory {}", Quoted(path)));
  return path;
}

}  // namespace

DemoWorld::DemoWorld(const std::string& directory) try : directory_(directory), temporary_(directory.empty()) {
  if (temporary_) {
    directory_ = NewDirectory();
  } else {
    if (fs::create_directory(directory)) fs::permissions(directory, fs::perms::owner_all);
    directory_ = fs::canonical(directory).string();
  }
} catch (const fs::filesystem_error& error) {
  throw Exit(errors::kDemo, fmt::format("cannot make the demo world: {}", Printable(error.what())));
}

DemoWorld::~DemoWorld() {
  std::error_code ignored;
  if (temporary_) fs::remove_all(directory_, ignored);
}

void DemoWorld::Enter() const {
  const fs::path root = directory_;
  const bool isNew = !fs::exists(root / "demo.conf");
  if (isNew) {
    if (!fs::is_empty(root)) {
      throw Exit(errors::kNotADemo,
                 fmt::format("the directory {} holds no demo world; nothing was changed", Quoted(directory_)),
                 "name a directory that is empty or does not exist");
    }
    Write(root / "passwd", kPasswd);
    Write(root / "group", kGroup);
    Write(root / "demo.conf", fmt::format(kConfiguration, directory_));
  }
  MailserverSetConfigFile((root / "demo.conf").string());
  if (NIMBOUseAccountFiles((root / "passwd").c_str(), (root / "group").c_str()) != NIMBO_OK) {
    throw Exit(errors::kDemo, fmt::format("the account files in {} cannot be read", Quoted(directory_)),
               "they must be passwd and group, in passwd(5) and group(5) form");
  }
  for (const DemoDelegation& delegation : kDelegations) {
    if (!isNew || Store(delegation)) continue;
    fs::remove(root / "demo.conf");  // half a world is none
    throw Exit(errors::kDemo, "the delegations of the demo world cannot be stored");
  }
}

}  // namespace delegationctl
