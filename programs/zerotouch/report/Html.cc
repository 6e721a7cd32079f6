#include "programs/zerotouch/report/Html.h"

#include "platform/kel/Format.h"

namespace ZeroTouchCommand::Html {

namespace {

constexpr char const* style = R"css(
:root {
  color-scheme: light dark;
  --page: #f4f6f8; --card: #ffffff; --text: #1b2430; --muted: #5a6675; --line: #dde2e8; --grid: #e9edf1;
  --calm: #8a97a8; --work: #2f6fde; --wait: #c98200; --done: #1c8a4e; --held: #0c8d90; --bad: #c9342b;
}
@media (prefers-color-scheme: dark) {
  :root {
    --page: #10141a; --card: #181e26; --text: #e7ebf1; --muted: #9ba7b6; --line: #2d3643; --grid: #232b36;
    --calm: #77859a; --work: #6ea2ff; --wait: #f0b24f; --done: #4fc68c; --held: #4ccfc6; --bad: #ff8178;
  }
}
* { box-sizing: border-box; }
body { margin: 0; background: var(--page); color: var(--text); font: 15px/1.5 system-ui, sans-serif; }
main { max-width: 1120px; margin: 0 auto; padding: 28px 20px 48px; }
h1 { font-size: 26px; line-height: 1.2; margin: 0; }
h2 { font-size: 17px; margin: 0 0 12px; }
h3 { font-size: 15px; margin: 20px 0 6px; }
p { margin: 0; }
.muted { color: var(--muted); }
section, .verdict { background: var(--card); border: 1px solid var(--line); border-radius: 10px; padding: 18px 20px;
  margin-top: 16px; }
.verdict { border-left: 6px solid var(--calm); }
.verdict strong { display: block; font-size: 18px; }
.verdict.done { border-left-color: var(--done); } .verdict.done strong { color: var(--done); }
.verdict.work { border-left-color: var(--work); } .verdict.work strong { color: var(--work); }
.verdict.bad { border-left-color: var(--bad); } .verdict.bad strong { color: var(--bad); }
dl { display: grid; grid-template-columns: repeat(auto-fill, minmax(180px, 1fr)); gap: 12px 24px; margin: 0; }
dt { color: var(--muted); font-size: 13px; }
dd { margin: 0; overflow-wrap: anywhere; unicode-bidi: isolate; }
.scroll { overflow-x: auto; }
.scroll:focus-visible { outline: 2px solid var(--work); outline-offset: 2px; }
table { border-collapse: collapse; width: 100%; font-variant-numeric: tabular-nums; }
caption { text-align: left; color: var(--muted); font-size: 13px; padding-bottom: 6px; }
th, td { text-align: left; vertical-align: top; padding: 6px 14px 6px 0; border-bottom: 1px solid var(--grid);
  overflow-wrap: anywhere; unicode-bidi: isolate; }
thead th { color: var(--muted); font-size: 13px; font-weight: 600; border-bottom-color: var(--line); white-space: nowrap; }
tbody th { font-weight: 400; white-space: nowrap; }
tbody tr:last-child > * { border-bottom: 0; }
.time, .name, .short { white-space: nowrap; }
.number { white-space: nowrap; color: var(--muted); }
.name { font-weight: 600; }
.tone-wait { color: var(--wait); font-weight: 600; white-space: nowrap; }
.tone-bad { color: var(--bad); font-weight: 600; white-space: nowrap; }
.tone-done { color: var(--done); white-space: nowrap; }
.tone-calm { color: var(--muted); white-space: nowrap; }
.tone-good { color: var(--done); } .tone-wrong { color: var(--wait); }
nav { display: flex; flex-wrap: wrap; gap: 4px 16px; margin-top: 14px; font-size: 14px; }
a { color: var(--work); }
section { scroll-margin-top: 12px; }
svg.chart { display: block; width: 100%; height: auto; font: 12px system-ui, sans-serif; }
svg.narrow { display: none; }
svg text { fill: var(--text); }
svg .label { font-size: 12.5px; }
svg .soft { fill: var(--muted); font-size: 11px; }
svg .grid { stroke: var(--grid); } svg .edge { stroke: var(--line); }
svg .attempt { stroke: var(--calm); stroke-dasharray: 3 3; }
.calm { fill: var(--calm); } .work { fill: var(--work); } .wait { fill: var(--wait); } .done { fill: var(--done); }
.held { fill: var(--held); } .bad { fill: var(--bad); }
.hollow { fill: var(--card); stroke: var(--bad); stroke-width: 1.6; }
.stopped { fill: var(--calm); opacity: .55; }
.marker { stroke: var(--card); stroke-width: 1; }
.legend { display: flex; flex-wrap: wrap; gap: 4px 18px; margin: 10px 0 0; padding: 0; list-style: none;
  color: var(--muted); font-size: 13px; }
.legend svg { width: 14px; height: 14px; vertical-align: -2px; margin-right: 5px; }
@media (max-width: 820px) {
  main { padding: 20px 12px 36px; }
  section, .verdict { padding: 14px; }
  svg.wide { display: none; } svg.narrow { display: block; }
  thead { position: absolute; clip-path: inset(50%); }
  table, caption, tbody, tr { display: block; }
  tbody tr { padding: 8px 0; border-bottom: 1px solid var(--line); }
  tbody tr > * { display: grid; grid-template-columns: 92px minmax(0, 1fr); padding: 1px 0; border-bottom: 0;
    white-space: normal; }
  tbody tr > *::before { content: attr(data-label); color: var(--muted); font-size: 13px; font-weight: 400; }
}
@media print { section { break-inside: avoid-page; } .scroll { overflow: visible; } }
)css";

}  // namespace

std::string escaped(std::string const& text) {
  std::string result;
  for (char const c : Kel::printable(text)) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '"':
        result += "&quot;";
        break;
      case '\'':
        result += "&#39;";
        break;
      default:
        result += c;
    }
  }
  return result;
}

std::string table(Table const& table) {
  if (table.rows.empty()) return "<p class=\"muted\">" + escaped(table.empty) + "</p>\n";
  std::string const caption = escaped(table.caption);
  std::string result = "<div class=\"scroll\" role=\"region\" tabindex=\"0\" aria-label=\"" + caption +
                       "\"><table>\n<caption>" + caption + "</caption>\n<thead><tr>";
  for (auto const& heading : table.headings) result += "<th scope=\"col\">" + escaped(heading) + "</th>";
  result += "</tr></thead>\n<tbody>\n";
  for (auto const& row : table.rows) {
    result += "<tr>";
    for (std::size_t column = 0; column < row.size(); ++column) {
      auto const& cell = row[column];
      bool const first = column == 0;
      // On a narrow screen each cell stands below the last one, with its heading beside it.
      std::string kind = " data-label=\"" + escaped(table.headings.at(column)) + "\"";
      if (!cell.style.empty()) kind += " class=\"" + cell.style + "\"";
      result += first ? "<th scope=\"row\"" + kind + ">" : "<td" + kind + ">";
      result += escaped(cell.text) + (first ? "</th>" : "</td>");
    }
    result += "</tr>\n";
  }
  return result + "</tbody></table></div>\n";
}

std::string section(std::string const& id, std::string const& heading, std::string const& content) {
  return "<section aria-labelledby=\"" + id + "\">\n<h2 id=\"" + id + "\">" + escaped(heading) + "</h2>\n" +
         content + "</section>\n";
}

// The policy forbids scripts and whatever would be fetched from elsewhere, whatever the texts on the page
// hold.
std::string page(std::string const& title, std::string const& body) {
  return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
         "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
         "style-src 'unsafe-inline'; base-uri 'none'; form-action 'none'\">\n"
         "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
         "<meta name=\"color-scheme\" content=\"light dark\">\n<title>" +
         escaped(title) + "</title>\n<style>" + style + "</style>\n</head>\n<body>\n" + body +
         "</body>\n</html>\n";
}

}  // namespace ZeroTouchCommand::Html
