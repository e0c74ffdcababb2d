/// The parts of a check, and what they hand to each other and to a repair. Private.
#pragma once

#include <sqlite3.h>

#include <vector>

#include "admin/findings.h"
#include "admin/state.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

struct Survey {
  Findings findings;
  State state;
  std::vector<unsigned int> reusedUids;  ///< the ids now belong to somebody else, and the stored name to another id
  std::vector<unsigned int> reusedGids;
};

/// Looks at the file without the library, which would give it a schema. Whether the library can work on it.
bool SurveyFile(const std::string& path, Survey& survey, const Progress& progress);

/// Reads everything stored in one snapshot of the library's database, and finds what does not agree. Throws Error.
void SurveyStored(Survey& survey, const Progress& progress);

/// Compares the state with the host. Asks nothing twice, inside a NIMBOAccountScope.
void SurveyHost(Survey& survey, const Progress& progress);

/// `"Helpdesk" (id 2)`
std::string Described(const Delegation& delegation);

/// "ann, bob"
std::string Joined(const std::vector<std::string>& names);

/// A column that leads to another table: a row without a counterpart there is an orphan.
struct Link {
  const char* table;
  const char* column;
  const char* parent;
  const char* other;  ///< the table's other column
};
extern const Link kLinks[10];

}  // namespace NIMBO::QUAYPOST_SERVER::admin
