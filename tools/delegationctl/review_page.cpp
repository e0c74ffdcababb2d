// A review as one HTML page. Whatever comes from the host or the database goes through Escaped.
#include "review_page.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>

#include "asking.h"
#include "output.h"

namespace delegationctl {

using namespace NIMBO::QUAYPOST_SERVER;
using admin::Access, admin::Review, admin::ReviewedDelegation;

namespace {

constexpr char kHead[] = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'">
<meta name="viewport" content="width=device-width">
<title>)";

constexpr char kStyle[] = R"(</title>
<style>
:root { color-scheme: light; --line: #d5dae1; --soft: #f4f6f9; --text: #1d2430; --mild: #5b6675; }
* { box-sizing: border-box; }
body { margin: 0 auto; padding: 1.5rem; width: fit-content; min-width: min(100%, 60rem); color: var(--text); background: #fff;
  font: 14px/1.45 system-ui, "Segoe UI", Roboto, "DejaVu Sans", sans-serif; }
h1 { margin: 0 0 .75rem; font-size: 1.6rem; }
h2 { margin: 2.25rem 0 .75rem; font-size: 1.15rem; }
dl { display: grid; grid-template-columns: max-content 1fr; gap: .15rem 1rem; margin: 0; }
dt { color: var(--mild); }
dd { margin: 0; overflow-wrap: anywhere; }
p { max-width: 60rem; }
table { border-spacing: 0; }
th, td { padding: .22rem .5rem; text-align: left; vertical-align: top; border-bottom: 1px solid var(--line); }
thead th { position: sticky; top: 0; z-index: 2; background: var(--soft); vertical-align: bottom; border-bottom: 2px solid #9aa5b4; }
.number { text-align: right; font-variant-numeric: tabular-nums; }
.name { font-weight: 600; overflow-wrap: anywhere; min-width: 9rem; max-width: 18rem; }
.wide { overflow-wrap: anywhere; max-width: 30rem; }
.tab { padding: .5rem 0; width: 1.4rem; min-width: 1.4rem; font-weight: 500; border-left: 1px solid var(--line); }
.tab span { display: inline-block; writing-mode: vertical-rl; transform: rotate(180deg); white-space: nowrap; line-height: 1.4rem; }
.matrix td:nth-child(n+5) { padding: .22rem 0; text-align: center; border-left: 1px solid var(--line); font-size: .85em; font-weight: 700; }
.matrix th:nth-child(3), .matrix th:nth-child(4) { min-width: 9rem; }
.matrix tbody tr:nth-child(even) { background: #fafbfc; }
.matrix tbody tr:hover { background: #fff6d8; }
b { display: inline-block; min-width: 1.3rem; border-radius: .2rem; font-size: .85em; text-align: center; }
td b { display: block; min-width: 0; margin: 0 1px; font-size: 1em; }
.d { background: #cfe3ff; color: #0b3d80; }
.g { background: #d3efd8; color: #14532d; }
.a { background: #e6e8ec; color: #4a5361; }
.x { background: #ffd9d2; color: #8a1c0a; }
.gone { color: #8a1c0a; }
.mild { color: var(--mild); }
@media print {
  @page { size: A4 landscape; margin: 9mm; }
  body { padding: 0; width: auto; font-size: 7.5pt; }
  thead { display: table-header-group; }
  thead th { position: static; }
  tr { break-inside: avoid; }
  h2 { break-after: avoid; }
  th, td { padding: .1rem .3rem; }
  .tab { width: .95rem; min-width: .95rem; }
  .tab span { line-height: .95rem; }
  .matrix b { margin: 0; }
  .matrix th:nth-child(3), .matrix th:nth-child(4) { min-width: 7rem; }
  .name { min-width: 7rem; max-width: 11rem; }
  * { print-color-adjust: exact; -webkit-print-color-adjust: exact; }
}
</style>
</head>
<body>
)";

constexpr char kLegend[] = R"(<h2>How to read this</h2>
<p>Every account is under one delegation at most, the one in effect; its tabs of the administration interface are the account's.
A mark says where a tab comes from; the column &ldquo;through&rdquo; has it in full.</p>
<dl>
<dt><b class="d">D</b></dt><dd>the delegation is assigned to the account directly</dd>
<dt><b class="g">G</b></dt><dd>through a group</dd>
<dt><b class="d">DG</b></dt><dd>both</dd>
<dt><b class="a">A</b></dt><dd>the account is in the host&rsquo;s administrators group, which may do everything</dd>
<dt><b class="x">!</b></dt><dd>in effect, though no stored assignment supports it: to be looked into</dd>
</dl>
)";

std::string Escaped(const std::string& text) {
  std::string out;
  for (const char c : Printable(text)) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

template <class Names>
std::string EscapedList(const Names& names) {
  return Escaped(Joined({names.begin(), names.end()}));
}

std::string Field(const char* label, const std::string& text) {
  return fmt::format("<dt>{}</dt><dd>{}</dd>\n", label, Escaped(text));
}

std::string Summary(const Review& review, const ReviewOrigin& origin) {
  const auto count = [&](auto counts) {
    return std::to_string(std::count_if(review.accounts.begin(), review.accounts.end(), counts));
  };
  return "<h1>Who may administer the mail server</h1>\n<dl>\n" + Field("host", origin.host) +
         Field("database", origin.database) + Field("date", origin.Date()) +
         Field("accounts", fmt::format("{} known to the database or administrators", review.accounts.size())) +
         Field("administrators", count([](const Access& access) { return access.administrator; })) +
         Field("with a delegation", count([](const Access& access) { return access.effective && !access.gone; })) +
         Field("delegations", std::to_string(review.delegations.size())) + "</dl>\n";
}

std::string DelegationRow(const ReviewedDelegation& delegation) {
  std::string tabs = EscapedList(delegation.tabs);
  if (!delegation.unknownTabs.empty()) {
    tabs += fmt::format(" <span class=\"gone\">unknown: {}</span>", EscapedList(delegation.unknownTabs));
  }
  return fmt::format(
      "<tr><td class=\"name\">{}<td class=\"number\">{}<td class=\"wide\">{}<td class=\"wide\">{}<td class=\"wide\">{}"
      "<td class=\"number\">{}\n",
      Escaped(delegation.delegation.name), delegation.delegation.priority, tabs, EscapedList(delegation.users),
      EscapedList(delegation.groups), delegation.inEffect);
}

std::string Delegations(const Review& review) {
  std::string out =
      "<h2>Delegations, highest priority first</h2>\n<table>\n<thead><tr><th>delegation<th class=\"number\">priority"
      "<th>tabs<th>assigned to users<th>and to groups<th class=\"number\">in effect for</thead>\n<tbody>\n";
  for (const ReviewedDelegation& delegation : review.delegations) out += DelegationRow(delegation);
  return out + "</tbody>\n</table>\n";
}

// The mark of an account's tabs, which all have the same source.
std::string Mark(const Access& access) {
  if (access.direct) return access.groups.empty() ? "<b class=d>D</b>" : "<b class=d>DG</b>";
  return access.groups.empty() ? "<b class=x>!</b>" : "<b class=g>G</b>";
}

void AddAccount(const Review& review, const Access& access, std::string& out) {
  const std::string delegation =
      access.effective ? fmt::format("{} ({})", access.effective->name, access.effective->priority) : "";
  const std::string through = ThroughText(access);
  out += fmt::format(
      "<tr title=\"{0}: {2}{4}{3}\"><td class=\"number\">{1}<td class=\"name\">{0}{5}<td>{2}<td class=\"wide\">{3}",
      Escaped(access.name), access.uid, Escaped(delegation), Escaped(through), delegation.empty() ? "" : ", through ",
      access.gone ? " <span class=\"gone\">(gone from the host)</span>" : "");
  const auto& tabs = review.TabsOf(access);
  const std::string mark = Mark(access);
  for (const std::string& tab : review.tabs) {
    out += "<td>";
    if (tabs.contains(tab)) {
      out += mark;
    } else if (access.administrator) {
      out += "<b class=a>A</b>";
    }
  }
  out += '\n';
}

std::string Matrix(const Review& review) {
  std::string out =
      "<h2>Accounts and their tabs</h2>\n<table class=\"matrix\">\n<thead><tr><th class=\"number\">uid<th>account"
      "<th>delegation in effect<th>through";
  for (const std::string& tab : review.tabs) out += fmt::format("<th class=\"tab\"><span>{}</span>", Escaped(tab));
  out += "</thead>\n<tbody>\n";
  for (const Access& access : review.accounts) AddAccount(review, access, out);
  return out + "</tbody>\n</table>\n<p class=\"mild\">Accounts that are not listed have no tabs.</p>\n";
}

}  // namespace

std::string ReviewOrigin::Date() const { return fmt::format("{:%Y-%m-%d %H:%M} UTC", fmt::gmtime(time)); }

std::string ReviewPage(const Review& review, const ReviewOrigin& origin) {
  const std::string title =
      fmt::format("Who may administer the mail server: {}, {}", Escaped(origin.host), origin.Date());
  return kHead + title + kStyle + Summary(review, origin) + kLegend + Delegations(review) + Matrix(review) +
         "</body>\n</html>\n";
}

}  // namespace delegationctl
