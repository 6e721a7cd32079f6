// Makes the n-th call of one kind fail, wherever in this process it is made.
#pragma once

#include <string>
#include <vector>

class Faults {
 public:
  // While the object lives and onIs(true) was called, calls of `kind` are counted and the `nth` fails
  // (counted from 1; 0 for none).
  Faults(std::string kind, unsigned nth);
  ~Faults();
  Faults(Faults const&) = delete;
  Faults& operator=(Faults const&) = delete;

  static void onIs(bool on);
  // While such an object lives, no call fails or counts: for what a test does itself in the midst of a run.
  class Suspended {
   public:
    Suspended();
    ~Suspended();
    Suspended(Suspended const&) = delete;
    Suspended& operator=(Suspended const&) = delete;

   private:
    bool wasOn_;
  };
  // How often the kind was called.
  static unsigned calls();
  static bool happened();

  // The functions of libc that can fail; a fake may ask for failures of kinds of its own.
  static std::vector<std::string> const& libcCalls();
  static bool fails(std::string const& kind);
};
