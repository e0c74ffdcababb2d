// From a document's text to its JSON, with the place of every mistake.
#include <algorithm>
#include <memory>

#include "admin/document.h"
#include "admin/text.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

DocumentError::DocumentError(Cause cause, const std::string& text, const Json::Value& at, std::string name)
    : Error(cause == kAmbiguous || cause == kNameTaken ? kRefused : kInput, text),
      cause_(cause),
      offset_(static_cast<std::size_t>(at.getOffsetStart())),
      name_(std::move(name)) {}

DocumentError::DocumentError(Cause cause, const std::string& text, std::size_t offset)
    : Error(kInput, text), cause_(cause), offset_(offset) {}

DocumentError::~DocumentError() = default;

namespace {

constexpr int kDeepest = 20;

[[noreturn]] void Fail(const std::string& what, std::size_t offset) {
  throw DocumentError(DocumentError::kMalformed, what, offset);
}

// The position behind the string that opens at `position`.
std::size_t SkipString(const std::string& text, std::size_t position) {
  const std::size_t opening = position;
  for (++position; position < text.size() && text[position] != '"'; ++position) {
    if (static_cast<unsigned char>(text[position]) < 0x20) Fail("a control character inside a text", position);
    if (text[position] == '\\') ++position;
  }
  if (position >= text.size()) Fail("a text that does not end", opening);
  return position + 1;
}

// The text with spaces in place of the comments: every value stays where it is.
std::string WithoutComments(std::string text) {
  for (std::size_t i = 0; i < text.size();) {
    if (text[i] == '"') {
      i = SkipString(text, i);
      continue;
    }
    const bool line = text.compare(i, 2, "//") == 0;
    if (!line && text.compare(i, 2, "/*") != 0) {
      ++i;
      continue;
    }
    const std::size_t found = line ? text.find('\n', i) : text.find("*/", i + 2);
    if (!line && found == std::string::npos) Fail("a comment that does not end", i);
    const std::size_t end = line ? std::min(found, text.size()) : found + 2;
    std::replace_if(
        text.begin() + static_cast<std::ptrdiff_t>(i), text.begin() + static_cast<std::ptrdiff_t>(end),
        [](char c) { return c != '\n' && c != '\r'; }, ' ');
    i = end;
  }
  return text;
}

// JsonCpp's "* Line 3, Column 5\n  Missing ...\n", of which the first counts, as an error of ours.
[[noreturn]] void FailAsJsonCppSays(const std::string& text, const std::string& errors) {
  std::size_t line = 0, column = 0;
  if (std::sscanf(errors.c_str(), "* Line %zu, Column %zu", &line, &column) != 2) Fail("this is no JSON", 0);
  std::size_t offset = 0;
  for (; line > 1 && offset < text.size(); ++offset) {
    const bool half = text[offset] == '\r' && text.compare(offset + 1, 1, "\n") == 0;
    if (!half && (text[offset] == '\n' || text[offset] == '\r')) --line;
  }
  const std::size_t begin = errors.find('\n') + 3;
  std::string what = errors.substr(begin, errors.find('\n', begin) - begin);
  if (what.ends_with('.')) what.pop_back();
  if (!what.empty() && what[0] >= 'A' && what[0] <= 'Z') what[0] = static_cast<char>(what[0] - 'A' + 'a');
  Fail(what, offset + column - 1);
}

// JsonCpp takes numbers such as 01 and +1; and no number of a document is fractional.
void RequireWholeNumbers(const Json::Value& value, const std::string& text) {
  if (value.isArray() || value.isObject()) {
    for (const Json::Value& element : value) RequireWholeNumbers(element, text);
  } else if (value.type() == Json::intValue || value.type() == Json::uintValue || value.type() == Json::realValue) {
    const auto start = static_cast<std::size_t>(value.getOffsetStart());
    const std::string number = text.substr(start, static_cast<std::size_t>(value.getOffsetLimit()) - start);
    if (value.type() == Json::realValue || number != value.asString()) {
      Fail("the number " + number + " is not a whole one in plain digits", start);
    }
  }
}

}  // namespace

Json::Value ParseDocument(const std::string& text) {
  const std::size_t invalid = FindInvalidByte(text);
  if (invalid != std::string::npos) Fail("a byte that is not UTF-8", invalid);
  const std::string bare = WithoutComments(text);
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder["allowTrailingCommas"] = true;
  builder["stackLimit"] = kDeepest;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value document;
  std::string errors;
  try {
    if (!reader->parse(bare.data(), bare.data() + bare.size(), &document, &errors)) FailAsJsonCppSays(bare, errors);
  } catch (const Json::Exception&) {
    Fail("nested too deeply", 0);
  }
  RequireWholeNumbers(document, bare);
  return document;
}

std::string LineAndColumn(const std::string& text, std::size_t offset) {
  const std::string before = text.substr(0, offset);
  const std::size_t lineStart = before.rfind('\n') + 1;  // 0 where there is none
  const auto isFirstByte = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; };
  const auto line = 1 + std::count(before.begin(), before.end(), '\n');
  const auto column =
      1 + std::count_if(before.begin() + static_cast<std::ptrdiff_t>(lineStart), before.end(), isFirstByte);
  return std::to_string(line) + ":" + std::to_string(column);
}

}  // namespace NIMBO::QUAYPOST_SERVER::admin
