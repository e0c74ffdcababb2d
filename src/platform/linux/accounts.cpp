// The account functions of nimbsdk.h, over whichever source is in use. Each runs in a scope: its own, or its
// caller's, so that one call asks the host nothing twice.
#include <strings.h>

#include <algorithm>
#include <fstream>
#include <iomanip>
#include <memory>
#include <new>
#include <set>
#include <sstream>
#include <unordered_set>

#include "base/log.h"
#include "platform/linux/account_scope.h"
#include "platform/linux/configuration.h"

using namespace NIMBO::QUAYPOST_SERVER;

struct NBLIBSZLIST {
  std::vector<std::string> names;
};

namespace {

/// The records that callers get, with the name they point to.
struct UserRecord : NIMBOUSER {
  explicit UserRecord(const Account& account) : name(account.name) {
    szName = name.c_str();
    uid = account.uid;
  }
  const std::string name;
};

struct GroupRecord : NIMBOGROUP {
  explicit GroupRecord(const Group& group) : name(group.name) {
    szName = name.c_str();
    gid = group.gid;
  }
  const std::string name;
};

/// Runs a function's body on the present memory. An exception ends here, as NIMBO_LOOKUP_FAILED.
template <class Body>
int InScope(Body body) noexcept {
  const NIMBOAccountScope scope(NIMBOAccountScope::kRemember);
  try {
    return body(CurrentMemory());
  } catch (...) {
    LogError("out of memory, or a callback that threw, ended an account lookup");
    return NIMBO_LOOKUP_FAILED;
  }
}

template <class OutRecord, class Out, class Found>
int HandOut(const Answer<Found>& answer, Out** out) {
  if (answer.status == NIMBO_OK) *out = new OutRecord(answer.value);
  return answer.status;
}

bool EqualsIgnoringCase(const std::string& left, const std::string& right) {
  return strcasecmp(left.c_str(), right.c_str()) == 0;
}

/// Whether `name` is of the form DOMAIN\name or name@DOMAIN.
bool IsOfDomain(const std::string& name, const std::string& domain) {
  const std::size_t length = domain.size() + 1;
  return name.size() > length && (EqualsIgnoringCase(name.substr(0, length), domain + "\\") ||
                                  EqualsIgnoringCase(name.substr(name.size() - length), "@" + domain));
}

/// The smallest uid of an account that is not the system's, as the host's user tools have it.
unsigned int ReadUidMin() {
  unsigned int uid_min = 1000;
  std::ifstream file("/etc/login.defs");
  for (std::string line; std::getline(file, line);) {
    std::istringstream words(line);
    std::string key;
    unsigned int value = 0;
    if (words >> key >> std::setbase(0) >> value && key == "UID_MIN") uid_min = value;
  }
  return uid_min;
}

bool IsSystemUid(unsigned int uid) {
  static const unsigned int uid_min = ReadUidMin();
  constexpr unsigned int kNobody = 65534;
  return uid < uid_min || uid == kNobody;
}

bool IsMisleading(const std::string& name) {
  return name.empty() || name[0] == '+' || name[0] == '-' ||
         std::ranges::any_of(name, [](unsigned char byte) { return byte < 0x20 || byte == 0x7f || byte == '/'; });
}

/// Whether the configuration names the account as unsupported: in full, or by its short name in the domain. Case does
/// not matter, as it does not in a domain.
bool IsNamedUnsupported(const std::string& name, const Configuration& configuration) {
  return std::ranges::any_of(configuration.unsupported, [&](const std::string& entry) {
    return EqualsIgnoringCase(name, entry) ||
           (!configuration.domain.empty() && (EqualsIgnoringCase(name, configuration.domain + "\\" + entry) ||
                                              EqualsIgnoringCase(name, entry + "@" + configuration.domain)));
  });
}

/// Appends a group's members, each once.
int AppendMembers(AccountMemory& memory, const Group& group, std::vector<std::string>& names) {
  if (memory.ListUsers().status != NIMBO_OK) return NIMBO_LOOKUP_FAILED;  // which spares a lookup for each member
  std::unordered_set<std::string> seen;
  for (const std::string& listed : group.members) {
    const auto& account = memory.FindUser(listed);
    if (account.status == NIMBO_LOOKUP_FAILED) return NIMBO_LOOKUP_FAILED;
    if (account.status == NIMBO_OK) {
      if (seen.insert(account.value.name).second) names.push_back(account.value.name);
    } else if (memory.IsNewGhost(group.name, listed)) {
      LogError("group %s lists %s, which is no account: left out", group.name, listed);
    }
  }
  for (const std::string& name : memory.PrimaryMembers(group.gid)) {
    if (seen.insert(name).second) names.push_back(name);
  }
  return NIMBO_OK;
}

/// 1, 0 or NIMBO_LOOKUP_FAILED.
int IsMember(AccountMemory& memory, const Account& account, const Group& group, NIMBOAccountType type) {
  if (type == NIMBO_ACCOUNT_LOCAL) {
    return account.gid == group.gid || std::ranges::find(group.members, account.name) != group.members.end();
  }
  // A directory may nest groups and need not list members at all.
  const auto& gids = memory.ListGroupsOf(account);
  if (gids.status != NIMBO_OK) return NIMBO_LOOKUP_FAILED;
  return std::ranges::find(gids.value, group.gid) != gids.value.end();
}

}  // namespace

extern "C" {

int NIMBOUserGet(const char* name, NIMBOUSER** user) {
  *user = nullptr;
  if (!name) return NIMBO_LOOKUP_FAILED;
  return InScope([&](AccountMemory& memory) { return HandOut<UserRecord>(memory.FindUser(name), user); });
}

int NIMBOUserGetByUID(unsigned int uid, NIMBOUSER** user) {
  *user = nullptr;
  return InScope([&](AccountMemory& memory) { return HandOut<UserRecord>(memory.FindUser(uid), user); });
}

void NIMBOUserFree(NIMBOUSER* user) { delete static_cast<UserRecord*>(user); }

int NIMBOGroupGet(const char* name, NIMBOGROUP** group) {
  *group = nullptr;
  if (!name) return NIMBO_LOOKUP_FAILED;
  return InScope([&](AccountMemory& memory) { return HandOut<GroupRecord>(memory.FindGroup(name), group); });
}

int NIMBOGroupGetByGID(unsigned int gid, NIMBOGROUP** group) {
  *group = nullptr;
  return InScope([&](AccountMemory& memory) { return HandOut<GroupRecord>(memory.FindGroup(gid), group); });
}

void NIMBOGroupFree(NIMBOGROUP* group) { delete static_cast<GroupRecord*>(group); }

int NIMBOGroupListMember(const char* group, NBLIBSZLIST** list) {
  if (!group || !list || !*list) return NIMBO_LOOKUP_FAILED;
  return InScope([&](AccountMemory& memory) -> int {
    const auto& found = memory.FindGroup(group);
    if (found.status != NIMBO_OK) return found.status;
    std::vector<std::string> names;
    const int status = AppendMembers(memory, found.value, names);
    if (status == NIMBO_OK) (*list)->names.insert((*list)->names.end(), names.begin(), names.end());
    return status;
  });
}

int NIMBOGroupListStale(const char* group, NBLIBSZLIST** list) {
  if (!group || !list || !*list) return NIMBO_LOOKUP_FAILED;
  return InScope([&](AccountMemory& memory) -> int {
    const auto& found = memory.FindGroup(group);
    if (found.status != NIMBO_OK) return found.status;
    std::vector<std::string> names;
    for (const std::string& listed : found.value.members) {
      const int status = memory.FindUser(listed).status;
      if (status == NIMBO_LOOKUP_FAILED) return NIMBO_LOOKUP_FAILED;
      if (status == NIMBO_NOT_FOUND) names.push_back(listed);
    }
    (*list)->names.insert((*list)->names.end(), names.begin(), names.end());
    return NIMBO_OK;
  });
}

NBLIBSZLIST* NBLIBCSzListAlloc(int capacity) {
  try {
    auto list = std::make_unique<NBLIBSZLIST>();
    list->names.reserve(static_cast<std::size_t>(std::clamp(capacity, 0, 4096)));
    return list.release();
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

int NBLIBCSzListCount(const NBLIBSZLIST* list) { return list ? static_cast<int>(list->names.size()) : 0; }

const char* NBLIBCSzListGet(const NBLIBSZLIST* list, int index) {
  if (index < 0 || index >= NBLIBCSzListCount(list)) return nullptr;
  return list->names[static_cast<std::size_t>(index)].c_str();
}

void NBLIBCSzListFree(NBLIBSZLIST* list) { delete list; }

int NBLIBUserInfoEnum(int type, const char* domain, int offset, int limit, NBLIBUserInfoCallback callback,
                      void* context) {
  const bool known_type = type >= NIMBO_ACCOUNT_LOCAL && type <= NIMBO_ACCOUNT_LDAP;
  if (!known_type || offset < 0 || limit < -1 || !callback) return NIMBO_LOOKUP_FAILED;
  return InScope([&](AccountMemory& memory) -> int {
    const auto& accounts = memory.ListUsers();
    if (accounts.status != NIMBO_OK) return accounts.status;
    int skipped = 0;
    int reported = 0;
    for (const Account& account : accounts.value) {
      if (reported == limit) break;
      if (domain && *domain && !IsOfDomain(account.name, domain)) continue;
      if (skipped < offset) {
        ++skipped;
        continue;
      }
      const NIMBOUSER user{account.name.c_str(), account.uid};
      const int stop = callback(&user, context);
      if (stop != 0) return stop < 0 ? stop : NIMBO_LOOKUP_FAILED;
      ++reported;
    }
    return reported;
  });
}

int NBLIBUserRealNameGet(const char* name, char* buffer, int size) {
  if (!name || !buffer || size <= 0) return NIMBO_LOOKUP_FAILED;
  buffer[0] = '\0';
  return InScope([&](AccountMemory& memory) -> int {
    const auto& account = memory.FindUser(name);
    if (account.status != NIMBO_OK) return account.status;
    const std::string& canonical = account.value.name;
    if (canonical.size() >= static_cast<std::size_t>(size)) return NIMBO_LOOKUP_FAILED;
    buffer[canonical.copy(buffer, canonical.size())] = '\0';
    return NIMBO_OK;
  });
}

bool checkUnsupportedUser(const char* name) {
  if (!name || IsMisleading(name)) return true;
  constexpr int kSupported = 0;
  return kSupported != InScope([&](AccountMemory& memory) -> int {
           constexpr int kUnsupported = 1;
           const auto configuration = CurrentConfiguration();
           if (!configuration || IsNamedUnsupported(name, *configuration)) return kUnsupported;
           const auto& account = memory.FindUser(name);
           const bool unsupported = account.status != NIMBO_OK || IsSystemUid(account.value.uid) ||
                                    IsMisleading(account.value.name) ||
                                    IsNamedUnsupported(account.value.name, *configuration);
           return unsupported ? kUnsupported : kSupported;
         });
}

int NBLIBGroupIsAdminGroupMem(const char* name, int flags) {
  if (!name || flags != 0) return NIMBO_LOOKUP_FAILED;
  return InScope([&](AccountMemory& memory) -> int {
    const auto configuration = CurrentConfiguration();
    if (!configuration) return NIMBO_LOOKUP_FAILED;
    const auto& account = memory.FindUser(name);
    if (account.status != NIMBO_OK) return account.status;
    const auto& group = memory.FindGroup(configuration->admin_group);
    if (group.status == NIMBO_NOT_FOUND) return 0;
    if (group.status != NIMBO_OK) return NIMBO_LOOKUP_FAILED;
    return IsMember(memory, account.value, group.value, configuration->account_type);
  });
}

int NIMBOUserListGroups(const char* name, unsigned int* gids, int size) {
  if (!name || size < 0 || (size > 0 && !gids)) return NIMBO_LOOKUP_FAILED;
  return InScope([&](AccountMemory& memory) -> int {
    const auto& account = memory.FindUser(name);
    if (account.status != NIMBO_OK) return account.status;
    const auto& groups = memory.ListGroupsOf(account.value);
    if (groups.status != NIMBO_OK) return NIMBO_LOOKUP_FAILED;
    const std::set<unsigned int> each(groups.value.begin(), groups.value.end());
    std::copy_n(each.begin(), std::min(each.size(), static_cast<std::size_t>(size)), gids);
    return static_cast<int>(each.size());
  });
}

int NIMBOUseAccountFiles(const char* passwd, const char* group) {
  try {
    if (!passwd != !group) return NIMBO_LOOKUP_FAILED;
    auto source = passwd ? MakeFileAccounts(passwd, group) : MakeNssAccounts();
    if (!source) return NIMBO_LOOKUP_FAILED;
    UseAccountSource(std::move(source));
    return NIMBO_OK;
  } catch (const std::bad_alloc&) {
    LogError("out of memory while reading %s and %s", passwd ? passwd : "", group ? group : "");
    return NIMBO_LOOKUP_FAILED;
  }
}

}  // extern "C"
