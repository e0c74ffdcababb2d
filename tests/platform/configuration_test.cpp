// mailserver.conf: what is understood, what is refused with its line, and when it is read again.
#include <unistd.h>

#include "platform/platform_test.h"

namespace NIMBO::QUAYPOST_SERVER {
namespace {

class ConfigurationTest : public ::testing::Test {
 protected:
  ~ConfigurationTest() override {
    unsetenv("MAILSERVER_CONF");
    MailserverSetConfigFile("");
    MailserverSetVanishLimit(-1);
  }

  /// "database type domain vanish_limit", "?" for each that fails.
  static std::string Settings() {
    std::string database = "?", domain = "?";
    int type = 0, limit = 0;
    GetUserGroupDelegationConfigPath(database);
    MailserverDomainShortName(domain);
    return database + " " + (MailserverAccountType(type) ? std::to_string(type) : "?") + " " + domain + " " +
           (MailserverVanishLimit(limit) ? std::to_string(limit) : "?");
  }

  const std::string default_database_ = "/var/lib/mailserver/delegation.db";
  TempDirectory directory_;
  LogCapture log_;
};

TEST_F(ConfigurationTest, UnderstandsSettingsAndFillsInDefaults) {
  const std::pair<std::string, std::string> files[] = {
      {"; nothing\n\n# set\n[accounts]\n", default_database_ + " 1  50"},
      {"[delegation]\r\n database = /a b/c.db ; here\r\n[accounts] # whose\ntype=ldap\nvanish_limit=100",
       "/a b/c.db 3  100"},
      {"\xef\xbb\xbf[accounts]\ntype: domain\ndomain=EXAMPLE\n[log]\ntarget=stderr\n",
       default_database_ + " 2 EXAMPLE 50"},
      {"[accounts]\nunsupported = a, b\n  c d\n\te\ntype=ldap\n", default_database_ + " 3  50"}};
  for (const auto& [content, settings] : files) {
    MailserverSetConfigFile(directory_.Write("conf", content));
    EXPECT_EQ(Settings(), settings) << content;
  }
  MailserverSetVanishLimit(20);
  EXPECT_EQ(Settings(), default_database_ + " 3  20");
}

TEST_F(ConfigurationTest, RefusesAMalformedFileWithItsLine) {
  const std::string repeated = "repeated, or continued by a line that begins with a blank";
  const std::pair<std::string, std::string> files[] = {
      {"[accounts]\ntype=\n", "2: [accounts] type: must be local, domain or ldap"},
      {"[accounts]\ntype=ldap\n\ntype=local\n", "4: [accounts] type: " + repeated},
      {"[accounts]\nunsupported=a\nunsupported=b\n", "3: [accounts] unsupported: " + repeated},
      {"[accounts]\nunsupported=a\n domain=A\n", "3: [accounts] unsupported: " + repeated},
      {"[accounts]\nvanish_limit=101\n", "2: [accounts] vanish_limit: must be a number from 0 to 100"},
      {"[accounts]\nvanish_limit=5%\n", "2: [accounts] vanish_limit: must be a number from 0 to 100"},
      {"[delegation]\ndatabase=file:x?mode=memory\n", "2: [delegation] database: must be a full path"},
      {"[log]\ntarget=sylog\nnonsense\n", "2: [log] target: must be syslog, stderr or a full path"},
      {"type=ldap\n", "1: [] type: there is no such setting"},
      {"[accounts\n[log]\ntarget=sylog\n", "1: neither [section] nor key = value"},
      {"[accounts] type=ldap\n", "1: text behind the section's name"},
      {std::string("[accounts]\ndomain=A\0B\n", 22), "2: a NUL byte"},
      {"[accounts]\nunsupported=" + std::string(250, 'x'),
       "2: the line is too long; a list may go on in lines that begin with a blank"}};
  for (const auto& [content, problem] : files) {
    log_.Clear();
    MailserverSetConfigFile(directory_.Write("conf", content));
    EXPECT_EQ(Settings(), "? ? ? ?") << content;
    EXPECT_EQ(log_.Texts(), Names(4, "configuration " + directory_.Path("conf") + ":" + problem));
  }
}

TEST_F(ConfigurationTest, OnlyTheDefaultFileMayBeMissing) {
  setenv("MAILSERVER_CONF", directory_.Path("none").c_str(), 1);
  EXPECT_EQ(Settings(), "? ? ? ?");
  EXPECT_TRUE(log_.Has("cannot read the configuration " + directory_.Path("none") + ": No such file or directory"));
  MailserverSetConfigFile(directory_.Path(""));
  EXPECT_EQ(Settings(), "? ? ? ?");
  EXPECT_TRUE(log_.Has("cannot read the configuration " + directory_.Path("") + ": Is a directory"));
  MailserverSetConfigFile("");
  unsetenv("MAILSERVER_CONF");
  if (access("/etc/mailserver/mailserver.conf", F_OK) == 0) GTEST_SKIP() << "this host has a configuration";
  EXPECT_EQ(Settings(), default_database_ + " 1  50");
}

TEST_F(ConfigurationTest, IsReadAgainWhenTheFileChangesButStaysForTheLengthOfACall) {
  setenv("MAILSERVER_CONF", directory_.Path("conf").c_str(), 1);
  for (const auto write : {&TempDirectory::Write, &TempDirectory::WriteAged}) {
    (directory_.*write)("conf", "[accounts]\ndomain=FIRST\n");
    EXPECT_EQ(Settings(), default_database_ + " 1 FIRST 50");
    (directory_.*write)("conf", "[accounts]\ndomain=OTHER\n");  // of the same size
    EXPECT_EQ(Settings(), default_database_ + " 1 OTHER 50");
    {
      const NIMBOAccountScope call(NIMBOAccountScope::kRemember);
      EXPECT_EQ(Settings(), default_database_ + " 1 OTHER 50");
      (directory_.*write)("conf", "[accounts\n");
      EXPECT_EQ(Settings(), default_database_ + " 1 OTHER 50");
    }
    EXPECT_EQ(Settings(), "? ? ? ?");
  }
}

}  // namespace
}  // namespace NIMBO::QUAYPOST_SERVER
