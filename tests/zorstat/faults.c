/* Preloaded into the program: its memory runs out, and its time passes at once.
 *
 * FAIL=n fails the n-th allocation that is made after the libraries are set up, FAIL=n+ all from there on. COUNT
 * names a file for the number of allocations. HASTE=file lets waits end at once, removes the file at the first of
 * them, and sets the clock back by an hour at each reading. */
#define _GNU_SOURCE
#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);

static int armed, from_there_on;
static long failing, made;
static const char *haste;
static long long waited; /* milliseconds */

__attribute__((constructor)) static void Arm(void) {
  const char *fail = getenv("FAIL");
  failing = fail ? atol(fail) : 0;
  from_there_on = fail && strchr(fail, '+');
  haste = getenv("HASTE");
  armed = 1;
}

__attribute__((destructor)) static void Tell(void) {
  armed = 0;
  FILE *file = getenv("COUNT") ? fopen(getenv("COUNT"), "w") : NULL;
  if (!file) return;
  fprintf(file, "%ld", made);
  fclose(file);
}

static int Refused(void) {
  if (!armed) return 0;
  ++made;
  if (failing == 0 || (from_there_on ? made < failing : made != failing)) return 0;
  errno = ENOMEM;
  return 1;
}

void *malloc(size_t size) { return Refused() ? NULL : __libc_malloc(size); }
void *calloc(size_t count, size_t size) { return Refused() ? NULL : __libc_calloc(count, size); }
void *realloc(void *block, size_t size) { return Refused() ? NULL : __libc_realloc(block, size); }

int poll(struct pollfd *files, nfds_t count, int milliseconds) {
  const int ready = (int)syscall(SYS_poll, files, count, haste && milliseconds > 0 ? 0 : milliseconds);
  if (haste && milliseconds > 0 && ready == 0) {
    if (waited == 0) unlink(haste);
    waited += milliseconds;
  }
  return ready;
}

int clock_gettime(clockid_t clock, struct timespec *now) {
  const int result = (int)syscall(SYS_clock_gettime, clock, now);
  if (clock == CLOCK_MONOTONIC) now->tv_sec += waited / 1000;
  return result;
}

time_t time(time_t *now) {
  static time_t back;
  const time_t read = (time_t)syscall(SYS_time, NULL) - (haste ? back++ * 3600 : 0);
  if (now) *now = read;
  return read;
}
