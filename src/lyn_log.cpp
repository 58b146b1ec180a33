/*
 * Diagnostic logging of the module: formats a message and hands it to the board's diagnostic service.
 *
 * Every record's format is "%s": the service sees texts that are complete and bounded, so no argument of the caller's
 * has to outlive the call.
 */
#include "lyn_log.h"

bool lyn_log_init() {
  return Diag_LSM_Init(nullptr) == 1;
}

void lyn_log_deinit() {
  Diag_LSM_DeInit();
}

void lyn_log_emit(const diag_msg_record_t *record, const char *format, const lyn_log_piece_t *pieces,
                  const uint64_t *words) {
  char text[LYN_LOG_TEXT_LEN];
  lyn_log_format(text, format, pieces, words);
  msg_sprintf(record, text);
}
