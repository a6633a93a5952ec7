#include "failing_heap.h"

#include <cstring>

FailingHeap heap;

extern "C" {
void *__real_malloc(std::size_t size);
void *__real_calloc(std::size_t count, std::size_t size);
void *__real_realloc(void *block, std::size_t size);
void __real_free(void *block);

void *__wrap_malloc(std::size_t size) { return heap.Refuses(size) ? nullptr : (++heap.alive, __real_malloc(size)); }

void *__wrap_calloc(std::size_t count, std::size_t size) {
  return heap.Refuses(count * size) ? nullptr : (++heap.alive, __real_calloc(count, size));
}

void *__wrap_realloc(void *block, std::size_t size) {
  return heap.Refuses(size) ? nullptr : (heap.alive += !block, __real_realloc(block, size));
}

void __wrap_free(void *block) {
  if (block) --heap.alive;
  __real_free(block);
}

char *__wrap_strdup(const char *text) {
  void *copy = __wrap_malloc(std::strlen(text) + 1);
  return copy ? std::strcpy(static_cast<char *>(copy), text) : nullptr;
}
}
