#include "tests/unit/support/Faults.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

struct msghdr;

namespace {

struct {
  bool on = false;
  std::string const* kind = nullptr;
  unsigned nth = 0;
  unsigned calls = 0;
} state;

std::string wanted;

bool failsNow(char const* kind) {
  return state.on && state.kind != nullptr && *state.kind == kind && ++state.calls == state.nth;
}

template <typename Result>
Result failure() {
  if constexpr (std::is_pointer_v<Result>) {
    return nullptr;
  } else {
    return static_cast<Result>(-1);
  }
}

}  // namespace

Faults::Faults(std::string kind, unsigned nth) {
  wanted = std::move(kind);
  state = {false, &wanted, nth, 0};
}
Faults::~Faults() { state = {}; }
void Faults::onIs(bool on) { state.on = on; }
Faults::Suspended::Suspended() : wasOn_(state.on) { state.on = false; }
Faults::Suspended::~Suspended() { state.on = wasOn_; }
unsigned Faults::calls() { return state.calls; }
bool Faults::happened() { return state.nth > 0 && state.calls >= state.nth; }
bool Faults::fails(std::string const& kind) { return failsNow(kind.c_str()); }

// Each replacement has a name of its own in C++, so that it need not match the declaration of the system's
// header.
#define FALLIBLE(error, result, name, parameters, arguments)                                   \
  extern "C" result faulty_##name parameters __asm__(#name);                                   \
  extern "C" result faulty_##name parameters {                                                 \
    static auto* const real = reinterpret_cast<result(*) parameters>(dlsym(RTLD_NEXT, #name)); \
    if (!failsNow(#name)) return real arguments;                                               \
    errno = error;                                                                             \
    return failure<result>();                                                                  \
  }

// open() may have no third argument; whatever stands in its place is passed on and then ignored.
FALLIBLE(EMFILE, int, open, (char const* path, int flags, mode_t mode), (path, flags, mode))
FALLIBLE(EMFILE, std::FILE*, fopen, (char const* path, char const* mode), (path, mode))
FALLIBLE(EMFILE, std::FILE*, fopen64, (char const* path, char const* mode), (path, mode))
FALLIBLE(ENOMEM, std::FILE*, fdopen, (int fd, char const* mode), (fd, mode))
FALLIBLE(EIO, ssize_t, read, (int fd, void* data, std::size_t size), (fd, data, size))
FALLIBLE(ENOSPC, ssize_t, write, (int fd, void const* data, std::size_t size), (fd, data, size))
FALLIBLE(ENOSPC, int, fflush, (std::FILE * file), (file))
FALLIBLE(EIO, int, fsync, (int fd), (fd))
FALLIBLE(EIO, int, fstat, (int fd, struct stat* out), (fd, out))
FALLIBLE(EROFS, int, fchmod, (int fd, mode_t mode), (fd, mode))
FALLIBLE(EROFS, int, chmod, (char const* path, mode_t mode), (path, mode))
FALLIBLE(EROFS, int, ftruncate, (int fd, off_t size), (fd, size))
FALLIBLE(EROFS, int, rename, (char const* from, char const* to), (from, to))
FALLIBLE(EROFS, int, unlink, (char const* path), (path))
FALLIBLE(EMFILE, int, socket, (int family, int type, int protocol), (family, type, protocol))
FALLIBLE(ENOBUFS, ssize_t, sendmsg, (int fd, msghdr const* message, int flags), (fd, message, flags))
FALLIBLE(ENOBUFS, ssize_t, recvmsg, (int fd, msghdr* message, int flags), (fd, message, flags))
FALLIBLE(EPERM, int, ioctl, (int fd, unsigned long request, void* data), (fd, request, data))

// calloc() is called everywhere, so only calls from the agent's library count. The real function is not found
// by dlsym(), which calls calloc() itself.
#if defined(__SANITIZE_ADDRESS__)
#define REAL_CALLOC __interceptor_calloc
#else
#define REAL_CALLOC __libc_calloc
#endif
extern "C" void* REAL_CALLOC(std::size_t count, std::size_t size);
extern "C" void* faulty_calloc(std::size_t count, std::size_t size) __asm__("calloc");
extern "C" void* faulty_calloc(std::size_t count, std::size_t size) {
  Dl_info caller{};
  bool const counts = state.on && *state.kind == "calloc" &&
                      dladdr(__builtin_return_address(0), &caller) != 0 &&
                      std::strstr(caller.dli_fname, "libZeroTouch.so") != nullptr;
  return counts && failsNow("calloc") ? nullptr : REAL_CALLOC(count, size);
}

std::vector<std::string> const& Faults::libcCalls() {
  static std::vector<std::string> const all{
      "open",  "fopen",  "fopen64", "fdopen", "read",      "write",   "fflush",  "fsync", "fstat", "fchmod",
      "chmod", "rename", "unlink",  "socket", "ftruncate", "sendmsg", "recvmsg", "ioctl", "calloc"};
  return all;
}
