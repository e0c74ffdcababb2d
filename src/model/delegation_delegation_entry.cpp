// Stored entries: documents, and one row for each pair of type and data.
#include "model/delegation_delegation_entry.h"

#include "base/json.h"
#include "base/log.h"
#include "handlers/delegation_db_delegation_entry.h"
#include "model/delegation_default_delegation_entry.h"

namespace NIMBO::QUAYPOST_SERVER {

DelegationDelegationEntry::DelegationDelegationEntry() = default;
DelegationDelegationEntry::DelegationDelegationEntry(int idx, std::string type, std::string data)
    : RoleCustomEntry(idx, std::move(type), std::move(data)) {}

int DelegationDelegationEntry::getPolicyEntryIdx() { return policyEntryIdx_; }
void DelegationDelegationEntry::policyEntryIdx(int value) { policyEntryIdx_ = value; }
std::string DelegationDelegationEntry::getType() { return type_; }
void DelegationDelegationEntry::type(std::string value) { type_ = std::move(value); }
std::string DelegationDelegationEntry::getData() { return data_; }
void DelegationDelegationEntry::data(std::string value) { data_ = std::move(value); }

std::shared_ptr<PolicyPolicyEntryDBHandler> DelegationDelegationEntry::GetPolicyEntryDBHandler() {
  return std::make_shared<DelegationDelegationEntryDBHandler>();
}

bool DelegationDelegationEntry::_CreateIfNotFoundImp() {
  Indexes stored;
  return ListIndexes(stored) && CreateIfNotFoundAmong(stored);
}

bool DelegationDelegationEntry::ListIndexes(Indexes& stored) {
  std::vector<std::shared_ptr<RoleRoleEntry>> entries;
  if (!List(Json::nullValue, entries)) return Fail("Cannot list delegation entry");
  for (const auto& entry : entries) {
    stored.try_emplace({entry->getType(), entry->getData()}, entry->getPolicyEntryIdx());
  }
  return true;
}

bool DelegationDelegationEntry::CreateIfNotFoundAmong(Indexes& stored) {
  const auto key = std::make_pair(getType(), getData());
  if (const auto found = stored.find(key); found != stored.end()) {
    policyEntryIdx(found->second);
    return true;
  }
  // The entry may carry the index of a row that was deleted a moment ago; Create takes only one without an index.
  policyEntryIdx(-1);
  if (!_CreateImp()) return false;
  stored.emplace(key, getPolicyEntryIdx());
  return true;
}

bool DelegationDelegationEntry::FromJson(Json::Value& in, RoleRoleEntry& out) {
  const Json::Value& document = in;
  if (!HasMember(document, "type")) return Fail("Wrong parameter");
  std::string type;
  std::string data;
  int idx = -1;
  if (!ReadString(document["type"], type)) return Fail("Wrong parameter");
  if (!DelegationDefaultDelegationEntry::CheckInDefaultType(type)) return Fail("Wrong type [%s] here", type);
  if (HasMember(document, "data") && !ReadString(document["data"], data)) return Fail("Wrong parameter");
  if (HasMember(document, "id") && !ReadInt(document["id"], idx)) return Fail("Wrong parameter");
  out.policyEntryIdx(idx);
  out.type(type);
  out.data(data);
  return true;
}

bool DelegationDelegationEntry::ToJson(RoleRoleEntry& in, Json::Value& out) {
  out = Json::objectValue;
  out["type"] = in.getType();
  out["data"] = in.getData();
  return true;
}

bool DelegationDelegationEntry::List(Json::Value filter, std::vector<std::shared_ptr<RoleRoleEntry>>& out) {
  return DelegationDelegationEntryDBHandler().List(filter, out) || Fail("delegationEntryDBHandler.List fail");
}

}  // namespace NIMBO::QUAYPOST_SERVER
