// "Not found" and "could not look up" over glibc's own name service, with a module that fails on request.
#include <nss.h>

#include "platform/platform_test.h"

namespace {

class AccountOutageTest : public ::testing::Test {
 protected:
  AccountOutageTest() {
    __nss_configure_lookup("passwd", "outage");
    __nss_configure_lookup("group", "outage");
    NIMBO::QUAYPOST_SERVER::MailserverSetConfigFile(directory_.Write("conf", "[accounts]\nadmin_group=users\n"));
  }
  ~AccountOutageTest() override { unsetenv("NSS_OUTAGE"); }

  static void Break(const std::string& what, nss_status status, int error) {
    setenv("NSS_OUTAGE", (what + " " + std::to_string(status) + " " + std::to_string(error)).c_str(), 1);
  }

  TempDirectory directory_;
  LogCapture log_;
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

TEST_F(AccountOutageTest, AListedMemberWhoCannotBeLookedUpFailsTheGroup) {
  const NIMBOAccountScope scope(NIMBOAccountScope::kRemember);
  NIMBOGROUP* group = nullptr;
  ASSERT_EQ(NIMBOGroupGet("users", &group), NIMBO_OK);
  NIMBOGroupFree(group);
  Break("lookup", NSS_STATUS_UNAVAIL, ECONNREFUSED);
  EXPECT_EQ(Members("users"), Names{kFailed});
}

TEST_F(AccountOutageTest, AScopeRemembersAnErrorAndLogsItOnce) {
  const NIMBOAccountScope scope(NIMBOAccountScope::kRemember);
  Break("lookup", NSS_STATUS_UNAVAIL, ECONNREFUSED);
  EXPECT_EQ(User("alice"), kFailed);
  unsetenv("NSS_OUTAGE");
  EXPECT_EQ(User("alice"), kFailed);
  EXPECT_EQ(log_.Texts(), Names{"cannot look up user alice: Connection refused"});
}

TEST_F(AccountOutageTest, WhoIsMissingFromTheEnumerationIsLookedUpAndJoinsThePrimaryGroup) {
  const NIMBOAccountScope scope(NIMBOAccountScope::kEnumerate);
  EXPECT_EQ(Members("users"), (Names{"alice", "bob"}));
  EXPECT_EQ(User(1003U), "hidden 1003");
  EXPECT_EQ(Members("users"), (Names{"alice", "bob", "hidden"}));
  Break("lookup", NSS_STATUS_UNAVAIL, ECONNREFUSED);
  EXPECT_EQ(User("bob"), "bob 1002") << "known from the enumeration";
  EXPECT_EQ(User("hidden"), kFailed);
}

}  // namespace
