/* Preloaded into the program: its memory runs out, and its time passes at once.
 *
 * FAIL=n fails the n-th allocation after the libraries are set up, FAIL=n+ all from there on. HASTE=file lets waits
 * of more than a second end at once, the first of them late by STALL seconds, and removes the file; the clocks then
 * tell what was waited. The time begins at CLOCK, and is set back by BACK seconds at each reading. With
 * WORLD=out,in each wait tells what has been waited to the one file descriptor, and goes on when the other has said
 * so. */
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

static long failing, made;
static long begin, back, stall; /* seconds */
static long waited;             /* milliseconds */
static int from_there_on;
static const char *haste;
static int to_world = -1, from_world;

static long Number(const char *name, long otherwise) {
  const char *text = getenv(name);
  return text ? atol(text) : otherwise;
}

__attribute__((constructor)) static void Arm(void) {
  const char *fail = getenv("FAIL");
  haste = getenv("HASTE");
  stall = Number("STALL", 0);
  begin = Number("CLOCK", 1700000000);
  back = Number("BACK", 0);
  const char *world = getenv("WORLD");
  if (world) sscanf(world, "%d,%d", &to_world, &from_world);
  made = 0;
  if (!fail) return;
  failing = atol(fail);
  from_there_on = strchr(fail, '+') != NULL;
}

static int Refused(void) {
  ++made;
  if (failing == 0 || (from_there_on ? made < failing : made != failing)) return 0;
  errno = ENOMEM;
  return 1;
}

void *malloc(size_t size) { return Refused() ? NULL : __libc_malloc(size); }
void *calloc(size_t count, size_t size) { return Refused() ? NULL : __libc_calloc(count, size); }
void *realloc(void *block, size_t size) { return Refused() ? NULL : __libc_realloc(block, size); }

static void AskWorld(void) {
  char answer;
  ssize_t result = write(to_world, &waited, sizeof waited);
  while (result > 0 || errno == EINTR) {
    result = read(from_world, &answer, 1);
    if (result >= 0) return;
  }
}

int poll(struct pollfd *files, nfds_t count, int milliseconds) {
  const int is_short = to_world < 0 && milliseconds <= 1000; /* as for what a command writes */
  const int is_wait = haste && milliseconds > 0 && !is_short;
  if (is_wait) {
    unlink(haste);
    waited += milliseconds + 1000 * stall;
    stall = 0;
    if (to_world >= 0) AskWorld();
  }
  return (int)syscall(SYS_poll, files, count, is_wait ? 0 : milliseconds);
}

int clock_gettime(clockid_t clock, struct timespec *now) {
  const long result = syscall(SYS_clock_gettime, clock, now);
  now->tv_sec += waited / 1000;
  now->tv_nsec += waited % 1000 * 1000000;
  if (now->tv_nsec >= 1000000000) {
    now->tv_nsec -= 1000000000;
    ++now->tv_sec;
  }
  return (int)result;
}

time_t time(time_t *now) {
  const time_t read = begin + (waited + 500) / 1000;
  begin -= back;
  if (now) *now = read;
  return read;
}
