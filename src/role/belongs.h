/// The three-valued answers of the records' lookups, in one place.
#pragma once

#include <memory>
#include <vector>

#include "base/log.h"
#include "role/role_role.h"

namespace NIMBO::QUAYPOST_SERVER {

/// What a lookup found, judged by its output.
template <class Record>
int FoundIn(const std::vector<std::shared_ptr<Record>>& out) {
  return out.empty() ? kNothing : kFound;
}

/// A handler's bool as a record's answer.
template <class Record>
int FoundIn(const std::vector<std::shared_ptr<Record>>& out, bool success) {
  return success ? FoundIn(out) : kError;
}

/// Appends the entries of each role.
inline int FindEntriesOf(const std::vector<std::shared_ptr<RoleRole>>& roles,
                         std::vector<std::shared_ptr<RoleRoleEntry>>& entries) {
  for (const auto& role : roles) {
    std::vector<std::shared_ptr<RoleRoleEntry>> own;
    if (role->FindBelongPolicyEntries(own) == kError) return kError;
    entries.insert(entries.end(), own.begin(), own.end());
  }
  return FoundIn(entries);
}

}  // namespace NIMBO::QUAYPOST_SERVER
