// A file of the run directory in which a host remembers something for the host that is started after it.
//
// Its first line says what the contents are about; the contents follow. A file with another first line is
// passed over, since what was true in another boot or namespace means nothing here.
#pragma once

#include <optional>

#include "platform/kel/Types.h"

namespace Kel {

class BootMemory {
 public:
  // `about` is one line without its end.
  BootMemory(String path, String about) : path_(std::move(path)), about_(std::move(about) + "\n") {}

  // For what holds in this boot and in this process's namespace of the given kind, a file of /proc/self/ns,
  // as "net".
  static String inNamespace(char const* kind);

  String const& path() const { return path_; }
  // The first line with its end.
  String const& firstLine() const { return about_; }

  // What was kept last; nothing when nothing was. `failure`, when given, is set as by readFile.
  std::optional<String> contents(String* failure = nullptr) const;
  // Keeps this instead of what was kept before, and makes the folder when there is none. "" or what failed.
  String keep(String const& contents) const;
  // "" or what failed.
  String forget() const;

 private:
  String path_;
  String about_;
};

}  // namespace Kel
