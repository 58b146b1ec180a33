/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What is due later: timeline entries, rows of the trace and work. Call with sim_lock held.
 */
#ifndef SIM_TIMELINE_H
#define SIM_TIMELINE_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "sim_scenario.h"

/** The board's time: the machine's, until a test holds it (sim_board_advance). */
struct sim_clock {
  using duration = std::chrono::steady_clock::duration;
  using rep = duration::rep;
  using period = duration::period;
  using time_point = std::chrono::time_point<sim_clock>;
  static constexpr bool is_steady = true;

  static time_point now() noexcept;
};

/** Hold the clock where it is, unless it is held, and let `forward` pass at once. */
void sim_clock_advance(sim_clock::duration forward);
/** Go on with the machine's time, where nothing waits for a time of the held one any more. */
void sim_clock_release();

/** Something that the timeline thread does when it is due, with sim_lock held. Equal times run by `rank`, then by
 * order. */
struct sim_due {
  sim_clock::time_point at;
  int64_t rank;
  uint64_t order;
  int64_t repeats;            /**< of a timeline entry: how many are left, this one included */
  std::function<void()> work; /**< null: timeline entry `rank`, or the trace */
};

/** Ranks of what is no timeline entry. */
enum : int64_t { SIM_RANK_TRACE = -2, SIM_RANK_WORK = -1 };

void sim_timeline_run(); /**< the thread */
void sim_timeline_reset();
void sim_timeline_at(sim_clock::time_point at, std::function<void()> work);
void sim_timeline_start_entries(const std::string &after, int64_t passing);
/** Have an event happen now. */
void sim_timeline_happen(const sim_event &event);
/** A trace or timeline entry waits for such calls. */
bool sim_timeline_waits(const sim_scenario &scenario);

#endif
