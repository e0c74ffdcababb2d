// JSON as its grammar says.
#include "strict_json.h"

#include <algorithm>
#include <cctype>
#include <memory>
#include <string_view>

#include "admin/text.h"

namespace delegationctl {

namespace {

constexpr char kNumberCharacters[] = "+-.0123456789Ee";

std::size_t SkipDigits(std::string_view text, std::size_t position) {
  while (position < text.size() && std::isdigit(static_cast<unsigned char>(text[position]))) ++position;
  return position;
}

// -? (0 | [1-9][0-9]*) ([.][0-9]+)? ([eE][+-]?[0-9]+)?
bool IsNumber(std::string_view text) {
  const auto at = [&](std::size_t position) { return position < text.size() ? text[position] : '\0'; };
  std::size_t position = at(0) == '-' ? 1 : 0;
  const std::size_t integer = position;
  position = SkipDigits(text, position);
  if (position == integer || (at(integer) == '0' && position > integer + 1)) return false;
  if (at(position) == '.') {
    const std::size_t fraction = ++position;
    position = SkipDigits(text, position);
    if (position == fraction) return false;
  }
  if (at(position) == 'e' || at(position) == 'E') {
    ++position;
    if (at(position) == '+' || at(position) == '-') ++position;
    const std::size_t exponent = position;
    position = SkipDigits(text, position);
    if (position == exponent) return false;
  }
  return position == text.size();
}

// The code unit of the escape \uXXXX at `position`, 0 when there is none.
unsigned CodeUnit(std::string_view text, std::size_t position) {
  if (text.substr(position, 2) != "\\u") return 0;
  unsigned unit = 0;
  for (const char digit : text.substr(position + 2, 4)) {
    if (!std::isxdigit(static_cast<unsigned char>(digit))) return 0;
    const unsigned value = std::isdigit(static_cast<unsigned char>(digit))
                               ? static_cast<unsigned>(digit - '0')
                               : static_cast<unsigned>((digit | 0x20) - 'a' + 10);
    unit = unit * 16 + value;
  }
  return unit;
}

// The position behind the string that opens at `position`; npos when it holds what no JSON string may hold.
std::size_t SkipString(std::string_view text, std::size_t position) {
  for (++position; position < text.size() && text[position] != '"'; ++position) {
    if (static_cast<unsigned char>(text[position]) < 0x20) return std::string_view::npos;
    if (text[position] != '\\') continue;
    const unsigned unit = CodeUnit(text, position);
    if (unit >= 0xDC00 && unit <= 0xDFFF) return std::string_view::npos;
    if (unit >= 0xD800 && unit <= 0xDBFF) {
      position += 6;
      const unsigned low = position < text.size() ? CodeUnit(text, position) : 0;
      if (low < 0xDC00 || low > 0xDFFF) return std::string_view::npos;
    }
    ++position;  // the escaped character, which may be a quote
  }
  return position + 1;
}

// Whether the tokens are JSON's own; how they may follow each other is JsonCpp's to say.
bool HasStrictTokens(std::string_view text) {
  for (std::size_t position = 0; position < text.size();) {
    const char c = text[position];
    if (c == '"') {
      position = SkipString(text, position);
      if (position == std::string_view::npos) return false;
    } else if (c == '/' || static_cast<unsigned char>(c) >= 0x80) {
      return false;
    } else if (c == '+' || c == '-' || c == '.' || std::isdigit(static_cast<unsigned char>(c))) {
      const std::size_t end = std::min(text.find_first_not_of(kNumberCharacters, position), text.size());
      if (!IsNumber(text.substr(position, end - position))) return false;
      position = end;
    } else {
      ++position;
    }
  }
  return true;
}

}  // namespace

std::optional<Json::Value> ParseStrictJson(const std::string& text, int deepest) {
  if (NIMBO::QUAYPOST_SERVER::admin::FindInvalidByte(text) != std::string::npos || !HasStrictTokens(text))
    return std::nullopt;
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder["strictRoot"] = false;  // a lone number is JSON as well
  builder["stackLimit"] = deepest;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value value;
  std::string errors;
  try {
    if (!reader->parse(text.data(), text.data() + text.size(), &value, &errors)) return std::nullopt;
  } catch (const Json::Exception&) {  // too deep
    return std::nullopt;
  }
  return value;
}

}  // namespace delegationctl
