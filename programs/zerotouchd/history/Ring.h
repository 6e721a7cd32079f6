// What the parts of the history are kept in.
#pragma once

#include <algorithm>

#include "platform/model/history.h"

// Texts from outside are kept up to this length.
inline Kel::String shortened(Kel::String text) {
  constexpr std::size_t longest = 400;
  if (text.size() > longest) text.replace(longest, Kel::String::npos, "...");
  return text;
}

// A collection whose oldest entries make room for new ones.
template <typename T>
class Ring {
 public:
  using Set = void (History::Log::*)(std::uint64_t const&, T);
  using Del = void (History::Log::*)(std::uint64_t const&);

  Ring(History::Log& log, Set set, Del del, std::size_t capacity)
      : log_(log), set_(set), del_(del), capacity_(capacity) {}

  // Adds an entry and returns its number.
  std::uint64_t add(T entry) {
    (log_.*set_)(++last_, std::move(entry));
    if (last_ > capacity_) (log_.*del_)(last_ - capacity_);
    return last_;
  }
  // Replaces an entry; does nothing when it has made room for a newer one.
  void replace(std::uint64_t number, T entry) {
    if (number + capacity_ > last_) (log_.*set_)(number, std::move(entry));
  }

 private:
  History::Log& log_;
  Set set_;
  Del del_;
  std::size_t capacity_;
  std::uint64_t last_ = 0;
};
