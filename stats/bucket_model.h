// How samples are assumed to lie over the values of a bucket: with weights that change linearly.
#ifndef ZOR_STATS_BUCKET_MODEL_H_
#define ZOR_STATS_BUCKET_MODEL_H_

#include <cstdint>

namespace zor {

__extension__ using Wide = unsigned __int128;

// Where the k-th sample of a run lies, as an offset from its first value, and whether the next one lies there too.
struct Place {
  std::uint64_t offset;
  bool holds_next;
};

// Of `samples` samples over `size` values, whose weights are 1, 2, ..., size (rising) or size, ..., 2, 1.
Place LocateInRun(bool rising, Wide size, std::uint64_t samples, std::uint64_t k);

}  // namespace zor

#endif  // ZOR_STATS_BUCKET_MODEL_H_
