// Only in builds with the address sanitizer: its leak checker, which stops the process from outside when it
// ends, never returns at times on a busy machine. The unit tests look for leaks.
extern "C" char const*
__asan_default_options();  // NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" char const* __asan_default_options() { return "detect_leaks=0"; }
