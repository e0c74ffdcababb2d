/// The settings of mailserver.conf, for the platform's own use. What the rest of the library may know of them is
/// declared in platform/mailserver.h.
///
/// Not for several threads at once.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/export.h"
#include "platform/nimbsdk.h"

namespace NIMBO::QUAYPOST_SERVER {

struct Configuration {
  std::string database = "/var/lib/mailserver/delegation.db";
  NIMBOAccountType account_type = NIMBO_ACCOUNT_LOCAL;
  std::string domain;
  std::string admin_group = "administrators";
  std::vector<std::string> unsupported;
  int vanish_limit = 50;
  std::string log_target = "syslog";
};

/// The configuration as it is now; null, with a log line, when it cannot be read. Exported for libnimbsdk.
MAILSERVER_EXPORT std::shared_ptr<const Configuration> CurrentConfiguration();

/// While one exists, the file is looked at once: all that is asked meanwhile sees the same configuration.
class MAILSERVER_EXPORT ConfigurationHold {
 public:
  ConfigurationHold();
  ~ConfigurationHold();
  ConfigurationHold(const ConfigurationHold&) = delete;
  ConfigurationHold& operator=(const ConfigurationHold&) = delete;
};

/// Where log lines go: "syslog", "stderr" or a file. "syslog" while the configuration cannot be read. Never logs.
std::string CurrentLogTarget() noexcept;

}  // namespace NIMBO::QUAYPOST_SERVER
