#include "export/alert.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "child.h"
#include "departure.h"
#include "error.h"
#include "export/jsonl.h"
#include "signals_blocked.h"
#include "text.h"

namespace zorstat {
namespace {

using Clock = std::chrono::steady_clock;

// Runs the command in a thread of its own, so that polls wait for nothing and a command is over when it ends. There
// is one at a time, and one input that waits.
class Runner {
 public:
  Runner(std::string program, const NameList &command, const AlertTimes &times)
      : program_(std::move(program)), command_(command), times_(times) {
    const SignalsBlocked blocked;
    thread_ = std::thread([this] { RunAll(); });
  }
  ~Runner() { Finish(); }
  Runner(const Runner &) = delete;
  Runner &operator=(const Runner &) = delete;

  // The latest takes the place of what waits.
  void Give(std::string input) {
    const std::lock_guard lock(mutex_);
    waiting_ = std::move(input);
    changed_.notify_one();
  }

  // What waits is still started. Then tells of the failures after the first.
  void Finish() {
    if (!thread_.joinable()) return;
    {
      const std::lock_guard lock(mutex_);
      end_ = Clock::now() + times_.at_end;
      changed_.notify_one();
    }
    thread_.join();
    if (failures_ > 1) Complain(fmt::format("{}: failed {} times", name(), failures_));
  }

 private:
  std::string name() const { return Printable(command_.front()); }

  void RunAll() {
    std::unique_lock lock(mutex_);
    for (Clock::time_point next = Clock::now();; next = Clock::now() + times_.apart) {
      changed_.wait(lock, [&] { return waiting_ || end_; });
      changed_.wait_until(lock, next, [&] { return end_.has_value(); });
      if (!waiting_ || (end_ && Clock::now() >= *end_)) return;
      const std::string input = *std::exchange(waiting_, std::nullopt);
      const std::string failure = RunOne(input, &lock);
      if (failure.empty() || ++failures_ != 1) continue;
      lock.unlock();  // standard error may take nothing
      Complain(fmt::format("{}: {}", name(), failure));
      lock.lock();
    }
  }

  // How it has failed, if it has.
  std::string RunOne(const std::string &input, std::unique_lock<std::mutex> *lock) {
    constexpr std::chrono::milliseconds kLook{20};
    try {
      Child child(program_, command_, input);
      const Clock::time_point latest = Clock::now() + times_.longest;
      while (!child.HasEnded()) {
        const bool is_last = end_ && *end_ < latest;
        if (Clock::now() >= (is_last ? *end_ : latest)) {
          child.Kill();
          return is_last ? "killed at the end of the run" : "killed, as it did not end";
        }
        changed_.wait_for(*lock, kLook);
      }
      return child.Failure();
    } catch (const std::exception &error) {
      return error.what();
    }
  }

  const std::string program_;
  const NameList command_;
  const AlertTimes times_;
  std::mutex mutex_;  // of what follows
  std::condition_variable changed_;
  std::optional<std::string> waiting_;
  std::optional<Clock::time_point> end_;  // of the thread
  std::size_t failures_ = 0;
  std::thread thread_;
};

bool IsMost(std::uint64_t part, std::uint64_t samples) { return part > samples / 2; }

bool IsOutside(const InstanceReadings &instance, const ObjectPlan &plan) {
  if (IsMost(instance.outside, instance.judged)) return true;
  if (!instance.values || !instance.values->distribution || !plan.range) return false;
  const zor::process::Distribution &distribution = *instance.values->distribution;
  return IsMost(SamplesOutside(distribution), SamplesOf(distribution));
}

class Alert : public Exporter {
 public:
  Alert(const Settings &settings, const AlertTimes &times)
      : command_(*settings.on_departure),
        has_intervals_(settings.clear.has_value()),
        widths_(settings.departure),
        times_(times),
        json_(MakeJsonLines(settings, &lines_)) {}

  void Begin(const Run &run) override {
    if (!run.is_live) return;
    const auto &[command, where] = command_;
    if (!has_intervals_) throw SettingsError(where + ": intervals have no end: expected a clear");
    std::string program = FindProgram(command.front());
    if (program.empty()) throw SettingsError(Refusal(where, Printable(command.front()), "a program"));
    json_->Begin(run);
    runner_.emplace(std::move(program), command, times_);
  }

  void EndInterval(const IntervalReadings &interval) override {
    if (!runner_) return;
    IntervalReadings departed = {interval.time, interval.polls, {}};
    Histories kept;  // of what is still there
    for (const ObjectReadings &object : interval.objects) {
      departed.objects.push_back({object.name, object.plan, {}});
      for (const InstanceReadings &instance : object.instances) {
        const auto key = std::pair(std::string(object.name), instance.name());
        std::vector<Band> &bands = kept[key] = std::move(histories_[key]);
        const bool has_jumped = HasJumped(instance, *object.plan, &bands);
        if (has_jumped || IsOutside(instance, *object.plan)) departed.objects.back().instances.push_back(instance);
      }
    }
    histories_ = std::move(kept);
    json_->EndInterval(departed);
    if (!lines_.empty()) runner_->Give(std::exchange(lines_, {}));
  }

  void Finish() override {
    if (runner_) runner_->Finish();
  }

 private:
  using Histories = std::map<std::pair<std::string, std::string>, std::vector<Band>>;

  bool HasJumped(const InstanceReadings &instance, const ObjectPlan &plan, std::vector<Band> *bands) const {
    if (!instance.values) return false;
    const auto band = BandOf(PointsOf(*instance.values), SamplesOf(*instance.values, plan));
    if (!band) return false;
    bands->push_back(*band);
    const std::optional<double> jump = LastJump(*bands);
    if (bands->size() > kBandsBefore) bands->erase(bands->begin());
    return jump && std::abs(*jump) >= widths_;
  }

  Setting<NameList> command_;
  bool has_intervals_;
  double widths_;
  AlertTimes times_;
  std::string lines_;
  std::unique_ptr<Exporter> json_;
  Histories histories_;
  std::optional<Runner> runner_;
};

}  // namespace

std::unique_ptr<Exporter> MakeAlert(const Settings &settings, const AlertTimes &times) {
  return settings.on_departure ? std::make_unique<Alert>(settings, times) : nullptr;
}

}  // namespace zorstat
