/// Short login names on a domain host.
#pragma once

#include <string>

namespace NIMBO::QUAYPOST_SERVER {

/// Turns a short name into the form in which accounts are looked up: DOMAIN\name on a domain host, unless it is
/// qualified already (DOMAIN\name, name@domain). False for a name that no account can have (empty, or with a NUL) and
/// when the configuration cannot be read.
bool QualifyShortName(std::string& name);

}  // namespace NIMBO::QUAYPOST_SERVER
