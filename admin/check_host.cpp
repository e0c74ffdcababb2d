// The part of a check that compares what is stored with the host.
#include <algorithm>
#include <memory>
#include <optional>
#include <set>

#include "admin/accounts.h"
#include "admin/error.h"
#include "admin/survey.h"
#include "platform/mailserver.h"
#include "platform/nimbsdk.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

namespace {

struct Release {
  void operator()(NBLIBSZLIST* list) const { NBLIBCSzListFree(list); }
};

// The account, or the group, of a full name as it is stored; nothing when the host definitely has none. Throws
// Error::kAccounts when nobody knows.
template <class Record>
std::optional<Account> Called(int (*lookup)(const char*, Record**), void (*release)(Record*), unsigned int Record::*id,
                              const std::string& name) {
  Record* found = nullptr;
  const int status = lookup(name.c_str(), &found);
  if (status == NIMBO_NOT_FOUND) return std::nullopt;
  if (status != NIMBO_OK) throw Error(Error::kAccounts, name + " could not be looked up");
  const std::unique_ptr<Record, void (*)(Record*)> record(found, release);
  return Account{record.get()->*id, record->szName};
}

std::optional<Account> UserCalled(const std::string& name) {
  return Called(NIMBOUserGet, NIMBOUserFree, &NIMBOUSER::uid, name);
}

std::optional<Account> GroupCalled(const std::string& name) {
  return Called(NIMBOGroupGet, NIMBOGroupFree, &NIMBOGROUP::gid, name);
}

// The names that `list` appends for a group; false when the host did not answer.
bool Names(int (*list)(const char*, NBLIBSZLIST**), const std::string& group, std::vector<std::string>& names) {
  NBLIBSZLIST* listed = NBLIBCSzListAlloc(0);
  const int status = listed ? list(group.c_str(), &listed) : NIMBO_LOOKUP_FAILED;
  const std::unique_ptr<NBLIBSZLIST, Release> owner(listed);
  for (int i = 0; status == NIMBO_OK && i < NBLIBCSzListCount(listed); ++i) {
    names.emplace_back(NBLIBCSzListGet(listed, i));
  }
  return status == NIMBO_OK;
}

class Comparison {
 public:
  Comparison(Survey& survey, const Progress& progress)
      : survey_(survey), findings_(survey.findings), progress_(progress) {}

  void Run() {
    if (!Enumerate()) return;
    LookForAdministrators();
    std::size_t done = 0;
    for (const auto& [uid, user] : survey_.state.users) {
      Show("users on the host", ++done, survey_.state.users.size());
      CompareUser(user);
    }
    done = 0;
    for (const auto& [gid, group] : survey_.state.groups) {
      if (progress_) progress_("groups on the host", ++done, survey_.state.groups.size());
      CompareGroup(group);
    }
    LookForOutage();
  }

 private:
  void Show(const char* what, std::size_t done, std::size_t total) const {
    if (progress_ && done % 1000 == 0) progress_(what, done, total);
  }

  void Unanswered(const Kind& kind, const std::string& subject) {
    findings_.Add(kind, subject);
    findings_.SetIncomplete();
    findings_.DistrustHost();
  }

  bool Enumerate() {
    int type = 0;
    if (!MailserverAccountType(type)) {
      Unanswered(kinds::kConfiguration, "");
      return false;
    }
    const auto collect = [](const NIMBOUSER* user, void* names) {
      static_cast<std::vector<std::string>*>(names)->emplace_back(user->szName);
      return 0;
    };
    if (NBLIBUserInfoEnum(type, nullptr, 0, -1, collect, &accounts_) > 0) return true;
    Unanswered(kinds::kAccounts, "");
    return false;
  }

  void LookForAdministrators() {
    std::size_t done = 0;
    for (const std::string& account : accounts_) {
      Show("administrators", ++done, accounts_.size());
      const int member = NBLIBGroupIsAdminGroupMem(account.c_str(), 0);
      if (member == 1) return;
      if (member < 0 && member != NIMBO_NOT_FOUND) {
        return Unanswered(kinds::kLookupFailed, "whether " + account + " is an administrator");
      }
    }
    findings_.Add(kinds::kNoAdministrators);
  }

  // How one kind of record is looked up, and what may have become of it.
  struct Lookup {
    const char* id;
    std::optional<Account> (*byId)(unsigned int);
    std::optional<Account> (*byName)(const std::string&);
    const Kind& gone;
    const Kind& renamed;
    const Kind& reused;
  };

  // What the host has under the id of a stored record, unless that is certainly somebody else: then the id goes into
  // `reused`. A finding, unless it is the same.
  std::optional<Account> Compare(const Lookup& lookup, unsigned int id, const std::string& name, std::size_t& gone,
                                 std::vector<unsigned int>& reused) {
    const std::string subject = std::string(lookup.id) + " " + std::to_string(id) + " " + name;
    try {
      std::optional<Account> now = lookup.byId(id);
      if (now && now->name == name) return now;
      const std::optional<Account> namesake = lookup.byName(name);
      const bool moved = namesake && namesake->id != id && namesake->name == name;
      const std::string where = moved ? "; " + name + " has the id " + std::to_string(namesake->id) + " now" : "";
      if (!now) {
        ++gone;
        findings_.Add(lookup.gone, subject + where);
        return std::nullopt;
      }
      findings_.Add(moved ? lookup.reused : lookup.renamed, subject + " is " + now->name + where);
      if (!moved) return now;
      reused.push_back(id);
    } catch (const Error&) {
      Unanswered(kinds::kLookupFailed, subject);
    }
    return std::nullopt;
  }

  void CompareUser(const User& user) {
    static const Lookup kLookup{
        "uid", UserWithId, UserCalled, kinds::kUserGone, kinds::kUserRenamed, kinds::kUidReused};
    Compare(kLookup, user.uid, user.name, goneUsers_, survey_.reusedUids);
  }

  void CompareGroup(const Group& group) {
    static const Lookup kLookup{
        "gid", GroupWithId, GroupCalled, kinds::kGroupGone, kinds::kGroupRenamed, kinds::kGidReused};
    const auto now = Compare(kLookup, group.gid, group.name, goneGroups_, survey_.reusedGids);
    if (!now) return;
    const std::string& name = now->name;
    std::vector<std::string> members, stale;
    if (!Names(NIMBOGroupListMember, name, members) || !Names(NIMBOGroupListStale, name, stale)) {
      return Unanswered(kinds::kLookupFailed, "the members of group " + name);
    }
    for (const std::string& member : stale) {
      findings_.Add(kinds::kStaleName, std::string(name).append(": ").append(member));
    }
    try {
      CompareMembers(group, name, members);
    } catch (const Error&) {
      Unanswered(kinds::kLookupFailed, "the members of group " + name);
    }
  }

  void CompareMembers(const Group& group, const std::string& name, const std::vector<std::string>& members) {
    std::set<unsigned int> present;
    std::vector<std::string> comers, leavers;
    const std::set<unsigned int> stored(group.members.begin(), group.members.end());
    for (const std::string& member : members) {
      const auto account = UserCalled(member);
      if (!account) continue;
      if (present.insert(account->id).second && !stored.contains(account->id)) comers.push_back(member);
    }
    for (const unsigned int uid : stored) {
      if (!present.contains(uid)) leavers.push_back(survey_.state.users.at(uid).name);
    }
    if (!leavers.empty()) findings_.Add(kinds::kMembersStale, name + ": no longer " + Joined(leavers));
    if (!comers.empty()) findings_.Add(kinds::kMembersStale, name + ": now also " + Joined(comers));
  }

  // The library's own rule for a refresh; who has lost his id counts as gone here.
  void LookForOutage() {
    constexpr std::size_t kFewRecords = 10;
    int limit = 0;
    if (!MailserverVanishLimit(limit)) return Unanswered(kinds::kConfiguration, "");
    const auto judge = [&](std::size_t lost, std::size_t stored, const char* what) {
      if (stored < kFewRecords || lost * 100 <= stored * static_cast<std::size_t>(limit)) return;
      findings_.Add(kinds::kOutage, std::to_string(lost) + " of " + std::to_string(stored) + " stored " + what);
      findings_.DistrustHost();
    };
    judge(goneUsers_ + survey_.reusedUids.size(), survey_.state.users.size(), "users");
    judge(goneGroups_ + survey_.reusedGids.size(), survey_.state.groups.size(), "groups");
  }

  Survey& survey_;
  Findings& findings_;
  const Progress& progress_;
  std::vector<std::string> accounts_;
  std::size_t goneUsers_ = 0;
  std::size_t goneGroups_ = 0;
};

}  // namespace

void SurveyHost(Survey& survey, const Progress& progress) { Comparison(survey, progress).Run(); }

}  // namespace NIMBO::QUAYPOST_SERVER::admin
