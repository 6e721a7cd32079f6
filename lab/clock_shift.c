/* Preloaded into a program, sets its wall clock ahead by the seconds that the file $CLOCK_SHIFT holds at the time, or
   back; all other clocks go on as they do. */
#define _GNU_SOURCE
#include <fcntl.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

static time_t shift(void) {
  char text[32] = "";
  char const* const path = getenv("CLOCK_SHIFT");
  int const file = path != NULL ? open(path, O_RDONLY | O_CLOEXEC) : -1;
  if (file < 0) return 0;
  if (read(file, text, sizeof text - 1) < 0) text[0] = '\0';
  close(file);
  return atol(text);
}

int clock_gettime(clockid_t clock, struct timespec* now) {
  long const result = syscall(SYS_clock_gettime, clock, now);
  if (result == 0 && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE)) now->tv_sec += shift();
  return (int)result;
}

int gettimeofday(struct timeval* restrict now, void* restrict zone) {
  long const result = syscall(SYS_gettimeofday, now, zone);
  if (result == 0) now->tv_sec += shift();
  return (int)result;
}

time_t time(time_t* result) {
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  if (result != NULL) *result = now.tv_sec;
  return now.tv_sec;
}
