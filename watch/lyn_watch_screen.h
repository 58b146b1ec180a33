/* SPDX-License-Identifier: Apache-2.0 */
// The model as a picture in the terminal, from 80 columns and 24 lines on: both serving cells side by side, neighbours,
// data path, location and what happened. The terminal is borrowed before (lyn_watch_terminal.h).
#ifndef LYN_WATCH_SCREEN_H
#define LYN_WATCH_SCREEN_H

#include "lyn_watch_model.h"

struct lyn_watch_screen_plan_t {
  void (*scan)();       // ask for a neighbour scan
  std::string address;  // where the model is served, too; empty: nowhere
};

/** Until the model or the terminal ends, or somebody has enough of it. false: the terminal cannot be drawn on. */
bool lyn_watch_screen_run(lyn_watch_model_t *model, const lyn_watch_screen_plan_t &plan);

#endif
