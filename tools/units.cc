#include "units.h"

#include <fmt/format.h>

#include <cmath>
#include <span>

#include "text.h"

namespace zorstat {
namespace {

using zor::process::Decimal;
using zor::process::Number;

constexpr std::string_view kBytes[] = {" B", " kB", " MB", " GB", " TB", " PB", " EB"};
constexpr std::string_view kBits[] = {" bit", " kbit", " Mbit", " Gbit", " Tbit", " Pbit", " Ebit"};
constexpr std::string_view kTimes[] = {" ns", " us", " ms", " s"};
constexpr std::string_view kPercent[] = {" %"};
constexpr std::string_view kPrefixes[] = {"", "k", "M", "G", "T", "P", "E"};

// A unit and those above it, each 1000 times as large as the one before.
struct KnownUnit {
  std::string_view name;
  std::span<const std::string_view> steps;
};
const KnownUnit kKnown[] = {
    {"bytes", kBytes},
    {"bits", kBits},
    {"percent", kPercent},
    {"ns", kTimes},
    {"us", std::span(kTimes).subspan(1)},
    {"ms", std::span(kTimes).subspan(2)},
    {"s", std::span(kTimes).subspan(3)},
};

std::span<const std::string_view> StepsOf(std::string_view name) {
  for (const KnownUnit &unit : kKnown) {
    if (unit.name == name) return unit.steps;
  }
  return {};
}

// So many significant digits, or all before the point; not of a negative value.
std::string Rounded(double value, int digits) {
  if (value > 0 && value < 0.0005) return "<0.001";
  if (value < 99.5) return fmt::format("{:.{}g}", value, digits);
  return fmt::format("{:.0f}", value);
}

// A double would lose digits of the larger ones.
std::string MereNumber(const Decimal &value) {
  const double size = std::abs(static_cast<double>(value));
  if (size < 99.5) return (value.whole.is_negative() ? "-" : "") + Rounded(size, 3);
  const std::uint64_t nearest = value.whole.bits() + (value.thousandths < 500 ? 0 : 1);
  return value.whole.is_negative() ? Number(static_cast<std::int64_t>(nearest)).text() : Number(nearest).text();
}

}  // namespace

std::optional<Unit> ParseUnit(std::string_view text) {
  constexpr std::size_t kLongest = 20;
  Unit unit;
  const std::size_t space = text.find(' ');
  if (const auto factor = ParseNumber<double>(text.substr(0, space))) {
    if (!(*factor > 0 && *factor < 1e18)) return std::nullopt;
    unit.factor = *factor;
    text.remove_prefix(space == std::string_view::npos ? text.size() : space + 1);
  }
  if (text.size() > kLongest || (!text.empty() && !IsName(text))) return std::nullopt;
  unit.name = text;
  return unit;
}

std::string InUnit(const Decimal &value, const Unit &unit, std::uint32_t poll_interval) {
  if (unit.is_number()) return MereNumber(value);
  const double amount = static_cast<double>(value) * unit.factor / (unit.per_second ? poll_interval : 1);
  const auto known = StepsOf(unit.name);
  const auto steps = known.empty() ? std::span(kPrefixes) : known;
  constexpr double kNextStep = 999.5;  // which would be shown as 1000
  double size = std::abs(amount);
  std::size_t step = 0;
  for (; size >= kNextStep && step + 1 < steps.size(); ++step) size /= 1000;
  const std::string name = !known.empty() || unit.name.empty() ? "" : " " + unit.name;
  const bool says_per_second = unit.per_second && unit.name != "percent";
  return fmt::format("{}{}{}{}{}", amount < 0 ? "-" : "", Rounded(size, 2), steps[step], name,
                     says_per_second ? "/s" : "");
}

std::string Shortest(const Decimal &value) {
  std::string text = value.text();
  const std::size_t last = text.find_last_not_of('0');
  text.resize(text[last] == '.' ? last : last + 1);
  return text;
}

}  // namespace zorstat
