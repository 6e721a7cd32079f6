// Texts of others are kept in the history up to a length.
#pragma once

#include "platform/kel/Types.h"

inline Kel::String shortened(Kel::String text) {
  constexpr std::size_t longest = 400;
  if (text.size() > longest) text.replace(longest, Kel::String::npos, "...");
  return text;
}
