/// SQL texts and the numbers in them.
#pragma once

#include <sqlite3.h>

#include <boost/lexical_cast.hpp>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>

#include "base/text.h"

namespace NIMBO::QUAYPOST_SERVER {

/// A statement from a template, values through %q inside single quotes. A text that does not fit into 2,048 bytes is
/// cut, inside a quoted value or before the closing bracket, so SQLite refuses the statement: nothing is ever stored
/// altered. Want of memory cuts nothing: it throws std::bad_alloc.
template <class... Args>
std::string Sql(CheckedText<std::type_identity_t<Args>...> statement, const Args&... args) {
  // sqlite3_snprintf needs memory for a longer value and does not say that it found none: it only copies here.
  const std::unique_ptr<char, decltype(&sqlite3_free)> whole(
      sqlite3_mprintf(statement.text, text_detail::Argument(args)...), &sqlite3_free);
  if (!whole) throw std::bad_alloc();
  constexpr std::size_t kMost = 2047;
  return {whole.get(), strnlen(whole.get(), kMost)};
}

/// A number as the tables' text form has it, in decimal.
template <std::integral T>
std::string Decimal(T value) {
  return std::to_string(value);
}

/// The number that `text` is, or nothing. As lexical_cast reads it: no blanks, a leading sign also for unsigned
/// ("-1" is 4294967295).
template <std::integral T>
std::optional<T> ParseInt(const std::string& text) {
  T value;
  if (!boost::conversion::try_lexical_convert(text, value)) return std::nullopt;
  return value;
}

}  // namespace NIMBO::QUAYPOST_SERVER
