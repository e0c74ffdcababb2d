/// The host that unit tests link in place of platform/linux: accounts, groups, configuration and cluster in memory.
///
///   FakeHost& host = FakeHost::Instance();               // empty at the start of every test
///   host.AddUser("ann", 1001);
///   host.AddGroup("ops", 200, {"ann"});
///   host.Fail(FakeHost::kUserGetByUID, NIMBO_LOOKUP_FAILED);   // from now on; host.Recover() ends it
///
/// It answers as platform/*.h says, remembering inside a NIMBOAccountScope. Log lines go to the sink (log_capture.h).
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "platform/nimbsdk.h"

class FakeHost {
 public:
  /// Every platform function that can fail. From kUserGet on they are account lookups.
  enum Function {
    kConfigPath,
    kAccountType,
    kDomain,
    kVanishLimit,
    kSetFile,
    kListAlloc,
    kUserGet,
    kUserGetByUID,
    kGroupGet,
    kGroupGetByGID,
    kGroupListMember,
    kUserInfoEnum,
    kRealNameGet,
    kCheckUnsupported,
    kIsAdmin,
    kFunctionCount
  };

  struct Announcement {
    std::string name;
    std::string path;
  };

  static FakeHost& Instance();

  void AddUser(const std::string& name, unsigned int uid);
  /// Also takes the user out of the groups' and the administrators' lists.
  void RemoveUser(const std::string& name);
  /// In the lists as well; the uid stays.
  void RenameUser(const std::string& name, const std::string& newName);
  /// From now on an enumeration reports the user with uid 4294967295.
  void EnumerateWithoutUid(const std::string& name);

  /// A member without an account is left out of NIMBOGroupListMember's answers.
  void AddGroup(const std::string& name, unsigned int gid, std::vector<std::string> members = {});
  void SetMembers(const std::string& name, std::vector<std::string> members);
  void RemoveGroup(const std::string& name);

  /// Makes every call of a function answer `status`, or only the nth one from now on, or those with this argument
  /// (a name, or an id in decimal). A bool function answers false, checkUnsupportedUser true, the list null.
  void Fail(Function function, int status);
  void FailNth(Function function, int nth, int status);
  void FailFor(Function function, const std::string& argument, int status);
  /// Ends all of that; the counters stay.
  void Recover() { faults_.clear(); }

  /// Calls since the test began; what a scope remembers of an earlier call of the function is none.
  int Calls(Function function) const { return calls_[function]; }
  /// Times that the account source was asked for something no scope remembered.
  int Lookups() const { return lookups_; }

  std::set<std::string> admins;
  std::set<std::string> unsupported;
  int accountType = NIMBO_ACCOUNT_LOCAL;  ///< on a domain host names match in any case and start with "DOMAIN\"
  std::string domain;
  std::string configPath;  ///< of the database; "": the configuration cannot be read
  int vanishLimit = 50;
  int vanishLimitOverride = -1;             ///< as MailserverSetVanishLimit was given it
  std::vector<Announcement> announcements;  ///< the accepted ones
  std::function<void()> onLookup;           ///< called with each of Lookups(), before the answer
  std::function<void()> onAnnounce;         ///< called with each announcement

  /// The rest is for the platform functions.
  struct Account {
    std::string name;
    unsigned int id;
  };
  struct Answer {
    int status = NIMBO_OK;
    std::vector<Account> accounts;
  };
  /// Counts the call. The status that the test wants, or nothing when the call is to go its way.
  std::optional<int> Intercept(Function function, const std::string& argument = "");
  /// The answer of `function`, where `source` is the lookup that it consists of.
  Answer Ask(Function function, Function source, const std::string& argument);
  void OpenScope(bool enumerate);
  void CloseScope();

 private:
  enum Level { kSource, kWhole };  // a lookup, and what a platform function made of it
  struct User : Account {
    bool enumeratedWithoutUid = false;
  };
  struct Group : Account {
    std::vector<std::string> members;
  };
  struct Fault {
    Function function;
    int status;
    int nth;  ///< counted down; the call that brings it to 0 fails. Negative: every call
    std::optional<std::string> argument;
  };

  Answer LookUp(Function source, const std::string& argument) const;
  template <class Make>
  Answer Remember(Level level, Function function, const std::string& argument, Make make);

  std::vector<User> users_;
  std::vector<Group> groups_;
  std::vector<Fault> faults_;
  std::map<std::tuple<Level, Function, std::string>, Answer> remembered_;
  int scopes_ = 0;
  int lookups_ = 0;
  int calls_[kFunctionCount] = {};
};
