// Console lines: appended to the data list of the current print handle, or written to standard output without one.
#ifndef ZOR_BASE_PRINT_H_
#define ZOR_BASE_PRINT_H_

namespace zor {

// Emits one text item. One that cannot be allocated is dropped.
__attribute__((format(printf, 1, 2))) void EmitLine(const char *format, ...);

// Emits a name in pieces of `width` characters, each an item of its own padded to the width and followed by
// `piece_end`, with `separator` as an item between two pieces.
void EmitName(const char *name, int width, const char *piece_end, const char *separator);

}  // namespace zor

#endif  // ZOR_BASE_PRINT_H_
