/// Everything that the database holds about delegations, as plain data of one moment, and the rule of the highest
/// priority on it.
///
///   const State state = ReadState();
///   for (const Candidate& candidate : state.CandidatesOf(state.users.at(1001))) ...   // the first is the winner
///
/// Links whose user, group or delegation is not stored are left out, as the library leaves them out.
#pragma once

#include <compare>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/export.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

struct Delegation {
  int id = -1;
  std::string name;
  std::string color;
  int priority = 0;
  std::map<std::string, std::string> entries;  ///< data by type; of several of one type "true", else the first
  std::vector<unsigned int> users;             ///< uids to whom it is assigned directly, ascending
  std::vector<unsigned int> groups;            ///< gids, ascending

  bool HasTab(const std::string& tab) const {
    const auto entry = entries.find(tab);
    return entry != entries.end() && entry->second == "true";
  }
};

struct User {
  unsigned int uid = 0;
  std::string name;
  std::vector<int> direct;           ///< ids of the delegations assigned to the user, ascending
  std::vector<unsigned int> groups;  ///< gids, in the order in which the memberships were stored
  std::optional<int> effective;      ///< id of the stored effective delegation; nothing: the default
};

struct Group {
  unsigned int gid = 0;
  std::string name;
  std::vector<int> delegations;       ///< ids, ascending
  std::vector<unsigned int> members;  ///< uids, in the order in which the memberships were stored
};

/// One delegation that a user could be under, and through what.
struct Candidate {
  const Delegation* delegation;
  const Group* group;  ///< null: assigned directly
};

struct MAILSERVER_EXPORT State {
  std::map<int, Delegation> delegations;
  std::map<unsigned int, User> users;
  std::map<unsigned int, Group> groups;

  /// What the user could be under, the winner first: the highest priority, of equal ones the direct before the
  /// inherited, then the group whose membership was stored first, then the lower id.
  std::vector<Candidate> CandidatesOf(const User& user) const;

  /// The effective delegation as it is stored, which is the one that access checks go by; null: the default.
  const Delegation* Effective(const User& user) const;

  /// The tabs that the user's stored effective delegation switches on.
  std::set<std::string> TabsOf(const User& user) const;

  /// The user of that name, or null.
  const User* FindUser(const std::string& name) const;
};

/// The tabs that a delegation switches on.
MAILSERVER_EXPORT std::set<std::string> TabsOf(const Delegation& delegation);

/// Reads the library's current database in one transaction. Throws Error.
MAILSERVER_EXPORT State ReadState();

/// The same with one user only: every delegation and group, but nobody else and no other memberships. Its cost hardly
/// depends on how many users there are. Throws Error.
MAILSERVER_EXPORT State ReadStateOf(unsigned int uid);

}  // namespace NIMBO::QUAYPOST_SERVER::admin
