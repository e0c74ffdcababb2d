// What the four table handlers share.
#include "handlers/table_handler.h"

namespace NIMBO::QUAYPOST_SERVER {

RoleDBHandler* Usable(RoleDBHandler* handle, int status, Place place) {
  if (handle && status == 0) return handle;
  LogErrorAt(place, "Open delegationDBHandler cannot open before");
  return nullptr;
}

bool Run(RoleDBHandler& handle, const RoleSQLCmd& cmds) { return handle.ExeCmds(cmds, true) == 0; }

bool Run(RoleDBHandler& handle, std::string statement) {
  RoleSQLCmd cmds;
  cmds.Add(std::move(statement));
  return Run(handle, cmds);
}

bool ReadsOne(RoleDBHandler& handle, const std::string& sql, Place place) {
  Query row(handle, sql, place);
  bool one = false;
  while (row.Next()) one = row.Text(0) == "1";
  return row.Done() && one;
}

std::shared_ptr<DelegationUser> ReadUser(Query& row, int first) {
  const auto uid = row.Int<unsigned int>(first);
  return uid ? std::make_shared<DelegationUser>(*uid, row.Text(first + 1)) : nullptr;
}

std::shared_ptr<DelegationGroup> ReadGroup(Query& row, int first) {
  const auto gid = row.Int<unsigned int>(first);
  return gid ? std::make_shared<DelegationGroup>(*gid, row.Text(first + 1)) : nullptr;
}

std::shared_ptr<DelegationCustomDelegation> ReadDelegation(Query& row, int first) {
  const auto idx = row.Int<int>(first);
  const auto priority = row.Int<int>(first + 3);
  if (!idx || !priority) return nullptr;
  return std::make_shared<DelegationCustomDelegation>(*idx, row.Text(first + 1), row.Text(first + 2, "none"),
                                                      *priority);
}

std::shared_ptr<DelegationDelegationEntry> ReadEntry(Query& row, int first) {
  const auto idx = row.Int<int>(first);
  return idx ? std::make_shared<DelegationDelegationEntry>(*idx, row.Text(first + 1), row.Text(first + 2)) : nullptr;
}

}  // namespace NIMBO::QUAYPOST_SERVER
