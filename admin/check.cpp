// A check from beginning to end.
#include "admin/check.h"

#include "admin/error.h"
#include "admin/survey.h"
#include "calculator/delegation_calculator.h"
#include "platform/mailserver.h"
#include "platform/nimbsdk.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

namespace {

void SurveyCluster(const std::string& path, const std::string& configured, Survey& survey, const Progress& progress) {
  if (path != configured) return;  // not the one that the cluster has
  if (progress) progress("the cluster", 0, 0);
  if (!DelegationCalculator().Trigger()) survey.findings.Add(kinds::kCluster);
}

}  // namespace

Report Check(const CheckOptions& options) {
  Survey survey;
  std::string configured;
  if (!GetUserGroupDelegationConfigPath(configured)) {
    survey.findings.Add(kinds::kConfiguration);
    survey.findings.SetIncomplete();
  }
  const std::string path = options.database.empty() ? configured : options.database;
  if (path.empty() || !SurveyFile(path, survey, options.progress)) return survey.findings.ToReport();
  try {
    if (options.progress) options.progress("the host's accounts", 0, 0);
    const NIMBOAccountScope accounts(NIMBOAccountScope::kEnumerate);
    SurveyStored(survey, options.progress);
    SurveyHost(survey, options.progress);
  } catch (const Error& error) {
    survey.findings.Add(kinds::kDatabaseUnreadable, path + ": " + error.what());
    survey.findings.SetIncomplete();
    survey.findings.Block();
  }
  if (options.cluster) SurveyCluster(path, configured, survey, options.progress);
  return survey.findings.ToReport();
}

}  // namespace NIMBO::QUAYPOST_SERVER::admin
