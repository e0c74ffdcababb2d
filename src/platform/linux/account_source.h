/// A place where the host's accounts are looked up: glibc's name service, or two files.
///
/// A source asks anew each time and logs what it cannot look up. Nobody but an AccountMemory (account_scope.h) talks
/// to it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/nimbsdk.h"

namespace NIMBO::QUAYPOST_SERVER {

/// The id that no account and no group has.
constexpr unsigned int kNoId = 4294967295U;

struct Account {
  std::string name;
  unsigned int uid = kNoId;
  unsigned int gid = kNoId;
};

struct Group {
  std::string name;
  unsigned int gid = kNoId;
  std::vector<std::string> members;
};

/// A status, and with NIMBO_OK the value.
template <class T>
struct Answer {
  NIMBOStatus status = NIMBO_LOOKUP_FAILED;
  T value{};
};

class AccountSource {
 public:
  AccountSource() = default;
  virtual ~AccountSource() = default;
  AccountSource(const AccountSource&) = delete;
  AccountSource& operator=(const AccountSource&) = delete;

  virtual Answer<Account> FindUser(const std::string& name) = 0;
  virtual Answer<Account> FindUser(unsigned int uid) = 0;
  virtual Answer<Group> FindGroup(const std::string& name) = 0;
  virtual Answer<Group> FindGroup(unsigned int gid) = 0;
  virtual Answer<std::vector<Account>> ListUsers() = 0;
  /// The gids of all groups of an account, its primary group among them.
  virtual Answer<std::vector<unsigned int>> ListGroupsOf(const Account& account) = 0;
};

std::shared_ptr<AccountSource> MakeNssAccounts();

/// Null, with a log line, when one of the files cannot be read.
std::shared_ptr<AccountSource> MakeFileAccounts(const std::string& passwd, const std::string& group);

}  // namespace NIMBO::QUAYPOST_SERVER
