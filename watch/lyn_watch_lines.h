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

/* Which picture is a snapshot */

/** Intervals are counted from the first reading on, and until then from the program's begin. */
struct lyn_watch_intervals_t {
  lyn_watch_ms_t every;
  lyn_watch_time_t origin;
  int64_t next = 0;  // the interval whose snapshot is the next
  uint64_t readings = 0;
};

/** When the next snapshot comes, whether or not its interval's reading has ended. */
lyn_watch_time_t lyn_watch_intervals_latest(const lyn_watch_intervals_t &intervals);

/**
 * Whether the picture is the snapshot of its interval: it comes behind a reading that ended in it, or once it is late.
 * Intervals of which there is no picture are not made up for.
 */
bool lyn_watch_intervals_take(lyn_watch_intervals_t *intervals, const lyn_watch_picture_t &picture);

#endif
