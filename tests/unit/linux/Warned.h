// The warnings raised while it lives.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "platform/kel/Log.h"

namespace Linux {

class Warned {
 public:
  Warned()
      : sink_(Kel::logSinkIs(
            [this](Kel::LogEvent const& event) { text_ += event.name + ": " + event.message + "\n"; })) {}
  ~Warned() { Kel::logSinkDel(sink_); }
  Warned(Warned const&) = delete;
  Warned& operator=(Warned const&) = delete;

  std::string const& text() const { return text_; }

 private:
  std::string text_;
  int sink_;
};

}  // namespace Linux
