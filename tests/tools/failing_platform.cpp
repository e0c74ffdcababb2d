// Preloaded before delegationctl: a platform that fails as the environment variable FAIL says, "announce" or
// "accounts".
#include <dlfcn.h>

#include <cstdlib>
#include <cstring>

#include "platform/mailserver.h"
#include "platform/nimbsdk.h"

namespace {

bool Fails(const char* what) {
  const char* fail = std::getenv("FAIL");
  return fail && std::strcmp(fail, what) == 0;
}

}  // namespace

bool NIMBO::QUAYPOST_SERVER::QuaypostServerBACKENDWrap::setFile(const std::string&, const std::string&, const char**) {
  return !Fails("announce");
}

int NIMBOUserGet(const char* name, NIMBOUSER** user) {
  static const auto real = reinterpret_cast<decltype(&NIMBOUserGet)>(dlsym(RTLD_NEXT, "NIMBOUserGet"));
  *user = nullptr;
  return Fails("accounts") ? NIMBO_LOOKUP_FAILED : real(name, user);
}
