// Fuzz target: the bytes of the database file. The input is a list of patches to a real one: two bytes of position and
// one of length, then that many bytes. A patch of no bytes cuts the file at its position.
#include <algorithm>

#include "fuzz_world.h"

using namespace NIMBO::QUAYPOST_SERVER;

namespace {

std::string Patched(std::string image, const unsigned char* data, std::size_t size) {
  while (size >= 3) {
    const std::size_t position = (data[0] * 256U + data[1]) * 2U % image.size();
    const std::size_t length = std::min({std::size_t{data[2]}, size - 3, image.size() - position});
    std::copy_n(data + 3, length, image.begin() + static_cast<std::ptrdiff_t>(position));
    if (data[2] == 0) image.resize(position + 1);
    data += 3 + length;
    size -= 3 + length;
  }
  return image;
}

// By the rows as the file has them, supported or not.
void CheckAccess() {
  for (const char* name : FuzzWorld::kUsers) {
    FuzzWorld::CheckAccess(name, FuzzWorld::kMethod,
                           "(select delegationidx from user2delegation_real_table where uid = r.uid)");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  static const FuzzWorld world;
  world.Reset(Patched(world.Image(), data, size));
  CheckAccess();
  Json::Value filter, out;
  filter["detail"] = true;
  DelegationDelegationList(filter, out);
  DelegationUserList(filter, out);
  DelegationUserGroupDelegationInfoList(filter, out);
  DelegationUserHasAllDomainDelegations(1002);
  Json::Value change = Completed(Json::objectValue);
  int id = -1;
  DelegationDelegationCreate(change, id);
  DelegationRefresh();
  CheckAccess();
  return 0;
}
