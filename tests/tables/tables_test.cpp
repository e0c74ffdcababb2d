// Both tables against the counts, names and indexes they must have.
#include <gtest/gtest.h>

#include <utility>

#include "role/role_role_entry.h"
#include "tables/delegation_default_entries.h"
#include "tables/delegation_tab2webapi.h"
#include "tables/tab2webapi_table.h"

namespace NIMBO::QUAYPOST_SERVER {
namespace {

TEST(TabTable, HasEachKeyWithItsCountOfMethods) {
  const std::string expected =
      "_allow_webapi_ 13 all_domain_alias 9 all_domain_autobcc 6 all_domain_disclaimer 3 all_domain_general 14 "
      "all_domain_quota 4 all_domain_user_group 12 audit_search 20 conf_import 48 delegation 6 log_analysis 4 "
      "log_list 5 log_log 15 log_management 4 log_report 3 mail_delivery 20 mail_delivery_security 13 "
      "mail_migration 28 mail_monitor 3 monitor_all 13 personal 13 quaypost 5 queue 6 security_antivirus 19 "
      "security_auth 8 security_contentscan 4 security_dataprotection 16 security_spam 51 server_list 3 "
      "service 18 user_policy 7";
  std::string counts;
  std::set<std::string> methods;
  for (const auto& [key, names] : *Tab2WebapiTable()) {
    counts += (counts.empty() ? "" : " ") + key + " " + std::to_string(names.size());
    methods.insert(names.begin(), names.end());
  }
  EXPECT_EQ(counts, expected);
  EXPECT_EQ(methods.size(), 328u);  // of 393: some belong to several tabs
}

TEST(TabTable, KeepsIrregularNamesByteForByte) {
  const std::pair<const char*, const char*> names[] = {
      {"personal", "Webapi_Personal_AutoReply_Set_v2reply"},
      {"service", "Webapi_FullTextSearch_Set_v1rule"},
      {"security_spam", "Webapi_Spam_ReportedHam_ReportedHam_Get_v1original"},
      {"security_spam", "Webapi_Spam_ReportedHam_ReportedHam_Learn_v1all"},
      {"security_spam", "ReportedHam_DownloadAttachmentAll_v1"},
      {"mail_migration", "Webapi_RemoteMigrate_StartTask"},
      {"conf_import", "Webapi_Util_GetDircetoryLDAP_v1"}};
  for (const auto& [key, name] : names) EXPECT_EQ(Tab2WebapiTable()->at(key).count(name), 1u) << name;
}

TEST(DefaultEntries, AreTheTypesInOrderWithTheirFixedIndexesAndSwitchedOff) {
  const std::string expected =
      "-2 log_log -3 service -5 user_policy -6 mail_monitor -7 server_list -8 mail_migration -9 conf_import "
      "-10 monitor_all -12 log_analysis -13 log_management -14 log_list -15 log_report -16 queue "
      "-17 security_spam -18 security_antivirus -19 security_auth -20 security_contentscan "
      "-21 security_dataprotection -22 all_domain_general -23 all_domain_user_group -24 all_domain_alias "
      "-25 all_domain_autobcc -26 all_domain_quota -27 all_domain_disclaimer -28 mail_delivery "
      "-29 mail_delivery_security -30 delegation -32 audit_search -33 quaypost";
  std::vector<std::string> types = {"stale"};
  std::vector<std::shared_ptr<RoleRoleEntry>> entries = {nullptr};
  ASSERT_TRUE(DelegationUtilGetAllDefaultTypeDelegationEntry(types));
  ASSERT_TRUE(DelegationUtilGetAllDefaultDelegationEntry(entries));
  ASSERT_EQ(types.size(), entries.size());
  std::string rows;
  for (std::size_t i = 0; i < types.size(); ++i) {
    rows += (rows.empty() ? "" : " ") + std::to_string(entries[i]->getPolicyEntryIdx()) + " " + types[i];
    EXPECT_EQ(entries[i]->getType(), types[i]);
    EXPECT_EQ(entries[i]->getData(), "false");
    EXPECT_EQ(Tab2WebapiTable()->count(types[i]), 1u) << types[i];
  }
  EXPECT_EQ(rows, expected);
}

}  // namespace
}  // namespace NIMBO::QUAYPOST_SERVER
