/// The mail server's core as this library needs it: the log, the configuration and the cluster node.
///
/// Declarations only. platform/linux implements them for one Debian host; unit tests link a fake in its place. Another
/// platform (a cluster back end, say) replaces platform/linux and nothing else.
///
/// The configuration is one INI file, /etc/mailserver/mailserver.conf, or the file that MAILSERVER_CONF names in a
/// process that is not set-uid. It is read on first use and again when its modification time changes. While it
/// cannot be read, every answer that depends on it is a failure.
#pragma once

#include <string>

#include "base/export.h"

/// Writes one message to the log. `priority` is a syslog(3) priority; the library always passes 3 (error).
/// `format` and its arguments are printf's. The message is cut at 2,047 bytes; one trailing newline is dropped, every
/// other control byte is written as `\xNN`. A message of the form "FILE:LINE TEXT" keeps FILE:LINE as its source.
extern "C" MAILSERVER_EXPORT void maillog(int priority, const char* format, ...) __attribute__((format(printf, 2, 3)));

namespace NIMBO::QUAYPOST_SERVER {

/// The full path of the delegation database file (`[delegation] database=`). False, with a log line, when the
/// configuration cannot be read.
MAILSERVER_EXPORT bool GetUserGroupDelegationConfigPath(std::string& path);

/// Where host accounts come from (`[accounts] type=`): 1 local accounts, 2 a Windows domain, 3 an LDAP directory.
/// False when the configuration cannot be read.
MAILSERVER_EXPORT bool MailserverAccountType(int& type);

/// The short name of the joined Windows domain (`[accounts] domain=`); "" on a host without one. False when the
/// configuration cannot be read.
MAILSERVER_EXPORT bool MailserverDomainShortName(std::string& name);

/// The vanish limit in percent (`[accounts] vanish_limit=`, default 50, 100 switches it off): a refresh that would
/// remove more than this share of the stored users (or groups) takes that for an outage of the account source and
/// refuses. False when the configuration cannot be read.
MAILSERVER_EXPORT bool MailserverVanishLimit(int& percent);

/// Overrides the configured vanish limit in this process, for an operator who has seen that the accounts are really
/// gone. A negative value returns to the configured one.
MAILSERVER_EXPORT void MailserverSetVanishLimit(int percent);

/// Makes `path` the configuration file of this process, in place of the default one and of MAILSERVER_CONF.
MAILSERVER_EXPORT void MailserverSetConfigFile(const std::string& path);

/// Receives every finished log line of this process ("FILE:LINE TEXT", no newline) in place of the configured
/// target; null returns to the target. For a tool that shows its user why a call failed.
using MaillogSink = void (*)(void* context, const char* line);
MAILSERVER_EXPORT void MaillogSetSink(MaillogSink sink, void* context);

/// What a cluster node offers to everything that is distributed over the mail cluster.
class MAILSERVER_EXPORT QuaypostServerBACKENDWrap {
 public:
  /// Announces that the file `path`, known to the cluster as `name`, has changed. `extra` is a null-terminated list of
  /// further arguments, or null. True when the announcement was accepted.
  ///
  /// Never opens `path` in this process: closing a file that SQLite has open drops SQLite's locks on it.
  bool setFile(const std::string& name, const std::string& path, const char** extra);
};

/// This host's node in the mail cluster.
class MAILSERVER_EXPORT NIMBOMailNodeCluster : public QuaypostServerBACKENDWrap {
 public:
  NIMBOMailNodeCluster();
  ~NIMBOMailNodeCluster();
  NIMBOMailNodeCluster(const NIMBOMailNodeCluster&) = delete;
  NIMBOMailNodeCluster& operator=(const NIMBOMailNodeCluster&) = delete;
};

}  // namespace NIMBO::QUAYPOST_SERVER
