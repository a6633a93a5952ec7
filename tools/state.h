// What a run knows, kept in a file from one run to the next. The file is a line of text that says what it is, and
// then CBOR.
#ifndef ZORSTAT_STATE_H_
#define ZORSTAT_STATE_H_

#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "readings.h"
#include "settings.h"
#include "zor/process.hpp"

namespace zorstat {

// The state of runs with the same settings. Counters begin anew when the machine does.
class StateFile {
 public:
  // boot: of the machine that the counters are of, empty if that is not known.
  StateFile(std::string path, const Run &run, const Settings &settings, std::string boot);

  // What the last run has written. Nothing when there is no such file or when it cannot be gone on from, with a
  // line that says why. Throws Error when it cannot be read.
  std::optional<nlohmann::json> Read() const;

  // Takes the place of what was written before, whole or not at all. Throws OutputError.
  void Write(nlohmann::json state) const;

  // How counters go on from a state.
  zor::process::Counters CountersSince(const nlohmann::json &state) const;

  // The line for a state that cannot be gone on from.
  void Refuse(std::string_view expected) const;

 private:
  std::string path_;
  std::unique_ptr<const nlohmann::json> settings_;
  std::string boot_;
};

}  // namespace zorstat

#endif  // ZORSTAT_STATE_H_
