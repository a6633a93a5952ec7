#include "allocations.h"

#include <malloc.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>

namespace {
thread_local std::uint64_t g_allocations = 0;
}

// A program's own definitions come before the C library's, for shared libraries too. What they return is the C
// library's, so that its free() takes it.
extern "C" {

void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *block, std::size_t size);
void *__libc_memalign(std::size_t alignment, std::size_t size);

#define ZOR_BENCH_REPLACES __attribute__((visibility("default")))

ZOR_BENCH_REPLACES void *malloc(std::size_t size) noexcept {
  ++g_allocations;
  return __libc_malloc(size);
}

ZOR_BENCH_REPLACES void *calloc(std::size_t count, std::size_t size) noexcept {
  ++g_allocations;
  return __libc_calloc(count, size);
}

ZOR_BENCH_REPLACES void *realloc(void *block, std::size_t size) noexcept {
  ++g_allocations;
  return __libc_realloc(block, size);
}

ZOR_BENCH_REPLACES void *memalign(std::size_t alignment, std::size_t size) noexcept {
  ++g_allocations;
  return __libc_memalign(alignment, size);
}

ZOR_BENCH_REPLACES void *aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
  return memalign(alignment, size);
}

ZOR_BENCH_REPLACES int posix_memalign(void **block, std::size_t alignment, std::size_t size) noexcept {
  *block = memalign(alignment, size);
  return *block ? 0 : ENOMEM;
}

}  // extern "C"

namespace bench {

std::uint64_t Allocations() { return g_allocations; }

std::uint64_t AllocatedBytes() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

std::uint64_t ResidentBytes() {
  std::uint64_t size = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> size >> resident;
  return resident * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

}  // namespace bench
