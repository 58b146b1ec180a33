/* SPDX-License-Identifier: Apache-2.0 */
/*
 * State of the simulated board, shared by its rooms and by nobody else. All of it is guarded by sim_lock unless it says
 * otherwise. Two further locks lie inside that one and are never held across a call: the queues' and the journal's.
 */
#ifndef SIM_STATE_H
#define SIM_STATE_H

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <random>
#include <unordered_map>

#include "sim_clients.h"
#include "sim_core.h"
#include "sim_measure.h"
#include "sim_nas_service.h"
#include "sim_timeline.h"

struct sim_passings {
  int64_t entered = 0, left = 0;
};

struct sim_state {
  std::mutex lock;
  std::condition_variable changed; /**< service offered, signal given, callback ended */

  sim_scenario scenario;
  sim_radio base, now; /**< as set, and with the noise on it */
  const sim_trace_row *row = nullptr;
  std::mt19937_64 random;
  std::array<double, SIM_VALUES> walk = {};
  sim_nas_config nas;

  bool offered = false;
  std::atomic<bool> modem_up = true; /**< may be read without sim_lock */
  bool unreported = false;           /**< values were measured while the modem was down */
  bool time0 = false;
  std::map<yrp_client_type, std::shared_ptr<sim_client>> clients;
  uintptr_t handles = 0; /**< given so far: none is given twice */

  bool counting = false;                          /**< somebody waits for a passing */
  std::atomic<bool> counting_indications = false; /**< for one of an indication; may be read without sim_lock */
  std::unordered_map<std::string, sim_passings> passings;

  std::vector<sim_due> due; /**< a heap */
  uint64_t due_order = 0;
  std::condition_variable due_changed;
  sim_clock::time_point trace_start;
  size_t trace_next = 0;

  std::vector<void (*)()> restart_hooks;
};

/** The board, started by the first call. */
sim_state &sim_board();

void sim_threads_start();

bool sim_board_started();

/** The board without starting it: for those who run while it starts. */
sim_state &sim_board_raw();

// Core.

/** Time 0 of the timeline and the trace. With sim_lock. */
void sim_time0();
/** Count the passing and find the fault; the delay is the caller's. Without sim_lock. */
sim_fault_hit sim_cross_enter(const std::string &name, double &delay_ms);
/** Due entries that wait for this passing. Without sim_lock. */
void sim_cross_leave(const std::string &name);
void sim_wait_ms(double ms);

// Queues of the delivery threads, for sim_board.cpp.

void sim_queues_pause(bool paused); /**< true: waits for running callbacks and drops all that is queued */
bool sim_queues_idle();
void sim_queues_wake(); /**< the time has changed */
void sim_board_reset(sim_scenario scenario);
/** The scenario that the first call takes in place of the environment's. */
void sim_board_preset(sim_scenario scenario);

#endif
