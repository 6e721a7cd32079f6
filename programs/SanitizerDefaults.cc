// Linked into builds with the address sanitizer only. Its leak checker stops the process from outside at the
// end, and on a busy machine it sometimes never returns, so the programs run without it. The unit tests look
// for leaks.
extern "C" char const*
__asan_default_options();  // NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" char const* __asan_default_options() { return "detect_leaks=0"; }
