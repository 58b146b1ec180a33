/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Posting an event upward (of the module): the one funnel through which every asynchronous source reaches the user's
 * callback.
 */
#ifndef LYN_EVENT_H
#define LYN_EVENT_H

#include <stdint.h>

/** Events. The numbers of the modem's are its message ids; 0, 1 and the last two are the module's own. */
typedef enum {
  LYN_EVENT_MODEM_UP = 0,             /**< one uint8_t */
  LYN_EVENT_MODEM_DOWN = 1,           /**< one uint8_t */
  LYN_EVENT_SYS_INFO = 78,            /**< uint32_t network status */
  LYN_EVENT_SIG_INFO = 81,            /**< yrp_nas_sig_info_ind_t */
  LYN_EVENT_INCREMENTAL_SCAN = 133,   /**< yrp_nas_incremental_scan_ind_t */
  LYN_EVENT_QOS_FLOW = 258,           /**< ox_lyn_qos_flow_t */
  LYN_EVENT_MTPE_STATUS = 264,        /**< ox_lyn_mtpe_status_t */
  LYN_EVENT_PPS = 278,                /**< yrp_nas_pps_ind_t */
  LYN_EVENT_INSTALL_FREQ = 334,       /**< yrp_nas_install_freq_ind_t */
  LYN_EVENT_INSTALL_STATUS = 335,     /**< yrp_nas_install_status_ind_t */
  LYN_EVENT_LOC_SINGLE_SHOT = 123456, /**< ox_lyn_loc_single_shot_t */
  LYN_EVENT_LOC_BATCH = 123457        /**< ox_lyn_loc_batch_t, its locations a block of their own */
} lyn_event_e;

/**
 * Hand an event to the command thread. Any thread; never takes the module lock.
 *
 * yrp_msg_id    lyn_event_e; an unknown one is logged on the command thread and dropped
 * yrp_msg_data  block made with malloc or calloc; the module's from the call on, whatever it returns
 *
 * 0 queued; -2 null data; -3 no memory for the command; -1 no memory for its record, the module is down, or the queue
 * failed.
 */
int32_t lyn_post_async_event(uint32_t yrp_msg_id, void *yrp_msg_data);

#endif
