/*
 * Diagnostic logging of the module: formats a message and hands it to the board's diagnostic service.
 *
 * Every record's format is "%s": the service sees texts that are complete and bounded, so no argument of the caller's
 * has to outlive the call.
 */
#include "lyn_log.h"

#include <cstdarg>
#include <cstdio>

bool lyn_log_init() {
  return Diag_LSM_Init(nullptr) == 1;
}

void lyn_log_deinit() {
  Diag_LSM_DeInit();
}

void lyn_log_write(const diag_msg_record_t *record, const char *format, ...) {
  char text[LYN_LOG_TEXT_LEN] = "";
  va_list args;
  va_start(args, format);
  vsnprintf(text, sizeof text, format, args);
  va_end(args);
  msg_sprintf(record, text);
}
