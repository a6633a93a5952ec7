// Owned storage from the C allocator: it may fail without a throw, and parts of it are freed by C callers.
#ifndef ZOR_STATS_MEMORY_H_
#define ZOR_STATS_MEMORY_H_

#include <cstdlib>
#include <memory>

namespace zor {

struct Free {
  void operator()(void *storage) const { std::free(storage); }
};

template <class T>
using Owned = std::unique_ptr<T, Free>;

// A zeroed record, or null.
template <class T>
Owned<T> Allocate() {
  return Owned<T>(static_cast<T *>(std::calloc(1, sizeof(T))));
}

// A zeroed array, or null; an empty one is not null.
template <class T>
Owned<T[]> AllocateArray(std::size_t count) {
  return Owned<T[]>(static_cast<T *>(std::calloc(count ? count : 1, sizeof(T))));
}

}  // namespace zor

#endif  // ZOR_STATS_MEMORY_H_
