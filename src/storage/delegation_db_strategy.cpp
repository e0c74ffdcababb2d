// Opens, caches and keeps current the handle of the database file in use.
#include "storage/delegation_db_strategy.h"

#include <new>

#include "base/log.h"
#include "platform/mailserver.h"
#include "storage/delegation_db_handler.h"

namespace NIMBO::QUAYPOST_SERVER {

namespace {

using Registry = std::map<std::string, RoleDBHandler*>;

// The registered handle under `key`, on a current connection; null if there is none. `registered` tells whether there
// is a handle at all: one without a connection stays, because callers may hold its pointer.
RoleDBHandler* Registered(Registry& registry, const std::string& key, bool& registered) {
  const auto found = registry.find(key);
  registered = found != registry.end() && found->second;
  if (!registered || found->second->EnsureCurrent()) return registered ? found->second : nullptr;
  LogError("delegation db error");
  return nullptr;
}

RoleDBHandler* OpenInto(Registry& registry, const std::string& key, const std::string& path) {
  constexpr int kBusyTimeoutMilliseconds = 60000;
  RoleDBHandler*& handle = registry[key];
  handle = new (std::nothrow) DelegationDBHandler(path);
  if (!handle) {
    LogError("Cannot NEW DelegationDBHandler");
    return nullptr;
  }
  if (handle->Connect() != 0) {
    LogError("delegation db error");
    delete handle;
    handle = nullptr;
    return nullptr;
  }
  handle->SetBusyTimeout(kBusyTimeoutMilliseconds);
  return handle;
}

}  // namespace

std::shared_ptr<DelegationDBStrategy>& DelegationDBStrategy::_strategy = *new std::shared_ptr<DelegationDBStrategy>;

Registry& DelegationCustomPathDBStrategy::_singleRoleDBHandler = *new Registry;

DelegationDBStrategy::DelegationDBStrategy() = default;

DelegationDBStrategy::~DelegationDBStrategy() = default;

RoleDBHandler* DelegationDBStrategy::GetDelegationDBHandler() {
  const std::string key = "delegation_interface";
  bool registered = false;
  RoleDBHandler* handle = Registered(RoleDBHandler::_singleRoleDBHandler, key, registered);
  if (registered) return handle;
  std::string path;
  if (!GetUserGroupDelegationConfigPath(path)) {
    LogError("GetUserGroupDelegationConfigPath fail");
    return nullptr;
  }
  return OpenInto(RoleDBHandler::_singleRoleDBHandler, key, path);
}

void DelegationDBStrategy::SetDelegationDBStrategy(std::shared_ptr<DelegationDBStrategy> strategy) {
  _strategy = std::move(strategy);
}

std::shared_ptr<DelegationDBStrategy> DelegationDBStrategy::GetDelegationDBStrategy() {
  if (!_strategy) _strategy = std::make_shared<DelegationDBStrategy>();
  return _strategy;
}

DelegationCustomPathDBStrategy::DelegationCustomPathDBStrategy(std::string path) : path_(std::move(path)) {}

DelegationCustomPathDBStrategy::~DelegationCustomPathDBStrategy() = default;

RoleDBHandler* DelegationCustomPathDBStrategy::GetDelegationDBHandler() {
  bool registered = false;
  RoleDBHandler* handle = Registered(_singleRoleDBHandler, path_, registered);
  return registered ? handle : OpenInto(_singleRoleDBHandler, path_, path_);
}

}  // namespace NIMBO::QUAYPOST_SERVER
