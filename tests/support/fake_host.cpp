// The fake host, and the platform functions that it answers.
#include "support/fake_host.h"

#include <gtest/gtest.h>
#include <strings.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/mailserver.h"

namespace {

constexpr unsigned int kNoId = 4294967295;

class EmptyHostForEachTest : public ::testing::EmptyTestEventListener {
  void OnTestStart(const ::testing::TestInfo&) override { FakeHost::Instance() = FakeHost(); }
};

[[maybe_unused]] const bool listening = [] {
  ::testing::UnitTest::GetInstance()->listeners().Append(new EmptyHostForEachTest);
  return true;
}();

std::string Enumeration(int type, const std::string& domain) { return std::to_string(type) + "/" + domain; }

/// The first account that `matches`, as an answer.
template <class Accounts, class Matches>
FakeHost::Answer First(const Accounts& accounts, Matches matches) {
  const auto found = std::find_if(accounts.begin(), accounts.end(), matches);
  if (found == accounts.end()) return {NIMBO_NOT_FOUND, {}};
  return {NIMBO_OK, {*found}};
}

auto HasId(const std::string& decimal) {
  return [decimal](const FakeHost::Account& account) { return std::to_string(account.id) == decimal; };
}

auto HasName(const std::string& name) {
  return [name](const FakeHost::Account& account) { return account.name == name; };
}

}  // namespace

FakeHost& FakeHost::Instance() {
  static FakeHost host;
  return host;
}

void FakeHost::AddUser(const std::string& name, unsigned int uid) { users_.push_back({{name, uid}}); }

void FakeHost::RemoveUser(const std::string& name) {
  std::erase_if(users_, HasName(name));
  for (Group& group : groups_) std::erase(group.members, name);
  admins.erase(name);
}

void FakeHost::RenameUser(const std::string& name, const std::string& newName) {
  for (User& user : users_) {
    if (user.name == name) user.name = newName;
  }
  for (Group& group : groups_) std::replace(group.members.begin(), group.members.end(), name, newName);
  if (admins.erase(name) > 0) admins.insert(newName);
}

void FakeHost::EnumerateWithoutUid(const std::string& name) {
  for (User& user : users_) user.enumeratedWithoutUid |= user.name == name;
}

void FakeHost::AddGroup(const std::string& name, unsigned int gid, std::vector<std::string> members) {
  groups_.push_back({{name, gid}, std::move(members)});
}

void FakeHost::SetMembers(const std::string& name, std::vector<std::string> members) {
  std::find_if(groups_.begin(), groups_.end(), HasName(name))->members = std::move(members);
}

void FakeHost::RemoveGroup(const std::string& name) { std::erase_if(groups_, HasName(name)); }

void FakeHost::Fail(Function function, int status) { faults_.push_back({function, status, -1, {}}); }
void FakeHost::FailNth(Function function, int nth, int status) { faults_.push_back({function, status, nth, {}}); }
void FakeHost::FailFor(Function function, const std::string& argument, int status) {
  faults_.push_back({function, status, -1, argument});
}

std::optional<int> FakeHost::Intercept(Function function, const std::string& argument) {
  ++calls_[function];
  std::optional<int> status;
  for (Fault& fault : faults_) {
    if (fault.function != function || fault.argument.value_or(argument) != argument) continue;
    const bool due = fault.nth < 0 || fault.nth == 1;
    if (fault.nth > 0) --fault.nth;
    if (due) status = fault.status;
  }
  return status;
}

FakeHost::Answer FakeHost::Ask(Function function, Function source, const std::string& argument) {
  const auto announceLookup = [this] {
    ++lookups_;
    if (onLookup) onLookup();
  };
  return Remember(kWhole, function, argument, [&]() -> Answer {
    if (const auto status = Intercept(function, argument)) {
      announceLookup();
      return {*status, {}};
    }
    return Remember(kSource, source, argument, [&] {
      announceLookup();
      return LookUp(source, argument);
    });
  });
}

void FakeHost::OpenScope(bool enumerate) {
  if (scopes_++ > 0 || !enumerate) return;
  for (const Account& user : Ask(kUserInfoEnum, kUserInfoEnum, Enumeration(accountType, domain)).accounts) {
    if (user.id == kNoId) continue;
    const Answer answer{NIMBO_OK, {user}};
    remembered_.insert({{kSource, kUserGet, user.name}, answer});
    remembered_.insert({{kSource, kUserGetByUID, std::to_string(user.id)}, answer});
  }
}

void FakeHost::CloseScope() {
  if (--scopes_ == 0) remembered_.clear();
}

template <class Make>
FakeHost::Answer FakeHost::Remember(Level level, Function function, const std::string& argument, Make make) {
  if (scopes_ == 0) return make();
  const auto found = remembered_.find({level, function, argument});
  if (found != remembered_.end()) return found->second;
  return remembered_.insert({{level, function, argument}, make()}).first->second;
}

FakeHost::Answer FakeHost::LookUp(Function source, const std::string& argument) const {
  const auto findUser = [this](const std::string& name) {
    return First(users_, [&](const Account& user) {
      return accountType == NIMBO_ACCOUNT_DOMAIN ? strcasecmp(user.name.c_str(), name.c_str()) == 0 : user.name == name;
    });
  };
  if (source == kUserGet) return findUser(argument);
  if (source == kUserGetByUID) return First(users_, HasId(argument));
  if (source == kGroupGet) return First(groups_, HasName(argument));
  if (source == kGroupGetByGID) return First(groups_, HasId(argument));

  Answer answer;
  if (source == kGroupListMember) {
    const auto group = std::find_if(groups_.begin(), groups_.end(), HasName(argument));
    if (group == groups_.end()) return {NIMBO_NOT_FOUND, {}};
    for (const std::string& member : group->members) {
      for (const Account& user : findUser(member).accounts) answer.accounts.push_back(user);
    }
  } else if (source == kIsAdmin) {
    answer = findUser(argument);
    if (answer.status == NIMBO_OK) answer.status = admins.count(answer.accounts[0].name) > 0;
  } else {  // kUserInfoEnum
    const std::string wanted = argument.substr(argument.find('/') + 1);
    if (argument != Enumeration(accountType, wanted)) return answer;
    for (const User& user : users_) {
      if (!wanted.empty() && !user.name.starts_with(wanted + "\\")) continue;
      answer.accounts.push_back({user.name, user.enumeratedWithoutUid ? kNoId : user.id});
    }
  }
  return answer;
}

// ---- platform/mailserver.h ----

namespace {

NIMBO::QUAYPOST_SERVER::MaillogSink logSink = nullptr;
void* logSinkContext = nullptr;

}  // namespace

extern "C" void maillog(int, const char* format, ...) {
  char line[2048];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  const std::size_t length = std::strlen(line);
  if (length > 0 && line[length - 1] == '\n') line[length - 1] = '\0';
  if (logSink) logSink(logSinkContext, line);
}

namespace NIMBO::QUAYPOST_SERVER {

bool GetUserGroupDelegationConfigPath(std::string& path) {
  FakeHost& host = FakeHost::Instance();
  if (host.Intercept(FakeHost::kConfigPath) || host.configPath.empty()) return false;
  path = host.configPath;
  return true;
}

bool MailserverAccountType(int& type) {
  FakeHost& host = FakeHost::Instance();
  if (host.Intercept(FakeHost::kAccountType)) return false;
  type = host.accountType;
  return true;
}

bool MailserverDomainShortName(std::string& name) {
  FakeHost& host = FakeHost::Instance();
  if (host.Intercept(FakeHost::kDomain)) return false;
  name = host.domain;
  return true;
}

bool MailserverVanishLimit(int& percent) {
  FakeHost& host = FakeHost::Instance();
  if (host.Intercept(FakeHost::kVanishLimit)) return false;
  percent = host.vanishLimitOverride < 0 ? host.vanishLimit : host.vanishLimitOverride;
  return true;
}

void MailserverSetVanishLimit(int percent) { FakeHost::Instance().vanishLimitOverride = percent; }

void MailserverSetConfigFile(const std::string&) {}  // the fake host is the configuration

void MaillogSetSink(MaillogSink sink, void* context) {
  logSink = sink;
  logSinkContext = context;
}

bool QuaypostServerBACKENDWrap::setFile(const std::string& name, const std::string& path, const char**) {
  FakeHost& host = FakeHost::Instance();
  if (host.onAnnounce) host.onAnnounce();
  if (host.Intercept(FakeHost::kSetFile, name)) return false;
  host.announcements.push_back({name, path});
  return true;
}

NIMBOMailNodeCluster::NIMBOMailNodeCluster() = default;
NIMBOMailNodeCluster::~NIMBOMailNodeCluster() = default;

}  // namespace NIMBO::QUAYPOST_SERVER

// ---- platform/nimbsdk.h ----

struct NBLIBSZLIST {
  std::vector<std::string> names;
};

namespace {

/// Hands an answer with one account out as a record whose name is its own, so that a leak shows under the sanitizers.
template <class Record>
int GiveRecord(const FakeHost::Answer& answer, Record** record) {
  *record = nullptr;
  if (answer.accounts.empty()) return answer.status;
  *record = new Record{strdup(answer.accounts[0].name.c_str()), answer.accounts[0].id};
  return answer.status;
}

template <class Record>
void FreeRecord(Record* record) {
  if (record) std::free(const_cast<char*>(record->szName));
  delete record;
}

FakeHost::Answer AskForId(FakeHost::Function function, unsigned int id) {
  if (id == kNoId) return {NIMBO_NOT_FOUND, {}};
  return FakeHost::Instance().Ask(function, function, std::to_string(id));
}

}  // namespace

extern "C" {

int NIMBOUserGet(const char* name, NIMBOUSER** user) {
  return GiveRecord(FakeHost::Instance().Ask(FakeHost::kUserGet, FakeHost::kUserGet, name), user);
}
int NIMBOUserGetByUID(unsigned int uid, NIMBOUSER** user) {
  return GiveRecord(AskForId(FakeHost::kUserGetByUID, uid), user);
}
void NIMBOUserFree(NIMBOUSER* user) { FreeRecord(user); }

int NIMBOGroupGet(const char* name, NIMBOGROUP** group) {
  return GiveRecord(FakeHost::Instance().Ask(FakeHost::kGroupGet, FakeHost::kGroupGet, name), group);
}
int NIMBOGroupGetByGID(unsigned int gid, NIMBOGROUP** group) {
  return GiveRecord(AskForId(FakeHost::kGroupGetByGID, gid), group);
}
void NIMBOGroupFree(NIMBOGROUP* group) { FreeRecord(group); }

int NIMBOGroupListMember(const char* group, NBLIBSZLIST** list) {
  const auto answer = FakeHost::Instance().Ask(FakeHost::kGroupListMember, FakeHost::kGroupListMember, group);
  for (const auto& member : answer.accounts) (*list)->names.push_back(member.name);
  return answer.status;
}

NBLIBSZLIST* NBLIBCSzListAlloc(int) {
  return FakeHost::Instance().Intercept(FakeHost::kListAlloc) ? nullptr : new NBLIBSZLIST;
}
int NBLIBCSzListCount(const NBLIBSZLIST* list) { return static_cast<int>(list->names.size()); }
const char* NBLIBCSzListGet(const NBLIBSZLIST* list, int index) {
  return index >= 0 && index < NBLIBCSzListCount(list) ? list->names[static_cast<std::size_t>(index)].c_str() : nullptr;
}
void NBLIBCSzListFree(NBLIBSZLIST* list) { delete list; }

int NBLIBUserInfoEnum(int type, const char* domain, int offset, int limit, NBLIBUserInfoCallback callback,
                      void* context) {
  const auto answer = FakeHost::Instance().Ask(FakeHost::kUserInfoEnum, FakeHost::kUserInfoEnum,
                                               Enumeration(type, domain ? domain : ""));
  if (answer.status != NIMBO_OK) return answer.status;
  int reported = 0;
  const int count = static_cast<int>(answer.accounts.size());
  for (int i = offset; i < count && (limit < 0 || reported < limit); ++i, ++reported) {
    const auto& account = answer.accounts[static_cast<std::size_t>(i)];
    const NIMBOUSER user{account.name.c_str(), account.id};
    if (const int ended = callback(&user, context)) return ended < 0 ? ended : NIMBO_LOOKUP_FAILED;
  }
  return reported;
}

int NBLIBUserRealNameGet(const char* name, char* buffer, int size) {
  const auto answer = FakeHost::Instance().Ask(FakeHost::kRealNameGet, FakeHost::kUserGet, name);
  if (answer.status != NIMBO_OK) return answer.status;
  const int length = std::snprintf(buffer, static_cast<std::size_t>(size), "%s", answer.accounts[0].name.c_str());
  return length < size ? NIMBO_OK : NIMBO_LOOKUP_FAILED;
}

bool checkUnsupportedUser(const char* name) {
  FakeHost& host = FakeHost::Instance();
  return host.Ask(FakeHost::kCheckUnsupported, FakeHost::kUserGet, name).status != NIMBO_OK ||
         host.unsupported.count(name) > 0;
}

int NBLIBGroupIsAdminGroupMem(const char* name, int flags) {
  if (flags != 0) return NIMBO_LOOKUP_FAILED;
  return FakeHost::Instance().Ask(FakeHost::kIsAdmin, FakeHost::kIsAdmin, name).status;
}

int NIMBOUseAccountFiles(const char*, const char*) { return NIMBO_OK; }

}  // extern "C"

NIMBOAccountScope::NIMBOAccountScope(Kind kind) { FakeHost::Instance().OpenScope(kind == kEnumerate); }
NIMBOAccountScope::~NIMBOAccountScope() { FakeHost::Instance().CloseScope(); }
