/// The limit of the check: one cached joined statement, and a bit mask for the tabs.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <unordered_map>

#include "tables/delegation_tab2webapi.h"
#include "world.h"

namespace bench {

class CheckLimit {
 public:
  explicit CheckLimit(const std::string& path)
      : db_(path),
        tabs_(db_,
              "select type from user2delegation_real_table join delegation2delegation_entry_table using "
              "(delegationidx) join delegation_entry_table using (delegationentryidx) where uid = ?1 and data = "
              "'true'") {
    std::map<std::string, std::set<std::string>> table;
    NIMBO::QUAYPOST_SERVER::DelegationUtilGetTab2WebapiSet(table);
    std::uint64_t bit = 1;
    for (const auto& [tab, methods] : table) {
      bits_[tab] = bit;
      for (const std::string& method : methods) needed_[method] |= bit;
      bit <<= 1;
    }
    everybody_ = bits_["_allow_webapi_"] | bits_["personal"];
  }

  bool Allows(unsigned int uid, const std::string& method) const {
    std::uint64_t held = everybody_;
    tabs_.Bind(uid);
    while (tabs_.Next()) held |= bits_.find(tabs_.Text(0))->second;
    const auto needed = needed_.find(method);
    return needed != needed_.end() && (needed->second & held) != 0;
  }

 private:
  Plain db_;
  Statement tabs_;
  std::unordered_map<std::string, std::uint64_t> bits_;
  std::unordered_map<std::string, std::uint64_t> needed_;
  std::uint64_t everybody_ = 0;
};

/// Methods to ask for: of one tab, of several, of everybody's, and none.
inline const std::string& MethodNumber(std::size_t i) {
  static const std::string methods[] = {"Webapi_Queue_Flush_v1", "Webapi_Util_ListUserGroup_v1",
                                        "Webapi_Version_Check_v1", "Webapi_Nothing_v1"};
  return methods[i % std::size(methods)];
}

}  // namespace bench
