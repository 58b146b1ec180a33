/* SPDX-License-Identifier: Apache-2.0 */
// The records as lines on standard output: a snapshot every interval and every event as it comes, or one snapshot.
#ifndef LYN_WATCH_LINES_H
#define LYN_WATCH_LINES_H

#include "lyn_watch_model.h"

enum lyn_watch_lines_end_e {
  LYN_WATCH_LINES_DONE,      // all is written, nobody reads it any more, or the model has ended
  LYN_WATCH_LINES_NO_MODEM,  // there is nothing to tell
  LYN_WATCH_LINES_FAILED     // it cannot be written, as standard error was told
};

/** Snapshots and events until the model ends or nobody reads them any more. */
lyn_watch_lines_end_e lyn_watch_lines_run(lyn_watch_model_t *model, lyn_watch_ms_t every, int fd);

/** One snapshot, once all was read that is to be read. */
lyn_watch_lines_end_e lyn_watch_lines_once(lyn_watch_model_t *model, int fd);

#endif
