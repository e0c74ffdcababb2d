/// The host's accounts by name and by id, "there is none" kept apart from "nobody knows".
#pragma once

#include <optional>
#include <string>

#include "base/export.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

struct Account {
  unsigned int id;
  std::string name;  ///< as the host spells it
};

/// The account, by its short name or by its id. Nothing when the host definitely has none, and for an empty name;
/// throws Error::kAccounts when nobody knows.
MAILSERVER_EXPORT std::optional<Account> UserNamed(const std::string& name);
MAILSERVER_EXPORT std::optional<Account> UserWithId(unsigned int uid);
MAILSERVER_EXPORT std::optional<Account> GroupNamed(const std::string& name);
MAILSERVER_EXPORT std::optional<Account> GroupWithId(unsigned int gid);

}  // namespace NIMBO::QUAYPOST_SERVER::admin
