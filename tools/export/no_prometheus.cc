// Takes the place of prometheus.cc where prometheus-cpp is missing.
#include "error.h"
#include "export/prometheus.h"

namespace zorstat {

std::unique_ptr<Exporter> MakePrometheus(const Settings &settings) {
  const auto &wanted = settings.listen ? settings.listen : settings.prometheus;
  if (!wanted) return nullptr;
  throw SettingsError(fmt::format("{}: this zorstat was built without prometheus-cpp (CMake option ZOR_PROMETHEUS)",
                                  wanted->where));
}

}  // namespace zorstat
