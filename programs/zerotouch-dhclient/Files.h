// Files that the shim shares with the client and its hook.
#pragma once

#include <string>
#include <string_view>

// Opens the file or makes it. A symbolic link is not followed, since it could lead to any file. -1 after a
// complaint when it cannot be opened.
int openFile(char const* path);
void complain(char const* path);

// All that the file has.
std::string contents(int file);
// The same for a file that is only read; empty when it cannot be.
std::string readContents(std::string const& path);
// Whether the file now has this text and nothing else.
bool replaceContents(int file, std::string const& text);

// Makes this the whole content of the file, which is made if need be; complains when that fails.
bool writeFile(std::string const& path, std::string const& text);

// The line that begins with the keyword, to its end; of several the last one, which is the one that counts.
std::string lineWith(std::string_view keyword, std::string const& text);

// What stands behind the keyword in a statement, without its semicolon and quotation marks; empty without it.
std::string valueOf(std::string const& line, std::string_view keyword);
