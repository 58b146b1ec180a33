/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The core of the simulated board: its one lock, clock, threads, journal and faults.
 *
 * Every platform call of the simulated libraries goes through here: it is journaled, counted (timeline entries and the
 * trace may wait for the n-th passing of a call) and may meet a fault. Work that is due later or belongs on one of the
 * board's own threads is handed to sim_schedule.
 *
 * The board lives in one heap block that is never destroyed, so that exit is safe at any moment; its threads block all
 * signals and are detached.
 */
#ifndef SIM_CORE_H
#define SIM_CORE_H

#include <cstdint>
#include <functional>
#include <mutex>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "sim_scenario.h"

/** The board's own threads, as the real libraries have them. */
enum class sim_thread {
  nas,      /**< NAS indications and service events */
  location, /**< location callbacks */
  oxmap     /**< mobile-AP indications */
};

/** The board in force; the environment variables are read at the first call. */
const sim_scenario &sim_board_scenario();

/** Guards all state of the board. Never held while a callback of a client runs. */
std::mutex &sim_lock();

/** What the radios report now. Guarded by sim_lock. */
sim_radio &sim_radio_now();

/** The trace row in force, null without a trace. Guarded by sim_lock. */
const sim_trace_row *sim_trace_now();

/** Seconds since the first platform call. */
double sim_now();

/**
 * Run `work` on `thread`, `ms` from now (0: as soon as that thread is free; in order among equals). Work that was
 * scheduled before a restart of the board is dropped. May be called with or without sim_lock; `work` runs without.
 */
void sim_schedule(sim_thread thread, double ms, std::function<void()> work);

/** A fault as a crossing meets it. */
struct sim_fault_hit {
  bool hit = false;   /**< a rule matched */
  bool fails = false; /**< the rule names nothing: the call fails as its kind does */
  int32_t transport = 0;
  bool has_transport = false;
  uint32_t result = 0, error = 0;
  bool has_result = false, has_error = false;
  const std::vector<std::string> *clear = nullptr; /**< valid as long as the board is */
  bool late = false;
  std::optional<uint32_t> truncate;
};

/**
 * Pass a crossing named as faults name it ("nas.79", "oxmap.StartMTPE"): counts it, which may start timeline entries
 * and the trace, finds the fault that it meets and waits out its delay. Call without sim_lock.
 */
sim_fault_hit sim_cross(const std::string &name);

/**
 * Write one line of the journal: sim_journal("oxmap", "call", "StartMTPE", fields). `id` below 0: none. The fields
 * stand in the line in the order given. May be called with or without sim_lock.
 */
void sim_journal(const char *lib, const char *dir, const char *name, const nlohmann::ordered_json &fields,
                 int64_t id = -1);

/** The same with the members of `fields` as JSON text: "\"row\": 0". */
void sim_journal_text(const char *lib, const char *dir, const char *name, const std::string &members, int64_t id = -1);

/** Whether anybody reads the journal: callers skip building fields where not. */
bool sim_journal_on();

/**
 * One call of a library (yrp, oxmap, location, diag): journals call and return, passes the crossing and returns its
 * fault. `fields` go with the call. Pair with sim_call_return: entries that wait for the call are due from there on, so
 * that what the call changed is in force. Call both without sim_lock.
 */
sim_fault_hit sim_call(const char *lib, const char *name, const nlohmann::ordered_json &fields);
void sim_call_return(const char *lib, const char *name, const nlohmann::ordered_json &fields);

/** sim_call and sim_call_return with the members of the fields as JSON text. */
sim_fault_hit sim_call_text(const char *lib, const char *name, const std::string &members);
void sim_call_return_text(const char *lib, const char *name, const std::string &members);

/** The status of a call that met `fault`: 0 where it goes on. */
inline int32_t sim_fault_status(const sim_fault_hit &fault) {
  if (fault.fails) {
    return -1;
  }
  return fault.has_transport ? fault.transport : 0;
}

/** Have `reset` called, with sim_lock held, when a test restarts the board. */
void sim_on_restart(void (*reset)());

/** Random number of the board's seeded generator, uniform in [0, 1). Takes no lock: call with sim_lock held. */
double sim_random();

#endif
