// The fake host: a source of accounts, and the functions of platform/mailserver.h.
#include "support/fake_host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <stdexcept>

#include "platform/linux/account_scope.h"
#include "platform/mailserver.h"

using namespace NIMBO::QUAYPOST_SERVER;

namespace {

constexpr unsigned int kPrimaryGroup = 1;  // of everybody; there is no such group

auto HasName(const std::string& name) {
  return [name](const auto& record) { return record.name == name; };
}

/// The first record that matches, unless the test wants another answer.
template <class Record, class Matches>
Answer<Record> First(FakeHost::Function function, const std::vector<Record>& records, Matches matches) {
  if (const auto status = FakeHost::Instance().Intercept(function)) return {static_cast<NIMBOStatus>(*status), {}};
  const auto found = std::find_if(records.begin(), records.end(), matches);
  if (found == records.end()) return {NIMBO_NOT_FOUND, {}};
  return {NIMBO_OK, *found};
}

class FakeAccounts : public AccountSource {
  Answer<Account> FindUser(const std::string& name) override {
    return First(FakeHost::kUserGet, FakeHost::Instance().Users(), HasName(name));
  }
  Answer<Account> FindUser(unsigned int uid) override {
    return First(FakeHost::kUserGetByUID, FakeHost::Instance().Users(),
                 [uid](const Account& account) { return account.uid == uid; });
  }
  Answer<Group> FindGroup(const std::string& name) override {
    return First(FakeHost::kGroupGet, FakeHost::Instance().Groups(), HasName(name));
  }
  Answer<Group> FindGroup(unsigned int gid) override {
    return First(FakeHost::kGroupGetByGID, FakeHost::Instance().Groups(),
                 [gid](const Group& group) { return group.gid == gid; });
  }
  Answer<std::vector<Account>> ListUsers() override {
    const auto status = FakeHost::Instance().Intercept(FakeHost::kUserInfoEnum);
    if (status) return {static_cast<NIMBOStatus>(*status), {}};
    return {NIMBO_OK, FakeHost::Instance().Users()};
  }
  Answer<std::vector<unsigned int>> ListGroupsOf(const Account& account) override {
    const auto status = FakeHost::Instance().Intercept(FakeHost::kGroupsOf);
    if (status) return {static_cast<NIMBOStatus>(*status), {}};
    return {NIMBO_OK, {account.gid}};
  }
};

class EmptyHostForEachTest : public ::testing::EmptyTestEventListener {
  void OnTestStart(const ::testing::TestInfo&) override { FakeHost::Instance() = FakeHost(); }
};

[[maybe_unused]] const bool installed = [] {
  UseAccountSource(std::make_shared<FakeAccounts>());
  ::testing::UnitTest::GetInstance()->listeners().Append(new EmptyHostForEachTest);
  return true;
}();

/// Hands a setting out.
template <class Setting, class Out>
bool Give(FakeHost::Function function, Setting Configuration::*setting, Out& out) {
  FakeHost& host = FakeHost::Instance();
  if (host.Intercept(function)) return false;
  out = host.configuration.*setting;
  return true;
}

MaillogSink logSink = nullptr;
void* logSinkContext = nullptr;

}  // namespace

FakeHost& FakeHost::Instance() {
  static FakeHost host;
  return host;
}

void FakeHost::AddUser(const std::string& name, unsigned int uid) { users_.push_back({name, uid, kPrimaryGroup}); }

void FakeHost::RemoveUser(const std::string& name) {
  std::erase_if(users_, HasName(name));
  for (Group& group : groups_) std::erase(group.members, name);
}

void FakeHost::AddGroup(const std::string& name, unsigned int gid, std::vector<std::string> members) {
  groups_.push_back({name, gid, std::move(members)});
}

void FakeHost::SetMembers(const std::string& name, std::vector<std::string> members) {
  std::find_if(groups_.begin(), groups_.end(), HasName(name))->members = std::move(members);
}

std::optional<int> FakeHost::Intercept(Function function) {
  ++calls_[function];
  if (function >= kUserGet && onLookup) onLookup();
  std::optional<int> status;
  for (Fault& fault : faults_) {
    if (fault.function != function) continue;
    const bool due = fault.nth < 0 || fault.nth == 1;
    if (fault.nth > 0) --fault.nth;
    if (due) status = fault.status;
  }
  if (status == kThrows) throw std::runtime_error("the platform throws");
  return status;
}

extern "C" void maillog(int, const char* format, ...) {
  char line[2048];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  const std::size_t length = std::char_traits<char>::length(line);
  if (length > 0 && line[length - 1] == '\n') line[length - 1] = '\0';
  if (logSink) logSink(logSinkContext, line);
}

namespace NIMBO::QUAYPOST_SERVER {

std::shared_ptr<const Configuration> CurrentConfiguration() {
  FakeHost& host = FakeHost::Instance();
  return host.Intercept(FakeHost::kConfiguration) ? nullptr : std::make_shared<Configuration>(host.configuration);
}

ConfigurationHold::ConfigurationHold() = default;
ConfigurationHold::~ConfigurationHold() = default;

bool GetUserGroupDelegationConfigPath(std::string& path) {
  const bool isReadable = !FakeHost::Instance().configuration.database.empty();
  return Give(FakeHost::kConfigPath, &Configuration::database, path) && isReadable;
}

bool MailserverAccountType(int& type) { return Give(FakeHost::kAccountType, &Configuration::account_type, type); }

bool MailserverDomainShortName(std::string& name) { return Give(FakeHost::kDomain, &Configuration::domain, name); }

bool MailserverVanishLimit(int& percent) { return Give(FakeHost::kVanishLimit, &Configuration::vanish_limit, percent); }

void MaillogSetSink(MaillogSink sink, void* context) {
  logSink = sink;
  logSinkContext = context;
}

bool QuaypostServerBACKENDWrap::setFile(const std::string& name, const std::string& path, const char**) {
  FakeHost& host = FakeHost::Instance();
  if (host.onAnnounce) host.onAnnounce();
  if (host.Intercept(FakeHost::kSetFile)) return false;
  host.announcements.push_back({name, path});
  return true;
}

NIMBOMailNodeCluster::NIMBOMailNodeCluster() = default;
NIMBOMailNodeCluster::~NIMBOMailNodeCluster() = default;

}  // namespace NIMBO::QUAYPOST_SERVER
