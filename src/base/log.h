/// One line of the log for each failure, written where the failure is found.
///
///   if (!handler->Update(user)) return Fail("Update fail [%i, %s]", uid, name);
///
/// A message is built in two stages: "FILE:LINE TEMPLATE" here, then maillog(3, ...) fills the template's own
/// placeholders. Nothing here allocates, so that a failure for want of memory is logged too.
#pragma once

#include <cstdio>

#include "base/text.h"
#include "platform/mailserver.h"

namespace NIMBO::QUAYPOST_SERVER {

/// The answer of a lookup that may find nothing.
enum LookupResult : int { kError = -1, kFound = 0, kNothing = 1 };

/// Logs under another place than the literal's own, for helpers that speak for their caller.
template <class... Args>
void LogErrorAt(Place place, CheckedText<std::type_identity_t<Args>...> message, const Args&... args) {
  constexpr int kPriorityError = 3;
  char line[2048];
  std::snprintf(line, sizeof line, "%s:%d %s", ModuleName(place.file), place.line, message.text);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // CheckedText has checked the template against the arguments
#pragma GCC diagnostic ignored "-Wformat-security"
  maillog(kPriorityError, line, text_detail::Argument(args)...);
#pragma GCC diagnostic pop
}

/// Logs and goes on.
template <class... Args>
void LogError(CheckedText<std::type_identity_t<Args>...> message, const Args&... args) {
  LogErrorAt(message.place, message, args...);
}

/// Logs; false.
template <class... Args>
[[nodiscard]] bool Fail(CheckedText<std::type_identity_t<Args>...> message, const Args&... args) {
  LogErrorAt(message.place, message, args...);
  return false;
}

/// Logs; kError.
template <class... Args>
[[nodiscard]] int FailLookup(CheckedText<std::type_identity_t<Args>...> message, const Args&... args) {
  LogErrorAt(message.place, message, args...);
  return kError;
}

}  // namespace NIMBO::QUAYPOST_SERVER
