/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Mobile AP client: the module's use of the board's mobile access point manager.
 *
 * Every operation is one or two calls of the manager, made through lyn_oxmap_call: success and an error code. Requests
 * and answers are mapped field by field between the API's blocks and the manager's structs. What an indication brings
 * is decoded, turned into a block and posted; its callback touches nothing but the current test type.
 *
 * Some outcomes go to standard output instead of the log, without a newline: deliberate, and relied upon as they stand.
 */
#include "lyn_oxmap_interface.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <new>

#include "lyn_block.h"
#include "lyn_event.h"
#include "lyn_log.h"
#include "oxmap_client.h"

/** The one client; null before the first lyn_oxmap_init. Used by the operations only, under the module lock. */
static OXMAP_Client *lyn_oxmap_client;

/** Test type of the MTPE test configured last, ox_lyn_mtpe_type_e. Also read by the indication callback. */
static std::atomic<uint32_t> lyn_oxmap_mtpe_type{0};

static constexpr int LYN_OXMAP_ARCH_TYPE = 0;

/** Outcome of a call of the manager. */
struct lyn_oxmap_result {
  bool ok = false;
  yrp_error_type_v01 error = 0;
};

/** Call `method` of the client with `args` and room for the error code. Without client, or on an exception: failed. */
template <typename... Params, typename... Args>
static lyn_oxmap_result lyn_oxmap_call(bool (OXMAP_Client::*method)(Params...), Args... args) {
  lyn_oxmap_result result;
  if (lyn_oxmap_client != nullptr) {
    try {
      result.ok = (lyn_oxmap_client->*method)(args..., &result.error);
    } catch (...) {
      result.ok = false;
    }
  }
  return result;
}

/* Life cycle */

/** Make the client anew. False: there is none, or the manager does not answer. */
static bool lyn_oxmap_make_client() {
  delete lyn_oxmap_client;
  lyn_oxmap_client = nullptr;
  try {
    lyn_oxmap_client = new (std::nothrow) OXMAP_Client(lyn_oxmap_ind_cb, LYN_OXMAP_ARCH_TYPE);
    return lyn_oxmap_client != nullptr && lyn_oxmap_client->IsReady();
  } catch (...) {
    return false;
  }
}

int32_t lyn_oxmap_init(void) {
  if (!lyn_oxmap_make_client()) {
    printf("\nCouldn't setup OxMapClient..exiting");
    return -1;
  }
  const lyn_oxmap_result enabled = lyn_oxmap_call(&OXMAP_Client::EnableMobileAP_Ext);
  if (!enabled.ok) {
    printf("\nMobileAP Enable fails, Error: 0x%x", enabled.error);
    return -1;
  }
  printf("\nMobileAP Enable succeeds.");
  return 0;
}

/* Throughput estimation */

static int32_t lyn_oxmap_start_test() {
  const lyn_oxmap_result started = lyn_oxmap_call(&OXMAP_Client::StartMTPE);
  if (!started.ok) {
    LYN_LOG_ERROR("Failed to start the Modem Throughput Estimation test, Error:0x%x", started.error);
    return 0;
  }
  LYN_LOG_HIGH("Successfully started Modem Throughput Estimation test\n");
  return 1;
}

static int32_t lyn_oxmap_tear_down_test() {
  const lyn_oxmap_result torn_down = lyn_oxmap_call(&OXMAP_Client::TeardownMTPE);
  if (!torn_down.ok) {
    LYN_LOG_ERROR("Failed to tear down Modem Throughput Estimation configuration, Error: 0x%x\n", torn_down.error);
    return 0;
  }
  LYN_LOG_HIGH("Successfully tore down Modem Throughput Estimation configuration\n");
  return 1;
}

int32_t lyn_oxmap_mtpe_start(uint32_t start) {
  return start != 0 ? lyn_oxmap_start_test() : lyn_oxmap_tear_down_test();
}

/** `family` where the manager knows it, else `otherwise`. */
static uint32_t lyn_oxmap_ip_family(uint32_t family, uint32_t otherwise) {
  return family == OX_LYN_IP_FAMILY_V4_E || family == OX_LYN_IP_FAMILY_V6_E ? family : otherwise;
}

/** Direction of the test that runs now: of both, the first. */
static uint32_t lyn_oxmap_first_direction(uint32_t test_type) {
  if (test_type == OX_LYN_MTPE_TYPE_BOTH_E) {
    return OX_LYN_MTPE_TYPE_UPLINK_E;
  }
  return test_type <= OX_LYN_MTPE_TYPE_DOWNLINK_E ? test_type : 0;
}

/** The request names a server or an address. */
static bool lyn_oxmap_has_address(const ox_lyn_mtpe_req_t *req) {
  static constexpr uint8_t none[sizeof req->src_ipv6] = {};
  return req->server_url[0] != '\0' || req->src_ipv4 != 0 || req->dst_ipv4 != 0 ||
         memcmp(req->src_ipv6, none, sizeof none) != 0 || memcmp(req->dst_ipv6, none, sizeof none) != 0;
}

static void lyn_oxmap_copy_address(const ox_lyn_mtpe_req_t *req, oxmap_mtpe_config_t *config) {
  static_assert(sizeof config->server_url == sizeof req->server_url);
  config->server_address_valid = 1;
  memcpy(config->server_url, req->server_url, sizeof config->server_url - 1);
  config->src_ipv4 = req->src_ipv4;
  config->dst_ipv4 = req->dst_ipv4;
  memcpy(config->src_ipv6, req->src_ipv6, sizeof config->src_ipv6);
  memcpy(config->dst_ipv6, req->dst_ipv6, sizeof config->dst_ipv6);
}

static oxmap_mtpe_config_t lyn_oxmap_config_of(const ox_lyn_mtpe_req_t *req) {
  oxmap_mtpe_config_t config = {};
  config.ip_family = lyn_oxmap_ip_family(req->ip_family, OX_LYN_IP_FAMILY_V4V6_E);
  config.protocol =
      req->protocol <= OX_LYN_PROTOCOL_UDP_E ? req->protocol : static_cast<uint32_t>(OX_LYN_PROTOCOL_NONE_E);
  config.test_type = lyn_oxmap_first_direction(req->test_type);
  config.duration = req->duration;
  config.external_server = req->external_server;
  config.src_port = req->src_port;
  config.dst_port = req->dst_port;
  if (lyn_oxmap_has_address(req)) {
    lyn_oxmap_copy_address(req, &config);
  }
  if (req->bandwidth != 0 && req->mtu != 0) {
    config.test_params_valid = 1;
    config.bandwidth = req->bandwidth;
    config.mtu = req->mtu;
  }
  return config;
}

int32_t lyn_oxmap_configure_mtpe(const ox_lyn_mtpe_req_t *req) {
  if (req == nullptr) {
    return -1;
  }
  auto status = lyn_new_block<ox_lyn_mtpe_status_t>(LYN_LOG_ERROR_HERE);
  if (!status) {
    return -1;
  }
  const oxmap_mtpe_config_t config = lyn_oxmap_config_of(req);
  lyn_oxmap_mtpe_type = config.test_type;
  if (lyn_oxmap_call(&OXMAP_Client::TeardownMTPE).ok) {
    LYN_LOG_HIGH("Successfully tear down previous tests\n");
  } else {
    LYN_LOG_HIGH("No pending Tests are present\n");
  }
  const lyn_oxmap_result configured = lyn_oxmap_call(&OXMAP_Client::ConfigureMTPE, &config);
  if (!configured.ok) {
    LYN_LOG_ERROR("Failed to send Modem throughput estimation configuration, Error:0x%x", configured.error);
    status->test_type = config.test_type;
    lyn_post_async_event(LYN_EVENT_MTPE_STATUS, status.release());
    return -1;
  }
  LYN_LOG_HIGH("Modem throughput estimation configuration sent.\n");
  return 0;
}

int32_t lyn_oxmap_get_mtpe_test_info(ox_lyn_dm_info_t *dm_info) {
  if (dm_info == nullptr || dm_info->value.ptr == nullptr) {
    return -1;
  }
  const auto *given = static_cast<const ox_lyn_mtpe_net_params_t *>(dm_info->value.ptr);
  oxmap_mtpe_net_params_t params = {};
  params.ip_family = lyn_oxmap_ip_family(given->ip_family, 0);  // 0: not given
  memcpy(params.client_addr, given->client_addr, sizeof params.client_addr);

  oxmap_mtpe_test_info_t info = {};
  const lyn_oxmap_result read = lyn_oxmap_call(&OXMAP_Client::GetMTPETestInfo, &params, &info);
  if (!read.ok) {
    LYN_LOG_ERROR("Failed to retreive Test Configuration information, Error:0x%x", read.error);
    return -1;
  }
  LYN_LOG_HIGH("Configured Bandwidth(kbps): %d \n Supported MTU: %d", info.bandwidth_kbps, info.mtu);
  auto config = lyn_new_block<ox_lyn_mtpe_server_config_t>(LYN_LOG_ERROR_HERE);
  if (!config) {
    return -1;
  }
  *config = {.bandwidth_kbps = info.bandwidth_kbps, .mtu = info.mtu};
  dm_info->value.ptr = config.release();  // the caller's
  return 0;
}

/* Statistics, QoS flows, profiles */

static void lyn_oxmap_log_stats(const ox_lyn_wwan_stats_t *wwan_stats) {
  LYN_LOG_HIGH("Get WWAN Stats succeeded...\n");
  LYN_LOG_HIGH(" wwan_stats->bytes_rx %llu\n", static_cast<unsigned long long>(wwan_stats->bytes_rx));
  LYN_LOG_HIGH(" wwan_stats->bytes_tx %llu\n", static_cast<unsigned long long>(wwan_stats->bytes_tx));
  LYN_LOG_HIGH(" wwan_stats->pkts_dropped_rx %d\n", static_cast<int>(wwan_stats->pkts_dropped_rx));
  LYN_LOG_HIGH(" wwan_stats->pkts_dropped_tx %d\n", static_cast<int>(wwan_stats->pkts_dropped_tx));
  LYN_LOG_HIGH(" wwan_stats->pkts_rx %d\n", static_cast<int>(wwan_stats->pkts_rx));
  LYN_LOG_HIGH(" wwan_stats->pkts_tx %d\n", static_cast<int>(wwan_stats->pkts_tx));
}

static bool lyn_oxmap_select_profile(uint32_t profile_handle) {
  const bool selected = lyn_oxmap_call(&OXMAP_Client::SetWWANProfileHandlePreference, profile_handle).ok;
  if (selected) {
    LYN_LOG_HIGH("Profile-handle updated.");
  } else {
    LYN_LOG_ERROR("Profile-handle Fails!!!");
  }
  return selected;
}

int32_t lyn_oxmap_get_wwan_stats(uint32_t ip_family, ox_lyn_dm_info_t *dm_info) {
  if (dm_info == nullptr) {
    return -1;
  }
  auto wwan_stats = lyn_new_block<ox_lyn_wwan_stats_t>(LYN_LOG_ERROR_HERE);
  if (!wwan_stats || !lyn_oxmap_select_profile(static_cast<uint32_t>(dm_info->value.i64))) {
    return -1;
  }
  oxmap_wwan_stats_t stats = {};
  const lyn_oxmap_result read = lyn_oxmap_call(&OXMAP_Client::GetWWANStatistics, ip_family, &stats);
  if (!read.ok) {
    LYN_LOG_ERROR("\nGet WWAN Stats Fails, Error: 0x%x", read.error);
    return -1;
  }
  *wwan_stats = {.bytes_rx = stats.bytes_rx,
                 .bytes_tx = stats.bytes_tx,
                 .pkts_rx = stats.pkts_rx,
                 .pkts_tx = stats.pkts_tx,
                 .pkts_dropped_rx = stats.pkts_dropped_rx,
                 .pkts_dropped_tx = stats.pkts_dropped_tx};
  lyn_oxmap_log_stats(wwan_stats.get());
  dm_info->value.ptr = wwan_stats.release();  // the caller's
  return 0;
}

int32_t lyn_oxmap_get_global_qos_flow_info(uint32_t ip_family, ox_lyn_dm_info_t * /*dm_info*/) {
  const lyn_oxmap_result asked = lyn_oxmap_call(&OXMAP_Client::GetGlobalQoSFlowInfo, ip_family);
  if (asked.ok) {
    LYN_LOG_HIGH("\nSuccessfully queried Global QoS Flow Indications, error code: %d", static_cast<int>(asked.error));
    return 0;
  }
  LYN_LOG_ERROR("\nFailed to query Global QoS Flow Indications, error code: %d", static_cast<int>(asked.error));
  if (asked.error == OXMAP_ERR_QOS_IN_PROGRESS) {
    printf("\nAnother QoS flow request is in progress");
  }
  return -1;
}

static ox_lyn_wwan_profile_t lyn_oxmap_profile_of(const oxmap_wwan_policy_t &policy) {
  ox_lyn_wwan_profile_t profile = {};
  profile.profile_index = policy.profile_index;
  profile.subscription = policy.subscription + OX_LYN_SUBSCRIPTION_DEFAULT_E;  // the manager counts from 0
  profile.technology = policy.technology;
  profile.ip_family = policy.ip_family;
  profile.profile_id_3gpp = policy.profile_id_3gpp;
  profile.profile_id_3gpp2 = policy.profile_id_3gpp2;
  static_assert(sizeof profile.apn_name == sizeof policy.apn_name);
  memcpy(profile.apn_name, policy.apn_name, sizeof profile.apn_name - 1);
  return profile;
}

/** Deliberate: 1 is success and 0 failure, unlike everywhere else. */
int32_t lyn_oxmap_get_profile_handle(ox_lyn_wwan_profile_list_t *list) {
  oxmap_wwan_policy_list_t policies = {};
  if (list == nullptr || !lyn_oxmap_call(&OXMAP_Client::GetWWANPolicyListEx, &policies).ok) {
    return 0;
  }
  if (policies.count == 1) {
    // Deliberate: a lone profile gives its index only, and the count stays 0.
    list->profiles[0].profile_index = policies.entries[0].profile_index;
    return 1;
  }
  // Deliberate: the preferred profile is asked for, but neither outcome nor answer is used.
  uint32_t preferred = 0;
  lyn_oxmap_call(&OXMAP_Client::GetWWANProfilePreference, &preferred);
  list->count = std::min<uint32_t>(policies.count, OX_LYN_WWAN_PROFILE_LEN);
  for (uint32_t i = 0; i < list->count; i++) {
    list->profiles[i] = lyn_oxmap_profile_of(policies.entries[i]);
  }
  return 1;
}

/* Indications */

/** An encoded indication as the client hands it over. */
struct lyn_oxmap_ind {
  yrp_client_type user_handle;
  unsigned int msg_id;
  const void *buf;
  unsigned int len;
};

template <typename Message>
static yrp_client_error_type lyn_oxmap_decode(const lyn_oxmap_ind &ind, Message *message) {
  return yrp_client_message_decode(ind.user_handle, YRP_MSG_INDICATION, ind.msg_id, ind.buf, ind.len, message,
                                   sizeof *message);
}

static void lyn_oxmap_on_state(const lyn_oxmap_ind &ind) {
  enum : uint32_t { CONNECTED = 1, DISCONNECTED = 2 };
  oxmap_mobile_ap_state_ind_t state = {};
  if (yrp_client_error_type error = lyn_oxmap_decode(ind, &state); error != YRP_NO_ERR) {
    LYN_LOG_ERROR("oxmap_msgr_yrp_oxmap_ind: yrp_client_message_decode error %d", error);
  } else if (state.state == CONNECTED) {
    LYN_LOG_HIGH("oxmap_msgr_yrp_oxmap_ind: Mobile AP Connected...");
  } else if (state.state == DISCONNECTED) {
    LYN_LOG_HIGH("oxmap_msgr_yrp_oxmap_ind: Mobile AP Disconnected...");
  }
}

/** Log a received test status and put it into the block; of any other the block's status stays "aborted". */
static void lyn_oxmap_take_status(const oxmap_mtpe_status_ind_t &ind, ox_lyn_mtpe_status_t *status) {
  enum : uint32_t { CONFIGURED = 1, COMPLETED = 2, FAILED = 3, ABORTED = 4 };
  switch (ind.test_status) {
    case CONFIGURED:
      LYN_LOG_HIGH("MTPE Test has successfully been configured and is ready to Start\n");
      status->test_status = OX_LYN_MTPE_STATUS_CONFIGURED_E;
      break;
    case COMPLETED:
      LYN_LOG_HIGH("MTPE Test completed successfully!\n");
      // Deliberate: the rate is logged twice.
      LYN_LOG_HIGH("Peak rate calculated: %u(kbps)\n", ind.peak_rate);
      LYN_LOG_HIGH("Peak rate calculated: %u(kbps)\n", ind.peak_rate);
      status->test_status = OX_LYN_MTPE_STATUS_COMPLETED_E;
      status->peak_rate = ind.peak_rate;
      break;
    case FAILED:
      LYN_LOG_ERROR("MTPE Test Failed. Failure reason: 0x%x\n", ind.failure_reason);
      status->test_status = OX_LYN_MTPE_STATUS_FAILED_E;
      break;
    case ABORTED:
      LYN_LOG_HIGH("MTPE Test was aborted before test duration ended\n");
      break;
    default:
      LYN_LOG_ERROR("Invalid test status received: 0x%x\n", ind.test_status);
      break;
  }
}

static void lyn_oxmap_on_mtpe_status(const lyn_oxmap_ind &ind) {
  printf("Modem Throughput Configuration successfull");  // deliberate: at every status
  auto message = lyn_new_block<oxmap_mtpe_status_ind_t>(LYN_LOG_ERROR_HERE);
  if (!message) {
    return;
  }
  auto status = lyn_new_block<ox_lyn_mtpe_status_t>(LYN_LOG_ERROR_HERE);
  if (!status) {
    printf("SRS memory init failed");
    return;
  }
  if (yrp_client_error_type error = lyn_oxmap_decode(ind, message.get()); error != YRP_NO_ERR) {
    LYN_LOG_ERROR("oxmap_msgr_yrp_oxmap_ind: yrp_client_message_decode error %d\n", error);
    return;
  }
  status->test_type = lyn_oxmap_mtpe_type;
  lyn_oxmap_take_status(*message, status.get());
  lyn_post_async_event(LYN_EVENT_MTPE_STATUS, status.release());
}

/** A QoS class identifier as the API has it: 0 to 7 stay, others are 0. */
static uint32_t lyn_oxmap_qci_of(uint32_t platform_qci) {
  return platform_qci <= 7 ? platform_qci : 0;
}

static void lyn_oxmap_on_qos_flow(const lyn_oxmap_ind &ind) {
  LYN_LOG_HIGH("Received Indication for QOS FLOW \n");
  auto message = lyn_new_block<oxmap_qos_flow_ind_t>(LYN_LOG_ERROR_HERE);
  if (!message) {
    return;
  }
  auto flow = lyn_new_block<ox_lyn_qos_flow_t>(LYN_LOG_ERROR_HERE);
  if (!flow) {
    return;
  }
  if (yrp_client_error_type error = lyn_oxmap_decode(ind, message.get()); error != YRP_NO_ERR) {
    LYN_LOG_ERROR("oxmap_msgr_yrp_oxmap_ind: yrp_client_message_decode error %d\n", error);
    return;
  }
  LYN_LOG_HIGH("Received GLOBAL_QOS_FLOW_IND \n");
  *flow = {.bearer_id = message->bearer_id,
           .tx_5g_qci = lyn_oxmap_qci_of(message->tx_5g_qci),
           .rx_5g_qci = lyn_oxmap_qci_of(message->rx_5g_qci)};
  lyn_post_async_event(LYN_EVENT_QOS_FLOW, flow.release());
}

void lyn_oxmap_ind_cb(yrp_client_type user_handle, unsigned int msg_id, void *buf, unsigned int len) {
  const lyn_oxmap_ind ind = {.user_handle = user_handle, .msg_id = msg_id, .buf = buf, .len = len};
  try {
    switch (msg_id) {
      case OXMAP_MOBILE_AP_STATE_IND:
        return lyn_oxmap_on_state(ind);
      case OXMAP_MTPE_STATUS_IND:
        return lyn_oxmap_on_mtpe_status(ind);
      case OXMAP_QOS_FLOW_IND:
        return lyn_oxmap_on_qos_flow(ind);
      default:
        return;
    }
  } catch (...) {
    return;  // no exception reaches the client's thread
  }
}
