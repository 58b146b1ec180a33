/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The timeline: what happens on the board and when. One thread sleeps until the next thing is due and does it with
 * sim_lock held; what it sends goes into the queues of the delivery threads, so that it never waits for a client.
 *
 * Due things stand in a heap, ordered by time, then rank (the trace, the board's own work, timeline entries in the
 * order of the file), then order of arrival. A repeated entry keeps its rank: with every_ms = 0 all its repeats come
 * before the entry behind it.
 */
#include <algorithm>

#include "oxmap_client.h"
#include "sim_state.h"

namespace {

/** So many due things are done before those who wait for sim_lock get it. */
constexpr int burst = 32;

bool later(const sim_due &a, const sim_due &b) {
  if (a.at != b.at) {
    return a.at > b.at;
  }
  return a.rank != b.rank ? a.rank > b.rank : a.order > b.order;
}

sim_clock::duration from_ms(double ms) {
  return std::chrono::duration_cast<sim_clock::duration>(std::chrono::duration<double, std::milli>(ms));
}

std::atomic<sim_clock::rep> held{0}; /**< 0: the clock is the machine's */

void push(sim_due due) {
  sim_state &board = sim_board_raw();
  due.order = board.due_order++;
  board.due.push_back(std::move(due));
  std::push_heap(board.due.begin(), board.due.end(), later);
  board.due_changed.notify_one();
}

sim_due pop() {
  std::vector<sim_due> &heap = sim_board_raw().due;
  std::pop_heap(heap.begin(), heap.end(), later);
  sim_due due = std::move(heap.back());
  heap.pop_back();
  return due;
}

// What an entry does, one function per kind of event.

void happen(const sim_ev_change &event) {
  sim_state &board = sim_board_raw();
  const sim_radio before = board.base;
  event.apply(board.base);
  sim_measure_rebase(before);
  if (event.sys_info) {
    sim_nas_send_sys_info();
  }
  // A part that the system information brings back is measured from then on.
  if (event.sys_info || event.measurement) {
    sim_measure_report();
  }
  if (event.location) {
    sim_schedule(sim_thread::location, 0, sim_location_changed);
  }
}

void happen(const sim_ev_modem &event) {
  sim_board_raw().modem_up = event.up;
  const int32_t service_event = event.up ? YRP_SERVICE_UP : YRP_SERVICE_DOWN;
  sim_signal_notifiers();
  sim_schedule(sim_thread::nas, 0, [service_event] { sim_notify(service_event); });
}

void happen(const sim_ev_panel &event) {
  sim_nas_send_panel(event);
}

void happen(const sim_ev_install_status &event) {
  sim_nas_send_install_status(event.status);
}

void happen(const sim_ev_install_measurement &event) {
  sim_nas_send_install_measurement(event.freqs, true);
}

void happen(const sim_ev_qos_flow &event) {
  const oxmap_qos_flow_ind_t flow = {event.bearer, event.tx_5qi, event.rx_5qi};
  sim_indicate(sim_lib::oxmap, OXMAP_QOS_FLOW_IND, &flow);
}

void happen(const sim_ev_raw &event) {
  sim_indicate_raw(event.lib == "oxmap" ? sim_lib::oxmap : sim_lib::nas, event.id, event.bytes);
}

void run_entry(sim_due due) {
  const sim_timeline_entry &entry = sim_board_raw().scenario.at[static_cast<size_t>(due.rank)];
  for (const sim_event &event : entry.events) {
    sim_timeline_happen(event);
  }
  if (--due.repeats <= 0) {
    return;
  }
  due.at += from_ms(entry.every_ms);
  push(std::move(due));
}

// The trace.

void end_trace() {
  const std::string rows = "\"rows\": " + std::to_string(sim_board_raw().scenario.rows.size());
  // Behind the indications of the last row.
  sim_schedule(sim_thread::nas, 0, [rows] { sim_journal_text("sim", "event", "trace_end", rows); });
}

bool same(const sim_sys_info &a, const sim_sys_info &b) {
  return a.lte == b.lte && a.nr5g == b.nr5g && a.nr5g_pci == b.nr5g_pci;
}

void apply_row(const sim_trace_row &row) {
  sim_state &board = sim_board_raw();
  const sim_sys_info before = sim_nas_sys_info();
  const int nr5g_pci = board.scenario.radio.sys_info.nr5g_pci;
  board.row = &row;
  sim_trace_apply(row, nr5g_pci, board.base);
  sim_trace_apply(row, nr5g_pci, board.now);
  if (!same(before, sim_nas_sys_info())) {
    sim_nas_send_sys_info();
  }
  sim_measure_report();
}

/** Times are counted from the start, so that rounding does not add up. */
void push_next_row() {
  sim_state &board = sim_board_raw();
  if (board.trace_next == board.scenario.rows.size()) {
    end_trace();
    return;
  }
  const double speed = board.scenario.trace.speed;
  const double ms = speed > 0 ? static_cast<double>(board.trace_next) * 1000 / speed : 0;
  push({.at = board.trace_start + from_ms(ms), .rank = SIM_RANK_TRACE, .order = 0, .repeats = 1, .work = {}});
}

void run_row() {
  sim_state &board = sim_board_raw();
  const size_t row = board.trace_next++;
  if (sim_journal_on()) {
    sim_journal_text("sim", "event", "trace_row", "\"row\": " + std::to_string(row));
  }
  apply_row(board.scenario.rows[row]);
  push_next_row();
}

void start_trace() {
  sim_state &board = sim_board_raw();
  board.trace_start = sim_clock::now();
  board.trace_next = 1;
  push_next_row();
}

// The tick.

void plan_tick(sim_clock::time_point before) {
  const std::chrono::milliseconds every(std::max(1U, sim_board_raw().scenario.board.tick_ms));
  const sim_clock::time_point at = before + every;
  sim_timeline_at(at, [at] {
    sim_measure_tick();
    sim_nas_install_tick();
    plan_tick(at);
  });
}

void run(sim_due due) {
  if (due.work) {
    due.work();
  } else if (due.rank == SIM_RANK_TRACE) {
    run_row();
  } else {
    run_entry(std::move(due));
  }
}

bool waits_for(const std::string &wanted, int64_t skip, const std::string &after, int64_t passing) {
  return wanted == after && (after.empty() || skip == passing);
}

}  // namespace

sim_clock::time_point sim_clock::now() noexcept {
  const rep at = held.load();
  return time_point(at != 0 ? duration(at) : std::chrono::steady_clock::now().time_since_epoch());
}

void sim_clock_advance(sim_clock::duration forward) {
  held = (sim_clock::now() + forward).time_since_epoch().count();
}

void sim_clock_release() {
  held = 0;
}

void sim_timeline_run() {
  sim_state &board = sim_board_raw();
  std::unique_lock guard(board.lock);
  for (int done = 0;;) {
    if (board.due.empty()) {
      board.due_changed.wait(guard);
    } else if (board.due.front().at > sim_clock::now()) {
      const sim_clock::time_point until = board.due.front().at;
      board.due_changed.wait_until(guard, until);
    } else {
      run(pop());
      if (++done % burst != 0) {
        continue;
      }
      guard.unlock();
      std::this_thread::yield();
      guard.lock();
    }
  }
}

void sim_timeline_happen(const sim_event &event) {
  std::visit([](const auto &what) { happen(what); }, event);
}

void sim_timeline_reset() {
  sim_state &board = sim_board_raw();
  board.due.clear();
  board.trace_next = 0;
}

void sim_timeline_at(sim_clock::time_point at, std::function<void()> work) {
  push({.at = at, .rank = SIM_RANK_WORK, .order = 0, .repeats = 1, .work = std::move(work)});
}

bool sim_timeline_waits(const sim_scenario &scenario) {
  return !scenario.trace.after.empty() || std::any_of(scenario.at.begin(), scenario.at.end(),
                                                      [](const auto &entry) { return !entry.when.after.empty(); });
}

void sim_timeline_start_entries(const std::string &after, int64_t passing) {
  const sim_scenario &scenario = sim_board_raw().scenario;
  const sim_clock::time_point now = sim_clock::now();
  if (after.empty()) {
    plan_tick(now);
  }
  if (!scenario.rows.empty() && waits_for(scenario.trace.after, scenario.trace.skip, after, passing)) {
    start_trace();
  }
  for (size_t i = 0; i < scenario.at.size(); i++) {
    const sim_timeline_entry &entry = scenario.at[i];
    if (!waits_for(entry.when.after, entry.when.skip, after, passing)) {
      continue;
    }
    push({.at = now + from_ms(entry.when.ms),
          .rank = static_cast<int64_t>(i),
          .order = 0,
          .repeats = entry.repeat,
          .work = {}});
  }
}
