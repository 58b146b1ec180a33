/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Mobile access point manager of the board (closed): client class and the indications that it delivers.
 *
 * Declarations only; the simulated board or the board's own library implements them. Every operation returns true on
 * success; on failure it returns false and writes the error code. Operations may be called from any thread; the
 * indication callback runs on the client's own thread, with an encoded message that yrp_client_message_decode decodes.
 */
#ifndef OXMAP_CLIENT_H
#define OXMAP_CLIENT_H

#include <stdint.h>

#include "yrp_client.h"

/** Indication ids. */
enum { OXMAP_MOBILE_AP_STATE_IND = 39, OXMAP_QOS_FLOW_IND = 258, OXMAP_MTPE_STATUS_IND = 264 };

/** Error code of GetGlobalQoSFlowInfo while an earlier query is not answered. */
enum { OXMAP_ERR_QOS_IN_PROGRESS = 118 };

enum { OXMAP_POLICY_MAX = 50 };

/** Indication 39. state: 1 connected, 2 disconnected. */
struct oxmap_mobile_ap_state_ind_t {
  uint32_t state;
};

/** Indication 258. The QoS class identifiers are 0 to 7. */
struct oxmap_qos_flow_ind_t {
  uint8_t bearer_id;
  uint32_t tx_5g_qci, rx_5g_qci;
};

/** Indication 264. test_status: 1 configured, 2 completed (peak_rate in kbps), 3 failed (failure_reason), 4 aborted. */
struct oxmap_mtpe_status_ind_t {
  uint32_t test_status;
  uint8_t peak_rate_valid;
  uint32_t peak_rate;
  uint8_t failure_reason_valid;
  uint32_t failure_reason;
};

/** Configuration of one throughput estimation test. Addresses and ports: addresses in network byte order. */
struct oxmap_mtpe_config_t {
  uint32_t ip_family; /**< 4, 6, or 10 for both */
  uint32_t protocol;  /**< 2 UDP, 1 TCP, 0 not given */
  uint32_t test_type; /**< 1 uplink, 2 downlink */
  uint32_t duration;  /**< s */
  uint32_t external_server;
  uint16_t src_port, dst_port;
  uint8_t server_address_valid; /**< the URL and the four addresses are given */
  char server_url[300];
  uint32_t src_ipv4, dst_ipv4;
  uint8_t src_ipv6[16], dst_ipv6[16];
  uint8_t test_params_valid; /**< the two below are given */
  uint32_t bandwidth;        /**< kbps */
  uint32_t mtu;              /**< octets */
};

/** Network parameters of GetMTPETestInfo. */
struct oxmap_mtpe_net_params_t {
  uint32_t ip_family; /**< 4, 6, or 0 not given */
  uint8_t client_addr[16];
};

/** Answer of GetMTPETestInfo. */
struct oxmap_mtpe_test_info_t {
  int32_t bandwidth_kbps;
  int32_t mtu;
};

/** WWAN statistics of the selected profile. */
struct oxmap_wwan_stats_t {
  uint64_t bytes_rx, bytes_tx;
  uint32_t pkts_rx, pkts_tx, pkts_dropped_rx, pkts_dropped_tx;
};

/** One WWAN policy. */
struct oxmap_wwan_policy_t {
  uint32_t profile_index;
  uint32_t subscription; /**< 0 default, 1 primary, 2 secondary */
  uint32_t technology;   /**< 0 any, 1 3GPP, 2 3GPP2 */
  uint32_t ip_family;    /**< 4, 6, 10 both */
  uint8_t profile_id_3gpp, profile_id_3gpp2;
  char apn_name[102]; /**< null-terminated */
};

/** Answer of GetWWANPolicyListEx; a board with more policies reports the first fifty. */
struct oxmap_wwan_policy_list_t {
  uint32_t count;
  oxmap_wwan_policy_t entries[OXMAP_POLICY_MAX];
};

/** Indication callback; `buf` of `len` octets is the client's own, valid during the call. */
using oxmap_ind_cb_fn = void (*)(yrp_client_type user_handle, unsigned int msg_id, void *buf, unsigned int len);

class OXMAP_Client {
 public:
  OXMAP_Client(oxmap_ind_cb_fn ind_cb, int arch_type);
  virtual ~OXMAP_Client();
  OXMAP_Client(const OXMAP_Client &) = delete;
  OXMAP_Client &operator=(const OXMAP_Client &) = delete;

  /** The manager answers. */
  bool IsReady();
  bool EnableMobileAP_Ext(yrp_error_type_v01 *error);
  /** Accepted: indication 264 with status 1 follows when the server is ready. */
  bool ConfigureMTPE(const oxmap_mtpe_config_t *config, yrp_error_type_v01 *error);
  /** Accepted: indication 264 with status 2, 3 or 4 follows. */
  bool StartMTPE(yrp_error_type_v01 *error);
  /** Fails when nothing is configured. */
  bool TeardownMTPE(yrp_error_type_v01 *error);
  bool GetMTPETestInfo(const oxmap_mtpe_net_params_t *params, oxmap_mtpe_test_info_t *info, yrp_error_type_v01 *error);
  /** Of the profile selected last, for IP family 4 or 6. */
  bool GetWWANStatistics(uint32_t ip_family, oxmap_wwan_stats_t *stats, yrp_error_type_v01 *error);
  bool SetWWANProfileHandlePreference(uint32_t profile_handle, yrp_error_type_v01 *error);
  /** Accepted: indication 258 follows. */
  bool GetGlobalQoSFlowInfo(uint32_t ip_family, yrp_error_type_v01 *error);
  bool GetWWANPolicyListEx(oxmap_wwan_policy_list_t *list, yrp_error_type_v01 *error);
  bool GetWWANProfilePreference(uint32_t *profile_index, yrp_error_type_v01 *error);

 private:
  struct impl;
  impl *impl_;
};

#endif
