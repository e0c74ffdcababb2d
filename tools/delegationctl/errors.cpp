// What can stop a command.
#include "errors.h"

#include "admin/error.h"
#include "output.h"

namespace delegationctl {

using NIMBO::QUAYPOST_SERVER::admin::Error;

Exit FromAdmin(const Error& error) {
  switch (error.kind()) {
    case Error::kDatabase:
      return {errors::kDatabase, Printable(error.what())};
    case Error::kAccounts:
      return {errors::kAccounts, Printable(error.what())};
    case Error::kInput:
      return {errors::kBadUsage, Printable(error.what())};
    case Error::kRefused:
      return {errors::kRefusedByRule, Printable(error.what())};
    default:
      return {errors::kSystem, Printable(error.what())};
  }
}

}  // namespace delegationctl
