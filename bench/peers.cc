#include "peers.h"

#include <prometheus/text_serializer.h>

#include <boost/accumulators/accumulators.hpp>
#include <boost/accumulators/statistics.hpp>
#include <cstring>
#include <limits>
#include <random>

#include "contest.h"

namespace bench {
namespace {

namespace acc = boost::accumulators;

// So many buckets of equal width; the last one is without end.
prometheus::Histogram::BucketBoundaries Boundaries(std::uint32_t buckets, std::uint64_t last) {
  prometheus::Histogram::BucketBoundaries boundaries;
  for (std::uint32_t i = 1; i < buckets; ++i) {
    boundaries.push_back(static_cast<double>(last) / buckets * i);
  }
  return boundaries;
}

constexpr std::size_t kDensityCache = 100;  // samples from which density finds its range

using Density = acc::accumulator_set<
    double, acc::features<acc::tag::min, acc::tag::max, acc::tag::sum, acc::tag::count, acc::tag::density>>;
using ExtendedPSquare = acc::accumulator_set<double, acc::features<acc::tag::min, acc::tag::max, acc::tag::sum,
                                                                   acc::tag::count, acc::tag::extended_p_square>>;

template <class Accumulator>
double TimeInserts(Accumulator &accumulator, const std::vector<double> &values, std::uint32_t times) {
  const double time = Nanoseconds([&] {
    for (std::uint32_t i = 0; i < times; ++i) {
      for (const double value : values) accumulator(value);
    }
  });
  if (acc::count(accumulator) != values.size() * times) std::abort();
  return time / static_cast<double>(values.size() * times);
}

}  // namespace

PrometheusFamilies::PrometheusFamilies(const Shape &shape)
    : shape_(shape), poll_(shape, Order::kStable), boundaries_(Boundaries(shape.buckets, shape.last)) {
  for (std::uint32_t c = 0; c < shape.columns; ++c) {
    families_.push_back(&prometheus::BuildHistogram().Name("counter_" + std::to_string(c)).Register(registry_));
  }
}

double PrometheusFamilies::Time(std::uint32_t polls) {
  double time = 0;
  for (std::uint32_t i = 0; i < polls; ++i) {
    poll_.Next();
    time += Nanoseconds([this] {
      for (std::uint32_t row = 0; row < poll_.rows(); ++row) {
        const std::uint64_t *values = poll_.Values(row % Poll::kValueRows);
        for (auto *family : families_) {
          family->Add({{"instance", poll_.KeyOf(row)}}, boundaries_).Observe(static_cast<double>(*values++));
        }
      }
    });
  }
  polls_ += polls;
  return time / (polls * shape_.Samples());
}

const char *PrometheusFamilies::Fault() const {
  for (const auto *family : families_) {
    const std::vector<prometheus::MetricFamily> collected = family->Collect();
    if (collected.size() != 1 || collected[0].metric.size() != shape_.instances)
      return "prometheus misses instances";
    for (const prometheus::ClientMetric &metric : collected[0].metric) {
      if (metric.histogram.sample_count != polls_) return "prometheus missed samples";
    }
  }
  return nullptr;
}

PrometheusText::PrometheusText(std::uint32_t histograms, std::uint32_t samples) : histograms_(histograms) {
  constexpr std::uint64_t kLast = 999999;
  std::mt19937_64 random;
  std::uniform_int_distribution<std::uint64_t> uniform(0, kLast);
  auto &family = prometheus::BuildHistogram().Name("counter_0").Register(registry_);
  for (const Key &key : MakeKeys(histograms)) {
    auto &histogram = family.Add({{"instance", key.data()}}, Boundaries(100, kLast));
    for (std::uint32_t i = 0; i < samples; ++i) histogram.Observe(static_cast<double>(uniform(random)));
  }
}

double PrometheusText::Time() {
  const double time = Nanoseconds([this] { text_ = prometheus::TextSerializer().Serialize(registry_.Collect()); });
  return time / histograms_;
}

const char *PrometheusText::Fault() const {
  std::uint32_t counts = 0;
  for (std::size_t at = 0; (at = text_.find("\ncounter_0_count{", at)) != std::string::npos; ++at) ++counts;
  return counts == histograms_ ? nullptr : "prometheus wrote no text for some histograms";
}

struct BoostRows::Row {
  explicit Row(const Shape &shape)
      : statistics(shape.columns, Density(acc::tag::density::num_bins = shape.buckets,
                                          acc::tag::density::cache_size = kDensityCache)) {}
  std::vector<Density> statistics;
};

// Rows are created, and past the samples that density keeps at first.
BoostRows::BoostRows(const Shape &shape) : shape_(shape), poll_(shape, Order::kStable) {
  std::mt19937_64 random;
  std::uniform_int_distribution<std::uint64_t> uniform(0, shape.last);
  for (std::uint32_t row = 0; row < poll_.rows(); ++row) {
    auto created = std::make_unique<Row>(shape);
    for (Density &statistics : created->statistics) {
      for (std::size_t i = 0; i < kDensityCache; ++i) statistics(static_cast<double>(uniform(random)));
    }
    rows_.emplace(poll_.KeyOf(row), std::move(created));
  }
}

BoostRows::~BoostRows() = default;

double BoostRows::Time(std::uint32_t polls) {
  double time = 0;
  for (std::uint32_t i = 0; i < polls; ++i) {
    poll_.Next();
    time += Nanoseconds([this] {
      for (std::uint32_t row = 0; row < poll_.rows(); ++row) {
        const std::uint64_t *values = poll_.Values(row % Poll::kValueRows);
        for (Density &statistics : rows_.find(poll_.KeyOf(row))->second->statistics) {
          statistics(static_cast<double>(*values++));
        }
      }
    });
  }
  polls_ += polls;
  return time / (polls * shape_.Samples());
}

const char *BoostRows::Fault() const {
  for (const auto &[key, row] : rows_) {
    for (const Density &statistics : row->statistics) {
      if (acc::count(statistics) != kDensityCache + polls_) return "Boost missed samples";
    }
  }
  return nullptr;
}

double TimeBoostDensity(const std::vector<double> &values, std::uint32_t times) {
  Density accumulator(acc::tag::density::num_bins = 100, acc::tag::density::cache_size = kDensityCache);
  return TimeInserts(accumulator, values, times);
}

double TimeBoostExtendedPSquare(const std::vector<double> &values, std::uint32_t times) {
  // The nine points but the ends, which are the minimum and the maximum.
  std::vector<double> probabilities;
  for (std::uint32_t i = 1; i + 1 < g_stats_percentile_size; ++i) {
    probabilities.push_back(g_stats_percentile_1000[i] / 100000.0);
  }
  ExtendedPSquare accumulator(acc::tag::extended_p_square::probabilities = probabilities);
  return TimeInserts(accumulator, values, times);
}

GslStatistics::GslStatistics(std::uint32_t buckets, double end) : histogram_(gsl_histogram_alloc(buckets)) {
  gsl_histogram_set_ranges_uniform(histogram_.get(), 0, end);
  Clear();
}

void GslStatistics::Clear() {
  gsl_histogram_reset(histogram_.get());
  min_ = std::numeric_limits<double>::infinity();
  max_ = -min_;
  sum_ = 0;
  count_ = 0;
}

GslQuantiles::GslQuantiles(const gsl_histogram &histogram)
    : histogram_(histogram), pdf_(gsl_histogram_pdf_alloc(gsl_histogram_bins(&histogram))) {}

void GslQuantiles::Estimate(std::array<double, 9> &results) {
  gsl_histogram_pdf_init(pdf_.get(), &histogram_);
  for (std::size_t i = 0; i < results.size(); ++i) {
    results[i] = gsl_histogram_pdf_sample(pdf_.get(), g_stats_percentile_1000[i] / 100000.0);
  }
}

}  // namespace bench
