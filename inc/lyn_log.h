/*
 * Diagnostic logging of the module.
 *
 * Every message goes to the board's diagnostic service: formatted here into a bounded buffer and emitted with a static
 * record of its call site. High level is for progress and successes, error level for failures. The compiler checks the
 * arguments against the format. Callable from any thread; a failure is logged once, where it is known best.
 *
 *   LYN_LOG_ERROR("Retrieving YRP NAS service list failed with status[%d]", status);
 */
#ifndef LYN_LOG_H
#define LYN_LOG_H

#include <stdint.h>

#include "diag_service.h"

/** Subsystem id of the module's records. */
inline constexpr uint32_t LYN_LOG_SUBSYSTEM = 65;

/** Longest text with its terminator; what goes beyond is cut. */
inline constexpr uint32_t LYN_LOG_TEXT_LEN = 512;

/** Connect to the diagnostic service. False when it refuses; records are written all the same. */
bool lyn_log_init();

/** Disconnect from it. */
void lyn_log_deinit();

/** Format and emit one record; use the macros below. */
void lyn_log_write(const diag_msg_record_t *record, const char *format, ...) __attribute__((format(printf, 2, 3)));

#define LYN_LOG_AT(mask, ...)                                                                                     \
  do {                                                                                                            \
    static constexpr diag_msg_record_t lyn_log_record = {LYN_LOG_SUBSYSTEM, mask, "%s", __FILE_NAME__, __LINE__}; \
    lyn_log_write(&lyn_log_record, __VA_ARGS__);                                                                  \
  } while (0)

#define LYN_LOG_HIGH(...) LYN_LOG_AT(DIAG_LEVEL_HIGH, __VA_ARGS__)
#define LYN_LOG_ERROR(...) LYN_LOG_AT(DIAG_LEVEL_ERROR, __VA_ARGS__)

/** A handle as "%p" shows it: "(nil)" for 0. */
inline const void *lyn_log_handle(uint32_t hndl) {
  return reinterpret_cast<const void *>(static_cast<uintptr_t>(hndl));
}

#endif
