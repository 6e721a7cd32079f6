// What the system had before the adapter changed it, kept in a file so that a host that dies leaves enough
// behind for the next one to put it back.
#pragma once

#include <optional>

#include "platform/kel/Types.h"

namespace Linux {

class Original {
 public:
  // Reads what an earlier host left in the file `path`, whose directory exists. `place` is one line that says
  // what this is the original of: a file with another one is passed over. A file that cannot be written is a
  // warning: putting back then works for as long as this process lives.
  Original(Kel::String path, Kel::String place);

  // Nothing when nothing was changed.
  std::optional<Kel::String> const& value() const { return value_; }
  // Call before the change.
  void valueIs(Kel::String const& value);
  // Forgets it and removes the file.
  void discard();

 private:
  Kel::String path_;
  Kel::String place_;
  std::optional<Kel::String> value_;
};

}  // namespace Linux
