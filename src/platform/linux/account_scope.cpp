// Account scopes: one memory of the account source, from the outermost scope's begin to its end.
#include "platform/linux/account_scope.h"

#include <new>
#include <utility>

#include "base/log.h"

namespace NIMBO::QUAYPOST_SERVER {
namespace {

int scope_depth = 0;
AccountMemory* memory = nullptr;

std::shared_ptr<AccountSource>& Source() {
  static auto& source = *new std::shared_ptr<AccountSource>(MakeNssAccounts());  // never destroyed
  return source;
}

/// The answer under `key`, or what `ask` says, which is remembered.
template <class Answers, class Ask>
const auto& Remembered(Answers& answers, const typename Answers::key_type& key, Ask ask) {
  auto known = answers.find(key);
  if (known == answers.end()) known = answers.emplace(key, ask()).first;
  return known->second;
}

Answer<Group> AdmitGroup(Answer<Group> found) {
  if (found.status == NIMBO_OK && found.value.gid == kNoId) return {NIMBO_NOT_FOUND, {}};
  return found;
}

/// Whether an enumerated record is an account. "+..." and "-..." are NIS marks that glibc's files hand out.
bool IsAccount(const Account& account) {
  return account.uid != kNoId && !account.name.empty() && account.name[0] != '+' && account.name[0] != '-';
}

}  // namespace

Answer<Account> AccountMemory::Admit(Answer<Account> found) {
  if (found.status != NIMBO_OK) return found;
  if (found.value.uid == kNoId) return {NIMBO_NOT_FOUND, {}};
  NotePrimaryGroup(found.value);
  return found;
}

void AccountMemory::NotePrimaryGroup(const Account& account) {
  if (known_names_.contains(account.name)) return;
  primary_members_[account.gid].push_back(account.name);
  known_names_.insert(account.name);
}

const Answer<Account>& AccountMemory::FindUser(const std::string& name) {
  return Remembered(users_by_name_, name, [&] { return Admit(source_->FindUser(name)); });
}

const Answer<Account>& AccountMemory::FindUser(unsigned int uid) {
  return Remembered(users_by_uid_, uid, [&] {
    return uid == kNoId ? Answer<Account>{NIMBO_NOT_FOUND, {}} : Admit(source_->FindUser(uid));
  });
}

const Answer<Group>& AccountMemory::FindGroup(const std::string& name) {
  return Remembered(groups_by_name_, name, [&] { return AdmitGroup(source_->FindGroup(name)); });
}

const Answer<Group>& AccountMemory::FindGroup(unsigned int gid) {
  return Remembered(groups_by_gid_, gid, [&] {
    return gid == kNoId ? Answer<Group>{NIMBO_NOT_FOUND, {}} : AdmitGroup(source_->FindGroup(gid));
  });
}

const Answer<std::vector<unsigned int>>& AccountMemory::ListGroupsOf(const Account& account) {
  return Remembered(groups_of_, account.name, [&] { return source_->ListGroupsOf(account); });
}

const Answer<std::vector<Account>>& AccountMemory::ListUsers() {
  if (all_users_) return *all_users_;
  auto answer = source_->ListUsers();
  // As the host looks them up, the first of several lines for one name or uid counts: also one that is no account.
  std::unordered_set<std::string> names;
  std::erase_if(answer.value,
                [&](const Account& account) { return !names.insert(account.name).second || !IsAccount(account); });
  // Primary members come in the order of the enumeration, whoever was looked up before it; who is not in it comes last.
  const auto singles = std::exchange(primary_members_, {});
  known_names_.clear();
  for (const Account& account : answer.value) {
    users_by_name_.emplace(account.name, Answer<Account>{NIMBO_OK, account});
    users_by_uid_.emplace(account.uid, Answer<Account>{NIMBO_OK, account});
    NotePrimaryGroup(account);
  }
  for (const auto& [gid, members] : singles) {
    for (const std::string& member : members) NotePrimaryGroup({.name = member, .gid = gid});
  }
  return all_users_.emplace(std::move(answer));
}

AccountMemory& CurrentMemory() {
  if (!memory) throw std::bad_alloc();
  return *memory;
}

void UseAccountSource(std::shared_ptr<AccountSource> source) { Source() = std::move(source); }

}  // namespace NIMBO::QUAYPOST_SERVER

NIMBOAccountScope::NIMBOAccountScope(Kind kind) {
  using namespace NIMBO::QUAYPOST_SERVER;
  if (scope_depth++ > 0) return;
  try {
    memory = new AccountMemory(Source());
    if (kind == kEnumerate) memory->ListUsers();
  } catch (const std::bad_alloc&) {
    LogError("out of memory while reading the accounts");
  }
}

NIMBOAccountScope::~NIMBOAccountScope() {
  using namespace NIMBO::QUAYPOST_SERVER;
  if (--scope_depth > 0) return;
  delete memory;
  memory = nullptr;
}
