// What the polls have brought, as `zorstat top` shows it.
#ifndef ZORSTAT_TOP_MODEL_H_
#define ZORSTAT_TOP_MODEL_H_

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "departure.h"
#include "readings.h"
#include "top/view.h"

namespace zorstat::top {

// Remembers the last polls and intervals of each instance.
class Tracker {
 public:
  explicit Tracker(const Run &run) : run_(run) {}

  // Once after each poll, with the readings of the interval that it ends, or else of the one in progress.
  std::vector<Object> Update(const std::vector<ObjectReadings> &objects, bool is_end);

 private:
  struct History {
    std::deque<double> samples;  // of the last polls, the newest last; NaN: none
    std::uint64_t sum = 0;       // of the interval, up to the poll before
    std::uint32_t counted = 0;   // samples, likewise
    std::deque<Band> bands;      // of the last intervals
    std::optional<double> jump;  // of this one, or the one before as long as that is not known
  };

  using Histories = std::map<std::string, History>;  // of an object, by instance

  static void TakeSample(const Reading &reading, bool is_end, History *history);
  Row MakeRow(const InstanceReadings &instance, const ObjectPlan &plan, bool is_end, History *history) const;

  const Run &run_;
  std::map<std::string, Histories> histories_;  // by object
};

}  // namespace zorstat::top

#endif  // ZORSTAT_TOP_MODEL_H_
