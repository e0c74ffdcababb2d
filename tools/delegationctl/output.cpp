// What a command says: tables and names for people, one JSON object for programs.
#include "output.h"

#include <fmt/format.h>

#include <algorithm>

#include "admin/text.h"

namespace delegationctl {

namespace admin = NIMBO::QUAYPOST_SERVER::admin;

namespace {

// U+0080 to U+009F, which some terminals obey as well.
bool IsC1Control(const std::string& text, std::size_t position) {
  return text[position] == '\xC2' && static_cast<unsigned char>(text[position + 1]) < 0xA0;
}

// U+200E, U+200F, U+2028 to U+202E and U+2066 to U+2069: they end a line, or turn the order of what stands behind them.
bool IsDirection(const std::string& text, std::size_t position) {
  const auto last = static_cast<unsigned char>(text[position + 2]);
  if (text.compare(position, 2, "\xE2\x80") == 0)
    return (last >= 0x8E && last <= 0x8F) || (last >= 0xA8 && last <= 0xAE);
  return text.compare(position, 2, "\xE2\x81") == 0 && last >= 0xA6 && last <= 0xA9;
}

// The columns that `text` takes on a terminal. fmt fills up by columns, so what it adds tells.
std::size_t DisplayWidth(const std::string& text) {
  return 2 * text.size() - fmt::formatted_size("{:<{}}", text, text.size());
}

}  // namespace

std::string Printable(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t length = admin::SequenceLength(text, i);
    const auto byte = static_cast<unsigned char>(text[i]);
    if (length == 0 || byte < 0x20 || byte == 0x7F || (length == 2 && IsC1Control(text, i)) ||
        (length == 3 && IsDirection(text, i))) {
      out += fmt::format("\\x{:02x}", byte);
      ++i;
    } else {
      out.append(text, i, length);
      i += length;
    }
  }
  return out;
}

std::string Quoted(const std::string& text) { return '"' + Printable(text) + '"'; }

std::string Count(std::size_t number, const std::string& noun) {
  return fmt::format("{} {}{}", number, noun, number == 1 ? "" : "s");
}

std::string Joined(const std::vector<std::string>& names, const char* separator) {
  std::string out;
  for (const std::string& name : names) out += (out.empty() ? "" : separator) + Printable(name);
  return out;
}

Json::Value JsonArray(const std::vector<std::string>& texts) {
  Json::Value array(Json::arrayValue);
  for (const std::string& text : texts) array.append(text);
  return array;
}

std::string JsonText(const Json::Value& value) {
  static const Json::StreamWriterBuilder kOneLine = [] {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return builder;
  }();
  return Json::writeString(kOneLine, value);
}

Table& Table::Column(std::string title, Alignment alignment) {
  titles_.push_back(std::move(title));
  alignments_.push_back(alignment);
  return *this;
}

void Table::Row(std::vector<std::string> cells) {
  for (std::string& cell : cells) cell = Printable(cell);
  rows_.push_back(std::move(cells));
}

std::string Table::Text(bool color) const {
  std::vector<std::size_t> widths;
  for (std::size_t column = 0; column < titles_.size(); ++column) {
    std::size_t width = DisplayWidth(titles_[column]);
    for (const auto& row : rows_) width = std::max(width, DisplayWidth(row[column]));
    widths.push_back(width);
  }
  const auto line = [&](const std::vector<std::string>& cells) {
    std::string out;
    for (std::size_t column = 0; column < cells.size(); ++column) {
      const char* format = alignments_[column] == kRight ? "{:>{}}" : "{:<{}}";
      out += (column == 0 ? "" : "  ") + fmt::format(fmt::runtime(format), cells[column], widths[column]);
    }
    return out.erase(out.find_last_not_of(' ') + 1);
  };
  std::string out = color ? "\033[1m" + line(titles_) + "\033[0m\n" : line(titles_) + "\n";
  for (const auto& row : rows_) out += line(row) + "\n";
  return out;
}

}  // namespace delegationctl
