// A name service module with few accounts that fails as the environment variable NSS_OUTAGE says:
//   "lookup STATUS ERRNO"        every single lookup
//   "enumeration STATUS ERRNO"   the enumeration, after its first account
// STATUS is an nss_status. The account "hidden" is found by lookups only.
#include <grp.h>
#include <nss.h>
#include <pwd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

char empty[] = "", alice[] = "alice", bob[] = "bob", hidden[] = "hidden", users[] = "users";
char* members[] = {alice, nullptr};
const passwd kAccounts[] = {{alice, empty, 1001, 100, empty, empty, empty},
                            {bob, empty, 1002, 100, empty, empty, empty},
                            {hidden, empty, 1003, 100, empty, empty, empty}};
const group kUsers = {users, empty, 100, members};
constexpr std::size_t kEnumerated = 2;
std::size_t next_account = 0;

/// Whether `operation` is to fail now, and how.
bool Fails(const std::string& operation, nss_status& status, int* error) {
  char failing[16];
  int number = 0;
  const char* wanted = std::getenv("NSS_OUTAGE");
  if (!wanted || std::sscanf(wanted, "%15s %d %d", failing, &number, error) != 3) return false;
  status = static_cast<nss_status>(number);
  return operation == failing;
}

template <class Record>
nss_status Answer(const Record* found, Record* out, int* error) {
  nss_status status;
  if (Fails("lookup", status, error)) return status;
  *error = ENOENT;
  if (!found) return NSS_STATUS_NOTFOUND;
  *out = *found;
  return NSS_STATUS_SUCCESS;
}

template <class Matches>
const passwd* Find(Matches matches) {
  for (const passwd& account : kAccounts) {
    if (matches(account)) return &account;
  }
  return nullptr;
}

}  // namespace

#define ENTRY_POINT extern "C" __attribute__((visibility("default"))) nss_status

ENTRY_POINT _nss_outage_getpwnam_r(const char* name, passwd* out, char*, std::size_t, int* error) {
  return Answer(Find([&](const passwd& account) { return std::string(account.pw_name) == name; }), out, error);
}

ENTRY_POINT _nss_outage_getpwuid_r(uid_t uid, passwd* out, char*, std::size_t, int* error) {
  return Answer(Find([&](const passwd& account) { return account.pw_uid == uid; }), out, error);
}

ENTRY_POINT _nss_outage_getgrnam_r(const char* name, group* out, char*, std::size_t, int* error) {
  return Answer(std::string(name) == users ? &kUsers : nullptr, out, error);
}

ENTRY_POINT _nss_outage_getgrgid_r(gid_t gid, group* out, char*, std::size_t, int* error) {
  return Answer(gid == kUsers.gr_gid ? &kUsers : nullptr, out, error);
}

ENTRY_POINT _nss_outage_setpwent(int) {
  next_account = 0;
  return NSS_STATUS_SUCCESS;
}

ENTRY_POINT _nss_outage_getpwent_r(passwd* out, char*, std::size_t, int* error) {
  nss_status status;
  if (next_account > 0 && Fails("enumeration", status, error)) return status;
  *error = ENOENT;
  if (next_account == kEnumerated) return NSS_STATUS_NOTFOUND;
  *out = kAccounts[next_account++];
  return NSS_STATUS_SUCCESS;
}
