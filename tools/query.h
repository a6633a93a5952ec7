// Questions to histories: statistics of any hosts, instances and intervals together.
#ifndef ZORSTAT_QUERY_H_
#define ZORSTAT_QUERY_H_

#include <optional>
#include <string>
#include <vector>

namespace zorstat {

// As they were given.
struct QueryOptions {
  std::vector<std::string> files;
  std::string object;
  std::optional<std::string> instance, host, group, from, to, by;
  std::string points = "50,97.72,99.87";
  std::string format = "table";
};

// Writes the answer to standard output. Throws SettingsError where an option, or what it names, is not there.
void Query(const QueryOptions &options);

}  // namespace zorstat

#endif  // ZORSTAT_QUERY_H_
