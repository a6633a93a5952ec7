/* The version of these headers and of the library that they were installed with. The major number is also that of
 * libzor_process.so.1: it moves when a program that was built before would break. */
#ifndef ZOR_VERSION_H_
#define ZOR_VERSION_H_

#define ZOR_PROCESS_VERSION_MAJOR 1
#define ZOR_PROCESS_VERSION_MINOR 0
#define ZOR_PROCESS_VERSION_PATCH 0

#define ZOR_PROCESS_VERSION_TEXT_(number) #number
#define ZOR_PROCESS_VERSION_TEXT(number) ZOR_PROCESS_VERSION_TEXT_(number)
/* As text, "1.0.0". */
#define ZOR_PROCESS_VERSION                           \
  ZOR_PROCESS_VERSION_TEXT(ZOR_PROCESS_VERSION_MAJOR) \
  "." ZOR_PROCESS_VERSION_TEXT(ZOR_PROCESS_VERSION_MINOR) "." ZOR_PROCESS_VERSION_TEXT(ZOR_PROCESS_VERSION_PATCH)

/* For comparisons at compile time: #if ZOR_PROCESS_VERSION_NUMBER >= 10200 is 1.2.0 or later. */
#define ZOR_PROCESS_VERSION_NUMBER \
  (ZOR_PROCESS_VERSION_MAJOR * 10000 + ZOR_PROCESS_VERSION_MINOR * 100 + ZOR_PROCESS_VERSION_PATCH)

#endif /* ZOR_VERSION_H_ */
