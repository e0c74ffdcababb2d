/// The host's accounts by name and by id, "there is none" kept apart from "nobody knows". Private.
#pragma once

#include <optional>
#include <string>

namespace NIMBO::QUAYPOST_SERVER::admin {

struct Account {
  unsigned int id;
  std::string name;  ///< as the host spells it
};

/// Nothing when the host definitely has none; throws Error::kAccounts when nobody knows.
std::optional<Account> UserNamed(const std::string& name);
std::optional<Account> UserWithId(unsigned int uid);
std::optional<Account> GroupNamed(const std::string& name);
std::optional<Account> GroupWithId(unsigned int gid);

}  // namespace NIMBO::QUAYPOST_SERVER::admin
