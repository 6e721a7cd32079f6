// What is wrong with a run and what somebody has to do about it, decided once for status, programs, reports
// and the page docs/troubleshooting.md.
#pragma once

#include "platform/model/agent.h"

namespace ZeroTouch {

// A problem, and what it is about: "HTTP 404 Not Found". Both are empty when there is none.
struct Trouble {
  Problem problem = Problem::none;
  Kel::String text;
};

// A sentence without its full stop, about whom the operator has to see to; "" for Problem::none.
char const* whatToDo(Problem problem);

}  // namespace ZeroTouch
