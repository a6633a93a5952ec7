/** @file
 * @brief Everything that libzor_process exports. */
#ifndef ZOR_PROCESS_H_
#define ZOR_PROCESS_H_

#include "zor/analyzer.h"
#include "zor/dynamic_counters.h"
#include "zor/engine.h"
#include "zor/entry.h"
#include "zor/learner.h"
#include "zor/percentile.h"
#include "zor/platform.h"
#include "zor/print_handle.h"
#include "zor/range_counters.h"
#include "zor/sorted_array.h"
#include "zor/summary.h"
#include "zor/types.h"
#include "zor/version.h"

#endif /* ZOR_PROCESS_H_ */
