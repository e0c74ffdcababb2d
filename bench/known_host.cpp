// A host whose answers cost nothing: user u7's uid follows from the name, nobody is an administrator, there are no
// groups. What the check costs on it is the library's own share.
#include <cstdlib>

#include "platform/mailserver.h"
#include "platform/nimbsdk.h"
#include "world.h"

namespace NIMBO::QUAYPOST_SERVER {

bool GetUserGroupDelegationConfigPath(std::string&) { return false; }
bool MailserverAccountType(int& type) {
  type = NIMBO_ACCOUNT_LOCAL;
  return true;
}
bool MailserverDomainShortName(std::string& name) {
  name.clear();
  return true;
}
bool MailserverVanishLimit(int&) { return false; }
void MailserverSetConfigFile(const std::string&) {}
bool QuaypostServerBACKENDWrap::setFile(const std::string&, const std::string&, const char**) { return false; }
NIMBOMailNodeCluster::NIMBOMailNodeCluster() = default;
NIMBOMailNodeCluster::~NIMBOMailNodeCluster() = default;

}  // namespace NIMBO::QUAYPOST_SERVER

namespace {

struct KnownUser : NIMBOUSER {
  std::string name;
};

}  // namespace

extern "C" {

void maillog(int, const char*, ...) {}

int NIMBOUserGet(const char* name, NIMBOUSER** user) {
  auto* known = new KnownUser{{nullptr, bench::UserId(std::atoi(name + 1))}, name};
  known->szName = known->name.c_str();
  *user = known;
  return NIMBO_OK;
}
int NIMBOUserGetByUID(unsigned int, NIMBOUSER**) { return NIMBO_LOOKUP_FAILED; }
void NIMBOUserFree(NIMBOUSER* user) { delete static_cast<KnownUser*>(user); }
int NIMBOGroupGet(const char*, NIMBOGROUP**) { return NIMBO_LOOKUP_FAILED; }
int NIMBOGroupGetByGID(unsigned int, NIMBOGROUP**) { return NIMBO_LOOKUP_FAILED; }
void NIMBOGroupFree(NIMBOGROUP*) {}
int NIMBOGroupListMember(const char*, NBLIBSZLIST**) { return NIMBO_LOOKUP_FAILED; }
NBLIBSZLIST* NBLIBCSzListAlloc(int) { return nullptr; }
int NBLIBCSzListCount(const NBLIBSZLIST*) { return 0; }
const char* NBLIBCSzListGet(const NBLIBSZLIST*, int) { return nullptr; }
void NBLIBCSzListFree(NBLIBSZLIST*) {}
int NBLIBUserInfoEnum(int, const char*, int, int, NBLIBUserInfoCallback, void*) { return NIMBO_LOOKUP_FAILED; }
int NBLIBUserRealNameGet(const char*, char*, int) { return NIMBO_LOOKUP_FAILED; }
bool checkUnsupportedUser(const char*) { return true; }
int NBLIBGroupIsAdminGroupMem(const char*, int) { return 0; }

}  // extern "C"

NIMBOAccountScope::NIMBOAccountScope(Kind) {}
NIMBOAccountScope::~NIMBOAccountScope() = default;
