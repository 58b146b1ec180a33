/* SPDX-License-Identifier: Apache-2.0 */
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

void lyn_log_emit(const diag_msg_record_t *record, const uint8_t *program, const uint64_t *words) {
  lyn_log_text_t text;
  lyn_log_format(text, program, words);
  msg_sprintf(record, text);
}
