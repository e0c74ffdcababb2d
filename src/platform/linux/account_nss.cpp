// The host's accounts, from glibc's name service.
#include <algorithm>
#include <cerrno>
#include <system_error>

#include "base/log.h"
#include "platform/linux/account_source.h"
#include "platform/linux/glibc_records.h"

namespace NIMBO::QUAYPOST_SERVER {
namespace {

/// Whether an error number says that there is no such account, or no further one.
bool MeansAbsent(int error) { return error == 0 || error == ENOENT || error == ESRCH; }

std::string ErrorText(int error) { return std::generic_category().message(error); }

/// Looks one record up; `what` is for the log.
template <class Result, class Record, class Function>
Answer<Result> LookUp(const std::string& what, Function function) {
  GlibcRecord<Record> record;
  const int error = record.Fill(function);
  if (error == 0 && record.found()) return {NIMBO_OK, Copied(*record.found())};
  if (MeansAbsent(error)) return {NIMBO_NOT_FOUND, {}};
  LogError("cannot look up %s: %s", what, ErrorText(error));
  return {NIMBO_LOOKUP_FAILED, {}};
}

/// glibc's one cursor over the accounts.
struct Enumeration {
  Enumeration() { setpwent(); }
  ~Enumeration() { endpwent(); }
  Enumeration(const Enumeration&) = delete;
  Enumeration& operator=(const Enumeration&) = delete;
};

class NssAccounts : public AccountSource {
 public:
  Answer<Account> FindUser(const std::string& name) override {
    return LookUp<Account, passwd>("user " + name, [&](passwd* record, char* buffer, std::size_t size, passwd** found) {
      return getpwnam_r(name.c_str(), record, buffer, size, found);
    });
  }

  Answer<Account> FindUser(unsigned int uid) override {
    return LookUp<Account, passwd>("uid " + std::to_string(uid),
                                   [&](passwd* record, char* buffer, std::size_t size, passwd** found) {
                                     return getpwuid_r(uid, record, buffer, size, found);
                                   });
  }

  Answer<Group> FindGroup(const std::string& name) override {
    return LookUp<Group, group>("group " + name, [&](group* record, char* buffer, std::size_t size, group** found) {
      return getgrnam_r(name.c_str(), record, buffer, size, found);
    });
  }

  Answer<Group> FindGroup(unsigned int gid) override {
    return LookUp<Group, group>("gid " + std::to_string(gid),
                                [&](group* record, char* buffer, std::size_t size, group** found) {
                                  return getgrgid_r(gid, record, buffer, size, found);
                                });
  }

  Answer<std::vector<Account>> ListUsers() override {
    std::vector<Account> accounts;
    GlibcRecord<passwd> record;
    const Enumeration enumeration;
    for (;;) {
      const int result = record.Fill([](passwd* entry, char* buffer, std::size_t size, passwd** found) {
        errno = 0;
        return getpwent_r(entry, buffer, size, found);
      });
      // The end and a directory that died on the way are both ENOENT; errno tells them apart.
      const int error = MeansAbsent(result) ? errno : result;
      if (result == 0 && record.found()) {
        accounts.push_back(Copied(*record.found()));
      } else if (MeansAbsent(error)) {
        return {NIMBO_OK, std::move(accounts)};
      } else {
        LogError("cannot list the accounts: %s", ErrorText(error));
        return {NIMBO_LOOKUP_FAILED, {}};
      }
    }
  }

  Answer<std::vector<unsigned int>> ListGroupsOf(const Account& account) override {
    constexpr int kMostGroups = 1 << 20;
    std::vector<gid_t> gids(64);
    for (;;) {
      int count = static_cast<int>(gids.size());
      if (getgrouplist(account.name.c_str(), account.gid, gids.data(), &count) >= 0) {
        gids.resize(static_cast<std::size_t>(count));
        return {NIMBO_OK, std::move(gids)};
      }
      // -1 also when memory ran out: then more room is not what it asks for.
      if (count <= static_cast<int>(gids.size()) || count > kMostGroups) break;
      gids.resize(static_cast<std::size_t>(count));
    }
    LogError("cannot list the groups of user %s", account.name);
    return {NIMBO_LOOKUP_FAILED, {}};
  }
};

}  // namespace

std::shared_ptr<AccountSource> MakeNssAccounts() { return std::make_shared<NssAccounts>(); }

}  // namespace NIMBO::QUAYPOST_SERVER
