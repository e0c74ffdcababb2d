// A name service module that reads the passwd and group files which the environment names, NSS_PASSWD and NSS_GROUP,
// and fails as NSS_OUTAGE says:
//   "lookup STATUS ERRNO"        every single lookup
//   "enumeration STATUS ERRNO"   the enumeration, after its first account
// STATUS is an nss_status. The account "hidden" is found by lookups only.
#include <grp.h>
#include <nss.h>
#include <pwd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace {

using File = std::unique_ptr<FILE, int (*)(FILE*)>;

File Open(const char* variable) { return File(std::fopen(std::getenv(variable), "r"), std::fclose); }
int Read(FILE* file, passwd* out, char* buffer, std::size_t size, passwd** found) {
  return fgetpwent_r(file, out, buffer, size, found);
}
int Read(FILE* file, group* out, char* buffer, std::size_t size, group** found) {
  return fgetgrent_r(file, out, buffer, size, found);
}

/// Whether `operation` is to fail now, and how.
bool Fails(const std::string& operation, nss_status& status, int* error) {
  char failing[16];
  int number = 0;
  const char* wanted = std::getenv("NSS_OUTAGE");
  if (!wanted || std::sscanf(wanted, "%15s %d %d", failing, &number, error) != 3) return false;
  status = static_cast<nss_status>(number);
  return operation == failing;
}

/// The next record that matches.
template <class Record, class Matches>
nss_status Next(FILE* file, Record* out, char* buffer, std::size_t size, int* error, Matches matches) {
  Record* found = nullptr;
  while ((*error = Read(file, out, buffer, size, &found)) == 0) {
    if (matches(*out)) return NSS_STATUS_SUCCESS;
  }
  return *error == ERANGE ? NSS_STATUS_TRYAGAIN : NSS_STATUS_NOTFOUND;
}

template <class Record, class Matches>
nss_status Find(const char* variable, Record* out, char* buffer, std::size_t size, int* error, Matches matches) {
  nss_status status;
  if (Fails("lookup", status, error)) return status;
  return Next(Open(variable).get(), out, buffer, size, error, matches);
}

File accounts(nullptr, std::fclose), groups(nullptr, std::fclose);

}  // namespace

#define ENTRY_POINT extern "C" __attribute__((visibility("default"))) nss_status

ENTRY_POINT _nss_fake_getpwnam_r(const char* name, passwd* out, char* buffer, std::size_t size, int* error) {
  return Find("NSS_PASSWD", out, buffer, size, error,
              [name](const passwd& account) { return std::strcmp(account.pw_name, name) == 0; });
}
ENTRY_POINT _nss_fake_getpwuid_r(uid_t uid, passwd* out, char* buffer, std::size_t size, int* error) {
  return Find("NSS_PASSWD", out, buffer, size, error, [uid](const passwd& account) { return account.pw_uid == uid; });
}
ENTRY_POINT _nss_fake_getgrnam_r(const char* name, group* out, char* buffer, std::size_t size, int* error) {
  return Find("NSS_GROUP", out, buffer, size, error,
              [name](const group& listed) { return std::strcmp(listed.gr_name, name) == 0; });
}
ENTRY_POINT _nss_fake_getgrgid_r(gid_t gid, group* out, char* buffer, std::size_t size, int* error) {
  return Find("NSS_GROUP", out, buffer, size, error, [gid](const group& listed) { return listed.gr_gid == gid; });
}
ENTRY_POINT _nss_fake_setpwent(int) {
  accounts = Open("NSS_PASSWD");
  return NSS_STATUS_SUCCESS;
}
ENTRY_POINT _nss_fake_getpwent_r(passwd* out, char* buffer, std::size_t size, int* error) {
  nss_status status;
  if (std::ftell(accounts.get()) > 0 && Fails("enumeration", status, error)) return status;
  return Next(accounts.get(), out, buffer, size, error,
              [](const passwd& account) { return std::strcmp(account.pw_name, "hidden") != 0; });
}
ENTRY_POINT _nss_fake_setgrent(int) {
  groups = Open("NSS_GROUP");
  return NSS_STATUS_SUCCESS;
}
ENTRY_POINT _nss_fake_getgrent_r(group* out, char* buffer, std::size_t size, int* error) {
  return Next(groups.get(), out, buffer, size, error, [](const group&) { return true; });
}
