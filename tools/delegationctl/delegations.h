// The stored delegations as the tool shows and changes them.
#pragma once

#include <json/json.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "model/delegation_user.h"
#include "role/role_db_scope.h"
#include "role/role_role.h"

namespace delegationctl {

struct Delegation {
  int id = -1;
  std::string name;
  std::string color;
  int priority = 0;
  std::vector<std::string> tabs;               // switched on
  std::map<std::string, std::string> entries;  // data that is neither on nor the default
  std::vector<std::string> users;              // assigned directly
  std::vector<std::string> groups;
  std::map<unsigned int, std::string> inEffect;  // by uid, whom it is in effect for; see LoadInEffect
  Json::Value document;                          // as the library lists it, with "user_group"
};

// One snapshot of the database for several reads. Throws database when it cannot be opened.
class Snapshot {
 public:
  Snapshot();

 private:
  NIMBO::QUAYPOST_SERVER::RoleDBScope scope_;
};

// All delegations, highest priority first, those of equal priority by id. Throws database.
std::vector<Delegation> LoadDelegations();

// Fills in `inEffect`. Throws database.
void LoadInEffect(Delegation& delegation);

// What a user could be under: the direct delegations, and those of each group that the user is a stored member of;
// highest priority first.
struct Held {
  std::vector<std::shared_ptr<NIMBO::QUAYPOST_SERVER::RoleRole>> direct;
  std::map<std::string, std::vector<std::shared_ptr<NIMBO::QUAYPOST_SERVER::RoleRole>>> byGroup;
};

// Throws database.
Held LoadHeld(NIMBO::QUAYPOST_SERVER::RoleUser& user);

// The delegation called `name`, or of the id in "id:7". Throws no_delegation, or ambiguous when several have the name.
const Delegation& FindDelegation(const std::vector<Delegation>& delegations, const std::string& name);

// Throws name_taken when a delegation other than `id` has the name, and usage for one that nobody could use.
void RequireFreeName(const std::vector<Delegation>& delegations, const std::string& name, int id = -1);

// {"id", "name", "color", "priority", "tabs", "entries", "users", "groups", "in_effect"}
Json::Value ToJson(const Delegation& delegation);

// {"id", "name"}
Json::Value Reference(int id, const std::string& name);

// Throws database unless the delegation in effect for the user can be read. To be called where the library answers "no"
// or "none" also when it cannot.
void RequireReadableEffect(NIMBO::QUAYPOST_SERVER::DelegationUser& user);

// Throws database: something stored could not be read.
[[noreturn]] void Unreadable();

// `"Helpdesk" (id 2)`
std::string Described(const Delegation& delegation);

}  // namespace delegationctl
