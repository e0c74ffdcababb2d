// What a refresh is going to do to stored users and groups, and the copy that is kept before it removes any.
#include "refresh.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>

#include "delegations.h"
#include "errors.h"
#include "names.h"
#include "output.h"
#include "platform/nimbsdk.h"
#include "storage/delegation_db_handler.h"

namespace delegationctl {

using namespace NIMBO::QUAYPOST_SERVER;

namespace {

using Uids = std::set<unsigned int>;

Uids UidsOf(const std::vector<std::shared_ptr<RoleUser>>& users) {
  Uids uids;
  for (const auto& user : users) uids.insert(user->getUid());
  return uids;
}

// A lookup that fails is no reason for anything here: it fails the refresh too.
void PreviewUser(RoleUser& user, RefreshPreview& preview) {
  NIMBOUSER* account = nullptr;
  if (NIMBOUserGetByUID(user.getUid(), &account) == NIMBO_NOT_FOUND) preview.removes = true;
  if (account && account->szName != user.getUsername()) {
    preview.renames.push_back(
        fmt::format("uid {}: {} is now {}", user.getUid(), Quoted(user.getUsername()), Quoted(account->szName)));
  }
  NIMBOUserFree(account);
}

void PreviewGroup(RoleGroup& group, RefreshPreview& preview) {
  NIMBOGROUP* account = nullptr;
  if (NIMBOGroupGetByGID(group.getGid(), &account) == NIMBO_NOT_FOUND) preview.removes = true;
  if (account && account->szName != group.getGroupname()) {
    preview.renames.push_back(
        fmt::format("gid {}: {} is now {}", group.getGid(), Quoted(group.getGroupname()), Quoted(account->szName)));
  }
  NIMBOGroupFree(account);
}

// Whether one of the stored members is no member on the host.
bool LosesMember(RoleGroup& group, const Uids& stored) {
  std::vector<std::shared_ptr<RoleUser>> members;
  if (stored.empty() || !group.FindNBOSUserTo(members)) return false;
  const Uids present = UidsOf(members);
  return !std::includes(present.begin(), present.end(), stored.begin(), stored.end());
}

[[noreturn]] void CannotCopy(const std::string& path, const std::string& action, const std::string& why) {
  throw Exit(errors::kCopy,
             fmt::format("cannot keep a copy of the database as {}: {}; nothing was changed", Quoted(path), why),
             fmt::format("a {} that removes something keeps one first", action));
}

// Runs VACUUM INTO; "" or why it failed.
std::string CopyInto(const std::string& path) {
  RoleDBHandler* handler = DelegationDBHandler::GetDelegationDBHandler();
  if (!handler) return "the database cannot be opened";
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(handler->GetDB(), "VACUUM INTO ?", -1, &statement, nullptr);
  sqlite3_bind_text(statement, 1, path.c_str(), -1, SQLITE_TRANSIENT);
  const bool copied = statement && sqlite3_step(statement) == SQLITE_DONE;
  const std::string why = copied ? "" : sqlite3_errmsg(handler->GetDB());
  sqlite3_finalize(statement);
  return why;
}

}  // namespace

RefreshPreview PreviewRefresh() {
  std::vector<std::shared_ptr<RoleUser>> users;
  std::vector<std::shared_ptr<RoleGroup>> groups;
  std::vector<Uids> members;
  {
    // The host is asked later, so that a slow account source does not keep the database locked.
    const Snapshot snapshot;
    if (!DelegationUser::List(Json::Value(), users) || !DelegationGroup::List(Json::Value(), groups)) Unreadable();
    for (const auto& group : groups) {
      std::vector<std::shared_ptr<RoleUser>> stored;
      if (group->FindBelongUsers(stored) == -1) Unreadable();
      members.push_back(UidsOf(stored));
    }
  }
  RefreshPreview preview;
  for (const auto& user : users) PreviewUser(*user, preview);
  for (std::size_t i = 0; i < groups.size(); ++i) {
    PreviewGroup(*groups[i], preview);
    preview.removes = preview.removes || LosesMember(*groups[i], members[i]);
  }
  return preview;
}

std::string KeepCopy(const std::string& database, const std::string& action) {
  const std::string copy = std::filesystem::absolute(database).string() + ".before-" + action;
  const std::string temporary = copy + ".new";
  for (const char* rest : {"", "-journal"}) unlink((temporary + rest).c_str());  // of one that was killed
  const int file = open(temporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (file < 0) CannotCopy(copy, action, std::strerror(errno));
  std::string why = CopyInto(temporary);
  if (why.empty() &&
      (fchmod(file, 0640) != 0 || fsync(file) != 0 || std::rename(temporary.c_str(), copy.c_str()) != 0)) {
    why = std::strerror(errno);
  }
  close(file);
  if (!why.empty()) {
    unlink(temporary.c_str());
    CannotCopy(copy, action, why);
  }
  return copy;
}

}  // namespace delegationctl
