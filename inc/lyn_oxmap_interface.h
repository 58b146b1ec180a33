/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Mobile AP client (of the module): throughput estimation (MTPE), WWAN statistics and profiles, QoS flows.
 *
 * Operations are called under the module lock, MTPE start, teardown and configuration also from event delivery. The
 * indications that answer them come on the client's thread and are posted as events LYN_EVENT_MTPE_STATUS and
 * LYN_EVENT_QOS_FLOW. Unless said otherwise 0, or -1 with the reason logged.
 */
#ifndef LYN_OXMAP_INTERFACE_H
#define LYN_OXMAP_INTERFACE_H

#include <stdint.h>

#include "ox_lyn.h"
#include "yrp_client.h"

/** Create the client, replacing an earlier one, and enable the mobile AP. Its outcome goes to standard output. */
int32_t lyn_oxmap_init(void);

/** Start the configured test (non-zero) or tear its configuration down (0). Returns 1, or 0 on failure. */
int32_t lyn_oxmap_mtpe_start(uint32_t start);

/** dm_info->value.ptr: in an ox_lyn_mtpe_net_params_t of the caller's, out an allocated ox_lyn_mtpe_server_config_t. */
int32_t lyn_oxmap_get_mtpe_test_info(ox_lyn_dm_info_t *dm_info);

/** Configure a test; its first direction where both are asked for. A refusal is also posted as an MTPE status. */
int32_t lyn_oxmap_configure_mtpe(const ox_lyn_mtpe_req_t *req);

/** dm_info->value: in i64 the profile handle, out ptr to an allocated ox_lyn_wwan_stats_t. */
int32_t lyn_oxmap_get_wwan_stats(uint32_t ip_family, ox_lyn_dm_info_t *dm_info);

/** Ask for the QoS flows of an IP family, IPv4 or IPv6; they arrive as LYN_EVENT_QOS_FLOW. dm_info is not touched. */
int32_t lyn_oxmap_get_global_qos_flow_info(uint32_t ip_family, ox_lyn_dm_info_t *dm_info);

/** Fill a zeroed list with the WWAN profiles. Returns 1, or 0 on failure. */
int32_t lyn_oxmap_get_profile_handle(ox_lyn_wwan_profile_list_t *list);

/** Indication callback given to the platform's client; runs on its thread. */
void lyn_oxmap_ind_cb(yrp_client_type user_handle, unsigned int msg_id, void *buf, unsigned int len);

#endif
