// Pieces of HTML. Texts are escaped where they enter: what a DHCP server sent must stay text.
#pragma once

#include <string>
#include <vector>

namespace ZeroTouchCommand::Html {

// For contents and quoted attribute values; control characters become "?".
std::string escaped(std::string const& text);

// A cell's text, with a class of the style sheet for it.
struct Cell {
  std::string text;
  std::string style = {};
};

// The first cell of a row is its heading. `about` says what an empty table would have held.
struct Table {
  std::string caption;
  std::vector<std::string> headings;
  std::vector<std::vector<Cell>> rows;
  std::string empty;
};

std::string table(Table const& table);

// A part of the page under a heading; `content` is HTML.
std::string section(std::string const& id, std::string const& heading, std::string const& content);

// The whole page; `body` is HTML.
std::string page(std::string const& title, std::string const& body);

}  // namespace ZeroTouchCommand::Html
