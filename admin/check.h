/// Is everything in order? First what the library stands on (the database file, the host's accounts, the cluster), then
/// whether what is stored agrees with itself, with the host and with what administrators meant.
///
///   const Report report = Check();
///   for (const Finding& finding : report.findings) Show(finding);
///   if (report.Repairable()) Repair(result);
///
/// A check changes nothing: a file that the library would give a schema to is only looked at. What could not be looked
/// at is a finding too and makes the report incomplete; it never counts as "not there".
#pragma once

#include <json/json.h>

#include <functional>
#include <string>
#include <vector>

#include "base/export.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

/// How bad a finding is.
enum class Severity {
  kError,    ///< somebody has more or less than is due, or the library cannot work
  kWarning,  ///< becomes an error if it is left so
  kNote,     ///< works as it should, and may not be what was meant
};

struct Finding {
  std::string code;  ///< stable; delegationctl(1) lists them all
  Severity severity;
  std::string meaning;
  std::string remedy;
  bool repairable;                    ///< by Repair
  std::vector<std::string> subjects;  ///< whom or what it is about, for people; never shortened
};

struct MAILSERVER_EXPORT Report {
  std::vector<Finding> findings;  ///< each code once; errors, then warnings, then notes
  bool complete = true;           ///< false: a failure kept it from looking at everything

  /// Complete, and nothing but notes.
  bool Healthy() const;
  /// Whether Repair would have something to do.
  bool Repairable() const;

  /// {"healthy", "complete", "findings": [{"code", "severity": "error", "warning" or "note", "meaning", "remedy",
  /// "repairable", "subjects": [text]}]}
  Json::Value ToJson() const;
};

/// Called as the work goes on, with what is done now and how far; `total` is 0 when that is not known.
using Progress = std::function<void(const std::string& what, std::size_t done, std::size_t total)>;

struct CheckOptions {
  std::string database;  ///< the file that the library's current strategy works on; "": the configured one
  bool cluster = true;   ///< announce the configured database as it stands: there is no other way to ask the cluster
  Progress progress;
};

/// Looks at everything, asking the host once. Throws nothing but std::bad_alloc.
MAILSERVER_EXPORT Report Check(const CheckOptions& options = {});

/// Repairs what can be repaired without doubt in the library's current database, in one transaction: removes links
/// without parents, what nobody was given and records of ids that now belong to somebody else; refreshes from the host,
/// unless that looks like an outage; recomputes everybody. Of two entries of one type the one that allows less stays.
/// Nobody gets what no assignment supports.
///
/// `result` gets "announced": false when the cluster could not be told. False never; throws Error::kRefused when
/// something must be mended by hand first, and Error::kDatabase or kAccounts when it failed; nothing has been changed
/// then. As a Change it can be tried out.
MAILSERVER_EXPORT bool Repair(Json::Value& result);

}  // namespace NIMBO::QUAYPOST_SERVER::admin
