#include "state.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "error.h"
#include "file.h"
#include "text.h"

namespace zorstat {
namespace {

using Json = nlohmann::json;

constexpr std::string_view kHead = "zorstat state ";
constexpr int kVersion = 1;
constexpr size_t kLargestFile = size_t{1} << 32U;

// FNV-1a: what is torn or changed by accident is told by it.
std::uint64_t Checksum(std::string_view bytes) {
  std::uint64_t sum = 0xcbf29ce484222325;
  for (const char byte : bytes) sum = (sum ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
  return sum;
}

std::string HeadOf(std::string_view body) {
  return fmt::format("{}{} {} {:016x}\n", kHead, kVersion, body.size(), Checksum(body));
}

// The settings on which it depends what the library holds.
Json Describe(const Run &run, const Settings &settings) {
  Json objects;
  for (const ObjectPlan &plan : run.plans) {
    const Column &column = run.table.columns[plan.column];
    const bool is_baseline = plan.statistics == ZOR_PROCESS_FLAG_BASELINE;
    Json &object = objects[column.name][is_baseline ? "baseline" : "statistics"];
    object = {{"type", column.type},
              {"statistics", plan.statistics},
              {"buckets", plan.buckets},
              {"values", plan.values},
              {"instances", plan.instances.value_or(NameList{})}};
    if (plan.range) object["range"] = plan.range->bounds;
    if (plan.clear) object["clear"] = ClearPolls(*plan.clear, run.poll_interval);
  }
  Json description = {{"dg", run.group}, {"interval", run.poll_interval}, {"key", run.table.key}};
  if (settings.clear) description["clear"] = ClearPolls(*settings.clear, run.poll_interval);
  if (settings.expire) description["expire"] = settings.expire->value;
  description["objects"] = std::move(objects);
  return description;
}

}  // namespace

StateFile::StateFile(std::string path, const Run &run, const Settings &settings, std::string boot)
    : path_(std::move(path)),
      settings_(std::make_unique<const Json>(Describe(run, settings))),
      boot_(std::move(boot)) {}

void StateFile::Write(Json state) const {
  state["settings"] = *settings_;
  state["boot"] = boot_;
  std::string body;
  Json::to_cbor(state, body);
  Output file(path_);
  file.Write(HeadOf(body) + body);
  file.Close();
}

std::optional<Json> StateFile::Read() const {
  std::error_code error;
  if (!std::filesystem::exists(path_, error) && !error) return std::nullopt;
  std::string text;
  ReadFile(path_, kLargestFile, &text);
  const size_t head = std::min(text.find('\n'), text.size() - 1) + 1;
  const std::string_view body = std::string_view(text).substr(head);
  const bool is_whole = text.starts_with(kHead) && std::string_view(text).substr(0, head) == HeadOf(body);
  Json state = is_whole ? Json::from_cbor(body, true, false) : Json();
  if (!state.is_object()) {
    Refuse(fmt::format("a whole state of version {}", kVersion));
    return std::nullopt;
  }
  const Json changes = Json::diff(state.value("settings", Json()), *settings_);
  if (changes.empty()) return state;
  Refuse("a state of these settings, other than in " + Printable(changes[0].at("path").get<std::string>()));
  return std::nullopt;
}

zor::process::Counters StateFile::CountersSince(const Json &state) const {
  const std::string boot = state.value("boot", "");
  const bool is_another = !boot.empty() && !boot_.empty() && boot != boot_;
  return is_another ? zor::process::Counters::begin_anew : zor::process::Counters::go_on;
}

void StateFile::Refuse(std::string_view expected) const {
  Complain(fmt::format("{}: not gone on from: expected {}", path_, expected));
}

}  // namespace zorstat
