// The C allocator of a program whose every allocation can be made to fail. Such a program is linked from the
// library's own objects with -Wl,--wrap for each function below, and works under a sanitizer, whose allocator it
// then calls.
#ifndef ZOR_TESTS_FAILING_HEAP_H_
#define ZOR_TESTS_FAILING_HEAP_H_

#include <cstddef>
#include <utility>

struct FailingHeap {
  long failing = 0;  // the number of the allocation that fails; 0 for none
  bool from_there_on = false;
  bool armed = false;  // counts, and fails; only while the library is called
  long count = 0;
  long alive = 0;  // blocks not freed

  std::size_t bytes = 0;  // asked for

  bool Refuses(std::size_t size) {
    if (!armed) return false;
    ++count;
    bytes += size;
    return failing != 0 && (from_there_on ? count >= failing : count == failing);
  }
};
extern FailingHeap heap;

// Makes a call of the library with failures switched on.
template <class Call>
auto Armed(Call call) {
  struct Arm {
    Arm() { heap.armed = true; }
    ~Arm() { heap.armed = false; }
  } arm;
  return call();
}

#endif  // ZOR_TESTS_FAILING_HEAP_H_
