// Fuzz target: the bytes of mailserver.conf.
#include "platform/linux/configuration.h"

#include "fuzz_world.h"

using namespace NIMBO::QUAYPOST_SERVER;

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  static const FuzzWorld world;
  world.Write("fuzzed", {reinterpret_cast<const char*>(data), size});
  MailserverSetConfigFile(world.Path("fuzzed"));
  std::string database = "kept", domain = "kept";
  int type = -7, percent = -7;
  const bool read = GetUserGroupDelegationConfigPath(database);
  Require(MailserverAccountType(type) == read && MailserverDomainShortName(domain) == read &&
              MailserverVanishLimit(percent) == read,
          "all questions have an answer, or none");
  const std::string log = CurrentLogTarget();
  const int administrator = NBLIBGroupIsAdminGroupMem("henry", 0);
  const bool unsupported = checkUnsupportedUser("ann");
  Require(checkUnsupportedUser("root"), "an unknown account is unsupported");
  if (read) {
    Require(database.starts_with('/') && !database.ends_with('/') && database.find('\0') == database.npos,
            "the database is a full path");
    Require(type >= 1 && type <= 3 && percent >= 0 && percent <= 100, "numbers are within their ranges");
    Require(log == "syslog" || log == "stderr" || log.starts_with('/'), "the log has a target");
    Require(administrator == 0 || administrator == 1, "administration is a yes or a no");
  } else {
    Require(database == "kept" && domain == "kept" && type == -7 && percent == -7, "a failure changes nothing");
    Require(unsupported && administrator < 0 && log == "syslog", "without a configuration the answer is no");
    Require(DelegationUserAllowWebapi("henry", "Webapi_Util_GetPackage_v1") == -1, "and nobody is let in");
  }
  return 0;
}
