// Every allocation of this program and its libraries is counted.
#ifndef ZOR_BENCH_ALLOCATIONS_H_
#define ZOR_BENCH_ALLOCATIONS_H_

#include <cstdint>

namespace bench {

// Calls of malloc and its kin so far, by this thread.
std::uint64_t Allocations();

// Bytes that the allocator has handed out, its own overhead included.
std::uint64_t AllocatedBytes();

// Memory that the process occupies.
std::uint64_t ResidentBytes();

}  // namespace bench

#endif  // ZOR_BENCH_ALLOCATIONS_H_
