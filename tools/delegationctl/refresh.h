// What a refresh is going to do to stored users and groups, and the copy that is kept before it removes any.
#pragma once

#include <string>
#include <vector>

namespace delegationctl {

struct RefreshPreview {
  // A stored user, group or member goes, because the host definitely has it no longer.
  bool removes = false;
  // The users and groups that have another name on the host now, a sentence each. Ids are used again, so it may as well
  // be somebody else, who would take over everything.
  std::vector<std::string> renames;
};

// Throws database.
RefreshPreview PreviewRefresh();

// Copies the database to PATH.before-refresh, or before another `action`, mode 0640, in place of an earlier copy;
// returns the copy's path. The file itself is only read through its SQLite connection: opening and closing it here
// would drop SQLite's locks on it. Throws copy or database. Only for the holder of the edit lock.
std::string KeepCopy(const std::string& database, const std::string& action = "refresh");

}  // namespace delegationctl
