// Takes the place of prometheus.cc where prometheus-cpp is missing.
#include "error.h"
#include "export/prometheus.h"

namespace zorstat {

std::unique_ptr<Exporter> MakePrometheus(const Settings &settings) {
  for (const auto &wanted : {settings.listen, settings.prometheus}) {
    if (!wanted) continue;
    throw SettingsError(
        fmt::format("{}: this zorstat was built without prometheus-cpp (the option ZOR_PROMETHEUS of its build)",
                    wanted->where));
  }
  return nullptr;
}

}  // namespace zorstat
