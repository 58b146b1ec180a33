/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What the files of the Device Manager API share (of the module): the state, the lock, the gate, and the checks that
 * every operation begins with. Only lyn_interface*.cpp include it.
 *
 * The module lock is held for the whole of each operation and by the command thread around each event. Posting needs
 * none of it: it goes through the queue's gate, which is open while the module is up.
 */
#ifndef LYN_INTERFACE_H
#define LYN_INTERFACE_H

#include <pthread.h>
#include <stdint.h>

#include "lyn_block.h"
#include "lyn_cmdq.h"
#include "lyn_log.h"
#include "lyn_order.h"
#include "lyn_yrp_nas.h"
#include "ox_lyn.h"

/** Items of a neighbour scan that were asked for; NR 5G has no RSRQ. */
enum { LYN_NBR_EARFCN, LYN_NBR_PCI, LYN_NBR_CGI, LYN_NBR_PLMN, LYN_NBR_RSRP, LYN_NBR_RSRQ, LYN_NBR_ITEMS };

/** Neighbour scan of one radio. */
typedef struct {
  uint8_t request; /**< pending: asked for, and not yet answered */
  uint8_t ongoing; /**< in flight: sent to the modem */
  uint8_t item[LYN_NBR_ITEMS];
} lyn_scan_group_t;

/** Module state: zero while the module is down. Guarded by the module lock but for what is said otherwise. */
typedef struct {
  ox_lyn_hndl_t hndl;
  uint8_t initialised; /**< atomic; written under the module lock */
  uint32_t user_data;
  ox_lyn_user_cb_fn user_cb_fn;
  lyn_ind_table_t ind_table;
  lyn_scan_group_t lte_scan, nr5g_scan;
  ox_lyn_mtpe_req_t mtpe_req; /**< of the test that runs */
  uint8_t mtpe_ongoing, single_shot_ongoing, batching_ongoing;
  lyn_cmdq_t cmdq; /**< set up and torn down under the module lock, entered through the gate */
} lyn_state_t;

extern lyn_state_t lyn_state;
extern lyn_cmdq_gate_t lyn_gate; /**< open while the module is up */

/** Take the module lock behind all that wait for it already. */
void lyn_lock();

/** Take the module lock if nobody has it. */
bool lyn_lock_try();

/** Hand the module lock to the one that has waited longest. */
void lyn_unlock();

/** lyn_lock for the command thread, which does not wait for a module that is down. False: it is, and nothing is held.
 */
bool lyn_lock_while_initialised();

/** End the command thread's wait, if it waits. Call with the module lock held, when the module is down. */
void lyn_lock_send_thread_off();

/** Holds the module lock for a scope, unless told to keep it. */
class lyn_module_guard_t {
 public:
  lyn_module_guard_t() { lyn_lock(); }
  ~lyn_module_guard_t() {
    if (!is_kept_) {
      lyn_unlock();
    }
  }
  lyn_module_guard_t(const lyn_module_guard_t &) = delete;
  lyn_module_guard_t &operator=(const lyn_module_guard_t &) = delete;

  /** Leave the module locked for ever. */
  void keep() {
    is_kept_ = true;
    lyn_order_give(LYN_ORDER_MODULE);  // not the thread's any more, but nobody's
  }

 private:
  bool is_kept_ = false;
};

/** Whether the module is up; any thread. */
bool lyn_is_initialised();

/** Whether `hndl` is the module's. Call with the module lock held. */
inline bool lyn_is_handle(ox_lyn_hndl_t hndl) {
  return hndl != 0 && hndl == lyn_state.hndl;
}

/** Log that the module is down; OX_LYN_ERR_NOT_INITIALIZED. */
int32_t lyn_not_initialised();

/* Neighbour scans: lyn_interface_scan.cpp. Call with the module lock held. */

/** Whether a metric is answered by a neighbour scan. */
bool lyn_scan_is_metric(uint32_t metric);

/** Whether a scan of either radio was asked for and is not yet answered. */
bool lyn_scan_is_pending();

/** Log that one is; OX_LYN_ERR_BUSY. */
int32_t lyn_scan_busy();

/** Ask for a metric's item; its radio's scan becomes pending. */
void lyn_scan_ask(uint32_t metric);

/** Take back all that was asked of both radios. */
void lyn_scan_clear();

/** Send one scan for what both groups ask for; a failed start clears both. */
int32_t lyn_scan_start();

/** Ask for one metric and start its scan, unless one is pending. */
int32_t lyn_scan_metric(uint32_t metric);

/* The throughput test: lyn_interface_mtpe.cpp. Call with the module lock held. */

/** Start a test. OX_LYN_ERR_BUSY while one runs, then OX_LYN_ERR_INVALID_PARAM for a null request. */
int32_t lyn_mtpe_begin(const ox_lyn_mtpe_req_t *req);

/* Events */

/** The data of an event's command. */
typedef struct {
  uint32_t msg_id; /**< lyn_event_e */
  void *msg_data;  /**< the command's own from the moment of posting */
} yrp_async_data;
static_assert(sizeof(yrp_async_data) == LYN_CMDQ_OWN_LEN, "queued as its command's own octets");

/** execute_f of an event's command, on the command thread: `data` is its yrp_async_data. */
void lyn_process_async_event(lyn_cmd *cmd, void *data);

/**
 * free_f of an event's command: frees the posted block with all that it owns and, where they are blocks of their own,
 * the record and the command.
 */
void lyn_free_async_event(lyn_cmd *cmd, void *data);

/** One signal subscription: its indication and its group of the table. */
typedef struct {
  uint32_t indication;
  lyn_ind_group_t lyn_ind_table_t::*group;
} lyn_ind_row_t;

/** The six signal subscriptions, LTE first: the order of delivery and of ox_lyn_get_ind_list. */
inline constexpr lyn_ind_row_t lyn_ind_rows[] = {
    {OX_LYN_IND_LTE_RSRP_E, &lyn_ind_table_t::lte_rsrp},   {OX_LYN_IND_LTE_RSRQ_E, &lyn_ind_table_t::lte_rsrq},
    {OX_LYN_IND_LTE_SINR_E, &lyn_ind_table_t::lte_sinr},   {OX_LYN_IND_NR5G_RSRP_E, &lyn_ind_table_t::nr5g_rsrp},
    {OX_LYN_IND_NR5G_RSRQ_E, &lyn_ind_table_t::nr5g_rsrq}, {OX_LYN_IND_NR5G_SINR_E, &lyn_ind_table_t::nr5g_sinr},
};

#endif
