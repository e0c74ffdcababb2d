// The log's lines and where they go.
#include <regex>

#include "platform/platform_test.h"

namespace NIMBO::QUAYPOST_SERVER {
namespace {

TEST(Maillog, WritesControlBytesAsMarksAndCutsLongMessages) {
  const std::string a2044(2044, 'a');
  const std::pair<std::string, std::string> messages[] = {
      {"\x1b[2J\t\x7f \xc3\xbc 100%s\n\n", "\\x1b[2J\\x09\\x7f \xc3\xbc 100%s\\x0a"},
      {"", ""},
      {a2044 + a2044, a2044 + "aaa"},
      {a2044 + "\x1b", a2044}};
  LogCapture log;
  for (const auto& [message, line] : messages) {
    log.Clear();
    errno = EBADF;
    maillog(3, "%s", message.c_str());
    EXPECT_EQ(log.Lines(), Names{line});
    EXPECT_EQ(errno, EBADF);
  }
}

/// What arrives on standard error when two lines are logged to `target`.
std::string LoggedTo(const TempDirectory& directory, const std::string& target) {
  MailserverSetConfigFile(directory.Write("conf", "[log]\ntarget=" + target));
  ::testing::internal::CaptureStderr();
  maillog(3, "module.cpp:7 %s", "first");
  maillog(3, "module.cpp:8 %s\n", "second");
  MailserverSetConfigFile("");
  return ::testing::internal::GetCapturedStderr();
}

TEST(Maillog, WritesTimedLinesToStandardErrorOrAFileAndNeverFails) {
  const std::regex lines(
      "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:]{8}[+-][0-9]{4} module.cpp:7 first\n[^ ]+ module.cpp:8 second\n");
  const TempDirectory directory;
  EXPECT_TRUE(std::regex_match(LoggedTo(directory, "stderr"), lines));
  for (const auto& target : {directory.Path("log"), directory.Path("no/such/directory"), std::string("broken")}) {
    EXPECT_EQ(LoggedTo(directory, target), "");
  }
  std::ifstream file(directory.Path("log"));
  EXPECT_TRUE(std::regex_match(std::string(std::istreambuf_iterator<char>(file), {}), lines));
  EXPECT_EQ(std::filesystem::status(directory.Path("log")).permissions() & std::filesystem::perms::others_all,
            std::filesystem::perms::none);
}

}  // namespace
}  // namespace NIMBO::QUAYPOST_SERVER
