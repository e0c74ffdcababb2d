// The table of default entries, and what is made from it.
#include "tables/delegation_default_entries.h"

#include "model/delegation_default_delegation_entry.h"
#include "model/delegation_delegation_entry.h"
#include "model/delegation_group.h"
#include "model/delegation_user.h"

namespace NIMBO::QUAYPOST_SERVER {

namespace {

struct DelegationSettingData {
  int index;
  const char* type;
  const char* data;
};

// INVARIANT: a type keeps its index for ever; the numbers left out stay unused.
constexpr DelegationSettingData kDefaultEntries[] = {
    {-2, "log_log", "false"},
    {-3, "service", "false"},
    {-5, "user_policy", "false"},
    {-6, "mail_monitor", "false"},
    {-7, "server_list", "false"},
    {-8, "mail_migration", "false"},
    {-9, "conf_import", "false"},
    {-10, "monitor_all", "false"},
    {-12, "log_analysis", "false"},
    {-13, "log_management", "false"},
    {-14, "log_list", "false"},
    {-15, "log_report", "false"},
    {-16, "queue", "false"},
    {-17, "security_spam", "false"},
    {-18, "security_antivirus", "false"},
    {-19, "security_auth", "false"},
    {-20, "security_contentscan", "false"},
    {-21, "security_dataprotection", "false"},
    {-22, "all_domain_general", "false"},
    {-23, "all_domain_user_group", "false"},
    {-24, "all_domain_alias", "false"},
    {-25, "all_domain_autobcc", "false"},
    {-26, "all_domain_quota", "false"},
    {-27, "all_domain_disclaimer", "false"},
    {-28, "mail_delivery", "false"},
    {-29, "mail_delivery_security", "false"},
    {-30, "delegation", "false"},
    {-32, "audit_search", "false"},
    {-33, "quaypost", "false"},
};

template <class Record, class Base>
void Duplicate(std::vector<Record>& in, std::vector<std::shared_ptr<Base>>& out) {
  out.clear();
  for (Record& record : in) out.push_back(std::make_shared<Record>(record));
}

}  // namespace

bool DelegationUtilGetAllDefaultTypeDelegationEntry(std::vector<std::string>& types) {
  types.clear();
  for (const DelegationSettingData& row : kDefaultEntries) types.push_back(row.type);
  return true;
}

bool DelegationUtilGetAllDefaultDelegationEntry(std::vector<std::shared_ptr<RoleRoleEntry>>& entries) {
  entries.clear();
  for (const DelegationSettingData& row : kDefaultEntries) {
    entries.push_back(std::make_shared<DelegationDefaultDelegationEntry>(row.index, row.type, row.data));
  }
  return true;
}

void DuplicatedConvertUsersToSharedUsers(std::vector<DelegationUser>& in, std::vector<std::shared_ptr<RoleUser>>& out) {
  Duplicate(in, out);
}

void DuplicatedConvertGroupsToSharedGroups(std::vector<DelegationGroup>& in,
                                           std::vector<std::shared_ptr<RoleGroup>>& out) {
  Duplicate(in, out);
}

void DuplicatedConvertEntriesToSharedEntries(std::vector<DelegationDelegationEntry>& in,
                                             std::vector<std::shared_ptr<RoleRoleEntry>>& out) {
  Duplicate(in, out);
}

}  // namespace NIMBO::QUAYPOST_SERVER
