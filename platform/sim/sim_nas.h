/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The NAS service of the simulated board, inside: one handler per message, run with sim_lock held.
 *
 * sim_nas.cpp dispatches and sends the indications, sim_nas_query.cpp answers what only asks, sim_nas_config.cpp what
 * changes the board.
 */
#ifndef SIM_NAS_H
#define SIM_NAS_H

#include <algorithm>

#include "sim_state.h"

/** Error codes of refused requests. */
enum : uint32_t {
  SIM_NAS_ERR_INVALID = 17,     /**< a value that the service does not know */
  SIM_NAS_ERR_NOT_POSSIBLE = 46 /**< not in this state of the radios */
};

/** One request on its way. */
struct sim_nas_call {
  sim_client &client;
  yrp_client_type handle;
  const void *req;
  void *resp;
  std::vector<std::function<void()>> &then; /**< what it causes, after its response */
};

template <typename response>
void sim_nas_refuse(response &resp, uint32_t error) {
  resp.resp = {1, error};
}

void sim_nas_get_rf_band_info(yrp_nas_rf_band_info_resp_t &resp);
void sim_nas_get_cell_location_info(yrp_nas_cell_location_info_resp_t &resp);
void sim_nas_get_sys_info(yrp_nas_sys_info_resp_t &resp);
void sim_nas_get_sig_info(yrp_nas_sig_info_resp_t &resp);
void sim_nas_get_cphy_ca_info(yrp_nas_cphy_ca_info_resp_t &resp);
void sim_nas_get_rrc_state(yrp_nas_rrc_state_resp_t &resp);
void sim_nas_get_nr5g_cell_lock_list(yrp_nas_nr5g_cell_lock_list_resp_t &resp);
void sim_nas_get_lte_cell_lock_list(yrp_nas_lte_cell_lock_list_resp_t &resp);
void sim_nas_get_tx_rx_info(const yrp_nas_tx_rx_info_req_t &req, yrp_nas_tx_rx_info_resp_t &resp);
void sim_nas_get_cqi_info(const yrp_nas_cqi_info_req_t &req, yrp_nas_cqi_info_resp_t &resp);

void sim_nas_set_lte_cell_lock_list(const yrp_nas_set_lte_cell_lock_list_req_t &req, yrp_nas_resp_t &resp);
void sim_nas_set_nr5g_cell_lock_list(const yrp_nas_set_nr5g_cell_lock_list_req_t &req, yrp_nas_resp_t &resp);
void sim_nas_set_pps_config(const yrp_nas_set_pps_config_req_t &req, yrp_nas_status_resp_t &resp);
void sim_nas_set_pps_change_status(const yrp_nas_set_pps_change_status_req_t &req, yrp_nas_resp_t &resp);
void sim_nas_indication_register(sim_nas_call &call, const yrp_nas_indication_register_req_t &req);
void sim_nas_config_sig_info(sim_nas_call &call, const yrp_nas_config_sig_info_req_t &req);
void sim_nas_incremental_scan(sim_nas_call &call, const yrp_nas_incremental_scan_req_t &req);
void sim_nas_set_nr5g_deprioritize(sim_nas_call &call, const yrp_nas_set_nr5g_deprioritize_req_t &req);
void sim_nas_set_install_mode(sim_nas_call &call, const yrp_nas_set_install_mode_req_t &req);

/** Fill the system information that messages 77 and 78 share. */
template <typename message>
void sim_nas_fill_sys_info(message &out, const sim_sys_info &info) {
  const auto fill = [](uint8_t &valid, yrp_nas_srv_status_info_t &part, sim_srv srv, uint32_t domain,
                       uint32_t capability) {
    valid = srv != sim_srv::absent;
    if (valid) {
      part = {static_cast<uint32_t>(srv), domain, capability};
    }
  };
  fill(out.lte_srv_status_info_valid, out.lte_srv_status_info, info.lte, info.lte_domain, info.lte_capability);
  fill(out.nr5g_srv_status_info_valid, out.nr5g_srv_status_info, info.nr5g, info.nr5g_domain, info.nr5g_capability);
  out.nr5g_pci_valid = info.nr5g_pci >= 0;
  if (out.nr5g_pci_valid) {
    out.nr5g_pci = static_cast<uint16_t>(info.nr5g_pci);
  }
}

/** Copy a scenario's list into a message's: at most as many as there is room for. */
template <typename from, typename to, size_t capacity, typename convert>
uint32_t sim_nas_copy(const std::vector<from> &list, to (&out)[capacity], convert &&entry) {
  const size_t count = std::min(list.size(), capacity);
  for (size_t i = 0; i < count; i++) {
    entry(list[i], out[i]);
  }
  return static_cast<uint32_t>(count);
}

template <typename number, size_t capacity>
uint32_t sim_nas_copy(const std::vector<number> &list, number (&out)[capacity]) {
  return sim_nas_copy(list, out, [](const number &from, number &to) { to = from; });
}

#endif
