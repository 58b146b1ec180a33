/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Any sequence of operations, with good arguments and with bad ones, on a board that changes in between. Ends with an
 * error where a status, a record or an event is not what a model of the module's state says.
 *
 * Each step is over when the board is at rest and all that it sent has been delivered, so that the model knows what the
 * module has seen. What would come by itself, the end of a scan or of a throughput test, comes by a step of its own.
 * LYN_FUZZ_STEPS=1 shows each step.
 */
#include <algorithm>
#include <array>
#include <future>
#include <mutex>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "../unit/operations.h"
#include "fuzz.h"
#include "fuzz_bytes.h"
#include "lyn_interface.h"
#include "nas_service_v01.h"
#include "oxmap_client.h"
#include "sim_board.h"
#include "sim_message.h"

namespace {

constexpr int most_steps = 40;

constexpr char board[] =
    "board = { noise_db = 0, tick_ms = 86400000 }\nscan.answer_ms = -1\nmtpe.configured_ms = -1\nwwan.qos.answer_ms = "
    "0\n"
    "location = { capabilities_ms = 0, fix_ms = -1 }\n";

/** What the board says of its service, by the registration status that follows. */
constexpr const char *services[] = {
    "",
    "lte = 'no_service', nr5g = 'absent', nr5g_pci = -1",
    "lte = 'power_save', nr5g = 'absent', nr5g_pci = -1",
    "lte = 'limited', nr5g = 'absent', nr5g_pci = -1",
    "lte = 'limited_regional', nr5g = 'absent', nr5g_pci = -1",
    "lte = 'service', nr5g = 'absent', nr5g_pci = -1",
    "lte = 'service', nr5g = 'absent', nr5g_pci = 500",
    "lte = 'absent', nr5g = 'service', nr5g_pci = -1",
};

/* What is delivered */

struct event {
  uint32_t record_type, id, word;
};

std::mutex event_lock;
std::vector<event> events;

void on_event(ox_lyn_hndl_t, ox_lyn_dm_info_t *info, uint32_t) {
  {
    const std::lock_guard guard(event_lock);
    events.push_back({info->record_type, info->metric, info->value.u32});
  }
  event_release(info);
}

std::vector<event> take_events() {
  const std::lock_guard guard(event_lock);
  return std::exchange(events, {});
}

/* The model */

bool is_neighbour(uint32_t metric) {
  return metric >= OX_LYN_GET_LTE_NBR_EARFCN_E && metric <= OX_LYN_GET_LTE_NBR_RSRQ_E;
}

struct model {
  ox_lyn_hndl_t hndl = 0; /* 0: down */
  bool modem = true, deprioritised = false;
  uint32_t service = OX_LYN_REG_LTE_NR5G_E; /* of the board without de-prioritisation */
  std::set<uint32_t> seen;                  /* by the module: what it may have seen last, one where that is sure */
  std::set<uint32_t> subscribed;
  bool lte_pending = false, nr5g_pending = false, lte_runs = false; /* scans */
  bool shot = false, fix_comes = false, batching = false, fixes = false;
  bool testing = false;
  uint32_t test_type = 0;

  uint32_t status() const {
    return deprioritised && service == OX_LYN_REG_LTE_NR5G_E ? static_cast<uint32_t>(OX_LYN_REG_LTE_E) : service;
  }
  void see() { seen = {status()}; }
  void may_see() { seen.insert(status()); }
  bool pending() const { return lte_pending || nr5g_pending; }
  void forget_scans() { lte_pending = nr5g_pending = lte_runs = false; }

  int32_t start_scan() {
    if (!modem) {
      forget_scans();
      return OX_LYN_ERR_FAILURE;
    }
    lte_runs = lte_pending;
    return OX_LYN_SUCCESS;
  }
  void ask_neighbours(uint32_t metric) {
    const bool lte = metric % 2 == 0;
    (lte ? lte_pending : nr5g_pending) = true;
  }
  void down() {
    model after;
    after.modem = modem;
    after.deprioritised = deprioritised;
    after.service = service;
    after.fixes = fixes;
    *this = after;
  }
};

model state;

/** Statuses of what a board with all values has, or lacks, for good: learned of each registration status beforehand. */
std::array<std::array<int32_t, OX_LYN_GET_COUNT>, OX_LYN_REG_NR5G_E + 1> measured;

bool is_measured(uint32_t metric) {
  return metric >= OX_LYN_GET_LTE_SERV_EARFCN_E && !is_neighbour(metric) && metric <= OX_LYN_GET_MTPE_SERVER_CONFIG_E;
}

/** A request: whether its record is one, and whether its pointer is given. */
struct request {
  uint32_t metric;
  bool record, given;
  uint32_t test_type;
};

bool needs_block(uint32_t metric) {
  return metric == OX_LYN_GET_LTE_SERV_CQI_E || metric == OX_LYN_GET_NR5G_SERV_CQI_E ||
         metric == OX_LYN_GET_LTE_CELL_LOCK_LIST_E || metric == OX_LYN_GET_NR5G_CELL_LOCK_LIST_E ||
         metric == OX_LYN_GET_MTPE_SERVER_CONFIG_E;
}

int32_t begin_test(const request &of) {
  if (state.testing) {
    return OX_LYN_ERR_BUSY;
  }
  if (!of.given) {
    return OX_LYN_ERR_INVALID_PARAM;
  }
  state.testing = true;
  state.test_type = of.test_type;
  return OX_LYN_SUCCESS;
}

/** A single shot or batching. */
int32_t begin_location(const request &of, bool &runs) {
  if (runs) {
    return OX_LYN_ERR_BUSY;
  }
  runs = of.given;
  return of.given ? OX_LYN_SUCCESS : OX_LYN_ERR_FAILURE;
}

int32_t get_status(const request &of) {
  if (!of.record) {
    return OX_LYN_ERR_INVALID_PARAM;
  }
  if (!state.modem) {
    return OX_LYN_ERR_FAILURE;
  }
  state.see();
  if (of.metric == OX_LYN_GET_REG_STATUS_E) {
    return OX_LYN_SUCCESS;
  }
  if (state.status() < OX_LYN_REG_LTE_E) {
    return OX_LYN_ERR_SERVICE_UNAVAILABLE;
  }
  if (of.metric == OX_LYN_GET_INVALID_E || of.metric >= OX_LYN_GET_COUNT) {
    return OX_LYN_ERR_NOT_SUPPORTED;
  }
  if (needs_block(of.metric) && !of.given) {
    return OX_LYN_ERR_INVALID_PARAM;
  }
  if ((of.metric == OX_LYN_GET_IPV4_STATS_E || of.metric == OX_LYN_GET_IPV6_STATS_E) && !of.given) {
    return OX_LYN_ERR_FAILURE; /* no profile has the handle 0 */
  }
  if (is_neighbour(of.metric)) {
    if (state.pending()) {
      return OX_LYN_ERR_BUSY;
    }
    state.ask_neighbours(of.metric);
    return state.start_scan();
  }
  switch (of.metric) {
    case OX_LYN_GET_MTPE_LTE_INFO_E:
    case OX_LYN_GET_MTPE_NR5G_INFO_E:
      return begin_test(of);
    case OX_LYN_GET_LOC_SINGLE_SHOT_E:
      state.fix_comes = !state.shot && of.given && state.fixes;
      return begin_location(of, state.shot);
    case OX_LYN_GET_LOC_ROUTINE_BATCHING_E:
      return begin_location(of, state.batching);
    default:
      return is_measured(of.metric) ? measured[state.status()][of.metric] : static_cast<int32_t>(OX_LYN_SUCCESS);
  }
}

int32_t list_precheck(const std::vector<request> &list) {
  for (const request &of : list) {
    if ((is_neighbour(of.metric) && state.pending()) || (of.metric == OX_LYN_GET_LOC_SINGLE_SHOT_E && state.shot)) {
      return OX_LYN_ERR_BUSY;
    }
    if (of.metric == OX_LYN_GET_LOC_ROUTINE_BATCHING_E && state.batching) {
      return OX_LYN_ERR_FAILURE;
    }
  }
  return OX_LYN_SUCCESS;
}

int32_t list_status(const std::vector<request> &list) {
  int32_t status = list_precheck(list);
  if (status != OX_LYN_SUCCESS) {
    return status;
  }
  for (const request &of : list) {
    status = OX_LYN_SUCCESS;
    if (is_neighbour(of.metric)) {
      state.ask_neighbours(of.metric);
    } else if (of.metric == OX_LYN_GET_INVALID_E || of.metric >= OX_LYN_GET_IPV4_QOS_TFT_E) {
      state.forget_scans();
      status = OX_LYN_ERR_NOT_SUPPORTED;
    } else {
      status = get_status(of);
      if (status != OX_LYN_SUCCESS) {
        return status;
      }
    }
  }
  return state.pending() ? state.start_scan() : status;
}

uint32_t value_type(uint32_t metric) {
  switch (metric) {
    case OX_LYN_GET_REG_STATUS_E:
      return OX_LYN_VALUE_UINT32_E;
    case OX_LYN_GET_LTE_SERV_PLMN_E:
    case OX_LYN_GET_NR5G_SERV_PLMN_E:
    case OX_LYN_GET_NR5G_SERV_TAC_E:
      return OX_LYN_VALUE_ARRAY_E;
    case OX_LYN_GET_LTE_SERV_CQI_E:
    case OX_LYN_GET_NR5G_SERV_CQI_E:
      return OX_LYN_VALUE_CQI_E;
    case OX_LYN_GET_LTE_CELL_LOCK_LIST_E:
    case OX_LYN_GET_NR5G_CELL_LOCK_LIST_E:
      return OX_LYN_VALUE_CELL_LOCK_E;
    default:
      return metric <= OX_LYN_GET_NR5G_SERV_TX_POWER_E || metric == OX_LYN_GET_LTE_CA_STATS_E ? OX_LYN_VALUE_INT64_E
                                                                                              : OX_LYN_VALUE_NONE_E;
  }
}

/* Steps */

/** The board is at rest, and what it has sent is delivered. */
void settle() {
  fuzz_hold(sim_board_wait_idle(60000), "the board comes to rest");
  if (state.hndl == 0) {
    return;
  }
  static std::promise<void> *passed;
  passed = new std::promise<void>;
  auto *cmd = static_cast<lyn_cmd *>(calloc(1, sizeof(lyn_cmd)));
  *cmd = {.execute_f = [](lyn_cmd *, void *) {},
          .free_f =
              [](lyn_cmd *self, void *) {
                free(self);
                passed->set_value();
              },
          .data = nullptr};
  fuzz_hold(lyn_cmdq_enq(&lyn_state.cmdq, cmd) == 0, "the queue takes a command");
  passed->get_future().wait();
  delete passed;
}

struct stepper {
  fuzz_bytes &in;

  bool one_of(int many) { return in.take<uint8_t>() % many == 0; }

  /** Mostly the module's own; `good` tells. */
  ox_lyn_hndl_t handle(bool &good) {
    const uint8_t drawn = in.take<uint8_t>() % 16;
    const ox_lyn_hndl_t hndl = drawn == 0 ? 0 : drawn == 1 ? state.hndl ^ 1 : state.hndl;
    good = state.hndl != 0 && hndl == state.hndl;
    return hndl;
  }

  static void hold(int32_t status, int32_t expected, const char *what, uint32_t id = 0) {
    static const bool told = getenv("LYN_FUZZ_STEPS") != nullptr;
    if (told) {
      fprintf(stderr, "%s %u: %d\n", what, id, status);
    }
    fuzz_hold(status == expected, what,
              std::to_string(id) + ": " + std::to_string(status) + ", not " + std::to_string(expected));
  }

  void init() {
    const bool lacks_hndl = one_of(16), lacks_callback = one_of(16);
    ox_lyn_hndl_t hndl = 4711;
    const int32_t status = ox_lyn_init(lacks_hndl ? nullptr : &hndl, 0, lacks_callback ? nullptr : on_event);
    int32_t expected = state.modem ? OX_LYN_SUCCESS : OX_LYN_ERR_FAILURE;
    if (lacks_hndl || lacks_callback) {
      expected = OX_LYN_ERR_INVALID_PARAM;
    } else if (state.hndl != 0) {
      expected = OX_LYN_ERR_ALREADY_INITIALIZED;
    }
    hold(status, expected, "init");
    fuzz_hold((hndl == 4711) == (status != OX_LYN_SUCCESS), "a handle is written on success only");
    if (status == OX_LYN_SUCCESS) {
      state.hndl = hndl;
      state.see();
    }
  }

  void deinit() {
    bool good;
    const ox_lyn_hndl_t hndl = handle(good);
    hold(ox_lyn_deinit(hndl), good ? OX_LYN_SUCCESS : OX_LYN_ERR_INVALID_PARAM, "deinit");
    if (good) {
      state.down();
    }
  }

  /** A record, with a block of its own. */
  struct asked {
    request of;
    operation_block block;
    ox_lyn_dm_info_t info;
    int64_t given;
  };

  void draw(asked *one, bool alone) {
    one->of.metric = in.take<uint8_t>() % 64;
    if (!alone && state.fixes && one->of.metric == OX_LYN_GET_LOC_SINGLE_SHOT_E) {
      one->of.metric = OX_LYN_GET_REG_STATUS_E; /* another one may come before its fix, or behind */
    }
    one->of.record = !one_of(16);
    one->of.given = !one_of(8);
    one->of.test_type = 1 + in.take<uint8_t>() % 3;
    one->info = operation_record(one->of.metric, &one->block);
    if (one->of.metric == OX_LYN_GET_MTPE_LTE_INFO_E || one->of.metric == OX_LYN_GET_MTPE_NR5G_INFO_E) {
      ox_lyn_mtpe_req_t req = operation_mtpe_request();
      req.test_type = one->of.test_type;
      one->block.put(req);
    } else if (one->of.metric == OX_LYN_GET_LOC_SINGLE_SHOT_E) {
      one->block.put(ox_lyn_loc_single_shot_req_t{86400000, 1.0F});
    } else if (one->of.metric == OX_LYN_GET_LOC_ROUTINE_BATCHING_E) {
      one->block.put(ox_lyn_loc_batching_req_t{86400000});
    }
    if (!one->of.record) {
      one->info.record_type = OX_LYN_RECORD_ASYNC_E;
    }
    if (!one->of.given) {
      one->info.value.ptr = nullptr;
    }
    one->info.value_type = 99;
    one->given = one->info.value.i64;
  }

  static void hold_record(const asked &one, int32_t status) {
    const uint32_t metric = one.of.metric;
    const bool uplink = metric == OX_LYN_GET_LTE_MCS_E || metric == OX_LYN_GET_NR5G_MCS_E;
    const bool later = is_neighbour(metric) || metric >= OX_LYN_GET_MTPE_LTE_INFO_E;
    if (status == OX_LYN_SUCCESS) {
      hold(static_cast<int32_t>(one.info.value_type), static_cast<int32_t>(value_type(metric)), "value type", metric);
    } else {
      fuzz_hold(one.info.value_type == (one.of.record ? 0U : 99U), "a failed record has no value type");
    }
    fuzz_hold((status == OX_LYN_SUCCESS && !later) || uplink || one.info.value.i64 == one.given,
              "what fails or is answered later leaves the value", std::to_string(metric));
    fuzz_hold(metric != OX_LYN_GET_REG_STATUS_E || status != OX_LYN_SUCCESS || one.info.value.u32 == state.status(),
              "the registration status is the board's");
  }

  void get() {
    bool good;
    const ox_lyn_hndl_t hndl = handle(good);
    asked one;
    draw(&one, true);
    if (one_of(16)) {
      return hold(ox_lyn_get_info(hndl, nullptr), OX_LYN_ERR_INVALID_PARAM, "get without a record");
    }
    one.of.record = one.of.record && good; /* with neither is anything looked at */
    const int32_t expected = get_status(one.of);
    const int32_t status = ox_lyn_get_info(hndl, &one.info);
    hold(status, expected, "get", one.of.metric);
    hold_record(one, status);
    operation_release(&one.info, one.given);
  }

  void list() {
    bool good;
    const ox_lyn_hndl_t hndl = handle(good);
    const bool given = !one_of(16);
    std::vector<asked> all(in.take<uint8_t>() % 6);
    std::vector<ox_lyn_dm_info_t> infos;
    std::vector<request> requests;
    for (asked &one : all) {
      draw(&one, false);
      requests.push_back(one.of);
      infos.push_back(one.info);
    }
    const int32_t expected = good && given && !all.empty() ? list_status(requests) : OX_LYN_ERR_INVALID_PARAM;
    infos.reserve(1); /* a list of none is not null */
    for (const request &of : requests) {
      hold(0, 0, "entry", of.metric);
    }
    hold(ox_lyn_get_info_list(hndl, given ? infos.data() : nullptr, static_cast<uint32_t>(infos.size())), expected,
         "list");
    for (size_t i = 0; i < all.size(); ++i) {
      operation_release(&infos[i], all[i].given);
    }
  }

  /* Controls */

  int32_t stop_shot() {
    const bool ran = std::exchange(state.shot, false);
    return ran ? OX_LYN_SUCCESS : OX_LYN_ERR_FAILURE;
  }

  int32_t stop_batching() {
    const bool ran = std::exchange(state.batching, false);
    return ran ? OX_LYN_SUCCESS : OX_LYN_ERR_FAILURE;
  }

  /** Whether the module is at one of these statuses; nothing: it may not have seen yet that the board's has changed. */
  static std::optional<bool> at(const std::set<uint32_t> &statuses) {
    const auto among = [&](uint32_t status) { return statuses.count(status) != 0; };
    const auto count = std::count_if(state.seen.begin(), state.seen.end(), among);
    const bool sure = count == 0 || static_cast<size_t>(count) == state.seen.size();
    return sure ? std::optional(count != 0) : std::nullopt;
  }

  /** A control that is `invalid`, or `whole`, and needs a status. Returns whether it was carried out. */
  static bool hold_control(bool good, ox_lyn_hndl_t hndl, ox_lyn_dm_ctrl_info_t *ctrl, bool invalid, bool whole,
                           std::optional<bool> allowed) {
    const int32_t status = ox_lyn_set_info(hndl, ctrl);
    if (!good || invalid) {
      /* What is invalid is not always looked at before what is impossible. */
      const bool impossible = good && (!whole || !state.modem || allowed != true);
      fuzz_hold(status == OX_LYN_ERR_INVALID_PARAM || (impossible && status == OX_LYN_ERR_FAILURE),
                "a control is refused", std::to_string(ctrl->control) + ": " + std::to_string(status));
    } else if (whole && state.modem && !allowed) {
      fuzz_hold(status == OX_LYN_SUCCESS || status == OX_LYN_ERR_FAILURE, "a control is carried out or fails");
    } else {
      hold(status, whole && state.modem && *allowed ? OX_LYN_SUCCESS : OX_LYN_ERR_FAILURE, "set", ctrl->control);
    }
    return status == OX_LYN_SUCCESS;
  }

  ox_lyn_lte_cell_lock_t lte_lock() {
    ox_lyn_lte_cell_lock_t lock = {};
    lock.count = static_cast<uint8_t>(in.take<uint8_t>() % (OX_LYN_LTE_LOCK_LEN + 1));
    lock.enforce = in.take<uint8_t>();
    in.fill(lock.cells, sizeof lock.cells[0]);
    return lock;
  }

  ox_lyn_nr5g_cell_lock_t nr5g_lock(bool &invalid, bool &whole) {
    ox_lyn_nr5g_cell_lock_t lock = {};
    lock.lock_type = in.take<uint8_t>() % 5;
    lock.pci = static_cast<uint16_t>(in.take<uint8_t>() % 4);
    lock.scs = in.take<uint8_t>() % 8;
    lock.arfcn_list_len = in.take<uint8_t>() % 4;
    for (uint32_t i = 0; i < lock.arfcn_list_len; ++i) {
      lock.arfcn_list[i].scs = in.take<uint8_t>() % 8 - 1;
    }
    const bool cell = lock.lock_type == OX_LYN_LOCK_CELL_E, listed = lock.lock_type == OX_LYN_LOCK_ARFCN_LIST_E;
    const auto bad = [](const ox_lyn_nr5g_lock_arfcn_t &entry) { return entry.scs < 0 || entry.scs > 5; };
    invalid =
        (cell && lock.scs > 5) || (listed && std::any_of(lock.arfcn_list, lock.arfcn_list + lock.arfcn_list_len, bad));
    whole = (cell && lock.pci != 0) || (listed && lock.arfcn_list_len != 0) || lock.lock_type == OX_LYN_LOCK_UNLOCK_E;
    return lock;
  }

  /** Frequencies of a PPS configuration or install mode, in a block of either. */
  template <typename Block>
  Block frequencies(bool &invalid) {
    Block block = {};
    block.freq_count = static_cast<decltype(block.freq_count)>(in.take<uint8_t>() % (OX_LYN_FREQ_LEN + 2));
    invalid = block.freq_count > OX_LYN_FREQ_LEN;
    for (uint32_t i = 0; i < std::min<uint32_t>(block.freq_count, OX_LYN_FREQ_LEN); ++i) {
      block.freqs[i].scs = in.take<uint8_t>() % 32 == 31 ? 6 : 1;
      invalid = invalid || block.freqs[i].scs > 5;
    }
    return block;
  }

  void set() {
    bool good, invalid = false, whole = true;
    std::optional<bool> allowed = true;
    const ox_lyn_hndl_t hndl = handle(good);
    ox_lyn_dm_ctrl_info_t ctrl = {};
    ctrl.control = in.take<uint8_t>() % 11;
    const bool given = !one_of(16);
    const auto control = [&](auto block) {
      ctrl.value.ptr = given ? &block : nullptr;
      hold_control(good, hndl, &ctrl, invalid || !given, whole, allowed);
    };
    if (one_of(16)) {
      return hold(ox_lyn_set_info(hndl, nullptr), OX_LYN_ERR_INVALID_PARAM, "set without a record");
    }
    switch (ctrl.control) {
      case OX_LYN_SET_LOC_SINGLE_SHOT_STOP_E:
        return hold(ox_lyn_set_info(hndl, &ctrl), good ? stop_shot() : OX_LYN_ERR_INVALID_PARAM, "stop a shot");
      case OX_LYN_SET_LOC_ROUTINE_BATCHING_STOP_E:
        return hold(ox_lyn_set_info(hndl, &ctrl), good ? stop_batching() : OX_LYN_ERR_INVALID_PARAM, "stop batching");
      case OX_LYN_SET_LTE_CELL_LOCK_LIST_E: {
        const ox_lyn_lte_cell_lock_t lock = lte_lock();
        whole = lock.count != 0;
        allowed = at({OX_LYN_REG_LTE_E});
        return control(lock);
      }
      case OX_LYN_SET_NR5G_CELL_LOCK_LIST_E: {
        const ox_lyn_nr5g_cell_lock_t lock = nr5g_lock(invalid, whole);
        allowed = at({OX_LYN_REG_NR5G_E});
        return control(lock);
      }
      case OX_LYN_SET_NR5G_DEPRIORITIZE_E:
        ctrl.value.u8 = one_of(2) ? 0 : 1;
        allowed = at({OX_LYN_REG_LTE_NR5G_E, OX_LYN_REG_NR5G_E});
        if (hold_control(good, hndl, &ctrl, false, true, allowed)) {
          state.deprioritised = ctrl.value.u8 != 0;
          state.may_see();
        }
        return;
      case OX_LYN_SET_MMW_PPS_CONFIG_E:
        return control(frequencies<ox_lyn_pps_config_t>(invalid));
      case OX_LYN_SET_MMW_PPS_CHANGE_STATUS_E: {
        const ox_lyn_pps_change_status_t change = {1, 2, 0, in.take<uint8_t>() % 6U};
        whole = change.pps_mode >= 1 && change.pps_mode <= 3;
        return control(change);
      }
      case OX_LYN_SET_INSTALL_MODE_E: {
        auto install = frequencies<ox_lyn_install_mode_t>(invalid);
        install.mode = in.take<uint8_t>() % 4;
        return control(install);
      }
      default:
        return hold(ox_lyn_set_info(hndl, &ctrl), good ? OX_LYN_ERR_NOT_SUPPORTED : OX_LYN_ERR_INVALID_PARAM, "set");
    }
  }

  /* Subscriptions */

  void subscribe() {
    bool good;
    const ox_lyn_hndl_t hndl = handle(good);
    ox_lyn_dm_ind_info_t ind = {one_of(16) ? 1U : 3U, in.take<uint8_t>() % 12U, one_of(8) ? 4U : 2U,
                                one_of(4) ? in.take<int64_t>() : 1};
    const bool known = ind.indication >= OX_LYN_IND_MODEM_STATUS_E && ind.indication <= OX_LYN_IND_NR5G_SINR_E;
    const bool thresholded = ind.indication > OX_LYN_IND_REG_STATUS_E;
    const bool record = good && ind.record_type == OX_LYN_RECORD_IND_E;
    int32_t expected = state.modem ? OX_LYN_SUCCESS : OX_LYN_ERR_FAILURE;
    if (!record) {
      expected = OX_LYN_ERR_INVALID_PARAM;
    } else if (!known) {
      expected = OX_LYN_ERR_NOT_SUPPORTED;
    } else if (thresholded && (ind.value_type != OX_LYN_VALUE_INT64_E || ind.threshold < 1)) {
      expected = OX_LYN_ERR_INVALID_PARAM;
    }
    hold(ox_lyn_set_ind_info(hndl, &ind), expected, "subscribe", ind.indication);
    if (expected == OX_LYN_SUCCESS) {
      state.subscribed.insert(ind.indication);
    }
    hold(ox_lyn_set_ind_info(hndl, nullptr), OX_LYN_ERR_INVALID_PARAM, "subscribe without a record");
  }

  void count() {
    bool good;
    const ox_lyn_hndl_t hndl = handle(good);
    uint32_t counted = 99;
    hold(ox_lyn_get_ind_count(hndl, &counted), good ? OX_LYN_SUCCESS : OX_LYN_ERR_INVALID_PARAM, "count");
    fuzz_hold(counted == (good ? state.subscribed.size() : 99), "subscriptions are counted");
    hold(ox_lyn_get_ind_count(hndl, nullptr), OX_LYN_ERR_INVALID_PARAM, "count into nothing");
  }

  void indications() {
    constexpr uint32_t order[] = {1, 2, 3, 5, 7, 4, 6, 8};
    bool good;
    const ox_lyn_hndl_t hndl = handle(good);
    const bool given = !one_of(16);
    std::vector<uint32_t> room(in.take<uint8_t>() % 11, 99), wanted = room;
    int32_t expected = OX_LYN_SUCCESS;
    if (!good || !given || room.empty()) {
      expected = OX_LYN_ERR_INVALID_PARAM;
    } else if (room.size() < state.subscribed.size()) {
      expected = OX_LYN_ERR_INSUFFICIENT_BUFFER;
    } else {
      std::fill(wanted.begin(), wanted.end(), 0);
      std::copy_if(std::begin(order), std::end(order), wanted.begin(),
                   [](uint32_t indication) { return state.subscribed.count(indication) != 0; });
    }
    room.reserve(1);
    hold(ox_lyn_get_ind_list(hndl, given ? room.data() : nullptr, static_cast<uint32_t>(room.size())), expected,
         "list subscriptions");
    fuzz_hold(room == wanted, "subscriptions are listed in their order");
  }

  void unsubscribe() {
    bool good;
    const ox_lyn_hndl_t hndl = handle(good);
    const bool given = !one_of(16);
    std::vector<uint32_t> numbers(in.take<uint8_t>() % 5);
    for (uint32_t &number : numbers) {
      number = one_of(16) ? in.take<uint32_t>() : 1 + in.take<uint8_t>() % 8;
    }
    const bool known =
        std::all_of(numbers.begin(), numbers.end(), [](uint32_t number) { return number >= 1 && number <= 8; });
    int32_t expected = state.modem ? OX_LYN_SUCCESS : OX_LYN_ERR_FAILURE;
    if (!good || !given || numbers.empty()) {
      expected = OX_LYN_ERR_INVALID_PARAM;
    } else if (!known) {
      expected = OX_LYN_ERR_NOT_SUPPORTED;
    }
    numbers.reserve(1);
    hold(ox_lyn_clear_ind_list(hndl, given ? numbers.data() : nullptr, static_cast<uint32_t>(numbers.size())), expected,
         "unsubscribe");
    for (const uint32_t number : numbers) {
      if (expected == OX_LYN_SUCCESS) {
        state.subscribed.erase(number);
      }
    }
  }

  /* The board */

  static void happen(const std::string &entry) {
    const std::string wrong = sim_board_happen(entry);
    hold(wrong.empty() ? 0 : -1, 0, entry.c_str());
  }

  void modem() {
    state.modem = !state.modem;
    happen(state.modem ? "modem = 'up'" : "modem = 'down'");
    settle();
    const auto found = take_events();
    const size_t told = state.subscribed.count(OX_LYN_IND_MODEM_STATUS_E);
    const auto count = std::count_if(found.begin(), found.end(), [](const event &one) {
      return one.record_type == OX_LYN_RECORD_IND_E && one.id == OX_LYN_IND_MODEM_STATUS_E &&
             one.word == (state.modem ? OX_LYN_MODEM_UP_E : OX_LYN_MODEM_DOWN_E);
    });
    fuzz_hold(static_cast<size_t>(count) == told, "a modem that goes or comes is told to who has subscribed it");
  }

  void service() {
    state.service = 1 + in.take<uint8_t>() % 7;
    happen("sys_info = { " + std::string(services[state.service]) + " }");
    state.may_see();
  }

  void fixes() {
    state.fixes = !state.fixes;
    happen(state.fixes ? "location = { fix_ms = 0 }" : "location = { fix_ms = -1 }");
  }

  template <typename Record>
  static void post(sim_lib lib, const char *name, uint32_t id, const Record &record) {
    std::vector<uint8_t> bytes;
    fuzz_hold(sim_message_encode(*sim_message_find(lib, sim_direction::indication, id), &record, bytes),
              "it is a message");
    sim_board_post(name, id, std::move(bytes));
  }

  /** One event of this kind. */
  static void hold_told(bool expected, uint32_t record_type, uint32_t id, const char *what) {
    settle();
    const auto found = take_events();
    const auto count = std::count_if(found.begin(), found.end(),
                                     [=](const event &one) { return one.record_type == record_type && one.id == id; });
    fuzz_hold(count == (expected ? 1 : 0), what, std::to_string(count));
  }

  void answer_scan() {
    yrp_nas_incremental_scan_ind_t ind = {};
    ind.scan_status = one_of(2) ? 0 : 1;
    post(sim_lib::nas, "nas", YRP_NAS_INCREMENTAL_NETWORK_SCAN, ind);
    const bool lte = state.lte_runs, told = state.hndl != 0 && state.modem;
    if (told) {
      (lte ? state.lte_pending : state.nr5g_pending) = false;
      state.lte_runs = false;
    }
    hold_told(told, OX_LYN_RECORD_ASYNC_E, lte ? OX_LYN_ASYNC_LTE_NBR_INFO_E : OX_LYN_ASYNC_NR5G_NBR_INFO_E,
              "a scan's answer is delivered");
  }

  /** Any status but that a test is configured, which would start it. */
  void end_test() {
    oxmap_mtpe_status_ind_t ind = {};
    ind.test_status = 2 + in.take<uint8_t>() % 4;
    post(sim_lib::oxmap, "oxmap", OXMAP_MTPE_STATUS_IND, ind);
    if (state.hndl != 0) {
      const bool second = state.testing && ind.test_status == 2 && state.test_type == OX_LYN_MTPE_TYPE_BOTH_E;
      state.testing = second;
      state.test_type = OX_LYN_MTPE_TYPE_DOWNLINK_E;
    }
    hold_told(state.hndl != 0, OX_LYN_RECORD_IND_E, OX_LYN_IND_MTPE_STATUS_E, "a test's status is delivered");
  }
};

constexpr void (stepper::*steps[])() = {
    &stepper::init,      &stepper::deinit, &stepper::get,         &stepper::get,         &stepper::get,
    &stepper::list,      &stepper::list,   &stepper::set,         &stepper::set,         &stepper::subscribe,
    &stepper::subscribe, &stepper::count,  &stepper::indications, &stepper::unsubscribe, &stepper::modem,
    &stepper::service,   &stepper::fixes,  &stepper::answer_scan, &stepper::end_test};

/** What is delivered by itself: what was subscribed before the step or after it, and what nobody has to subscribe. */
void hold_events(const std::set<uint32_t> &before) {
  for (const event &one : take_events()) {
    const bool subscribable = one.record_type == OX_LYN_RECORD_IND_E && one.id <= OX_LYN_IND_NR5G_SINR_E;
    fuzz_hold(!subscribable || before.count(one.id) != 0 || state.subscribed.count(one.id) != 0,
              "only what is subscribed is delivered", std::to_string(one.id));
  }
}

/** The statuses of what is measured, at every service. */
void learn() {
  for (uint32_t service = OX_LYN_REG_LTE_E; service <= OX_LYN_REG_NR5G_E; ++service) {
    ox_lyn_hndl_t hndl = 0;
    fuzz_hold(sim_board_load(board).empty() &&
                  sim_board_happen("sys_info = { " + std::string(services[service]) + " }").empty() &&
                  ox_lyn_init(&hndl, 0, on_event) == OX_LYN_SUCCESS,
              "the module comes up");
    for (uint32_t metric = 1; metric < OX_LYN_GET_COUNT; ++metric) {
      if (is_measured(metric)) {
        measured[service][metric] = operation_call({operation_kind::get, metric}, &hndl);
        fuzz_hold(operation_metric_states(metric, measured[service][metric]), "a status is a stated one");
      }
    }
    fuzz_hold(ox_lyn_deinit(hndl) == OX_LYN_SUCCESS, "the module goes down");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const bool learned = (fuzz_take_stdio(), learn(), true);
  fuzz_hold(learned && sim_board_load(board).empty(), "the board is there");
  fuzz_printed();
  state = {};
  fuzz_bytes in{data, size};
  stepper one{in};
  for (int done = 0; done < most_steps && !in.ended(); ++done) {
    const std::set<uint32_t> before = state.subscribed;
    (one.*in.pick(steps))();
    settle();
    hold_events(before);
    state.shot = state.shot && !std::exchange(state.fix_comes, false);
  }
  if (state.hndl != 0) {
    fuzz_hold(ox_lyn_deinit(state.hndl) == OX_LYN_SUCCESS, "the module goes down");
  }
  take_events();
  return 0;
}
