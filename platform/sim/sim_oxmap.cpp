/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The mobile access point of the board: profiles, statistics, QoS flows and throughput estimation tests.
 *
 * What the manager knows belongs to the board and is shared by its clients; only the profile handle that statistics are
 * read of is each client's own. Indications go to all clients, on the mobile-AP thread.
 */
#include "oxmap_client.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>

#include "sim_core.h"
#include "sim_message.h"

namespace {

using fields = nlohmann::ordered_json;

/** Why an operation fails; 0: it does not. Numbers without a name in the interface are the board's own. */
enum : uint32_t { ERR_NONE = 0, ERR_FAILED = 1, ERR_NO_EFFECT = 26, ERR_NOT_CONFIGURED = 82, ERR_UNKNOWN_HANDLE = 41 };

enum class test_state { none, configuring, ready, running };

enum : uint32_t { TEST_CONFIGURED = 1, TEST_COMPLETED = 2, TEST_FAILED = 3, TEST_ABORTED = 4 };

enum : uint32_t { AP_CONNECTED = 1 };

constexpr double packet_octets = 1250;

/** Guarded by sim_lock. */
struct manager_state {
  test_state test = test_state::none;
  uint64_t test_number = 0; /**< of the configuration in force: what was due for an older one is dropped */
  uint32_t duration_s = 0;
  bool qos_asked = false;
};

manager_state manager;

void reset_manager() {
  manager = {};
}

// Texts of the journal.

/** `address` as it lies in memory, in network byte order. */
std::string address_text(int family, const void *address) {
  char text[INET6_ADDRSTRLEN] = "";
  inet_ntop(family, address, text, sizeof(text));
  return text;
}

std::string url_text(const oxmap_mtpe_config_t &config) {
  return std::string(config.server_url, strnlen(config.server_url, sizeof(config.server_url)));
}

fields config_fields(const oxmap_mtpe_config_t &config) {
  fields of = {{"ip_family", config.ip_family},
               {"protocol", config.protocol},
               {"test_type", config.test_type},
               {"duration", config.duration},
               {"external_server", config.external_server},
               {"src_port", config.src_port},
               {"dst_port", config.dst_port},
               {"server_address_valid", config.server_address_valid}};
  if (config.server_address_valid) {
    of["server_url"] = url_text(config);
    of["src_ipv4"] = address_text(AF_INET, &config.src_ipv4);
    of["dst_ipv4"] = address_text(AF_INET, &config.dst_ipv4);
    of["src_ipv6"] = address_text(AF_INET6, config.src_ipv6);
    of["dst_ipv6"] = address_text(AF_INET6, config.dst_ipv6);
  }
  of["test_params_valid"] = config.test_params_valid;
  if (config.test_params_valid) {
    of["bandwidth"] = config.bandwidth;
    of["mtu"] = config.mtu;
  }
  return of;
}

std::string client_address_text(const oxmap_mtpe_net_params_t &params) {
  return address_text(params.ip_family == 6 ? AF_INET6 : AF_INET, params.client_addr);
}

fields policy_fields(const oxmap_wwan_policy_t &policy) {
  return {{"profile_index", policy.profile_index},     {"subscription", policy.subscription},
          {"technology", policy.technology},           {"ip_family", policy.ip_family},
          {"profile_id_3gpp", policy.profile_id_3gpp}, {"profile_id_3gpp2", policy.profile_id_3gpp2},
          {"apn_name", std::string(policy.apn_name)}};
}

fields policy_list_fields(const oxmap_wwan_policy_list_t &list) {
  fields entries = fields::array();
  for (uint32_t at = 0; at < list.count; ++at) {
    entries.push_back(policy_fields(list.entries[at]));
  }
  return {{"count", list.count}, {"entries", std::move(entries)}};
}

fields stats_fields(const oxmap_wwan_stats_t &stats) {
  return {{"bytes_rx", stats.bytes_rx},
          {"bytes_tx", stats.bytes_tx},
          {"pkts_rx", stats.pkts_rx},
          {"pkts_tx", stats.pkts_tx},
          {"pkts_dropped_rx", stats.pkts_dropped_rx},
          {"pkts_dropped_tx", stats.pkts_dropped_tx}};
}

// One operation: journaled, met by faults, and answered.

bool refused(const sim_fault_hit &fault) {
  return fault.fails || sim_fault_status(fault) != 0 || (fault.has_result && fault.result != 0);
}

/**
 * `work` does what is asked for with sim_lock held, adds to `answer` what it gives back, and returns its error code. A
 * fault keeps it from being run.
 */
template <typename body>
bool operate(const char *name, const fields &given, yrp_error_type_v01 *error, const body &work) {
  const sim_fault_hit fault = sim_call("oxmap", name, given);
  bool failed = refused(fault);
  uint32_t code = fault.has_error ? fault.error : static_cast<uint32_t>(ERR_FAILED);
  fields answer = fields::object();
  if (!failed) {
    const std::lock_guard guard(sim_lock());
    code = work(answer);
    failed = code != ERR_NONE;
  }
  if (error) {
    *error = code;
  }
  fields returned = {{"ok", !failed}, {"error", code}};
  returned.update(answer);
  sim_call_return("oxmap", name, returned);
  return !failed;
}

// Throughput estimation tests. With sim_lock.

void indicate_test(uint32_t status) {
  const auto &cfg = sim_board_scenario().mtpe;
  oxmap_mtpe_status_ind_t record = {};
  record.test_status = status;
  record.peak_rate_valid = status == TEST_COMPLETED;
  record.peak_rate = record.peak_rate_valid ? cfg.peak_rate_kbps : 0;
  record.failure_reason_valid = status == TEST_FAILED;
  record.failure_reason = record.failure_reason_valid ? cfg.failure_reason : 0;
  sim_indicate(sim_lib::oxmap, OXMAP_MTPE_STATUS_IND, &record);
}

/** Have a test pass from one state to the next, `ms` from now, unless it is another test by then. */
void pass_later(double ms, test_state from, test_state to, uint32_t status) {
  if (ms < 0) {
    return;
  }
  sim_schedule(sim_thread::oxmap, ms, [number = manager.test_number, from, to, status] {
    const std::lock_guard guard(sim_lock());
    if (manager.test_number != number || manager.test != from) {
      return;
    }
    manager.test = to;
    indicate_test(status);
  });
}

uint32_t configure_test(const oxmap_mtpe_config_t &config) {
  if (manager.test == test_state::running) {
    return ERR_NO_EFFECT;
  }
  manager.test = test_state::configuring;
  ++manager.test_number;
  manager.duration_s = config.duration;
  pass_later(sim_board_scenario().mtpe.configured_ms, test_state::configuring, test_state::ready, TEST_CONFIGURED);
  return ERR_NONE;
}

uint32_t test_outcome() {
  const std::string &result = sim_board_scenario().mtpe.result;
  if (result == "failed") {
    return TEST_FAILED;
  }
  return result == "aborted" ? TEST_ABORTED : TEST_COMPLETED;
}

uint32_t start_test() {
  if (manager.test == test_state::running) {
    return ERR_NO_EFFECT;
  }
  if (manager.test != test_state::ready) {
    return ERR_NOT_CONFIGURED;
  }
  manager.test = test_state::running;
  const double given = sim_board_scenario().mtpe.duration_ms;
  const double duration_ms = given != 0 ? given : 1000.0 * manager.duration_s;
  pass_later(duration_ms, test_state::running, test_state::ready, test_outcome());
  return ERR_NONE;
}

uint32_t tear_down_test() {
  if (manager.test == test_state::none) {
    return ERR_NOT_CONFIGURED;
  }
  manager.test = test_state::none;
  ++manager.test_number;
  return ERR_NONE;
}

// Profiles, statistics, flows. With sim_lock.

oxmap_wwan_policy_t policy_of(const sim_wwan_profile &profile) {
  oxmap_wwan_policy_t policy = {};
  policy.profile_index = profile.index;
  policy.subscription = profile.subscription;
  policy.technology = profile.technology;
  policy.ip_family = profile.ip_family;
  policy.profile_id_3gpp = profile.id_3gpp;
  policy.profile_id_3gpp2 = profile.id_3gpp2;
  profile.apn.copy(policy.apn_name, sizeof(policy.apn_name) - 1);
  return policy;
}

void fill_policies(oxmap_wwan_policy_list_t &list) {
  list = {};
  for (const sim_wwan_profile &profile : sim_board_scenario().wwan.profile) {
    if (list.count == OXMAP_POLICY_MAX) {
      break;
    }
    list.entries[list.count++] = policy_of(profile);
  }
}

bool known_handle(uint32_t handle) {
  const auto &wwan = sim_board_scenario().wwan;
  return std::any_of(wwan.profile.begin(), wwan.profile.end(), [=](const auto &row) { return row.index == handle; }) ||
         std::any_of(wwan.stats.begin(), wwan.stats.end(), [=](const auto &row) { return row.handle == handle; });
}

/** A counter wraps, as those of the hardware do. */
template <typename counter>
counter grown(counter start, double by) {
  return static_cast<counter>(start + static_cast<uint64_t>(by));
}

uint32_t read_stats(uint32_t handle, uint32_t ip_family, oxmap_wwan_stats_t &stats) {
  const std::vector<sim_wwan_stats> &all = sim_board_scenario().wwan.stats;
  const auto row = std::find_if(all.begin(), all.end(), [=](const sim_wwan_stats &of) {
    return of.handle == handle && of.ip_family == ip_family;
  });
  if (row == all.end()) {
    return ERR_UNKNOWN_HANDLE;
  }
  const double rx = row->rx_rate * sim_now(), tx = row->tx_rate * sim_now();
  stats = {.bytes_rx = grown(row->bytes_rx, rx),
           .bytes_tx = grown(row->bytes_tx, tx),
           .pkts_rx = grown(row->pkts_rx, rx / packet_octets),
           .pkts_tx = grown(row->pkts_tx, tx / packet_octets),
           .pkts_dropped_rx = row->dropped_rx,
           .pkts_dropped_tx = row->dropped_tx};
  return ERR_NONE;
}

uint32_t ask_qos_flow() {
  if (manager.qos_asked) {
    return OXMAP_ERR_QOS_IN_PROGRESS;
  }
  manager.qos_asked = true;
  const double answer_ms = sim_board_scenario().wwan.qos.answer_ms;
  if (answer_ms < 0) {
    return ERR_NONE;
  }
  sim_schedule(sim_thread::oxmap, answer_ms, [] {
    const std::lock_guard guard(sim_lock());
    manager.qos_asked = false;
    const auto &qos = sim_board_scenario().wwan.qos;
    const oxmap_qos_flow_ind_t record = {.bearer_id = qos.bearer, .tx_5g_qci = qos.tx_5qi, .rx_5g_qci = qos.rx_5qi};
    sim_indicate(sim_lib::oxmap, OXMAP_QOS_FLOW_IND, &record);
  });
  return ERR_NONE;
}

void call_client(yrp_client_type handle, unsigned int id, void *buf, unsigned int len, void *data) {
  reinterpret_cast<oxmap_ind_cb_fn>(data)(handle, id, buf, len);
}

}  // namespace

struct OXMAP_Client::impl {
  yrp_client_type handle = nullptr;
  bool inert = false; /**< its construction met a fault: it is never ready */
  uint32_t profile_handle = 0;
};

OXMAP_Client::OXMAP_Client(oxmap_ind_cb_fn ind_cb, int arch_type) : impl_(new impl) {
  const sim_fault_hit fault = sim_call("oxmap", "OXMAP_Client", {{"arch_type", arch_type}});
  static const bool hooked = (sim_on_restart(reset_manager), true);
  impl_->inert = !hooked || refused(fault);
  impl_->handle = sim_client_open(sim_lib::oxmap, ind_cb ? call_client : nullptr, reinterpret_cast<void *>(ind_cb));
  sim_call_return("oxmap", "OXMAP_Client", {{"ok", !impl_->inert}});
}

OXMAP_Client::~OXMAP_Client() {
  sim_call("oxmap", "~OXMAP_Client", fields::object());
  sim_client_close(impl_->handle);
  delete impl_;
  sim_call_return("oxmap", "~OXMAP_Client", fields::object());
}

bool OXMAP_Client::IsReady() {
  const sim_fault_hit fault = sim_call("oxmap", "IsReady", fields::object());
  const bool ready = !impl_->inert && !refused(fault);
  sim_call_return("oxmap", "IsReady", {{"ok", ready}});
  return ready;
}

bool OXMAP_Client::EnableMobileAP_Ext(yrp_error_type_v01 *error) {
  return operate("EnableMobileAP_Ext", fields::object(), error, [](fields &) {
    const oxmap_mobile_ap_state_ind_t record = {.state = AP_CONNECTED};
    sim_indicate(sim_lib::oxmap, OXMAP_MOBILE_AP_STATE_IND, &record);
    return ERR_NONE;
  });
}

bool OXMAP_Client::ConfigureMTPE(const oxmap_mtpe_config_t *config, yrp_error_type_v01 *error) {
  return operate("ConfigureMTPE", config ? config_fields(*config) : fields::object(), error,
                 [config](fields &) { return config ? configure_test(*config) : ERR_FAILED; });
}

bool OXMAP_Client::StartMTPE(yrp_error_type_v01 *error) {
  return operate("StartMTPE", fields::object(), error, [](fields &) { return start_test(); });
}

bool OXMAP_Client::TeardownMTPE(yrp_error_type_v01 *error) {
  return operate("TeardownMTPE", fields::object(), error, [](fields &) { return tear_down_test(); });
}

bool OXMAP_Client::GetMTPETestInfo(const oxmap_mtpe_net_params_t *params, oxmap_mtpe_test_info_t *info,
                                   yrp_error_type_v01 *error) {
  fields given = fields::object();
  if (params) {
    given = {{"ip_family", params->ip_family}, {"client_addr", client_address_text(*params)}};
  }
  return operate("GetMTPETestInfo", given, error, [params, info](fields &answer) -> uint32_t {
    if (!params || !info) {
      return ERR_FAILED;
    }
    const auto &cfg = sim_board_scenario().mtpe;
    *info = {.bandwidth_kbps = cfg.bandwidth_kbps, .mtu = cfg.mtu};
    answer = {{"bandwidth_kbps", info->bandwidth_kbps}, {"mtu", info->mtu}};
    return ERR_NONE;
  });
}

bool OXMAP_Client::GetWWANStatistics(uint32_t ip_family, oxmap_wwan_stats_t *stats, yrp_error_type_v01 *error) {
  return operate("GetWWANStatistics", {{"ip_family", ip_family}}, error, [=, this](fields &answer) -> uint32_t {
    if (!stats) {
      return ERR_FAILED;
    }
    const uint32_t code = read_stats(impl_->profile_handle, ip_family, *stats);
    if (code == ERR_NONE) {
      answer = stats_fields(*stats);
    }
    return code;
  });
}

bool OXMAP_Client::SetWWANProfileHandlePreference(uint32_t profile_handle, yrp_error_type_v01 *error) {
  return operate("SetWWANProfileHandlePreference", {{"profile_handle", profile_handle}}, error,
                 [=, this](fields &) -> uint32_t {
                   if (!known_handle(profile_handle)) {
                     return ERR_UNKNOWN_HANDLE;
                   }
                   impl_->profile_handle = profile_handle;
                   return ERR_NONE;
                 });
}

bool OXMAP_Client::GetGlobalQoSFlowInfo(uint32_t ip_family, yrp_error_type_v01 *error) {
  return operate("GetGlobalQoSFlowInfo", {{"ip_family", ip_family}}, error, [](fields &) { return ask_qos_flow(); });
}

bool OXMAP_Client::GetWWANPolicyListEx(oxmap_wwan_policy_list_t *list, yrp_error_type_v01 *error) {
  return operate("GetWWANPolicyListEx", fields::object(), error, [list](fields &answer) -> uint32_t {
    if (!list) {
      return ERR_FAILED;
    }
    fill_policies(*list);
    if (sim_journal_on()) {
      answer = policy_list_fields(*list);
    }
    return ERR_NONE;
  });
}

bool OXMAP_Client::GetWWANProfilePreference(uint32_t *profile_index, yrp_error_type_v01 *error) {
  return operate("GetWWANProfilePreference", fields::object(), error, [profile_index](fields &answer) -> uint32_t {
    const std::vector<sim_wwan_profile> &profiles = sim_board_scenario().wwan.profile;
    if (!profile_index || profiles.empty()) {
      return ERR_FAILED;
    }
    *profile_index = profiles.front().index;
    answer = {{"profile_index", *profile_index}};
    return ERR_NONE;
  });
}
