// The prepared statements of one transaction.
#include "role/statements.h"

namespace NIMBO::QUAYPOST_SERVER {

namespace {

// The end of the quoted value that begins at `begin`, behind its closing quote; npos when it does not end.
std::size_t EndOfValue(std::string_view sql, std::size_t begin) {
  for (std::size_t quote = sql.find('\'', begin + 1); quote != sql.npos; quote = sql.find('\'', quote + 2)) {
    if (quote + 1 == sql.size() || sql[quote + 1] != '\'') return quote + 1;
  }
  return sql.npos;
}

bool IsSpecial(char character) {
  switch (character) {
    case '\'':
    case '"':
    case '`':
    case '[':
    case '?':
    case ':':
    case '@':
    case '$':
    case ';':
    case '-':
    case '/':
      return true;
    default:
      return false;
  }
}

}  // namespace

void Statements::End() {
  for (const auto& [text, prepared] : kept_) sqlite3_finalize(prepared.statement);
  kept_.clear();
  keeps_ = false;
}

PreparedStatement* Statements::Take(const std::string& sql) {
  constexpr std::size_t kMost = 64;
  if (!keeps_ || !TakeValuesOut(sql)) return nullptr;
  if (kept_.size() == kMost && !kept_.contains(text_)) return nullptr;
  const auto [found, isNew] = kept_.try_emplace(text_);
  PreparedStatement& prepared = found->second;
  if (isNew) sqlite3_prepare_v2(db_, text_.c_str(), -1, &prepared.statement, nullptr);
  if (!prepared.statement || prepared.taken || !Bind(prepared.statement, sql)) return nullptr;
  prepared.taken = true;
  return &prepared;
}

// Makes text_ the statement with a parameter in place of each value. False for one that is cut short or holds what
// could hide a quote, a parameter or a second statement.
bool Statements::TakeValuesOut(std::string_view sql) {
  text_.clear();
  std::size_t begin = 0;  // of the text behind the last value
  for (std::size_t at = 0; at < sql.size(); ++at) {
    if (!IsSpecial(sql[at])) continue;
    if (sql[at] == ';' && at + 1 == sql.size()) break;
    if (sql[at] != '\'') return false;
    text_.append(sql, begin, at - begin) += '?';
    begin = EndOfValue(sql, at);
    if (begin == sql.npos) return false;
    at = begin - 1;
  }
  text_.append(sql, begin);
  return true;
}

bool Statements::Bind(sqlite3_stmt* statement, std::string_view sql) {
  std::string unquoted;
  int parameter = 0;
  for (std::size_t begin = sql.find('\''); begin != sql.npos;) {
    const std::size_t end = EndOfValue(sql, begin);
    std::string_view value = sql.substr(begin + 1, end - begin - 2);
    if (value.find('\'') != value.npos) {
      unquoted.clear();
      for (std::size_t i = 0; i < value.size(); i += value[i] == '\'' ? 2 : 1) unquoted += value[i];
      value = unquoted;
    }
    const int size = static_cast<int>(value.size());
    if (sqlite3_bind_text(statement, ++parameter, value.data(), size, SQLITE_TRANSIENT) != SQLITE_OK) return false;
    begin = sql.find('\'', end);
  }
  return true;
}

}  // namespace NIMBO::QUAYPOST_SERVER
