// From times to places on the picture.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "platform/kel/Format.h"
#include "programs/zerotouch/report/Run.h"

namespace ZeroTouchCommand {

class Scale {
 public:
  static constexpr double left = 232;
  static constexpr double right = 1076;

  explicit Scale(Run const& run) : start_(run.start), length_(std::max(run.end - run.start, 0.1)) {}

  // What lies outside comes to the edge.
  double x(Kel::Seconds time) const {
    return std::clamp(left + (time - start_) / length_ * (right - left), left, right);
  }
  bool shows(Kel::Seconds from, Kel::Seconds to) const { return to >= start_ && from <= start_ + length_; }

  struct Tick {
    double x;
    std::string label;
  };
  // About eight, at round times since the start.
  std::vector<Tick> ticks() const {
    static constexpr double steps[] = {0.1,  0.2,   0.5,   1,     2,     5,      10,    20,
                                       30,   60,    120,   300,   600,   1200,   1800,  3600,
                                       7200, 14400, 21600, 43200, 86400, 172800, 604800};
    auto const* step = std::ranges::find_if(steps, [&](double s) { return s * 9 >= length_; });
    double const size = step != std::end(steps) ? *step : length_ / 8;
    std::vector<Tick> result;
    for (int i = 0; i * size <= length_; ++i) result.push_back({x(start_ + i * size), label(i * size, size)});
    return result;
  }

 private:
  static std::string label(double seconds, double step) {
    if (step >= 86400) return Kel::format("+%d d", static_cast<unsigned>(seconds / 86400));
    if (step >= 1800) return Kel::format("+%g h", seconds / 3600);
    if (step >= 60) return Kel::format("+%d min", static_cast<unsigned>(seconds / 60));
    return Kel::format("+%g s", seconds);
  }

  Kel::Seconds start_;
  double length_;
};

}  // namespace ZeroTouchCommand
