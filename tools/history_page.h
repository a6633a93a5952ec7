// A page of what runs have kept.
#ifndef ZORSTAT_HISTORY_PAGE_H_
#define ZORSTAT_HISTORY_PAGE_H_

#include <string>

#include "query.h"

namespace zorstat {

// Of the files and conditions. Throws Error where that is nothing, or too much for a page.
void WriteHistoryPage(const QueryOptions &options, const std::string &output);

}  // namespace zorstat

#endif  // ZORSTAT_HISTORY_PAGE_H_
