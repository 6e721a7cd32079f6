// Pieces of HTML. Each function escapes the texts that it is given, since what a DHCP server sent must stay
// text.
#pragma once

#include <string>
#include <vector>

namespace ZeroTouchCommand::Html {

// The text for the content of an element or a quoted attribute; control characters become "?".
std::string escaped(std::string const& text);

// The text of a cell, and its class in the style sheet.
struct Cell {
  std::string text;
  std::string style = {};
};

// The first cell of each row is the heading of the row. `empty` is shown in place of a table without rows.
struct Table {
  std::string caption;
  std::vector<std::string> headings;
  std::vector<std::vector<Cell>> rows;
  std::string empty;
};

std::string table(Table const& table);

// A section of the page with its heading; `content` is HTML, and `id` unique on the page.
std::string section(std::string const& id, std::string const& heading, std::string const& content);

// The whole page; `body` is HTML.
std::string page(std::string const& title, std::string const& body);

}  // namespace ZeroTouchCommand::Html
