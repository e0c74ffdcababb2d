// Fuzz target: a letter that picks exported functions, then their document as JSON. Behind a capital letter the
// document is completed first, so that its members are reached however few it has.
#include <functional>
#include <map>

#include "fuzz_world.h"
#include "model/delegation_delegation.h"
#include "role/role_role_entry.h"
#include "role/role_user.h"

using namespace NIMBO::QUAYPOST_SERVER;

namespace {

bool Parse(const std::string& text, Json::Value& value) {
  try {
    return Json::Reader(Json::Features::all()).parse(text, value, false);
  } catch (const Json::Exception&) {  // too deep
    return false;
  }
}

void Complete(Json::Value& document) {
  if (document.isObject()) document = Completed(document);
  if (!document.isArray()) return;
  for (Json::Value& element : document) {
    if (element.isObject()) element = Completed(element);
  }
}

void Call(char letter, Json::Value& document) {
  std::vector<std::shared_ptr<RoleUser>> users;
  std::vector<std::shared_ptr<RoleRoleEntry>> entries;
  DelegationCustomDelegation desk(1, "Desk", "none", 10);
  Json::Value out, more;
  std::string data;
  int id = -1;
  const auto list = [&] {
    DelegationDelegationList(document, out);
    DelegationUserList(document, out);
    DelegationUserGroupDelegationInfoList(document, out);
  };
  const auto split = [&] {
    DelegationDelegationEntryFromDelegationJson(document, entries);
    GetUserGroupTypeFromJsonArray(document, out, more);
  };
  const auto assign = [&] {  // the recalculation is left to the caller
    DelegationUserAssignDelegationV2(desk, document);
    DelegationGroupAssignDelegationV2(desk, document);
    GetDelegationUsers(desk, users);
    DelegationRefresh();
  };
  const auto name = [&] {
    for (const Json::Value& value : document) {
      if (!value.isString()) continue;
      const std::string text = value.asString();
      DelegationDelegationEntryAllList(text, out);
      DelegationDefaultDelegationEntryGet(text, data);
      DelegationUserDelegationEntriesGet(text, out);
      for (const std::string user : {"ann", text.c_str()}) FuzzWorld::CheckAccess(user, text, FuzzWorld::kAssigned);
    }
  };
  const std::map<char, std::function<void()>> calls{
      {'c', [&] { DelegationDelegationCreate(document, id); }},
      {'u', [&] { DelegationDelegationUpdate(document); }},
      {'s', [&] { DelegationDelegationUpdateImpFromSingle(document, users); }},
      {'d', [&] { DelegationDelegationDelete(document); }},
      {'l', list},
      {'e', split},
      {'v', assign},
      {'n', name},
  };
  if (calls.contains(letter)) calls.at(letter)();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  static const FuzzWorld world;
  const std::string text(data, data + size);
  Json::Value document;
  if (text.empty() || !Parse(text.substr(1), document)) return -1;
  if (std::isupper(data[0])) Complete(document);
  world.Reset();
  Call(static_cast<char>(std::tolower(data[0])), document);
  world.CheckRules();
  Require(DelegationRefresh(), "the host can be read again");
  world.CheckRules();
  return 0;
}
