// The prepared statements of one transaction.
#include "role/statements.h"

#include <cstring>

namespace NIMBO::QUAYPOST_SERVER {

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
  if (!prepared.statement || prepared.taken || !Bind(prepared)) return nullptr;
  prepared.taken = true;
  return &prepared;
}

// Makes text_ the statement with a parameter in place of each value, and values_ what stands in their quotes. False for
// a statement that is cut short or holds what could hide a quote, a parameter or a second statement.
bool Statements::TakeValuesOut(const std::string& sql) {
  text_.clear();
  values_.clear();
  ends_.clear();
  std::size_t begin = 0;  // of the text behind the last value
  for (;;) {
    std::size_t at = begin + std::strcspn(sql.c_str() + begin, "'\"`[?:@$;-/");
    if (at == sql.size() || (sql[at] == ';' && at + 1 == sql.size())) break;
    if (sql[at] != '\'') return false;
    text_.append(sql, begin, at - begin) += '?';
    for (bool ends = false; !ends; at = begin) {  // a quote in the value stands there twice
      const std::size_t quote = sql.find('\'', at + 1);
      if (quote == sql.npos) return false;
      ends = quote + 1 == sql.size() || sql[quote + 1] != '\'';
      values_.append(sql, at + 1, quote - at - (ends ? 1 : 0));
      begin = quote + 1;
    }
    ends_.push_back(values_.size());
  }
  text_.append(sql, begin);
  return true;
}

bool Statements::Bind(PreparedStatement& prepared) {
  prepared.values.swap(values_);
  const char* const values = prepared.values.data();
  std::size_t begin = 0;
  int parameter = 0;
  for (const std::size_t end : ends_) {
    const auto size = static_cast<int>(end - begin);
    if (sqlite3_bind_text(prepared.statement, ++parameter, values + begin, size, SQLITE_STATIC) != SQLITE_OK)
      return false;
    begin = end;
  }
  return true;
}

}  // namespace NIMBO::QUAYPOST_SERVER
