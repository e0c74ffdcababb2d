/// What an account scope remembers: every answer of the account source, errors and "not found" included, and the
/// configuration.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "platform/linux/account_source.h"
#include "platform/linux/configuration.h"

namespace NIMBO::QUAYPOST_SERVER {

/// The references it gives stay valid as long as it lives; PrimaryMembers' list may grow with the next lookup.
class AccountMemory {
 public:
  explicit AccountMemory(std::shared_ptr<AccountSource> source) : source_(std::move(source)) {}

  const Answer<Account>& FindUser(const std::string& name);
  const Answer<Account>& FindUser(unsigned int uid);
  const Answer<Group>& FindGroup(const std::string& name);
  const Answer<Group>& FindGroup(unsigned int gid);
  const Answer<std::vector<unsigned int>>& ListGroupsOf(const Account& account);

  /// All accounts, each name once. Those are then known to FindUser too.
  const Answer<std::vector<Account>>& ListUsers();

  /// The names of the known accounts whose primary group this is: after ListUsers, all enumerated ones and those
  /// that only a single lookup found.
  const std::vector<std::string>& PrimaryMembers(unsigned int gid) { return primary_members_[gid]; }

  /// True the first time it is asked about this name in this group.
  bool IsNewGhost(const std::string& group, const std::string& name) { return ghosts_[group].insert(name).second; }

 private:
  Answer<Account> Admit(Answer<Account> found);
  void NotePrimaryGroup(const Account& account);

  const ConfigurationHold configuration_;
  const std::shared_ptr<AccountSource> source_;
  std::unordered_map<std::string, Answer<Account>> users_by_name_;
  std::unordered_map<unsigned int, Answer<Account>> users_by_uid_;
  std::unordered_map<std::string, Answer<Group>> groups_by_name_;
  std::unordered_map<unsigned int, Answer<Group>> groups_by_gid_;
  std::unordered_map<std::string, Answer<std::vector<unsigned int>>> groups_of_;
  std::optional<Answer<std::vector<Account>>> all_users_;
  std::unordered_map<unsigned int, std::vector<std::string>> primary_members_;
  std::unordered_set<std::string> known_names_;  ///< those in primary_members_
  std::unordered_map<std::string, std::unordered_set<std::string>> ghosts_;
};

/// The memory of the present scope. Throws std::bad_alloc when there was none left for it.
AccountMemory& CurrentMemory();

/// Makes `source` the one that scopes ask from now on.
void UseAccountSource(std::shared_ptr<AccountSource> source);

}  // namespace NIMBO::QUAYPOST_SERVER
