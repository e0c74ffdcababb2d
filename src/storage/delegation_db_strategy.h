/// Which database file the library works on: the configured one, or one that the caller names.
///
///   DelegationDBStrategy::SetDelegationDBStrategy(std::make_shared<DelegationCustomPathDBStrategy>("/tmp/copy.db"));
///
/// A strategy opens its file on first use and keeps the handle for the life of the process. One strategy is current for
/// the whole process; handles that others have opened stay open. No locks: not for several threads.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "role/role_db_handler.h"

namespace NIMBO::QUAYPOST_SERVER {

/// The configured database file, as GetUserGroupDelegationConfigPath names it.
class MAILSERVER_EXPORT DelegationDBStrategy {
 public:
  DelegationDBStrategy();
  virtual ~DelegationDBStrategy();

  /// The connected handle, null on failure (logged); the next call tries again.
  virtual RoleDBHandler* GetDelegationDBHandler();

  /// Makes `strategy` the current one; null goes back to the default.
  static void SetDelegationDBStrategy(std::shared_ptr<DelegationDBStrategy> strategy);
  /// The current strategy; a default one is made when none is set.
  static std::shared_ptr<DelegationDBStrategy> GetDelegationDBStrategy();

 private:
  static std::shared_ptr<DelegationDBStrategy>& _strategy;
};

/// A file of the caller's choice. Strategies with the same path share one handle, never with the default strategy.
class MAILSERVER_EXPORT DelegationCustomPathDBStrategy : public DelegationDBStrategy {
 public:
  explicit DelegationCustomPathDBStrategy(std::string path);
  ~DelegationCustomPathDBStrategy() override;

  RoleDBHandler* GetDelegationDBHandler() override;

 private:
  /// The open handles by path; the map owns them.
  static std::map<std::string, RoleDBHandler*>& _singleRoleDBHandler;

  const std::string path_;
};

}  // namespace NIMBO::QUAYPOST_SERVER
