/// Host accounts as the framework asks for them: records that free themselves, and the difference between "there is
/// none" and "nobody knows".
#pragma once

#include <memory>
#include <string>

#include "platform/nimbsdk.h"
#include "role/role_db_scope.h"

namespace NIMBO::QUAYPOST_SERVER {

struct HostRecordDeleter {
  void operator()(NIMBOUSER* user) const { NIMBOUserFree(user); }
  void operator()(NIMBOGROUP* group) const { NIMBOGroupFree(group); }
  void operator()(NBLIBSZLIST* list) const { NBLIBCSzListFree(list); }
};
using HostUser = std::unique_ptr<NIMBOUSER, HostRecordDeleter>;
using HostGroup = std::unique_ptr<NIMBOGROUP, HostRecordDeleter>;
using HostNames = std::unique_ptr<NBLIBSZLIST, HostRecordDeleter>;

enum class HostAnswer {
  kFound,
  kNotFound,  ///< definitely no such account: the only answer that may lead to a deletion
  kUnknown,   ///< the host could not be asked; no enclosing scope commits
};

inline HostAnswer Interpret(int status) {
  if (status == NIMBO_OK) return HostAnswer::kFound;
  if (status == NIMBO_NOT_FOUND) return HostAnswer::kNotFound;
  RoleDBScope::NoteEnvironmentFailure();
  return HostAnswer::kUnknown;
}

inline HostAnswer FindHostUser(const std::string& name, HostUser& user) {
  NIMBOUSER* found = nullptr;
  const int status = NIMBOUserGet(name.c_str(), &found);
  user.reset(found);
  return Interpret(status);
}

inline HostAnswer FindHostUser(unsigned int uid, HostUser& user) {
  NIMBOUSER* found = nullptr;
  const int status = NIMBOUserGetByUID(uid, &found);
  user.reset(found);
  return Interpret(status);
}

inline HostAnswer FindHostGroup(const std::string& name, HostGroup& group) {
  NIMBOGROUP* found = nullptr;
  const int status = NIMBOGroupGet(name.c_str(), &found);
  group.reset(found);
  return Interpret(status);
}

inline HostAnswer FindHostGroup(unsigned int gid, HostGroup& group) {
  NIMBOGROUP* found = nullptr;
  const int status = NIMBOGroupGetByGID(gid, &found);
  group.reset(found);
  return Interpret(status);
}

/// Appends the names of a group's members to `names`, which the call may exchange.
inline HostAnswer ListHostMembers(const char* group, HostNames& names) {
  NBLIBSZLIST* list = names.get();
  const int status = NIMBOGroupListMember(group, &list);
  if (list != names.get()) {
    static_cast<void>(names.release());  // exchanged: the call has freed it
    names.reset(list);
  }
  return Interpret(status);
}

}  // namespace NIMBO::QUAYPOST_SERVER
