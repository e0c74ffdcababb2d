// delegationctl review: everybody's tabs and where they come from, for people, programs and auditors.
#include <fmt/format.h>
#include <unistd.h>

#include <ctime>

#include "admin/access.h"
#include "asking.h"
#include "errors.h"
#include "progress.h"
#include "review_page.h"
#include "verbs.h"

namespace delegationctl {

using namespace NIMBO::QUAYPOST_SERVER;
using admin::Access, admin::Review;

namespace {

std::string TabsText(const Review& review, const Access& access) {
  if (access.gone) return "(gone from the host)";
  if (access.administrator) return "(everything)";
  const auto& tabs = review.TabsOf(access);
  return tabs.empty() ? "-" : Joined({tabs.begin(), tabs.end()});
}

std::string TableText(const Review& review, bool color) {
  if (review.accounts.empty()) return "no accounts\n";
  Table table;
  table.Column("UID", Table::kRight).Column("NAME").Column("DELEGATION").Column("THROUGH").Column("TABS");
  for (const Access& access : review.accounts) {
    const std::string through = ThroughText(access);
    table.Row({std::to_string(access.uid), access.name, access.effective ? access.effective->name : "-",
               through.empty() ? "-" : through, TabsText(review, access)});
  }
  return table.Text(color);
}

// A text as a field of RFC 4180. One that a spreadsheet would take for a formula gets an apostrophe in front.
std::string CsvField(const std::string& text) {
  std::string field = Printable(text);
  if (!field.empty() && std::string("=+-@").find(field[0]) != std::string::npos) field.insert(0, "'");
  if (field.find_first_of("\",;") == std::string::npos) return field;
  std::string quoted = "\"";
  for (const char c : field) quoted += c == '"' ? "\"\"" : std::string(1, c);
  return quoted + '"';
}

std::string CsvLine(const Review& review, const Access& access) {
  const auto flag = [](bool is) { return is ? "yes" : "no"; };
  const std::string through = CsvField(ThroughText(access));
  std::string line = fmt::format("{},{},{},{},{},{},{}", access.uid, CsvField(access.name), flag(access.gone),
                                 flag(access.administrator), access.effective ? CsvField(access.effective->name) : "",
                                 access.effective ? std::to_string(access.effective->priority) : "", through);
  const auto& tabs = review.TabsOf(access);
  for (const std::string& tab : review.tabs) {
    line += ',';
    if (tabs.contains(tab)) {
      line += through;
    } else if (access.administrator) {
      line += "administrators";
    }
  }
  return line + "\r\n";
}

// One line for each account, one column for each tab; a cell holds the tab's source.
std::string CsvText(const Review& review) {
  std::string text = "uid,account,gone,administrator,delegation,priority,through";
  for (const std::string& tab : review.tabs) text += "," + CsvField(tab);
  text += "\r\n";
  for (const Access& access : review.accounts) text += CsvLine(review, access);
  return text;
}

std::string HostName() {
  char name[256] = "";
  return gethostname(name, sizeof name - 1) == 0 ? name : "";
}

Answer RunReview(Session& session, const std::string& format) {
  const bool known = format == "table" || format == "json" || format == "csv" || format == "html";
  if (!known) {
    throw Exit(errors::kBadUsage, fmt::format("--format {} is not known", Quoted(format)),
               "it is table, json, csv or html");
  }
  if (session.Options().json && (format == "csv" || format == "html")) {
    throw Exit(errors::kBadUsage, fmt::format("--json and --format {} exclude each other", format));
  }
  const Review review = Showing("looking at everybody", admin::MakeReview);
  const ReviewOrigin origin{HostName(), session.DatabasePath(), std::time(nullptr)};

  Answer answer;
  for (const Access& access : review.accounts) answer.quiet += Printable(access.name) + "\n";
  if (session.Options().json || format == "json") {
    answer.json = review.ToJson();
    answer.json["host"] = origin.host;
    answer.json["database"] = origin.database;
    answer.json["time"] = static_cast<Json::Int64>(origin.time);
    answer.text = JsonText(answer.json) + "\n";
  } else if (format == "csv") {
    answer.text = CsvText(review);
  } else if (format == "html") {
    answer.text = ReviewPage(review, origin);
  } else {
    answer.text = TableText(review, session.Color());
  }
  return answer;
}

}  // namespace

void AddReview(CommandLine& line) {
  const auto format = std::make_shared<std::string>("table");
  CLI::App* verb = line.Add(
      {"review", "look", "[--format table|json|csv|html]",
       "everybody's tabs and where they come from; html is a page for an auditor", "delegationctl --demo review"},
      [format](Session& session) { return RunReview(session, *format); });
  verb->add_option("--format", *format, "table, json, csv or html")->type_name("FORMAT");
}

}  // namespace delegationctl
