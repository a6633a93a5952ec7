#include <cstdint>

#include "zor/engine.h"

const char *const ppc_g_zor_proc_error_string_list[17] = {
    "success",
    "ZOR_PROCESS_ERROR_INVALID_PARAMS",
    "ZOR_PROCESS_ERROR_NO_MEMORY",
    "ZOR_PROCESS_ERROR_OPER_NOT_FOUND",
    "ZOR_PROCESS_ERROR_DG_NOT_FOUND",
    "ZOR_PROCESS_ERROR_OBJECT_NOT_FOUND",
    "ZOR_PROCESS_ERROR_INSTANCE_NOT_FOUND",
    "ZOR_PROCESS_ERROR_UNSUPPORTED_OBJECT_TYPE",
    "ZOR_PROCESS_ERROR_IN_TEMPLATE",
    "ZOR_PROCESS_ERROR_NO_KEY",
    "ZOR_PROCESS_ERROR_INVALID_KEY_TYPE",
    "ZOR_PROCESS_ERROR_IN_DATA",
    "ZOR_PROCESS_ERROR_IN_ROW_DATA",
    "ZOR_PROCESS_ERROR_INVALID_CLEAR_INTERVAL",
    "ZOR_PROCESS_ERROR_INVALID_POLL_INTERVAL",
    "ZOR_PROCESS_ERROR_INVALID_RANGE",
    "Max Limit",
};

const char *zor_proc_get_error_string_list(std::uint32_t code) {
  return code <= ZOR_PROCESS_MAX_LIMIT ? ppc_g_zor_proc_error_string_list[code] : "unknown error code";
}
