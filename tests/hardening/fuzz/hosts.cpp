// Fuzz target: host records, the bytes of a passwd(5) file and, behind a line "--", those of a group(5) file.
#include <map>
#include <sstream>

#include "fuzz_world.h"
#include "model/delegation_delegation.h"

using namespace NIMBO::QUAYPOST_SERVER;

namespace {

int Collect(const NIMBOUSER* user, void* accounts) {
  static_cast<std::map<std::string, unsigned int>*>(accounts)->emplace(user->szName, user->uid);
  return 0;
}

void Add(Json::Value& assignees, const char* type, const std::string& name) {
  Json::Value& assignee = assignees.append(Json::objectValue);
  assignee["type"] = type;
  assignee["name"] = name;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  static const FuzzWorld world;
  const std::string text(data, data + size);
  const std::size_t middle = text.find("\n--\n");
  const std::string groups = middle == text.npos ? "" : text.substr(middle + 4);
  world.Write("users", text.substr(0, middle));
  world.Write("groups", groups);
  world.Reset();
  Require(NIMBOUseAccountFiles(world.Path("users").c_str(), world.Path("groups").c_str()) == NIMBO_OK,
          "any file can be read");

  std::map<std::string, unsigned int> accounts;
  const int reported = NBLIBUserInfoEnum(NIMBO_ACCOUNT_LOCAL, nullptr, 0, -1, Collect, &accounts);
  Require(reported == static_cast<int>(accounts.size()), "every account is reported once");
  Json::Value users = Json::arrayValue;
  for (const auto& [name, uid] : accounts) {
    Require(uid != 4294967295U && !name.starts_with("+") && !name.starts_with("-"),
            "an account has an id and is no mark");
    NIMBOUSER* user = nullptr;
    Require(NIMBOUserGet(name.c_str(), &user) == NIMBO_OK && user->uid == uid && name == user->szName,
            "an account that is enumerated is found, as it is");
    NIMBOUserFree(user);
    Require(NBLIBGroupIsAdminGroupMem(name.c_str(), 0) == 0 || groups.find("administrators") != groups.npos,
            "an administrator is one by the group file");
    if (!checkUnsupportedUser(name.c_str())) Add(users, "user", name);
  }
  Json::Value members = Json::arrayValue;
  std::istringstream lines(groups);  // no function enumerates groups
  for (std::string line; std::getline(lines, line);) {
    const std::string name = line.substr(0, line.find(':')).c_str();
    NBLIBSZLIST* list = NBLIBCSzListAlloc(0);
    if (NIMBOGroupListMember(name.c_str(), &list) == NIMBO_OK) Add(members, "group", name);
    for (int i = 0; i < NBLIBCSzListCount(list); ++i)
      Require(accounts.contains(NBLIBCSzListGet(list, i)), "a member is an account");
    NBLIBCSzListFree(list);
  }
  DelegationCustomDelegation desk(1, "Desk", "none", 10), office(2, "Office", "none", 20);
  DelegationUserAssignDelegationV2(desk, users);
  DelegationGroupAssignDelegationV2(office, members);
  if (DelegationRefresh()) world.CheckRules();
  return 0;
}
