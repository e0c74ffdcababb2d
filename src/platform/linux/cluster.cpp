// The mail cluster of a single host: there is no other node to tell. A cluster back end takes this file's place.
#include "platform/mailserver.h"

namespace NIMBO::QUAYPOST_SERVER {

NIMBOMailNodeCluster::NIMBOMailNodeCluster() = default;
NIMBOMailNodeCluster::~NIMBOMailNodeCluster() = default;

bool QuaypostServerBACKENDWrap::setFile(const std::string& /*name*/, const std::string& /*path*/,
                                        const char** /*extra*/) {
  return true;
}

}  // namespace NIMBO::QUAYPOST_SERVER
