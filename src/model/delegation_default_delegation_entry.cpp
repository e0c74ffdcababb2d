// The entries of the default delegation.
#include "model/delegation_default_delegation_entry.h"

#include <algorithm>

#include "base/log.h"
#include "handlers/delegation_db_delegation_entry.h"
#include "model/delegation_default_delegation.h"
#include "tables/delegation_default_entries.h"

namespace NIMBO::QUAYPOST_SERVER {

DelegationDefaultDelegationEntry::DelegationDefaultDelegationEntry() = default;
DelegationDefaultDelegationEntry::DelegationDefaultDelegationEntry(int idx, std::string type, std::string data)
    : RoleDefaultEntry(idx, std::move(type), std::move(data)) {}

int DelegationDefaultDelegationEntry::getPolicyEntryIdx() { return policyEntryIdx_; }
void DelegationDefaultDelegationEntry::policyEntryIdx(int value) { policyEntryIdx_ = value; }
std::string DelegationDefaultDelegationEntry::getType() { return type_; }
void DelegationDefaultDelegationEntry::type(std::string value) { type_ = std::move(value); }
std::string DelegationDefaultDelegationEntry::getData() { return data_; }
void DelegationDefaultDelegationEntry::data(std::string value) { data_ = std::move(value); }

std::shared_ptr<PolicyPolicyEntryDBHandler> DelegationDefaultDelegationEntry::GetPolicyEntryDBHandler() {
  return std::make_shared<DelegationDelegationEntryDBHandler>();
}

bool DelegationDefaultDelegationEntry::ListDefaultType(std::vector<std::string>& types) {
  return DelegationUtilGetAllDefaultTypeDelegationEntry(types) || Fail("Cannot get the types..");
}

bool DelegationDefaultDelegationEntry::CheckInDefaultType(std::string type) {
  std::vector<std::string> types;
  if (!ListDefaultType(types)) return Fail("Wrong paramter");
  return std::find(types.begin(), types.end(), type) != types.end();
}

namespace {

bool sort_by_typename(const std::shared_ptr<RoleRoleEntry>& a, const std::shared_ptr<RoleRoleEntry>& b) {
  return a->getType() < b->getType();
}

}  // namespace

bool DelegationDefaultDelegationEntry::List(Json::Value, std::vector<std::shared_ptr<RoleRoleEntry>>& out) {
  if (!DelegationUtilGetAllDefaultDelegationEntry(out)) {
    return Fail("DelegationUtilGetAllDefaultDelegationEntry fail");
  }
  std::sort(out.begin(), out.end(), sort_by_typename);
  return true;
}

int DelegationDefaultDelegationEntry::FindBelongPolicies(std::vector<std::shared_ptr<RoleRole>>& policies) {
  return DelegationDefaultDelegation::List(Json::nullValue, policies) ? kFound : kError;
}

int DelegationDefaultDelegationEntry::FindBelongUsers(std::vector<std::shared_ptr<RoleUser>>& users) {
  std::vector<std::shared_ptr<RoleRole>> policies;
  if (!DelegationDefaultDelegation::List(Json::nullValue, policies)) {
    return FailLookup("DelegationDefaultDelegation::List fail");
  }
  if (policies.size() != 1) return FailLookup("list default delegation fail %lu", policies.size());
  const int found = policies.front()->FindBelongUsersNormal(users);
  return found == kError ? FailLookup("FindBelongUsersNormal fail") : found;
}

}  // namespace NIMBO::QUAYPOST_SERVER
