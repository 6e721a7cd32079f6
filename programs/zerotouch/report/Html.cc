#include "programs/zerotouch/report/Html.h"

#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/report/Style.h"

namespace ZeroTouchCommand::Html {

std::string escaped(std::string const& text) {
  std::string result;
  for (char const c : printable(text)) {
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
    for (auto const& cell : row) {
      bool const first = &cell == &row.front();
      std::string const kind = cell.style.empty() ? "" : " class=\"" + cell.style + "\"";
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

// No script and nothing from elsewhere, whatever the values in it hold.
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
