// Owned storage from the C allocator: it may fail without a throw, and parts of it are freed by C callers.
#ifndef ZOR_BASE_MEMORY_H_
#define ZOR_BASE_MEMORY_H_

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
  // NOLINTNEXTLINE(bugprone-sizeof-expression): the array may be one of pointers.
  return Owned<T[]>(static_cast<T *>(std::calloc(count ? count : 1, sizeof(T))));
}

// An array for the length of a call, without values; short ones need no allocation.
template <class T>
class Scratch {
 public:
  // cppcheck-suppress uninitMemberVar; values are the caller's to write
  explicit Scratch(std::size_t count) {
    if (count > kShort) long_ = AllocateArray<T>(count);
    values_ = count > kShort ? long_.get() : short_;
  }
  ~Scratch() = default;
  Scratch(const Scratch &) = delete;
  Scratch &operator=(const Scratch &) = delete;

  T *get() { return values_; }  // null without memory
  T &operator[](std::size_t i) { return values_[i]; }

 private:
  static constexpr std::size_t kShort = 16;

  T short_[kShort];
  Owned<T[]> long_;
  T *values_;
};

// Leaves storage to the record that now points to it.
template <class... T>
void HandOver(Owned<T> &...storage) {
  (static_cast<void>(storage.release()), ...);
}

}  // namespace zor

#endif  // ZOR_BASE_MEMORY_H_
