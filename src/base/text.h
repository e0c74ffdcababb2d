/// Message and SQL templates, checked while compiling.
///
///   LogError("user [%i, %s] cannot delete", uid, name);
///
/// CheckedText is what such a function takes: a literal whose placeholders fit the arguments in number and kind, and
/// the place it stands at. A wrong placeholder does not compile. Understood are %i and %d (32 bits, signed or not), %u
/// (unsigned, 32 bits), %lu (unsigned, 64 bits), %s and %q (std::string or const char*), and %%.
#pragma once

#include <concepts>
#include <cstring>
#include <string>
#include <type_traits>

namespace NIMBO::QUAYPOST_SERVER {

/// A place in the source, as the log names it. Helpers take one from their caller, so that the log shows the line of
/// the operation and not of the helper. (clang 14 has no usable std::source_location.)
struct Place {
  const char* file;
  int line;
  static constexpr Place Here(const char* file = __builtin_FILE(), int line = __builtin_LINE()) { return {file, line}; }
};

/// The last component of a source path: the name under which a module appears in the log.
inline const char* ModuleName(const char* file) {
  const char* slash = std::strrchr(file, '/');
  return slash ? slash + 1 : file;
}

namespace text_detail {

template <class T>
constexpr bool Fits(char kind) {
  if (kind == 's') return std::is_convertible_v<const T&, const char*> || std::is_same_v<T, std::string>;
  if (kind == 'i' || kind == 'd') return std::is_integral_v<T> && sizeof(T) <= 4;
  if (kind == 'u') return std::is_unsigned_v<T> && sizeof(T) <= 4;
  return kind == 'l' && std::is_unsigned_v<T> && sizeof(T) == sizeof(unsigned long);
}

/// The kind of the next placeholder in `text` ('s' also for %q, 'l' for %lu), or 0 at the end; `text` moves behind it.
consteval char NextPlaceholder(const char*& text) {
  while (*text) {
    if (*text++ != '%') continue;
    const char kind = *text++;
    if (kind == '%') continue;
    if (kind == 'q') return 's';
    if (kind == 'l') {
      if (*text++ != 'u') throw "only %lu is understood";
      return 'l';
    }
    if (kind != 's' && kind != 'i' && kind != 'd' && kind != 'u') throw "unknown placeholder";
    return kind;
  }
  return 0;
}

inline const char* Argument(const std::string& value) { return value.c_str(); }
inline const char* Argument(const char* value) { return value; }
template <std::integral T>
auto Argument(T value) {
  return value;
}

}  // namespace text_detail

template <class... Args>
struct CheckedText {
  const char* text;
  Place place;

  // NOLINTNEXTLINE(google-explicit-constructor): a literal is written where a CheckedText is taken
  consteval CheckedText(const char* literal, const char* file = __builtin_FILE(), int line = __builtin_LINE())
      : text(literal), place{file, line} {
    const char* rest = literal;
    (Check<Args>(rest), ...);
    if (text_detail::NextPlaceholder(rest) != 0) throw "more placeholders than arguments";
  }

 private:
  template <class T>
  static consteval void Check(const char*& rest) {
    if (!text_detail::Fits<T>(text_detail::NextPlaceholder(rest))) throw "placeholder and argument do not fit";
  }
};

}  // namespace NIMBO::QUAYPOST_SERVER
