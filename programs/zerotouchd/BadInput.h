// What an operator gave us is wrong: the host says so and ends with exit code 2, before anything is touched.
#pragma once

#include <stdexcept>

class BadInput : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};
