/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Every public operation as a table, for the tests that do something to each of them: failed allocations, failed calls
 * of the platform, many threads, long runs, sequences made up by a fuzzer. The rows are made by counting through the
 * enumerations of the header, so that a new metric, control or indication is in without a line here.
 *
 *   ox_lyn_hndl_t hndl = 0;
 *   for (const operation &one : operations()) {
 *     sim_board_load(operation_board(one));           // a board on which it succeeds
 *     ...
 *     const int32_t status = operation_call(one, &hndl);
 *     if (!operation_states(one, status)) ...         // a status that its comment in the header does not state
 *   }
 *
 * Nothing here is shared between threads, and nothing needs a test framework.
 */
#ifndef OPERATIONS_H
#define OPERATIONS_H

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <initializer_list>
#include <iterator>
#include <string>
#include <vector>

#include "event_release.h"
#include "ox_lyn.h"

enum class operation_kind : uint8_t {
  init,
  get,             /**< ox_lyn_get_info of metric `id` */
  list,            /**< ox_lyn_get_info_list of metric `id` and the registration status */
  list_all,        /**< ox_lyn_get_info_list of all metrics that a list takes */
  set,             /**< ox_lyn_set_info of control `id` */
  subscribe,       /**< ox_lyn_set_ind_info of indication `id` */
  unsubscribe,     /**< ox_lyn_clear_ind_list of indication `id` alone */
  unsubscribe_all, /**< ox_lyn_clear_ind_list of all that can be subscribed */
  count,           /**< ox_lyn_get_ind_count */
  indications,     /**< ox_lyn_get_ind_list */
  deinit
};

/** One operation with arguments that it takes. */
struct operation {
  operation_kind kind;
  uint32_t id = 0; /**< metric, control or indication; 0 where the kind has none */

  bool operator==(const operation &) const = default;
};

/* Arguments */

/**
 * A block for any metric or control: room for the largest, and every 32-bit word a 1. That is one cell, one frequency,
 * the first of each enumeration, a start, an interval of 1 ms.
 */
struct operation_block {
  alignas(uint64_t) std::array<uint32_t, 2048> words;

  operation_block() { words.fill(1); }

  template <typename Record>
  void put(const Record &record) {
    static_assert(sizeof record <= sizeof words);
    memcpy(words.data(), &record, sizeof record);
  }
};

/** The throughput test that is asked for: uplink, one second, to a documentation address. */
inline ox_lyn_mtpe_req_t operation_mtpe_request() {
  ox_lyn_mtpe_req_t req = {};
  req.external_server = 1;
  req.test_type = OX_LYN_MTPE_TYPE_UPLINK_E;
  req.duration = 1;
  req.ip_family = OX_LYN_IP_FAMILY_V4_E;
  req.protocol = OX_LYN_PROTOCOL_UDP_E;
  req.src_port = 5001;
  req.dst_port = 5002;
  req.src_ipv4 = 0x010200C0; /* 192.0.2.1 */
  req.dst_ipv4 = 0x020200C0;
  return req;
}

/** A record that asks for a metric; `block` is its own, and outlives the call. */
inline ox_lyn_dm_info_t operation_record(uint32_t metric, operation_block *block) {
  ox_lyn_dm_info_t info = {};
  info.record_type = OX_LYN_RECORD_GET_E;
  info.metric = metric;
  info.value.ptr = block->words.data();
  switch (metric) { /* what a block of ones is not */
    case OX_LYN_GET_IPV4_STATS_E:
    case OX_LYN_GET_IPV6_STATS_E:
      info.value.i64 = 1; /* a profile handle */
      break;
    case OX_LYN_GET_MTPE_SERVER_CONFIG_E:
      block->put(ox_lyn_mtpe_net_params_t{OX_LYN_IP_FAMILY_V4_E, {192, 0, 2, 1}});
      break;
    case OX_LYN_GET_MTPE_LTE_INFO_E:
    case OX_LYN_GET_MTPE_NR5G_INFO_E:
      block->put(operation_mtpe_request());
      break;
    case OX_LYN_GET_LOC_SINGLE_SHOT_E:
      block->put(ox_lyn_loc_single_shot_req_t{60000, 10.0F});
      break;
    case OX_LYN_GET_LOC_ROUTINE_BATCHING_E:
      block->put(ox_lyn_loc_batching_req_t{50});
      break;
    default:
      break;
  }
  return info;
}

/** Whether a success of the metric leaves a block in `ptr` that the caller frees. */
inline bool operation_hands_out(uint32_t metric) {
  constexpr uint32_t metrics[] = {
      OX_LYN_GET_LTE_MCS_E,    OX_LYN_GET_NR5G_MCS_E,   OX_LYN_GET_LTE_ENDC_MODE_E,     OX_LYN_GET_WWAN_PROFILE_INDEX_E,
      OX_LYN_GET_IPV4_STATS_E, OX_LYN_GET_IPV6_STATS_E, OX_LYN_GET_MTPE_SERVER_CONFIG_E};
  return std::ranges::find(metrics, metric) != std::end(metrics);
}

/** Free what a record was handed, whatever the status; `given` is its value as it went in. */
inline void operation_release(ox_lyn_dm_info_t *info, int64_t given) {
  if (operation_hands_out(info->metric) && info->value.i64 != given) {
    free(info->value.ptr);
    info->value.i64 = given;
  }
}

/* Calls */

/** Read the metrics, by ox_lyn_get_info_list unless it is `alone`. */
inline int32_t operation_read(ox_lyn_hndl_t hndl, const std::vector<uint32_t> &metrics, bool alone) {
  std::vector<operation_block> blocks(metrics.size());
  std::vector<ox_lyn_dm_info_t> records(metrics.size());
  std::vector<int64_t> given(metrics.size());
  for (size_t i = 0; i < metrics.size(); i++) {
    records[i] = operation_record(metrics[i], &blocks[i]);
    given[i] = records[i].value.i64;
  }
  const int32_t status = alone ? ox_lyn_get_info(hndl, records.data())
                               : ox_lyn_get_info_list(hndl, records.data(), static_cast<uint32_t>(records.size()));
  for (size_t i = 0; i < metrics.size(); i++) {
    operation_release(&records[i], given[i]);
  }
  return status;
}

inline int32_t operation_control(ox_lyn_hndl_t hndl, uint32_t control) {
  operation_block block;
  ox_lyn_dm_ctrl_info_t info = {};
  info.control = control;
  if (control == OX_LYN_SET_NR5G_DEPRIORITIZE_E) {
    info.value.u8 = 1;
  } else {
    info.value.ptr = block.words.data();
  }
  return ox_lyn_set_info(hndl, &info);
}

inline int32_t operation_subscribe(ox_lyn_hndl_t hndl, uint32_t indication) {
  ox_lyn_dm_ind_info_t info = {OX_LYN_RECORD_IND_E, indication, OX_LYN_VALUE_INT64_E, 1};
  return ox_lyn_set_ind_info(hndl, &info);
}

/** The last indication that can be subscribed. */
inline constexpr uint32_t OPERATION_LAST_SUBSCRIBED = OX_LYN_IND_NR5G_SINR_E;

inline int32_t operation_unsubscribe_all(ox_lyn_hndl_t hndl) {
  std::array<uint32_t, OPERATION_LAST_SUBSCRIBED> all;
  for (uint32_t i = 0; i < all.size(); i++) {
    all[i] = i + 1;
  }
  return ox_lyn_clear_ind_list(hndl, all.data(), static_cast<uint32_t>(all.size()));
}

/** Metrics that a list refuses: those that are not supported in one. */
inline bool operation_in_list(uint32_t metric) {
  return metric != OX_LYN_GET_IPV4_QOS_TFT_E && metric != OX_LYN_GET_IPV6_QOS_TFT_E;
}

/**
 * All that can be read in one call: a metric that would find what one before it has started is left out, which is the
 * second throughput test.
 */
inline std::vector<uint32_t> operation_all_metrics() {
  std::vector<uint32_t> all;
  for (uint32_t metric = 1; metric < OX_LYN_GET_COUNT; metric++) {
    if (operation_in_list(metric) && metric != OX_LYN_GET_MTPE_NR5G_INFO_E) {
      all.push_back(metric);
    }
  }
  return all;
}

/**
 * Call the operation with good arguments, and free what it hands out. The handle is written by a successful init and
 * left as it is by all others, deinit included; what the module delivers goes to `on_event`.
 */
inline int32_t operation_call(const operation &one, ox_lyn_hndl_t *hndl, ox_lyn_user_cb_fn on_event = event_ignored,
                              uint32_t user_data = 0) {
  std::array<uint32_t, OX_LYN_IND_COUNT> numbers = {one.id};
  switch (one.kind) {
    case operation_kind::init:
      return ox_lyn_init(hndl, user_data, on_event);
    case operation_kind::get:
      return operation_read(*hndl, {one.id}, true);
    case operation_kind::list:
      return operation_read(*hndl, {one.id, OX_LYN_GET_REG_STATUS_E}, false);
    case operation_kind::list_all:
      return operation_read(*hndl, operation_all_metrics(), false);
    case operation_kind::set:
      return operation_control(*hndl, one.id);
    case operation_kind::subscribe:
      return operation_subscribe(*hndl, one.id);
    case operation_kind::unsubscribe:
      return ox_lyn_clear_ind_list(*hndl, numbers.data(), 1);
    case operation_kind::unsubscribe_all:
      return operation_unsubscribe_all(*hndl);
    case operation_kind::count:
      return ox_lyn_get_ind_count(*hndl, numbers.data());
    case operation_kind::indications:
      return ox_lyn_get_ind_list(*hndl, numbers.data(), static_cast<uint32_t>(numbers.size()));
    case operation_kind::deinit:
      return ox_lyn_deinit(*hndl);
  }
  abort();
}

/* The table */

/** One kind: its name, and the last of the identifiers, from 1 on, that it has an operation for; 0: it has one. */
struct operation_kind_row {
  operation_kind kind;
  const char *name;
  uint32_t last_id;
};

inline constexpr operation_kind_row operation_kinds[] = {
    {operation_kind::init, "init", 0},
    {operation_kind::get, "get", OX_LYN_GET_COUNT - 1},
    {operation_kind::list, "list", OX_LYN_GET_COUNT - 1},
    {operation_kind::list_all, "list of all", 0},
    {operation_kind::set, "set", OX_LYN_SET_COUNT - 1},
    {operation_kind::subscribe, "subscribe", OX_LYN_IND_COUNT - 1},
    {operation_kind::unsubscribe, "unsubscribe", OX_LYN_IND_COUNT - 1},
    {operation_kind::unsubscribe_all, "unsubscribe all", 0},
    {operation_kind::count, "count", 0},
    {operation_kind::indications, "indications", 0},
    {operation_kind::deinit, "deinit", 0},
};

/** Every operation: first init, last deinit. */
inline std::vector<operation> operations() {
  std::vector<operation> all;
  for (const operation_kind_row &row : operation_kinds) {
    for (uint32_t id = row.last_id == 0 ? 0 : 1; id <= row.last_id; id++) {
      all.push_back({row.kind, id});
    }
  }
  return all;
}

/** "get 10", "unsubscribe all" */
inline std::string operation_name(const operation &one) {
  const auto &row = operation_kinds[static_cast<size_t>(one.kind)];
  std::string name = row.name;
  if (row.last_id != 0) {
    name.append(" ").append(std::to_string(one.id));
  }
  return name;
}

/* What comes of them */

/** What has to be done before, so that the operation has something to do. */
inline std::vector<operation> operation_before(const operation &one) {
  if (one == operation{operation_kind::set, OX_LYN_SET_LOC_SINGLE_SHOT_STOP_E}) {
    return {{operation_kind::get, OX_LYN_GET_LOC_SINGLE_SHOT_E}};
  }
  if (one == operation{operation_kind::set, OX_LYN_SET_LOC_ROUTINE_BATCHING_STOP_E}) {
    return {{operation_kind::get, OX_LYN_GET_LOC_ROUTINE_BATCHING_E}};
  }
  return {};
}

/** The registration status at which the operation has most to do. */
inline uint32_t operation_reg_status(const operation &one) {
  if (one.kind == operation_kind::set && one.id == OX_LYN_SET_LTE_CELL_LOCK_LIST_E) {
    return OX_LYN_REG_LTE_E;
  }
  if (one.kind == operation_kind::set && one.id == OX_LYN_SET_NR5G_CELL_LOCK_LIST_E) {
    return OX_LYN_REG_NR5G_E;
  }
  const bool reads = one.kind == operation_kind::get || one.kind == operation_kind::list;
  return reads && (one.id == OX_LYN_GET_LTE_CA_STATS_E || one.id == OX_LYN_GET_LTE_ENDC_MODE_E) ? OX_LYN_REG_LTE_E
                                                                                                : OX_LYN_REG_LTE_NR5G_E;
}

/**
 * The scenario of a quiet board on which the operation gives operation_good: the registration status of its own, a
 * location service that is ready at once, and an answer to everything.
 */
inline std::string operation_board(const operation &one) {
  static constexpr const char *sys_info[] = {"lte = 'service'\nnr5g_pci = -1\n", "lte = 'service'\nnr5g_pci = 500\n",
                                             "lte = 'absent'\nnr5g = 'service'\nnr5g_pci = -1\n"};
  return std::string("board.noise_db = 0\nlocation.capabilities_ms = 0\nwwan.stats = [{}, { ip_family = 6 }]\n") +
         "wwan.qos.answer_ms = 0\nmtpe.configured_ms = 0\nscan.answer_ms = 0\n[sys_info]\n" +
         sys_info[operation_reg_status(one) - OX_LYN_REG_LTE_E];
}

/** The status on that board. */
inline int32_t operation_good(const operation &one) {
  const bool indication = one.kind == operation_kind::subscribe || one.kind == operation_kind::unsubscribe;
  return indication && one.id > OPERATION_LAST_SUBSCRIBED ? OX_LYN_ERR_NOT_SUPPORTED : OX_LYN_SUCCESS;
}

/** Whether the header states the status for a metric asked for with a good handle and record. */
inline bool operation_metric_states(uint32_t metric, int32_t status) {
  const auto within = [metric](uint32_t from, uint32_t to) { return metric >= from && metric <= to; };
  switch (status) {
    case OX_LYN_SUCCESS:
    case OX_LYN_ERR_NO_MEMORY:
    case OX_LYN_ERR_FAILURE:
    case OX_LYN_ERR_NOT_INITIALIZED: /* of the modem's client, too */
      return true;
    case OX_LYN_ERR_SERVICE_UNAVAILABLE:
      return metric != OX_LYN_GET_REG_STATUS_E;
    case OX_LYN_ERR_INFO_UNAVAILABLE:
      return within(OX_LYN_GET_LTE_SERV_EARFCN_E, OX_LYN_GET_NR5G_SERV_TX_POWER_E) ||
             within(OX_LYN_GET_LTE_CELL_LOCK_LIST_E, OX_LYN_GET_NR5G_CELL_LOCK_LIST_E);
    case OX_LYN_ERR_BUSY:
      return within(OX_LYN_GET_LTE_NBR_EARFCN_E, OX_LYN_GET_LTE_NBR_RSRQ_E) ||
             within(OX_LYN_GET_MTPE_LTE_INFO_E, OX_LYN_GET_LOC_ROUTINE_BATCHING_E);
    default:
      return false;
  }
}

/** Whether the header states the status for the operation with good arguments and the module's own handle. */
inline bool operation_states(const operation &one, int32_t status) {
  const auto among = [status](std::initializer_list<int32_t> statuses) {
    return std::ranges::find(statuses, status) != statuses.end();
  };
  switch (one.kind) {
    case operation_kind::init:
      return among({OX_LYN_SUCCESS, OX_LYN_ERR_ALREADY_INITIALIZED, OX_LYN_ERR_NO_MEMORY, OX_LYN_ERR_FAILURE});
    case operation_kind::get:
      return operation_metric_states(one.id, status);
    case operation_kind::list:
      return operation_metric_states(one.id, status) || operation_metric_states(OX_LYN_GET_REG_STATUS_E, status);
    case operation_kind::list_all:
      return std::ranges::any_of(operation_all_metrics(),
                                 [status](uint32_t metric) { return operation_metric_states(metric, status); });
    case operation_kind::set:
      return among({OX_LYN_SUCCESS, OX_LYN_ERR_NOT_INITIALIZED, OX_LYN_ERR_NO_MEMORY, OX_LYN_ERR_FAILURE});
    case operation_kind::subscribe:
    case operation_kind::unsubscribe:
      return one.id <= OPERATION_LAST_SUBSCRIBED
                 ? among({OX_LYN_SUCCESS, OX_LYN_ERR_NOT_INITIALIZED, OX_LYN_ERR_NO_MEMORY, OX_LYN_ERR_FAILURE})
                 : among({OX_LYN_ERR_NOT_INITIALIZED, OX_LYN_ERR_NOT_SUPPORTED});
    case operation_kind::unsubscribe_all:
      return among({OX_LYN_SUCCESS, OX_LYN_ERR_NOT_INITIALIZED, OX_LYN_ERR_NO_MEMORY, OX_LYN_ERR_FAILURE});
    case operation_kind::count:
    case operation_kind::indications:
      return among({OX_LYN_SUCCESS, OX_LYN_ERR_NOT_INITIALIZED});
    case operation_kind::deinit:
      return among({OX_LYN_SUCCESS, OX_LYN_ERR_NOT_INITIALIZED, OX_LYN_ERR_FAILURE});
  }
  return false;
}

/** The same while others bring the module up and down: the handle may be void by now. */
inline bool operation_states_unheld(const operation &one, int32_t status) {
  return operation_states(one, status) || (one.kind != operation_kind::init && status == OX_LYN_ERR_INVALID_PARAM);
}

#endif
