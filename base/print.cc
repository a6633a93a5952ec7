#include "base/print.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "zor/platform.h"
#include "zor/print_handle.h"

zor_process_print_handle_t *pvg_prt_handle = nullptr;

namespace zor {
namespace {

constexpr std::int32_t kTextItem = 3;  // what the platform's data lists call a text

void NameNextLine(zor_process_print_handle_t &handle) {
  handle.buf_count = static_cast<std::int32_t>(static_cast<std::uint32_t>(handle.buf_count) + 1);
  char name[sizeof "buf-2147483648"];
  std::snprintf(name, sizeof name, "buf%d", handle.buf_count);
  std::memset(handle.buf_name, 0, sizeof handle.buf_name);
  std::memcpy(handle.buf_name, name, strnlen(name, sizeof handle.buf_name - 1));
}

void EmitThrough(zor_process_print_handle_t &handle, const char *format, std::va_list args) {
  std::va_list measured;
  va_copy(measured, args);
  handle.buf_len = std::vsnprintf(nullptr, 0, format, measured);
  va_end(measured);
  if (handle.buf_len < 0 || handle.buf_len == INT32_MAX) return;
  const std::size_t size = static_cast<std::size_t>(handle.buf_len) + 1;
  handle.buf = static_cast<char *>(std::calloc(size, 1));
  if (!handle.buf) return;
  std::vsnprintf(handle.buf, size, format, args);
  NameNextLine(handle);
  vamra_edm_datalist_add(handle.datalist, handle.buf_name, kTextItem, 0, handle.buf, handle.buf_len + 1);
  std::free(handle.buf);
  handle.buf = nullptr;
}

}  // namespace

void EmitLine(const char *format, ...) {
  std::va_list args;
  va_start(args, format);
  if (pvg_prt_handle) {
    EmitThrough(*pvg_prt_handle, format, args);
  } else {
    std::vprintf(format, args);
  }
  va_end(args);
}

void EmitName(const char *name, int width, const char *piece_end, const char *separator) {
  const auto piece = static_cast<std::size_t>(width);
  std::size_t left = std::strlen(name);
  for (;;) {
    EmitLine("%-*.*s%s", width, width, name, piece_end);
    if (left <= piece) return;
    EmitLine("%s", separator);
    name += piece;
    left -= piece;
  }
}

}  // namespace zor
