/*
 * State of the simulated board, shared by its rooms and by nobody else. All of it is guarded by sim_lock unless it says
 * otherwise. Two further locks lie inside that one and are never held across a call: the queues' and the journal's.
 */
#ifndef SIM_STATE_H
#define SIM_STATE_H

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <random>
#include <thread>
#include <unordered_map>

#include "nas_service_v01.h"
#include "sim_core.h"
#include "sim_file.h"
#include "sim_message.h"

using sim_clock = std::chrono::steady_clock;

/** The six values that indication 81 reports and message 108 has deltas for. */
enum sim_value { SIM_LTE_RSRP, SIM_LTE_RSRQ, SIM_LTE_SNR, SIM_NR5G_RSRP, SIM_NR5G_RSRQ, SIM_NR5G_SNR, SIM_VALUES };

using sim_measured = std::array<std::optional<int>, SIM_VALUES>;

/** What one NAS client asked for. */
struct sim_registration {
  bool sys_info = false, sig_info = false, panel = false, install_meas = false, install_status = false;
  bool deltas_given = false; /**< message 108 came */
  std::array<std::optional<uint16_t>, SIM_VALUES> delta;
  sim_measured reported; /**< since that 108 */
};

enum class sim_client_kind { nas, oxmap, notifier };

/** What a handle stands for. The board keeps it until no callback runs, whoever releases it. */
struct sim_client {
  sim_client_kind kind = sim_client_kind::nas;
  bool closed = false;
  bool in_callback = false;
  std::thread::id callback_thread;
  yrp_client_ind_cb ind_cb = nullptr;
  yrp_client_notify_cb notify_cb = nullptr;
  void *data = nullptr;
  yrp_client_os_params *os_params = nullptr; /**< of a notifier; its owner's, used until it is closed */
  sim_registration nas;
};

/** What the NAS service was told and gives back or acts upon. */
struct sim_nas_config {
  std::vector<yrp_nas_lte_lock_cell_t> lte_lock;
  yrp_nas_nr5g_cell_lock_list_resp_t nr5g_lock = {};
  yrp_nas_set_pps_config_req_t pps = {};
  yrp_nas_set_pps_change_status_req_t pps_change = {};
  yrp_nas_set_install_mode_req_t install = {};
  bool installing = false;
  bool deprioritized = false;
  sim_clock::time_point scan_free; /**< when the last scan asked for will have been answered */
};

struct sim_passings {
  int64_t entered = 0, left = 0;
};

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

  bool counting = false; /**< somebody waits for a passing */
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

/** Deliver to one client only. */
void sim_indicate_to(yrp_client_type handle, sim_lib lib, uint32_t id, const void *record);

/** All clients of a kind, by handle. With sim_lock. */
std::vector<std::pair<yrp_client_type, std::shared_ptr<sim_client>>> sim_clients_of(sim_client_kind kind);
std::shared_ptr<sim_client> sim_client_find(yrp_client_type handle, sim_client_kind kind);
/** Run `call` as the callback of a client, unless it is closed. Without sim_lock. */
void sim_call_back(const std::shared_ptr<sim_client> &client, const std::function<void()> &call);
/** Give every notifier's owner the signal that it may wait for. With sim_lock. */
void sim_signal_notifiers();

/** The same while the service is offered. With sim_lock. */
void sim_announce();
yrp_client_type sim_client_add(std::shared_ptr<sim_client> client);
/** Service event to all notifiers. Without sim_lock, on the NAS thread. */
void sim_notify(int32_t service_event);

// Timeline. With sim_lock.

void sim_timeline_run(); /**< the thread */
void sim_timeline_reset();
void sim_timeline_at(sim_clock::time_point at, std::function<void()> work);
void sim_timeline_start_entries(const std::string &after, int64_t passing);
/** A trace or timeline entry waits for such calls. */
bool sim_timeline_waits(const sim_scenario &scenario);

// NAS service. With sim_lock.

void sim_nas_reset();
/** One request that arrived whole; what it causes is posted by `then`, after the response. */
void sim_nas_answer(sim_client &client, yrp_client_type handle, uint32_t id, const void *req, void *resp,
                    std::vector<std::function<void()>> &then);
bool sim_nas_answers(uint32_t id);
/** System information as the board reports it, de-prioritisation included. */
sim_sys_info sim_nas_sys_info();
bool sim_lte_on();
bool sim_nr5g_on();
void sim_nas_send_sys_info();
void sim_nas_send_panel(const sim_ev_panel &event);
void sim_nas_send_install_status(uint32_t status);
void sim_nas_send_install_measurement(const std::vector<sim_install_freq> &freqs, bool valid);
void sim_nas_install_tick();

// Measurements. With sim_lock.

sim_measured sim_measure();
/** A new measurement: reports it to every client whose deltas ask for it. */
void sim_measure_report();
/** Report all values to a client that gave new deltas. */
void sim_measure_first_report(sim_client &client, yrp_client_type handle);
/** The base changed: what was set is reported as set. */
void sim_measure_rebase(const sim_radio &before);
void sim_measure_tick();

// Journal.

/** Open the file of LYN_SIM_JOURNAL, which must be none of those `taken`. */
void sim_journal_open(std::vector<sim_file> &taken);
/** Keep the lines in memory, for tests. */
void sim_journal_keep(bool on);
std::vector<std::string> sim_journal_lines();
void sim_journal_forget();

// Diagnostics.

/** The same of LYN_SIM_DIAG. */
void sim_diag_open(std::vector<sim_file> &taken);

/** One line on standard error and status 2. */
[[noreturn]] void sim_give_up(const std::string &line);

// Queues of the delivery threads, for sim_board.cpp.

void sim_queues_pause(bool paused); /**< true: waits for running callbacks and drops all that is queued */
bool sim_queues_idle();
void sim_board_reset(sim_scenario scenario);
/** The scenario that the first call takes in place of the environment's. */
void sim_board_preset(sim_scenario scenario);

#endif
