// A page for a browser: one file with the statistics of a run, and what draws them.
#ifndef ZORSTAT_EXPORT_PAGE_H_
#define ZORSTAT_EXPORT_PAGE_H_

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "departure.h"
#include "export/exporter.h"
#include "file.h"
#include "history.h"
#include "units.h"

namespace zorstat {

// One interval of an instance.
struct PageRow {
  std::uint64_t samples = 0;
  std::vector<double> points;        // the nine; or smallest, average and largest; or none
  std::optional<BucketRange> range;  // of the counts
  std::vector<std::uint32_t> counts;
  std::uint64_t below = 0, above = 0;  // samples beyond it
  std::uint64_t outside = 0;           // samples beyond the learnt range
  std::uint64_t resets = 0;
  bool since_learnt = false;        // samples and points are those of all intervals up to it
  std::optional<Number> low, high;  // of the learnt range, where there is one
};

// Gathers intervals in the order of time, as the text that the page will hold: some hundred bytes for each interval
// of an instance.
class Page {
 public:
  // Intervals of instances; beyond these a browser becomes slow.
  static constexpr std::size_t kMost = 100000;

  // `key` names what instances are.
  Page(std::string title, std::string key) : title_(std::move(title)), key_(std::move(key)) {}

  // Its last poll was at `end`. Both in seconds.
  void BeginInterval(std::int64_t end, std::int64_t length);
  // Of this interval. A unit is that of an object's first row; it is of one poll, `per` seconds long, where it is
  // per second.
  void Add(std::string_view object_name, const Unit &unit, std::uint32_t per, const std::string &instance_name,
           const PageRow &row);
  void DropOldest();

  std::size_t size() const { return size_; }  // intervals of instances

  // JSON that can stand in HTML. The browser loads the page again after `refresh` seconds, unless they are 0.
  std::string Data(std::int64_t refresh) const;

 private:
  struct Interval {
    std::int64_t end, length;
  };
  struct Cell {
    std::size_t interval;  // counted from the first that was ever begun
    std::optional<Band> band;
    std::string text;
  };
  struct Instance {
    std::string name;
    std::deque<Cell> cells = {};
    std::string learnt = "null";  // in its last interval
  };
  struct Object {
    std::string name;
    Unit unit;
    std::uint32_t per;
    bool since_learnt;
    std::vector<BucketRange> ranges = {};
    std::vector<Instance> instances = {};
    std::map<std::string, std::size_t, std::less<>> known = {};  // by name
  };

  void AppendObject(const Object &object, std::string *text) const;
  void AppendInstance(const Instance &instance, const Departure &departure, std::string *text) const;

  std::string title_, key_;
  std::deque<Interval> intervals_;
  std::size_t dropped_ = 0;  // intervals
  std::vector<Object> objects_;
  std::map<std::string, std::size_t> known_;  // of these, by name
  std::size_t size_ = 0;
};

// What draws the page. Throws Error where the library of the charts cannot be read.
class PageFrame {
 public:
  PageFrame();
  void Write(const std::string &data, Output *output) const;

 private:
  std::string charts_;
};

// Null without a file for it.
std::unique_ptr<Exporter> MakePage(const Settings &settings);

}  // namespace zorstat

#endif  // ZORSTAT_EXPORT_PAGE_H_
