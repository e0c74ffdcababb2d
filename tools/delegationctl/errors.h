// What can stop a command: one entry for each error code, with its exit status. delegationctl(1) lists the same codes.
#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace NIMBO::QUAYPOST_SERVER::admin {
class Error;
}

namespace delegationctl {

// Exit statuses. 1 is only ever an answer, never an error.
enum Status : int { kDone = 0, kNo = 1, kUsage = 2, kFailed = 3, kUnknown = 4, kRefused = 5 };

struct ErrorCode {
  std::string_view code;  // the "code" of a JSON error
  Status status;
};

namespace errors {
inline constexpr ErrorCode kBadUsage{"usage", kUsage};
inline constexpr ErrorCode kDatabase{"database", kFailed};
inline constexpr ErrorCode kAccounts{"accounts", kFailed};
inline constexpr ErrorCode kLibrary{"failed", kFailed};
inline constexpr ErrorCode kAccessCheck{"access_check", kFailed};
inline constexpr ErrorCode kRefresh{"refresh", kFailed};
inline constexpr ErrorCode kOutage{"outage", kFailed};
inline constexpr ErrorCode kNotAnnounced{"not_announced", kFailed};
inline constexpr ErrorCode kCopy{"copy", kFailed};
inline constexpr ErrorCode kLocked{"locked", kFailed};
inline constexpr ErrorCode kDemo{"demo", kFailed};
inline constexpr ErrorCode kOutput{"output", kFailed};
inline constexpr ErrorCode kIncomplete{"incomplete", kFailed};
inline constexpr ErrorCode kSystem{"system", kFailed};
inline constexpr ErrorCode kInternal{"internal", kFailed};
inline constexpr ErrorCode kNoDatabase{"no_database", kUnknown};
inline constexpr ErrorCode kNoDelegation{"no_delegation", kUnknown};
inline constexpr ErrorCode kNoUser{"no_user", kUnknown};
inline constexpr ErrorCode kNoGroup{"no_group", kUnknown};
inline constexpr ErrorCode kNoTab{"no_tab", kUnknown};
inline constexpr ErrorCode kNoMethod{"no_method", kUnknown};
inline constexpr ErrorCode kNoRecord{"no_record", kUnknown};
inline constexpr ErrorCode kNotAssigned{"not_assigned", kUnknown};
inline constexpr ErrorCode kAmbiguous{"ambiguous", kRefused};
inline constexpr ErrorCode kNameTaken{"name_taken", kRefused};
inline constexpr ErrorCode kUnconfirmed{"unconfirmed", kRefused};
inline constexpr ErrorCode kNotADemo{"not_a_demo", kRefused};
inline constexpr ErrorCode kGuard{"guard", kRefused};
inline constexpr ErrorCode kChangedSince{"changed_since", kRefused};
inline constexpr ErrorCode kRefusedByRule{"refused", kRefused};
}  // namespace errors

// Thrown to stop the command: what is wrong (small first letter, names in quotes) and, in `hint`, the remedy. A failure
// without one shows what the library has logged.
struct Exit : std::exception {
  Exit(const ErrorCode& error, std::string message, std::string hint = "")
      : code(error.code), status(error.status), text(std::move(message)), remedy(std::move(hint)) {}
  const char* what() const noexcept override { return text.c_str(); }

  std::string code;
  Status status;
  std::string text;
  std::string remedy;
};

// What stopped a function of the admin library, as what stops a command.
Exit FromAdmin(const NIMBO::QUAYPOST_SERVER::admin::Error& error);

}  // namespace delegationctl
