// The account functions over glibc's name service (nss_module.cpp), what they say when that fails, and what is
// different over a passwd and a group file.
#include <nss.h>

#include "platform/platform_test.h"

namespace {

class AccountsTest : public ::testing::Test {
 protected:
  AccountsTest() {
    for (const char* database : {"passwd", "group", "initgroups"}) __nss_configure_lookup(database, "fake");
    WriteAccounts(
        "root:x:0:0:::\nalice:x:1001:100:::\nbob:x:1002:100:::\nEXAMPLE\\carol:x:70001:500:::\n"
        "alice:x:2001:300:::\ndave@example:x:70002:500:::\na/b:x:1003:600:::\nnobody:x:65534:65534:::\n",
        "users:x:100:\nops:x:200:bob,ghost,alice,bob\nadministrators:x:300:bob\nusers:x:201:root\n");
    Configure("");
  }
  ~AccountsTest() override { NIMBO::QUAYPOST_SERVER::MailserverSetConfigFile(""); }

  void Configure(const std::string& settings) {
    NIMBO::QUAYPOST_SERVER::MailserverSetConfigFile(directory_.Write("conf", "[accounts]\n" + settings));
  }

  void WriteAccounts(const std::string& passwd, const std::string& group) {
    setenv("NSS_PASSWD", directory_.Write("passwd", passwd).c_str(), 1);
    setenv("NSS_GROUP", directory_.Write("group", group).c_str(), 1);
  }

  const TempDirectory directory_;
  LogCapture log_;
};

TEST_F(AccountsTest, AreFoundByNameAndIdOrDefinitelyNot) {
  EXPECT_EQ(User("alice"), "alice 1001");
  EXPECT_EQ(User(1002U), "bob 1002");
  EXPECT_EQ(User("a\nb"), kNotFound);
  EXPECT_EQ(User(7U), kNotFound);
  NIMBOGROUP* group = nullptr;
  EXPECT_EQ(NIMBOGroupGet("ghosts", &group), NIMBO_NOT_FOUND);
  ASSERT_EQ(NIMBOGroupGetByGID(200, &group), NIMBO_OK);
  EXPECT_STREQ(group->szName, "ops");
  NIMBOGroupFree(group);
  char name[6];
  EXPECT_EQ(NBLIBUserRealNameGet("alice", name, 6), NIMBO_OK);
  EXPECT_STREQ(name, "alice");
  EXPECT_EQ(NBLIBUserRealNameGet("alice", name, 5), NIMBO_LOOKUP_FAILED);
}

TEST_F(AccountsTest, TheIdThatNobodyHasNeverResolvesAndNisMarksAreNoAccounts) {
  WriteAccounts("max:x:4294967295:100:::\nmax:x:1003:100:::\nbob:x:1002:100:::\n",
                "users:x:100:max\nmax:x:4294967295:bob\n");
  NIMBOGROUP* group = nullptr;
  EXPECT_EQ(User("max"), kNotFound);
  EXPECT_EQ(Enumerated(), Names{"bob"});  // as a lookup, the enumeration goes by a name's first line
  EXPECT_EQ(User(4294967295U), kNotFound);
  EXPECT_EQ(NIMBOGroupGet("max", &group), NIMBO_NOT_FOUND);
  EXPECT_EQ(NIMBOGroupGetByGID(4294967295U, &group), NIMBO_NOT_FOUND);
  EXPECT_EQ(Members("users"), Names{"bob"});
  WriteAccounts("+nis::::::\n-bob::::::\n::0:100:::\nbob:x:1002:100:::\n", "");
  EXPECT_EQ(Enumerated(), Names{"bob"});
}

TEST_F(AccountsTest, GroupMembersAreTheListedAndThePrimaryOnesEachOnceWithoutGhosts) {
  const NIMBOAccountScope scope(NIMBOAccountScope::kEnumerate);
  for (int time : {1, 2}) EXPECT_EQ(Members("ops"), (Names{"bob", "alice"})) << time;
  EXPECT_EQ(Members("users"), (Names{"alice", "bob"}));
  EXPECT_EQ(Members("ghosts"), Names{kNotFound});
  EXPECT_EQ(log_.Texts(), Names{"group ops lists ghost, which is no account: left out"});  // once per scope
}

TEST_F(AccountsTest, AGroupOfThousandsIsReadWhole) {
  constexpr std::size_t count = 100'000;  // 1.7 MB
  std::string passwd, members;
  for (std::size_t i = 0; i < count; ++i) {
    const std::string name = "somebody-" + std::to_string(100'000 + i);
    passwd += name + ":x:" + std::to_string(2000 + i) + ":9:::\n";
    members += "," + name;
  }
  WriteAccounts(passwd, "all:x:200:" + members.substr(1) + "\n");
  const NIMBOAccountScope scope(NIMBOAccountScope::kEnumerate);
  EXPECT_EQ(Members("all").size(), count);
}

TEST_F(AccountsTest, AreEnumeratedOnceEachFromAnOffsetUpToALimitAndOfOneDomain) {
  EXPECT_EQ(Enumerated(), (Names{"root", "alice", "bob", "EXAMPLE\\carol", "dave@example", "a/b", "nobody"}));
  EXPECT_EQ(Enumerated(nullptr, 1, 2), (Names{"alice", "bob"}));
  EXPECT_EQ(Enumerated("Example"), (Names{"EXAMPLE\\carol", "dave@example"}));
  EXPECT_EQ(Enumerated("XAMPLE"), Names{});
  for (int answer : {-1, -7, 7}) {
    auto callback = [](const NIMBOUSER*, void* context) { return *static_cast<int*>(context); };
    EXPECT_EQ(NBLIBUserInfoEnum(NIMBO_ACCOUNT_LOCAL, nullptr, 0, -1, callback, &answer),
              answer < 0 ? answer : NIMBO_LOOKUP_FAILED);
  }
  auto throws = [](const NIMBOUSER*, void*) -> int { throw 1; };
  EXPECT_EQ(NBLIBUserInfoEnum(NIMBO_ACCOUNT_LOCAL, nullptr, 0, -1, throws, nullptr), NIMBO_LOOKUP_FAILED);
}

TEST_F(AccountsTest, SystemConfiguredMisleadingAndUnknownNamesAreUnsupported) {
  Configure("domain=EXAMPLE\nunsupported=Bob, carol\n");
  for (const char* name : {"alice", "dave@example"}) EXPECT_FALSE(checkUnsupportedUser(name)) << name;
  for (const char* name : {"root", "nobody", "bob", "EXAMPLE\\carol", "a/b", "ghost", "", "+al", "-al", "al\tice"}) {
    EXPECT_TRUE(checkUnsupportedUser(name)) << name;
  }
  Configure("nonsense");
  EXPECT_TRUE(checkUnsupportedUser("alice"));
}

TEST_F(AccountsTest, AdministratorsAreTheirGroupsListedAndPrimaryMembers) {
  for (const std::string type : {"type=local\n", "type=domain\n", "type=ldap\n"}) {
    Configure(type);
    EXPECT_EQ(NBLIBGroupIsAdminGroupMem("bob", 0), 1) << type;
    EXPECT_EQ(NBLIBGroupIsAdminGroupMem("alice", 0), 0) << type;
    EXPECT_EQ(NBLIBGroupIsAdminGroupMem("ghost", 0), NIMBO_NOT_FOUND) << type;
    Configure(type + "admin_group=users\n");
    EXPECT_EQ(NBLIBGroupIsAdminGroupMem("alice", 0), 1) << type;
    Configure(type + "admin_group=none\n");
    EXPECT_EQ(NBLIBGroupIsAdminGroupMem("bob", 0), 0) << type;
  }
  Configure("nonsense");
  EXPECT_EQ(NBLIBGroupIsAdminGroupMem("bob", 0), NIMBO_LOOKUP_FAILED);
}

TEST_F(AccountsTest, AScopeRemembersEveryAnswerUntilTheOutermostOneEnds) {
  {
    const NIMBOAccountScope scope(NIMBOAccountScope::kRemember);
    EXPECT_EQ(User("bob"), "bob 1002");
    EXPECT_EQ(Members("users"), (Names{"alice", "bob"})) << "in the host's order, whoever was looked up before";
    EXPECT_EQ(User("erin"), kNotFound);
    { const NIMBOAccountScope inner(NIMBOAccountScope::kEnumerate); }
    WriteAccounts("erin:x:1005:100:::\n", "users:x:100:\n");
    EXPECT_EQ(User("alice"), "alice 1001");
    EXPECT_EQ(User("erin"), kNotFound);
  }
  EXPECT_EQ(User("alice"), kNotFound);
  EXPECT_EQ(User("erin"), "erin 1005");
}

class AccountOutageTest : public AccountsTest {
 protected:
  AccountOutageTest() {
    WriteAccounts("alice:x:1001:100:::\nbob:x:1002:100:::\nhidden:x:1003:100:::\n", "users:x:100:alice\n");
    Configure("admin_group=users\n");
  }
  ~AccountOutageTest() override { unsetenv("NSS_OUTAGE"); }

  static void Break(const std::string& what, nss_status status, int error) {
    setenv("NSS_OUTAGE", (what + " " + std::to_string(status) + " " + std::to_string(error)).c_str(), 1);
  }
};

TEST_F(AccountOutageTest, OnlyADefiniteAnswerIsNotFound) {
  struct {
    nss_status status;
    int error;
    int answer;
  } const cases[] = {{NSS_STATUS_NOTFOUND, ENOENT, NIMBO_NOT_FOUND},
                     {NSS_STATUS_NOTFOUND, 0, NIMBO_NOT_FOUND},
                     {NSS_STATUS_UNAVAIL, ECONNREFUSED, NIMBO_LOOKUP_FAILED},
                     {NSS_STATUS_TRYAGAIN, EAGAIN, NIMBO_LOOKUP_FAILED},
                     {NSS_STATUS_TRYAGAIN, ERANGE, NIMBO_LOOKUP_FAILED},  // fits into no buffer
                     {NSS_STATUS_UNAVAIL, ENOENT, NIMBO_NOT_FOUND},       // glibc cannot tell this from the first
                     {NSS_STATUS_UNAVAIL, 0, NIMBO_NOT_FOUND}};
  for (const auto& [status, error, answer] : cases) {
    Break("lookup", status, error);
    log_.Clear();
    NIMBOGROUP* group = nullptr;
    EXPECT_EQ(User("alice"), std::to_string(answer)) << status << " " << error;
    EXPECT_EQ(User(1001U), std::to_string(answer));
    EXPECT_EQ(NIMBOGroupGet("users", &group), answer);
    EXPECT_EQ(NIMBOGroupGetByGID(100, &group), answer);
    EXPECT_EQ(NBLIBGroupIsAdminGroupMem("alice", 0), answer);
    EXPECT_TRUE(checkUnsupportedUser("alice"));
    EXPECT_EQ(log_.Lines().size(), answer == NIMBO_NOT_FOUND ? 0u : 6u);
  }
}

TEST_F(AccountOutageTest, AnEnumerationThatDiesMidwayIsAnErrorAndNotAShortList) {
  EXPECT_EQ(Enumerated(), (Names{"alice", "bob"}));
  for (const auto& [status, error] : {std::pair(NSS_STATUS_UNAVAIL, ECONNREFUSED), {NSS_STATUS_TRYAGAIN, EAGAIN}}) {
    Break("enumeration", status, error);
    EXPECT_EQ(Enumerated(), Names{kFailed});
    EXPECT_EQ(Members("users"), Names{kFailed});
    EXPECT_EQ(NBLIBGroupIsAdminGroupMem("bob", 0), 1) << "needs no enumeration";
    const NIMBOAccountScope scope(NIMBOAccountScope::kEnumerate);
    EXPECT_EQ(Members("users"), Names{kFailed});
    EXPECT_EQ(User("bob"), "bob 1002");
  }
}

TEST_F(AccountOutageTest, OfAListedMemberWhoIsNotInTheEnumerationFailsTheGroup) {
  WriteAccounts("alice:x:1001:100:::\nhidden:x:1003:100:::\n", "users:x:100:alice\nstaff:x:101:alice,hidden\n");
  const NIMBOAccountScope scope(NIMBOAccountScope::kRemember);
  for (const char* name : {"users", "staff"}) {
    NIMBOGROUP* group = nullptr;
    ASSERT_EQ(NIMBOGroupGet(name, &group), NIMBO_OK);
    NIMBOGroupFree(group);
  }
  Break("lookup", NSS_STATUS_UNAVAIL, ECONNREFUSED);
  EXPECT_EQ(Members("users"), Names{"alice"}) << "needs no lookup";
  EXPECT_EQ(Members("staff"), Names{kFailed});
}

TEST_F(AccountOutageTest, IsRememberedByAScopeAndLoggedOnceAndWhatIsKnownStays) {
  const NIMBOAccountScope scope(NIMBOAccountScope::kEnumerate);
  EXPECT_EQ(Members("users"), (Names{"alice", "bob"}));
  EXPECT_EQ(User(1003U), "hidden 1003");
  EXPECT_EQ(Members("users"), (Names{"alice", "bob", "hidden"})) << "who is missing from the enumeration joins them";
  Break("lookup", NSS_STATUS_UNAVAIL, ECONNREFUSED);
  EXPECT_EQ(User("bob"), "bob 1002") << "known from the enumeration";
  EXPECT_EQ(User("hidden"), kFailed);
  unsetenv("NSS_OUTAGE");
  EXPECT_EQ(User("hidden"), kFailed);
  EXPECT_EQ(log_.Texts(), Names{"cannot look up user hidden: Connection refused"});
}

TEST(AccountFiles, AreReadAnewAndOneThatVanishesIsAnOutage) {
  LogCapture log;
  const TempDirectory directory;
  const std::string passwd = directory.Write("passwd", "alice:x:1001:100:::\n");
  const std::string group = directory.Write("group", "users:x:100:\n");
  EXPECT_EQ(NIMBOUseAccountFiles(directory.Path("none").c_str(), group.c_str()), NIMBO_LOOKUP_FAILED);
  EXPECT_EQ(NIMBOUseAccountFiles(directory.Path("").c_str(), group.c_str()), NIMBO_LOOKUP_FAILED);
  ASSERT_EQ(NIMBOUseAccountFiles(passwd.c_str(), group.c_str()), NIMBO_OK);
  EXPECT_EQ(User("alice"), "alice 1001");
  EXPECT_EQ(Members("users"), Names{"alice"});
  directory.Write("passwd", "erica:x:1001:100:::\n");  // of the same size, within the same second
  EXPECT_EQ(User("alice"), kNotFound);
  directory.Write("passwd", "max:x:4294967295:100:::\nmax:x:1003:100:::\n+nis::::::\n-bob::::::\nbob:x:1002:100:::\n");
  EXPECT_EQ(User("max") + User("+nis") + User(4294967295U), kNotFound + kNotFound + kNotFound);
  EXPECT_EQ(Enumerated(), Names{"bob"});
  std::filesystem::remove(passwd);
  EXPECT_EQ(User("alice"), kFailed);
  EXPECT_TRUE(log.Has("cannot read " + passwd + ": No such file or directory"));
  NIMBOUseAccountFiles(nullptr, nullptr);
}

}  // namespace
