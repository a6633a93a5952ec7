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

// The weights of a run: 1, 2, ..., size (rising) or size, ..., 2, 1 (falling), or both, each over its half of the
// values and of the samples (peaked).
enum class Shape { kRising, kFalling, kPeaked };

// Of `samples` samples over the values with the offsets 0 to `last`.
Place LocateInRun(Shape shape, std::uint64_t last, std::uint64_t samples, std::uint64_t k);

}  // namespace zor

#endif  // ZOR_STATS_BUCKET_MODEL_H_
