// Other libraries doing the same work, as their users would have them do it.
#ifndef ZOR_BENCH_PEERS_H_
#define ZOR_BENCH_PEERS_H_

#include <gsl/gsl_histogram.h>
#include <prometheus/family.h>
#include <prometheus/histogram.h>
#include <prometheus/registry.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "collector.h"

namespace bench {

// prometheus-cpp: a family of histograms per column, found by the instance's label for every sample.
class PrometheusFamilies {
 public:
  explicit PrometheusFamilies(const Shape &shape);
  double Time(std::uint32_t polls);
  const char *Fault() const;

 private:
  Shape shape_;
  Poll poll_;
  prometheus::Histogram::BucketBoundaries boundaries_;
  prometheus::Registry registry_;
  std::vector<prometheus::Family<prometheus::Histogram> *> families_;
  std::uint64_t polls_ = 0;
};

// prometheus-cpp: the text of a registry of histograms.
class PrometheusText {
 public:
  PrometheusText(std::uint32_t histograms, std::uint32_t samples);
  double Time();  // per histogram
  const char *Fault() const;

 private:
  std::uint32_t histograms_;
  prometheus::Registry registry_;
  std::string text_;
};

// Boost.Accumulators: minimum, maximum, sum, count and density, found by one look-up of the key per row.
class BoostRows {
 public:
  explicit BoostRows(const Shape &shape);
  ~BoostRows();
  double Time(std::uint32_t polls);
  const char *Fault() const;

 private:
  struct Row;

  Shape shape_;
  Poll poll_;
  std::unordered_map<std::string, std::unique_ptr<Row>> rows_;
  std::uint64_t polls_ = 0;
};

// Nanoseconds per sample of one Boost accumulator that is given all values again and again.
double TimeBoostDensity(const std::vector<double> &values, std::uint32_t times);
double TimeBoostExtendedPSquare(const std::vector<double> &values, std::uint32_t times);

// GSL: a histogram, and minimum, maximum, sum and count beside it.
class GslStatistics {
 public:
  GslStatistics(std::uint32_t buckets, double end);
  void Insert(double value) {
    gsl_histogram_increment(histogram_.get(), value);
    if (value < min_) min_ = value;
    if (value > max_) max_ = value;
    sum_ += value;
    ++count_;
  }
  void Clear();
  double HistogramSum() const { return gsl_histogram_sum(histogram_.get()); }
  std::uint64_t count() const { return count_; }
  const gsl_histogram *histogram() const { return histogram_.get(); }

 private:
  struct Free {
    void operator()(gsl_histogram *histogram) const { gsl_histogram_free(histogram); }
  };

  std::unique_ptr<gsl_histogram, Free> histogram_;
  double min_, max_, sum_;
  std::uint64_t count_;
};

// GSL: nine quantiles of a histogram that has changed since the last time.
class GslQuantiles {
 public:
  explicit GslQuantiles(const gsl_histogram &histogram);
  void Estimate(std::array<double, 9> &results);

 private:
  struct Free {
    void operator()(gsl_histogram_pdf *pdf) const { gsl_histogram_pdf_free(pdf); }
  };

  const gsl_histogram &histogram_;
  std::unique_ptr<gsl_histogram_pdf, Free> pdf_;
};

}  // namespace bench

#endif  // ZOR_BENCH_PEERS_H_
