/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The board itself: its start, clock, crossings and faults. See sim_core.h for the rules.
 */
#include "sim_core.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "sim_crossing.h"
#include "sim_diag.h"
#include "sim_journal.h"
#include "sim_state.h"

namespace {

std::atomic<bool> started;
std::once_flag start_once;
std::atomic<sim_clock::rep> origin;
sim_scenario *preset; /**< see sim_board_preset */

/** The files that it is read from are `taken`. */
sim_scenario load_scenario(std::vector<sim_file> &taken) {
  const char *file = getenv("LYN_SIM_SCENARIO");
  sim_scenario scenario = preset ? *preset : sim_scenario_default();
  if (!preset && file && *file) {
    std::string error;
    std::optional<sim_scenario> read = sim_scenario_load(file, error);
    if (!read) {
      sim_give_up(error);
    }
    scenario = *std::move(read);
    taken.push_back({"the scenario", file});
  }
  if (!scenario.trace.file.empty()) {
    taken.push_back({"the trace", scenario.trace.file});
  }
  return scenario;
}

/** The first row of a trace is in force before the client starts. */
void apply_first_row(sim_state &board) {
  if (board.scenario.rows.empty()) {
    return;
  }
  board.row = &board.scenario.rows.front();
  sim_trace_apply(*board.row, board.scenario.radio.sys_info.nr5g_pci, board.base);
  sim_journal_text("sim", "event", "trace_row", "\"row\": 0");
}

void offer_service(sim_state &board) {
  if (!board.scenario.nas.available) {
    return;
  }
  if (board.scenario.nas.available_after_ms <= 0) {
    board.offered = true;
    return;
  }
  const auto delay = std::chrono::duration<double, std::milli>(board.scenario.nas.available_after_ms);
  sim_timeline_at(sim_clock::now() + std::chrono::duration_cast<sim_clock::duration>(delay), [] {
    sim_board_raw().offered = true;
    sim_signal_notifiers();
  });
}

void start() {
  origin = sim_clock::now().time_since_epoch().count();
  std::vector<sim_file> taken;
  sim_scenario scenario = load_scenario(taken);
  sim_journal_open(taken);
  sim_diag_open(taken);
  sim_board_reset(std::move(scenario));
  sim_threads_start();
  started.store(true, std::memory_order_release);
}

/** `passing` is the number of the call by its name, `of_any` that among all. */
bool rule_matches(const sim_fault_rule &rule, const std::string &name, int64_t passing, int64_t of_any) {
  const bool any = rule.on == sim_crossing_any && of_any >= 0;
  const int64_t number = any ? of_any : passing;
  if ((!any && rule.on != name) || number < rule.skip) {
    return false;
  }
  return rule.times < 0 || number - rule.skip < rule.times;
}

/** Indications are no calls. */
bool is_call(const std::string &name) {
  return name.find(".ind.") == std::string::npos;
}

/** A flood of indications that nobody waits for is not held up by counting them. */
bool counts_indications(const sim_scenario &scenario) {
  const auto counts = [](const auto &list, const auto &name_of) {
    return std::any_of(list.begin(), list.end(), [&name_of](const auto &entry) { return !is_call(name_of(entry)); });
  };
  return !is_call(scenario.trace.after) || counts(scenario.fault, [](const sim_fault_rule &rule) { return rule.on; }) ||
         counts(scenario.at, [](const sim_timeline_entry &entry) { return entry.when.after; });
}

sim_fault_hit fault_of(const sim_fault_rule &rule) {
  sim_fault_hit hit;
  hit.hit = true;
  const bool answered = rule.transport || rule.result || !rule.clear.empty() || rule.delay_ms || rule.late;
  hit.fails = !answered && !rule.truncate && !rule.modem && !rule.sys_info;
  hit.has_transport = rule.transport.has_value();
  hit.transport = rule.transport.value_or(0);
  hit.has_result = rule.result.has_value();
  hit.result = rule.result.value_or(0);
  hit.has_error = rule.error.has_value();
  hit.error = rule.error.value_or(0);
  hit.clear = rule.clear.empty() ? nullptr : &rule.clear;
  hit.late = rule.late;
  hit.truncate = rule.truncate;
  return hit;
}

/** What the board does as the call begins. With sim_lock. */
void happen_before(const sim_fault_rule &rule) {
  if (rule.sys_info) {
    sim_timeline_happen(*rule.sys_info);
  }
  if (rule.modem && *rule.modem != "up") {
    sim_timeline_happen(sim_ev_modem{false});
  }
  if (rule.modem && *rule.modem != "down") {
    sim_timeline_happen(sim_ev_modem{true});
  }
}

}  // namespace

void sim_give_up(const std::string &line) {
  fflush(stdout);
  fprintf(stderr, "%s\n", line.c_str());
  _exit(2);
}

sim_state &sim_board_raw() {
  static sim_state &board = *new sim_state;  // never destroyed: its threads outlive main
  return board;
}

sim_state &sim_board() {
  if (!started.load(std::memory_order_acquire)) {
    std::call_once(start_once, start);
  }
  return sim_board_raw();
}

bool sim_board_started() {
  return started.load(std::memory_order_acquire);
}

void sim_board_preset(sim_scenario scenario) {
  if (!preset) {
    preset = new sim_scenario;
  }
  *preset = std::move(scenario);
}

void sim_board_reset(sim_scenario scenario) {
  sim_state &board = sim_board_raw();
  const std::lock_guard guard(board.lock);
  origin = sim_clock::now().time_since_epoch().count();
  board.scenario = std::move(scenario);
  board.base = board.scenario.radio;
  board.row = nullptr;
  board.random.seed(board.scenario.board.seed);
  board.walk = {};
  board.offered = false;
  board.modem_up = true;
  board.unreported = false;
  board.time0 = false;
  board.passings.clear();
  board.counting = !board.scenario.fault.empty() || sim_timeline_waits(board.scenario);
  board.counting_indications = counts_indications(board.scenario);
  for (auto &[handle, client] : board.clients) {
    client->nas = {};
  }
  sim_timeline_reset();
  apply_first_row(board);
  board.now = board.base;
  sim_nas_reset();
  offer_service(board);
  for (void (*reset)() : board.restart_hooks) {
    reset();
  }
}

void sim_on_restart(void (*reset)()) {
  const std::lock_guard guard(sim_board().lock);
  sim_board_raw().restart_hooks.push_back(reset);
}

const sim_scenario &sim_board_scenario() {
  return sim_board().scenario;
}
std::mutex &sim_lock() {
  return sim_board().lock;
}
sim_radio &sim_radio_now() {
  return sim_board().now;
}
const sim_trace_row *sim_trace_now() {
  return sim_board().row;
}

double sim_now() {
  const sim_clock::duration since = sim_clock::now().time_since_epoch() - sim_clock::duration(origin.load());
  return std::chrono::duration<double>(since).count();
}

double sim_random() {
  return std::uniform_real_distribution<double>(0, 1)(sim_board_raw().random);
}

void sim_wait_ms(double ms) {
  if (ms > 0) {
    std::this_thread::sleep_for(std::chrono::duration<double, std::milli>(ms));
  }
}

void sim_time0() {
  sim_state &board = sim_board_raw();
  if (board.time0) {
    return;
  }
  board.time0 = true;
  sim_timeline_start_entries("", 0);
}

sim_fault_hit sim_cross_enter(const std::string &name, double &delay_ms) {
  sim_state &board = sim_board();
  delay_ms = 0;
  const std::lock_guard guard(board.lock);
  if (!board.counting) {
    return {};
  }
  const int64_t passing = board.passings[name].entered++;
  const int64_t of_any = is_call(name) ? board.passings[sim_crossing_any].entered++ : -1;
  for (const sim_fault_rule &rule : board.scenario.fault) {
    if (!rule_matches(rule, name, passing, of_any)) {
      continue;
    }
    happen_before(rule);
    delay_ms = rule.delay_ms.value_or(0);
    return fault_of(rule);
  }
  return {};
}

void sim_cross_leave(const std::string &name) {
  sim_state &board = sim_board();
  const std::lock_guard guard(board.lock);
  if (!board.counting) {
    return;
  }
  sim_timeline_start_entries(name, board.passings[name].left++);
  if (is_call(name)) {
    sim_timeline_start_entries(sim_crossing_any, board.passings[sim_crossing_any].left++);
  }
}

sim_fault_hit sim_cross(const std::string &name) {
  double delay_ms;
  const sim_fault_hit hit = sim_cross_enter(name, delay_ms);
  sim_wait_ms(delay_ms);
  sim_cross_leave(name);
  return hit;
}

sim_fault_hit sim_call_text(const char *lib, const char *name, const std::string &members) {
  sim_board();
  sim_journal_text(lib, "call", name, members);
  double delay_ms;
  const sim_fault_hit hit = sim_cross_enter(std::string(lib) + '.' + name, delay_ms);
  sim_wait_ms(delay_ms);
  return hit;
}

void sim_call_return_text(const char *lib, const char *name, const std::string &members) {
  sim_journal_text(lib, "return", name, members);
  sim_cross_leave(std::string(lib) + '.' + name);
}
