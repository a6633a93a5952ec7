// What is judged at the end of a replay, and what runs a command.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <thread>

#include "export/alert.h"
#include "program.h"

namespace zorstat {
namespace {

using namespace std::chrono_literals;

constexpr Case kVerdicts[] = {
    {"more than so many of all intervals, the larger share first",
     "$Z replay v.csv --statistics summary,distribution --range 0:9 --clear 3 --fail-outside 12.4 > r1; echo $?;"
     "$Z replay v.csv --statistics summary,distribution --range 0:9 --clear 3 > r2; cmp r1 r2; wc -l < r2",
     "3\n9\n",
     "zorstat: 50.00 %  4 of 8 samples  outside 0:9  v  q\nzorstat: 12.50 %  1 of 8 samples  outside 0:9  v  p\n"},
    {"so many are not more",
     "$Z replay v.csv --statistics distribution --range 0:9 --clear 3 --fail-outside 12.5 > r1; echo $?", "3\n",
     "zorstat: 50.00 %  4 of 8 samples  outside 0:9  v  q\n"},
    {"a learnt range, alone or worse than the other",
     "for s in baseline summary,distribution,baseline; do $Z replay learn.csv --config learn.toml --statistics $s "
     "-o "
     "r1 --fail-outside 19.9; echo $?; done",
     "3\n3\n",
     "zorstat: 60.00 %  3 of 5 samples  outside 10:40 (learnt)  v  x\n"
     "zorstat: 60.00 %  3 of 5 samples  outside 10:40 (learnt)  v  x\n"},
    {"counts that were full begin anew",
     "$Z replay full.csv --statistics baseline --clear 1000 --fail-outside 99 -o r1; echo $?", "3\n",
     "zorstat: 100.00 %  68464 of 68464 samples  outside 1:1 (learnt)  v  x\n"},
    {"what has not learnt is not judged",
     "$Z replay learn.csv --statistics baseline --clear 10 --fail-outside 0 -o r1; echo $?", "0\n",
     "zorstat: v: no baseline yet, 1 instance is still learning\n"},
    {"the first are named", "$Z replay many.csv --range 0:0 --fail-outside 0 2>&1 | tail -n 2",
     "zorstat: 100.00 %  1 of 1 samples  outside 0:0  v  8\nzorstat: 2 more instances outside\n", ""},
    {"a failure is one",
     "(cat v.csv; echo 80,p,x) | $Z replay - --statistics distribution --range 0:9 --fail-outside 0 -o r1; echo $?",
     "1\n", "zorstat: standard input:26: v: 'x': expected a number from 0 to 18446744073709551615\n"},
    {"nothing to judge", "$Z replay v.csv --statistics summary --range 0:9 --fail-outside 5; echo $?", "2\n",
     "zorstat: --fail-outside: nothing to judge: expected an object with buckets in a range, or a baseline\n"},
};

TEST_F(ProgramTest, JudgesAReplay) {
  std::string polls = "time,k,v\n";
  std::string many = polls;
  std::string full = polls;
  for (int i = 0; i < 8; ++i) {
    const std::string time = std::to_string(10 * i);
    polls += time + ",p," + (i == 7 ? "10" : "9") + "\n";
    polls += time + ",q," + (i % 2 == 0 ? "10" : "0") + "\n" + time + ",r,5\n";
  }
  for (int i = 1; i <= 10; ++i) many += "10," + std::to_string(i) + ",1\n";
  for (int i = 1; i <= 70000; ++i) full += std::to_string(10 * i) + ",x," + (i <= 1000 ? "1\n" : "2\n");
  Write("v.csv", polls);
  Write("many.csv", many);
  Write("full.csv", full);
  Write("learn.csv", "time,k,v\n0,x,10\n10,x,20\n20,x,30\n30,x,40\n40,x,25\n50,x,100\n60,x,25\n70,x,41\n80,x,9\n");
  Write("learn.toml", "clear = 3\n[objects.v]\nclear = 4\n");
  for (const Case &verdict : kVerdicts) Check(verdict);
}

class AlertTest : public ProgramTest {
 protected:
  AlertTest() {
    plan_.statistics = ZOR_PROCESS_FLAG_PERCENTILE;
    plan_.range = Range(0, 999);
    mkfifo("pipe", 0600);
  }

  std::unique_ptr<Exporter> Make(const std::string &script, const AlertTimes &times) {
    Settings settings;
    settings.clear = {Interval::polls(1), ""};
    settings.on_departure = {{"sh", "-c", script}, ""};
    auto alert = MakeAlert(settings, times);
    alert->Begin(run_);
    return alert;
  }

  // Of as many samples with this median and width.
  InstanceReadings Instance(const std::string &name, std::uint64_t median, std::uint64_t width,
                            std::uint32_t samples = 10) const {
    Reading reading;
    reading.name = name;
    reading.samples = samples;
    reading.points = zor::process::Points{};
    for (std::size_t i = 0; i < 9; ++i)
      (*reading.points)[i].whole = median + (i > 4 ? width / 2 : 0) - (i < 4 ? width / 2 : 0);
    reading.distribution = zor::process::Distribution{0, 999, 0, 0, {{0, 999, samples}}};
    return {std::move(reading), std::nullopt};
  }
  static InstanceReadings Outside(const std::string &name, std::uint64_t below, std::uint64_t above,
                                  std::uint32_t inside) {
    Reading reading;
    reading.name = name;
    reading.distribution = zor::process::Distribution{0, 999, below, above, {{0, 999, inside}}};
    return {std::move(reading), std::nullopt};
  }
  IntervalReadings Interval(std::int64_t time, std::vector<InstanceReadings> instances) const {
    return {time, 1, {{"v", &plan_, std::move(instances)}}};
  }
  IntervalReadings Departed(std::int64_t time) const { return Interval(time, {Outside("i", 1, 0, 0)}); }

  Table table_ = {"k", {{"v"}}};
  std::vector<ObjectPlan> plans_;
  ObjectPlan plan_;
  zorstat::Run run_ = {"g", 10, table_, plans_, true};
};

TEST_F(AlertTest, TellsWhatDeparts) {
  const auto alert = Make("sed 's/.*instance\":\"//; s/\".*//' | tr '\\n' ' ' > out", {});
  InstanceReadings learnt = {std::nullopt, Outside("most outside what is learnt", 1, 0, 1).values, 3, 5};
  for (int i = 0; i < 3; ++i) {
    alert->EndInterval(Interval(i, {Instance("up", 100, 20), Instance("down", 100, 20), Instance("near", 100, 20),
                                    Instance("few", 100, 20), Instance("half", 1, 0)}));
  }
  alert->EndInterval(Interval(
      3, {Instance("up", 140, 2), Instance("down", 60, 2), Instance("near", 138, 2), Instance("few", 500, 2, 4),
          Outside("half", 1, 1, 2), Outside("most", 1, 2, 2), Instance("new", 500, 2), learnt}));
  alert->Finish();
  EXPECT_EQ(Read("out"), "up down most most outside what is learnt ");
}

TEST_F(AlertTest, RunsOneAtATimeAndNotTooOften) {
  const auto alert = Make("echo >> starts; cut -c-9 >> out; cat pipe && rm pipe", {1h, 1h, 1h});
  alert->EndInterval(Departed(1));
  {
    const std::ofstream pipe("pipe");  // it runs now, and until this closes
    for (int i = 2; i <= 4; ++i) alert->EndInterval(Departed(i));
  }
  testing::internal::CaptureStderr();
  alert->Finish();
  EXPECT_EQ(Read("out"), "{\"time\":1\n{\"time\":4\n");
  EXPECT_EQ(Read("starts"), "\n\n");
  EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::EndsWith("zorstat: sh: exit status 1\n"));
}

TEST_F(AlertTest, KillsWhatDoesNotEndWithItsGroup) {
  for (const bool at_end : {true, false}) {
    testing::internal::CaptureStderr();
    const auto alert = Make("sleep 1000 <> pipe & wait", {0s, at_end ? 1h : 500ms, at_end ? 500ms : 1h});
    alert->EndInterval(Departed(1));
    alert->Finish();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              at_end ? "zorstat: sh: killed at the end of the run\n" : "zorstat: sh: killed, as it did not end\n");
    int reader = 0;  // a killed process lets go of its files when it is next to run
    for (int tries = 0; tries < 500 && (reader = open("pipe", O_WRONLY | O_NONBLOCK)) >= 0; ++tries) {
      close(reader);
      std::this_thread::sleep_for(10ms);
    }
    EXPECT_LT(reader, 0) << "somebody reads it";
  }
}

TEST_F(AlertTest, TellsOfTheFirstFailureAndOfTheirNumber) {
  testing::internal::CaptureStderr();
  const auto alert = Make("echo >> starts; exit 3", {0s, 1h, 1h});
  const std::vector<InstanceReadings> more_than_a_pipe_holds(2000, Outside(std::string(200, 'n'), 1, 0, 0));
  for (std::size_t i = 1; i <= 3; ++i) {
    alert->EndInterval(Interval(1, more_than_a_pipe_holds));
    while (Read("starts").size() < i) std::this_thread::yield();
  }
  alert->Finish();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "zorstat: sh: exit status 3\nzorstat: sh: failed 3 times\n");
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

}  // namespace
}  // namespace zorstat
