/// The host that unit tests have in place of the name service and of mailserver.conf: accounts, groups, configuration
/// and cluster in memory. The account functions over it are the platform's own.
///
///   FakeHost& host = FakeHost::Instance();               // empty at the start of every test
///   host.AddUser("ann", 1001);
///   host.AddGroup("ops", 200, {"ann"});
///   host.Fail(FakeHost::kUserGetByUID, NIMBO_LOOKUP_FAILED);   // from now on; host.Recover() ends it
///
/// Log lines go to the sink (log_capture.h).
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/account_source.h"
#include "platform/linux/configuration.h"

class FakeHost {
 public:
  /// Every question to the host that can fail. From kUserGet on they go to the account source.
  enum Function {
    kConfigPath,
    kAccountType,
    kDomain,
    kVanishLimit,
    kConfiguration,
    kSetFile,
    kUserGet,
    kUserGetByUID,
    kGroupGet,
    kGroupGetByGID,
    kUserInfoEnum,
    kGroupsOf,
    kFunctionCount
  };
  /// In place of a status: the function throws. Not for the account source.
  static constexpr int kThrows = -1000;

  struct Announcement {
    std::string name;
    std::string path;
  };

  static FakeHost& Instance();

  FakeHost() { configuration.database.clear(); }

  void AddUser(const std::string& name, unsigned int uid);
  /// Also takes the user out of the groups' lists.
  void RemoveUser(const std::string& name);

  void AddGroup(const std::string& name, unsigned int gid, std::vector<std::string> members = {});
  void SetMembers(const std::string& name, std::vector<std::string> members);

  /// Makes every call of a function answer `status`, or only the nth one from now on. A bool function answers false.
  void Fail(Function function, int status) { faults_.push_back({function, status, -1}); }
  void FailNth(Function function, int nth, int status) { faults_.push_back({function, status, nth}); }
  /// Ends all of that; the counters stay.
  void Recover() { faults_.clear(); }

  /// Calls since the test began; what a scope remembers of an earlier call of the function is none.
  int Calls(Function function) const { return calls_[function]; }
  NIMBO::QUAYPOST_SERVER::Configuration configuration;  ///< with no database it cannot be read
  std::vector<Announcement> announcements;              ///< the accepted ones
  std::function<void()> onLookup;                       ///< called with each question to the account source
  std::function<void()> onAnnounce;                     ///< called with each announcement

  /// For the functions that it answers. Counts the call; the status that the test wants, or nothing when the call is to
  /// go its way.
  std::optional<int> Intercept(Function function);
  const std::vector<NIMBO::QUAYPOST_SERVER::Account>& Users() const { return users_; }
  const std::vector<NIMBO::QUAYPOST_SERVER::Group>& Groups() const { return groups_; }

 private:
  struct Fault {
    Function function;
    int status;
    int nth;  ///< counted down; the call that brings it to 0 fails. Negative: every call
  };

  std::vector<NIMBO::QUAYPOST_SERVER::Account> users_;
  std::vector<NIMBO::QUAYPOST_SERVER::Group> groups_;
  std::vector<Fault> faults_;
  int calls_[kFunctionCount] = {};
};
