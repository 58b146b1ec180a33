/* SPDX-License-Identifier: Apache-2.0 */
// The model as JSON: one object for a snapshot, one for an event, and both as lines. What is not measured is absent.
// The schema is docs/lyn_watch.schema.json.
#ifndef LYN_WATCH_JSON_H
#define LYN_WATCH_JSON_H

#include <string>

#include "lyn_watch_model.h"

/** One line without its line break. */
std::string lyn_watch_json_snapshot(const lyn_watch_picture_t &picture);
std::string lyn_watch_json_event(const std::string &board, const lyn_watch_event_t &event);

/** How the lines are written. */
struct lyn_watch_json_plan_t {
  int fd;                // where to
  lyn_watch_ms_t every;  // how often a snapshot
};

/** Snapshots and events until the model ends or nobody reads them any more. false: they cannot be written. */
bool lyn_watch_json_run(lyn_watch_model_t *model, const lyn_watch_json_plan_t &plan);

/** One snapshot, once there is something to tell. false: there is no modem. */
bool lyn_watch_json_once(lyn_watch_model_t *model, const lyn_watch_json_plan_t &plan);

#endif
