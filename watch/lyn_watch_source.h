/* SPDX-License-Identifier: Apache-2.0 */
// The one room that calls the module: brings it up, subscribes all eight indications, reads every metric of the table
// at its interval and again when the registration changes or the modem comes back, scans and locates where asked to. It
// has a thread of its own; what it learns goes into the model. There is one module in a process, and one source.
#ifndef LYN_WATCH_SOURCE_H
#define LYN_WATCH_SOURCE_H

#include "lyn_watch_model.h"

/** How often what is done; zero: never. */
struct lyn_watch_plan_t {
  lyn_watch_ms_t every;
  lyn_watch_ms_t scan;
  lyn_watch_ms_t locate;
};

/** Start the thread. The model must live as long as the process. false: there is no thread to be had. */
bool lyn_watch_source_start(lyn_watch_model_t *model, const lyn_watch_plan_t &plan);

/** Scan for neighbours soon, whatever the plan says. From any thread. */
void lyn_watch_source_scan();

/** Take the module down; false: a request did not end in time, and the thread still runs. */
bool lyn_watch_source_stop(lyn_watch_ms_t patience);

#endif
