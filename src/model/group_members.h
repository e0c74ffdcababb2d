/// Who is in a group by the host, asked without a word in the log. Private: not installed.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "role/host_accounts.h"
#include "role/role_group.h"

namespace NIMBO::QUAYPOST_SERVER {

/// A group's members by the host, in its order.
struct HostMembers {
  struct Member {
    unsigned int uid;
    std::string name;
  };
  std::vector<Member> list;
  std::unordered_map<unsigned int, std::size_t> position;  ///< in the list, by uid
};

/// Looks up the host's group of that gid and its members. False when something could not be found or looked up, or two
/// members have one uid; who goes on as if nothing had been asked will meet that again, and log it.
inline bool ReadHostGroup(RoleGroup& group, HostGroup& hostGroup, HostMembers& members) {
  HostNames names(NBLIBCSzListAlloc(0));
  if (!names || FindHostGroup(group.getGid(), hostGroup) != HostAnswer::kFound) return false;
  if (ListHostMembers(hostGroup->szName, names) != HostAnswer::kFound) return false;
  const int count = NBLIBCSzListCount(names.get());
  for (int i = 0; i < count; ++i) {
    HostUser member;
    if (FindHostUser(NBLIBCSzListGet(names.get(), i), member) != HostAnswer::kFound) return false;
    if (!members.position.try_emplace(member->uid, members.list.size()).second) return false;
    members.list.push_back({member->uid, member->szName});
  }
  return true;
}

}  // namespace NIMBO::QUAYPOST_SERVER
