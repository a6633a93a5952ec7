/** @file
 * @brief Codes, flags and value types shared by every interface of libzor_process.
 *
 * The library takes no locks and starts no threads. Each engine, with all that belongs to it, is used by one thread
 * at a time; threads with an engine each need not wait for one another, but for console reports, whose print handle
 * they share. */
#ifndef ZOR_TYPES_H_
#define ZOR_TYPES_H_

#include <stdint.h>

/** Marks what the library exports. */
#define ZOR_API __attribute__((visibility("default")))

/** The four data types: expands X(type, value, unsigned_value, total) once for each, in the order of their codes.
 *   - type: suffix of the exported names
 *   - value: type of a sample
 *   - unsigned_value: unsigned type of the same width, for differences of samples
 *   - total: 64-bit type in which samples are summed up */
#define ZOR_PROCESS_FOR_EACH_TYPE(X)      \
  X(int32, int32_t, uint32_t, int64_t)    \
  X(uint32, uint32_t, uint32_t, uint64_t) \
  X(int64, int64_t, uint64_t, int64_t)    \
  X(uint64, uint64_t, uint64_t, uint64_t)

#ifdef __cplusplus
extern "C" {
#endif

/** Data-type codes. A typed function table is indexed by code - 1. */
typedef enum zor_process_data_type {
  ZOR_PROCESS_DATA_TYPE_INT32 = 1,  /**< signed, 32 bits */
  ZOR_PROCESS_DATA_TYPE_UINT32 = 2, /**< unsigned, 32 bits */
  ZOR_PROCESS_DATA_TYPE_INT64 = 3,  /**< signed, 64 bits */
  ZOR_PROCESS_DATA_TYPE_UINT64 = 4  /**< unsigned, 64 bits */
} zor_process_data_type_t;

/** Slots of a typed function table. */
enum { ZOR_PROCESS_NO_OF_DATA_TYPES = 4 /**< one for each data type */ };

/** Analyses of an object, as bits of a 16-bit set. */
enum {
  ZOR_PROCESS_FLAG_SUMMARY = 1,      /**< minimum, maximum, sum, average */
  ZOR_PROCESS_FLAG_DISTRIBUTION = 2, /**< counts per sub-range of a value range */
  ZOR_PROCESS_FLAG_PERCENTILE = 4,   /**< nine percentiles; implies summary and distribution */
  ZOR_PROCESS_FLAG_BASELINE = 8,     /**< learnt range and its percentiles; valid only alone */
  /** The analyses that a clear resets, as it does at the end of a clear interval: the mask to clear a data group
   * with. Percentiles hold only while summary and distribution are reset together. A baseline goes on. */
  ZOR_PROCESS_FLAGS_CLEARED =
      ZOR_PROCESS_FLAG_SUMMARY | ZOR_PROCESS_FLAG_DISTRIBUTION | ZOR_PROCESS_FLAG_PERCENTILE,
  /** Every analysis that there is; not to be asked for together, as a baseline is valid only alone. */
  ZOR_PROCESS_FLAGS_ALL = ZOR_PROCESS_FLAGS_CLEARED | ZOR_PROCESS_FLAG_BASELINE
};

/** Error codes of the engine; zor_proc_get_error_string_list() names them. */
enum {
  ZOR_PROCESS_SUCCESS = 0,                       /**< done */
  ZOR_PROCESS_ERROR_INVALID_PARAMS = 1,          /**< a required name or record is missing */
  ZOR_PROCESS_ERROR_NO_MEMORY = 2,               /**< also: an instance entry cannot be created as configured */
  ZOR_PROCESS_ERROR_OPER_NOT_FOUND = 3,          /**< the call does not know this operation */
  ZOR_PROCESS_ERROR_DG_NOT_FOUND = 4,            /**< no such data group, or no further one */
  ZOR_PROCESS_ERROR_OBJECT_NOT_FOUND = 5,        /**< no such object, or no further one */
  ZOR_PROCESS_ERROR_INSTANCE_NOT_FOUND = 6,      /**< no such configured instance, or no further one */
  ZOR_PROCESS_ERROR_UNSUPPORTED_OBJECT_TYPE = 7, /**< the column of an enabled object is not a number */
  ZOR_PROCESS_ERROR_IN_TEMPLATE = 8,             /**< the column array ends before its count */
  ZOR_PROCESS_ERROR_NO_KEY = 9,                  /**< a row arrives and no template named a key column */
  ZOR_PROCESS_ERROR_INVALID_KEY_TYPE = 10,       /**< the key is not a string with a value */
  ZOR_PROCESS_ERROR_IN_DATA = 11,                /**< an instance refused a value; also message kind 3 */
  ZOR_PROCESS_ERROR_IN_ROW_DATA = 12,            /**< unknown message kind */
  ZOR_PROCESS_ERROR_INVALID_CLEAR_INTERVAL = 13, /**< an earlier clear buffer was not collected */
  ZOR_PROCESS_ERROR_INVALID_POLL_INTERVAL = 14,  /**< the poll interval is below 10 seconds */
  ZOR_PROCESS_ERROR_INVALID_RANGE = 15,          /**< the range does not fit the column's data type */
  ZOR_PROCESS_MAX_LIMIT = 16                     /**< zor_process_engine_clear_dg_data(): no such data group */
};

/** Operations of the three configuration calls. */
enum {
  ZOR_PROCESS_OPER_SET = 0,     /**< create, change */
  ZOR_PROCESS_OPER_DELETE = 1,  /**< delete, or take flags away */
  ZOR_PROCESS_OPER_CLEAR = 2,   /**< reset the collected data of a data group */
  ZOR_PROCESS_OPER_GET = 3,     /**< read the named record, or the first */
  ZOR_PROCESS_OPER_GET_NEXT = 4 /**< read the record after the named one, or the first */
};

/** Output of rendering, as bits of a 16-bit set. */
enum {
  ZOR_PROCESS_OUTPUT_CONSOLE = 1,    /**< console lines through the print handle; no text is returned */
  ZOR_PROCESS_OUTPUT_SCHEMA_DEF = 2, /**< headers that declare the fields of each record kind */
  ZOR_PROCESS_OUTPUT_RECORD = 4      /**< record lines */
};

#define ZOR_DECLARE_FIXED_POINT(type, value, unsigned_value, total)                                           \
  /** A value with three decimals in floor form: int_part + thousandths / 1000. So -10.5 is int_part -11 with \
      500 thousandths; wherever the library prints such a value it writes -10.500. */                         \
  typedef struct stats_fixed_point_##type {                                                                   \
    value int_part;       /**< the whole part, rounded down */                                                \
    uint16_t thousandths; /**< 0 to 999 */                                                                    \
  } stats_fixed_point_##type##_t;
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DECLARE_FIXED_POINT)
#undef ZOR_DECLARE_FIXED_POINT

#ifdef __cplusplus
}
#endif

#endif /* ZOR_TYPES_H_ */
