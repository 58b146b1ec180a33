/* SPDX-License-Identifier: Apache-2.0 */
// The model as JSON records, one object each: a snapshot of the board, an event, events that were missed. What is not
// measured is absent. The schema is docs/lyn_watch.schema.json.
#ifndef LYN_WATCH_JSON_H
#define LYN_WATCH_JSON_H

#include <string>

#include "lyn_watch_model.h"

/** One line without its line break. */
std::string lyn_watch_json_snapshot(const lyn_watch_picture_t &picture);
std::string lyn_watch_json_event(const std::string &board, const lyn_watch_event_t &event);

/** The ten minutes up to the picture of all items that have a history: [seconds ago, value], the oldest first. */
std::string lyn_watch_json_history(lyn_watch_model_t *model, const lyn_watch_picture_t &picture);

/** So many events were not kept until now. */
std::string lyn_watch_json_missed(const lyn_watch_picture_t &picture, uint64_t count);

#endif
