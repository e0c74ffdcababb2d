// A review as one HTML page for an auditor: self-contained, without scripts, to be read on a screen or printed.
#pragma once

#include <ctime>
#include <string>

#include "admin/access.h"

namespace delegationctl {

// What a review is of.
struct ReviewOrigin {
  std::string host;
  std::string database;
  std::time_t time;

  std::string Date() const;  // "2026-11-21 19:03 UTC"
};

std::string ReviewPage(const NIMBO::QUAYPOST_SERVER::admin::Review& review, const ReviewOrigin& origin);

}  // namespace delegationctl
