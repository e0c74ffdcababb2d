// What a refresh is going to remove, and the copy that is kept before it does.
#pragma once

#include <string>

namespace delegationctl {

// Whether a refresh is going to remove a stored user, group or member because the host definitely has it no longer.
// Throws database.
bool RefreshRemovesAnybody();

// Copies the database to PATH.before-refresh, mode 0640, in place of an earlier copy; returns the copy's path. The file
// itself is only read through its SQLite connection: opening and closing it here would drop SQLite's locks on it.
// Throws copy or database. Only for the holder of the edit lock.
std::string KeepCopy(const std::string& database);

}  // namespace delegationctl
