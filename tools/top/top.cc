#include "top/top.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "collector.h"
#include "proc_table.h"
#include "readings.h"
#include "source.h"
#include "top/model.h"
#include "top/screen.h"
#include "top/view.h"

namespace zorstat {
namespace {

using std::chrono::milliseconds;

constexpr std::uint32_t kDefaultClear = 60;  // polls
constexpr std::uint16_t kShown = ZOR_PROCESS_FLAG_SUMMARY | ZOR_PROCESS_FLAG_PERCENTILE;

// A view of baselines alone would be empty until they have learnt.
void AddShown(Settings *settings) {
  const auto add = [](OptionalSetting<std::uint16_t> *statistics) {
    if (*statistics) (*statistics)->value |= kShown;
  };
  add(&settings->statistics);
  for (Settings &table : settings->tables) add(&table.statistics);
}

std::string ClockTime(std::int64_t seconds) {
  const std::time_t time = seconds;
  std::tm parts{};
  char text[16];
  if (localtime_r(&time, &parts) == nullptr) return {};
  return {text, std::strftime(text, sizeof text, "%H:%M:%S", &parts)};
}

// Polls, and what the view makes of them.
class Feed {
 public:
  Feed(const std::string &source, const Run &run, const Settings &settings)
      : collector_(run, settings, true), tracker_(run) {
    model_.source = source;
    model_.poll_interval = run.poll_interval;
    model_.interval_polls = ClearPolls(*settings.clear, run.poll_interval);
  }

  const top::Model &model() const { return model_; }

  void Count(const Poll &poll, const std::string &place) {
    std::string records;  // not asked for
    collector_.AddRows(poll, place);
    collector_.EndPoll(&records);
    const std::optional<IntervalReadings> ended = collector_.TakeInterval();
    model_.objects = tracker_.Update(ended ? ended->objects : collector_.InProgress(), ended.has_value());
    model_.polls = model_.polls % model_.interval_polls + 1;
    model_.time = ClockTime(poll.time);
  }

 private:
  Collector collector_;
  top::Tracker tracker_;
  top::Model model_;
};

// False when a key or a signal ended the view before the next poll was due.
bool ShowUntilDue(const LiveSource &source, const top::Model &model, const top::Screen &screen, top::State *state) {
  constexpr milliseconds kSecond{1000};
  for (;;) {
    const milliseconds left = source.UntilNext();
    const auto seconds = static_cast<int>((left + kSecond - milliseconds(1)) / kSecond);
    screen.Show(Draw(model, *state, seconds, top::Screen::size(), screen.utf8()));
    if (left == milliseconds(0)) return true;
    if (!screen.Wait((left - milliseconds(1)) % kSecond + milliseconds(1))) return false;
    for (top::Key key = top::Screen::TakeKey(); key != top::Key::kNone; key = top::Screen::TakeKey()) {
      if (!Press(key, model, top::Screen::size(), state)) return false;
    }
  }
}

}  // namespace

void Top(const std::string &source_name, const Settings &given) {
  Settings settings = given;
  AddShown(&settings);
  const std::uint32_t interval = settings.interval ? settings.interval->value : kDefaultInterval;
  LiveSource source(std::make_unique<ProcTable>(source_name, settings.proc), interval, std::nullopt);
  const std::vector<ObjectPlan> plans = PlanObjects(settings, source.table());
  if (!settings.clear) settings.clear = {Interval::polls(kDefaultClear), "default of --clear"};
  if (!settings.expire) settings.expire = {kDefaultExpire, "default of --expire"};
  const Run run = {source_name, interval, source.table(), plans, true};
  Feed feed(source_name, run, settings);
  const top::Screen screen;
  top::State state;
  Poll poll;
  while (source.Next(&poll)) {
    feed.Count(poll, source.Place(poll));
    if (!ShowUntilDue(source, feed.model(), screen, &state)) return;
  }
}

}  // namespace zorstat
