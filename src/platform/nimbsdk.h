/// The host's user and group accounts.
///
/// Every lookup has three answers, and they must never be mixed up: NIMBO_OK, NIMBO_NOT_FOUND (the account
/// definitely does not exist) and NIMBO_LOOKUP_FAILED (nobody knows: a directory is down, memory ran out). Only
/// NIMBO_NOT_FOUND may ever lead to a deletion. The ids 4294967295 never resolve.
///
/// Declarations only: platform/linux answers from glibc's name service, unit tests from a fake host.
/// Nothing here may be used from several threads at once.
#pragma once

#include "base/export.h"

/// What a lookup answers.
enum NIMBOStatus {
  NIMBO_OK = 0,
  NIMBO_NOT_FOUND = -1,
  NIMBO_LOOKUP_FAILED = -2,
};

/// Account types, as `[accounts] type=` names them.
enum NIMBOAccountType {
  NIMBO_ACCOUNT_LOCAL = 1,
  NIMBO_ACCOUNT_DOMAIN = 2,
  NIMBO_ACCOUNT_LDAP = 3,
};

/// A user account: its canonical login name (as the account database spells it, domain form included) and its uid.
/// In an enumeration the uid may be 4294967295, meaning: look it up by name.
struct NIMBOUSER {
  const char* szName;
  unsigned int uid;
};

/// A group: its name and gid.
struct NIMBOGROUP {
  const char* szName;
  unsigned int gid;
};

/// A list of names, made by NBLIBCSzListAlloc.
struct NBLIBSZLIST;

/// Called for every enumerated account; anything but 0 ends the enumeration.
using NBLIBUserInfoCallback = int (*)(const NIMBOUSER* user, void* context);

extern "C" {

/// Looks an account up by name or uid. On NIMBO_OK `*user` is a record to be released with NIMBOUserFree; otherwise
/// it is null.
MAILSERVER_EXPORT int NIMBOUserGet(const char* name, NIMBOUSER** user);
MAILSERVER_EXPORT int NIMBOUserGetByUID(unsigned int uid, NIMBOUSER** user);
MAILSERVER_EXPORT void NIMBOUserFree(NIMBOUSER* user);

/// Looks a group up by name or gid. On NIMBO_OK `*group` is a record to be released with NIMBOGroupFree; otherwise it
/// is null.
MAILSERVER_EXPORT int NIMBOGroupGet(const char* name, NIMBOGROUP** group);
MAILSERVER_EXPORT int NIMBOGroupGetByGID(unsigned int gid, NIMBOGROUP** group);
MAILSERVER_EXPORT void NIMBOGroupFree(NIMBOGROUP* group);

/// Appends the canonical names of a group's members to `*list`: the listed ones and every account whose primary group
/// it is, each once. A listed name without an account is left out with a warning in the log; a lookup that fails
/// makes the call fail.
MAILSERVER_EXPORT int NIMBOGroupListMember(const char* group, NBLIBSZLIST** list);

/// Appends the names that a group lists and that are no accounts; whoever gets such a name becomes a member.
MAILSERVER_EXPORT int NIMBOGroupListStale(const char* group, NBLIBSZLIST** list);

/// A list of names. `capacity` is a hint. Null when memory ran out. NBLIBCSzListGet gives null outside the list.
MAILSERVER_EXPORT NBLIBSZLIST* NBLIBCSzListAlloc(int capacity);
MAILSERVER_EXPORT int NBLIBCSzListCount(const NBLIBSZLIST* list);
MAILSERVER_EXPORT const char* NBLIBCSzListGet(const NBLIBSZLIST* list, int index);
MAILSERVER_EXPORT void NBLIBCSzListFree(NBLIBSZLIST* list);

/// Enumerates the host's accounts of one account type, of one domain when `domain` is not null, from number `offset`
/// on, at most `limit` of them (-1: all). Accounts are collected first and reported afterwards, so the callback may
/// use every function here. Returns the number of accounts reported, or a negative NIMBOStatus: also when the
/// callback ended the enumeration, with the callback's value if that is negative.
MAILSERVER_EXPORT int NBLIBUserInfoEnum(int type, const char* domain, int offset, int limit,
                                        NBLIBUserInfoCallback callback, void* context);

/// The canonical account name of `name`: the form in which user names are stored. Not the full name of the person.
/// NIMBO_LOOKUP_FAILED also when `size` bytes do not hold it.
MAILSERVER_EXPORT int NBLIBUserRealNameGet(const char* name, char* buffer, int size);

/// Whether delegations are not for this account: a system account, one that the configuration names in
/// `[accounts] unsupported=`, a name that could be mistaken for something else ('/', control characters, a leading
/// '+' or '-'), or one that could not be looked up.
MAILSERVER_EXPORT bool checkUnsupportedUser(const char* name);

/// 1 when the account is a member of the administrators' group (`[accounts] admin_group=`), 0 when it is not or the
/// group does not exist, negative for an unknown account or a lookup that failed. `flags` must be 0.
MAILSERVER_EXPORT int NBLIBGroupIsAdminGroupMem(const char* name, int flags);

/// The gids of the groups that an account is a member of, its primary one among them, each once: the first `size` of
/// them go into `gids`. Returns their number, or a negative NIMBOStatus. A directory may count nested groups here,
/// which NIMBOGroupListMember does not list.
MAILSERVER_EXPORT int NIMBOUserListGroups(const char* name, unsigned int* gids, int size);

/// Makes two files in passwd(5) and group(5) form this process's account source; null returns to the host's accounts.
/// NIMBO_LOOKUP_FAILED when one cannot be read. Only a program can choose this: no configuration and no environment
/// points a server at invented accounts.
MAILSERVER_EXPORT int NIMBOUseAccountFiles(const char* passwd, const char* group);

}  // extern "C"

/// While one exists, every answer of the account source is remembered and given again, so that a call asks the host
/// once and before it locks the database; mailserver.conf too is looked at once. With kEnumerate the accounts are read
/// in one enumeration first, which spares one lookup for each stored user; who is missing from it gets a single lookup,
/// and only that one's NIMBO_NOT_FOUND counts. Scopes nest; the outermost one decides.
class MAILSERVER_EXPORT NIMBOAccountScope {
 public:
  enum Kind { kRemember, kEnumerate };
  explicit NIMBOAccountScope(Kind kind);
  ~NIMBOAccountScope();
  NIMBOAccountScope(const NIMBOAccountScope&) = delete;
  NIMBOAccountScope& operator=(const NIMBOAccountScope&) = delete;
};
