/// What stops a function of this library: it throws Error, and nothing has been changed unless it says so.
#pragma once

#include <stdexcept>
#include <string>

#include "base/export.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

class MAILSERVER_EXPORT Error : public std::runtime_error {
 public:
  enum Kind {
    kDatabase,  ///< the database, or the file beside it, cannot be read or written
    kAccounts,  ///< the host's accounts could not be looked up
    kInput,     ///< what the caller gave is wrong
    kRefused,   ///< a rule forbids it
    kSystem,    ///< no memory, no process, no room for a copy
  };

  Error(Kind kind, const std::string& text) : std::runtime_error(text), kind_(kind) {}
  ~Error() override;

  Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

}  // namespace NIMBO::QUAYPOST_SERVER::admin
