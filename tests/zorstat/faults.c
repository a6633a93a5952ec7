/* Preloaded into the program: its memory runs out, and its time passes at once.
 *
 * FAIL=n fails the n-th allocation after the libraries are set up, FAIL=n+ all from there on. HASTE=file lets waits
 * end at once, removes the file, and sets the clock back by an hour at each reading. */
#define _GNU_SOURCE
#include <errno.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);

static long failing, made;
static int from_there_on;
static const char *haste;

__attribute__((constructor)) static void Arm(void) {
  const char *fail = getenv("FAIL");
  haste = getenv("HASTE");
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

int poll(struct pollfd *files, nfds_t count, int milliseconds) {
  const int is_wait = haste && milliseconds > 0;
  if (is_wait) unlink(haste);
  return (int)syscall(SYS_poll, files, count, is_wait ? 0 : milliseconds);
}

time_t time(time_t *now) {
  static time_t back;
  const time_t read = (time_t)syscall(SYS_time, NULL) - (haste ? back++ * 3600 : 0);
  if (now) *now = read;
  return read;
}
