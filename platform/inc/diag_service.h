/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Diagnostic service of the board (closed): takes the log records of every client on the board.
 *
 * Declarations only; the simulated board or the board's own library implements them. Callable from any thread.
 */
#ifndef DIAG_SERVICE_H
#define DIAG_SERVICE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Level masks of a record. */
enum { DIAG_LEVEL_HIGH = 4, DIAG_LEVEL_ERROR = 8 };

/** What is constant about one log call: a static record per call site, owned by the caller for the process's life. */
typedef struct {
  uint32_t subsystem; /**< id of the client that logs */
  uint32_t level;     /**< DIAG_LEVEL_HIGH or DIAG_LEVEL_ERROR */
  const char *format; /**< printf format of the arguments that msg_sprintf is given */
  const char *file;   /**< source file name */
  uint32_t line;
} diag_msg_record_t;

/** Connect to the service. `arg` is not used: null. Returns 1, or 0 when the service refuses. */
int Diag_LSM_Init(void *arg);

/** Disconnect. Returns 1, or 0 when the service refuses. */
int Diag_LSM_DeInit(void);

/** Log one record; the arguments are those of record->format and are copied before it returns. */
void msg_sprintf(const diag_msg_record_t *record, ...);

#ifdef __cplusplus
}
#endif

#endif
