// What a command says: tables and names for people, one JSON object for programs.
#pragma once

#include <json/json.h>

#include <string>
#include <vector>

namespace delegationctl {

// A verb's whole answer, in its three forms; main prints the one that was asked for.
struct Answer {
  Json::Value json = Json::objectValue;
  std::string text;   // for people; lines end with a newline
  std::string quiet;  // for -q: names, one per line, or nothing
  int status = 0;
};

// Stored text made safe for a terminal: control bytes become \xNN, so does what is not UTF-8.
std::string Printable(const std::string& text);

// Printable, in quotes.
std::string Quoted(const std::string& text);

// "1 user", "2 users".
std::string Count(std::size_t number, const std::string& noun);

// "ann, bob"; printable.
std::string Joined(const std::vector<std::string>& names, const char* separator = ", ");

Json::Value JsonArray(const std::vector<std::string>& texts);

// One line without a newline, 7-bit.
std::string JsonText(const Json::Value& value);

// Columns as wide as their widest cell; no cell is ever cut.
class Table {
 public:
  enum Alignment { kLeft, kRight };

  Table& Column(std::string title, Alignment alignment = kLeft);
  void Row(std::vector<std::string> cells);
  // The table under its headings, bold ones with `color`.
  std::string Text(bool color) const;

 private:
  std::vector<std::string> titles_;
  std::vector<Alignment> alignments_;
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace delegationctl
