#ifndef ZOR_TESTS_BUCKET_WALK_H_
#define ZOR_TESTS_BUCKET_WALK_H_

#include <cstdint>
#include <vector>

// The bucket model as it is told: a count for every value of the bucket, then a walk over the values.
struct WalkResult {
  std::uint32_t code;
  std::uint64_t vk;  // offset from the bucket's lowest value
  std::uint64_t vk1;
};

inline void Rise(std::vector<std::uint64_t> &counts, std::uint64_t size, std::uint64_t samples) {
  const std::uint64_t all = size * (size + 1) / 2;
  std::uint64_t carry = 0;
  for (std::uint64_t j = 1; j <= size; ++j) {
    counts.push_back((j * samples + carry) / all);
    carry = (j * samples + carry) % all;
  }
}

inline void Fall(std::vector<std::uint64_t> &counts, std::uint64_t size, std::uint64_t samples) {
  const std::uint64_t all = size * (size + 1) / 2;
  std::uint64_t debt = 0;
  for (std::uint64_t j = 1; j <= size; ++j) {
    const std::uint64_t x = (size - j + 1) * samples;
    if (x < debt) {
      counts.push_back(0);
      debt -= x;
      continue;
    }
    counts.push_back((x - debt + all - 1) / all);
    debt = counts.back() * all - (x - debt);
  }
}

inline WalkResult Walk(std::uint32_t below, std::uint32_t total, std::uint64_t width, std::uint32_t k,
                       std::uint32_t samples) {
  std::vector<std::uint64_t> counts;
  const bool rising = below + samples < total / 2;
  const bool falling = !rising && below > total / 2;
  if (width == 1) {
    counts.push_back(samples);
  } else if (rising) {
    Rise(counts, width, samples);
  } else if (falling) {
    Fall(counts, width, samples);
  } else {
    Rise(counts, width / 2, samples / 2);
    Fall(counts, width - width / 2, samples - samples / 2);
  }
  std::uint64_t running = 0;
  for (std::uint64_t v = 0; v < width; ++v) {
    running += counts[v];
    if (running < k) continue;
    if (running > k) return {0, v, v};
    if (samples > k && (rising || falling) && v + 1 < width) return {0, v, v + 1};
    return {1, v, 0};
  }
  return {2, 0, 0};
}

#endif  // ZOR_TESTS_BUCKET_WALK_H_
