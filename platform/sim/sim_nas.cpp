/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The NAS service: dispatch of the requests by one table, and the indications that it sends to whoever registered.
 */
#include "sim_nas.h"

#include <algorithm>

namespace {

using sim_nas_handler = void (*)(sim_nas_call &);

// A handler takes the structs of its message; these make one shape of the three.

template <auto handler, typename resp_t>
void adapted(sim_nas_call &call, void (*)(resp_t &)) {
  handler(*static_cast<resp_t *>(call.resp));
}

template <auto handler, typename req_t, typename resp_t>
void adapted(sim_nas_call &call, void (*)(const req_t &, resp_t &)) {
  handler(*static_cast<const req_t *>(call.req), *static_cast<resp_t *>(call.resp));
}

template <auto handler, typename req_t>
void adapted(sim_nas_call &call, void (*)(sim_nas_call &, const req_t &)) {
  handler(call, *static_cast<const req_t *>(call.req));
}

template <auto handler>
void adapt(sim_nas_call &call) {
  adapted<handler>(call, handler);
}

struct sim_nas_row {
  uint32_t id;
  sim_nas_handler handler;
};

constexpr sim_nas_row handlers[] = {
    {YRP_NAS_INDICATION_REGISTER, adapt<sim_nas_indication_register>},
    {YRP_NAS_GET_RF_BAND_INFO, adapt<sim_nas_get_rf_band_info>},
    {YRP_NAS_GET_CELL_LOCATION_INFO, adapt<sim_nas_get_cell_location_info>},
    {YRP_NAS_GET_SYS_INFO, adapt<sim_nas_get_sys_info>},
    {YRP_NAS_GET_SIG_INFO, adapt<sim_nas_get_sig_info>},
    {YRP_NAS_GET_TX_RX_INFO, adapt<sim_nas_get_tx_rx_info>},
    {YRP_NAS_CONFIG_SIG_INFO, adapt<sim_nas_config_sig_info>},
    {YRP_NAS_INCREMENTAL_NETWORK_SCAN, adapt<sim_nas_incremental_scan>},
    {YRP_NAS_GET_CPHY_CA_INFO, adapt<sim_nas_get_cphy_ca_info>},
    {YRP_NAS_GET_RRC_STATE, adapt<sim_nas_get_rrc_state>},
    {YRP_NAS_SET_LTE_CELL_LOCK_LIST, adapt<sim_nas_set_lte_cell_lock_list>},
    {YRP_NAS_SET_NR5G_CELL_LOCK_LIST, adapt<sim_nas_set_nr5g_cell_lock_list>},
    {YRP_NAS_GET_NR5G_CELL_LOCK_LIST, adapt<sim_nas_get_nr5g_cell_lock_list>},
    {YRP_NAS_SET_PPS_CONFIG, adapt<sim_nas_set_pps_config>},
    {YRP_NAS_SET_PPS_CHANGE_STATUS, adapt<sim_nas_set_pps_change_status>},
    {YRP_NAS_SET_NR5G_DEPRIORITIZE, adapt<sim_nas_set_nr5g_deprioritize>},
    {YRP_NAS_GET_CQI_INFO, adapt<sim_nas_get_cqi_info>},
    {YRP_NAS_SET_INSTALL_MODE, adapt<sim_nas_set_install_mode>},
    {YRP_NAS_GET_LTE_CELL_LOCK_LIST, adapt<sim_nas_get_lte_cell_lock_list>},
};

bool has_service(sim_srv srv) {
  return srv == sim_srv::service || srv == sim_srv::limited || srv == sim_srv::limited_regional;
}

/** Send one record to every client that registered for it. */
template <typename record>
void send_registered(bool sim_registration::*wanted, uint32_t id, const record &ind) {
  for (const auto &[handle, client] : sim_board_raw().clients) {
    if (client->nas.*wanted) {
      sim_indicate_to(handle, sim_lib::nas, id, &ind);
    }
  }
}

}  // namespace

void sim_nas_answer(sim_client &client, yrp_client_type handle, uint32_t id, const void *req, void *resp,
                    std::vector<std::function<void()>> &then) {
  const auto row = std::find_if(std::begin(handlers), std::end(handlers),
                                [id](const sim_nas_row &candidate) { return candidate.id == id; });
  sim_nas_call call = {client, handle, req, resp, then};
  row->handler(call);
}

bool sim_nas_answers(uint32_t id) {
  return std::any_of(std::begin(handlers), std::end(handlers), [id](const sim_nas_row &row) { return row.id == id; });
}

/** De-prioritised, NR 5G is left for LTE where LTE is there to fall back to. */
sim_sys_info sim_nas_sys_info() {
  const sim_state &board = sim_board_raw();
  sim_sys_info info = board.now.sys_info;
  if (!board.nas.deprioritized || !has_service(info.lte)) {
    return info;
  }
  info.nr5g_pci = -1;
  if (info.nr5g != sim_srv::absent) {
    info.nr5g = sim_srv::no_service;
  }
  return info;
}

bool sim_lte_on() {
  return has_service(sim_board_raw().now.sys_info.lte);
}

bool sim_nr5g_on() {
  const sim_sys_info info = sim_nas_sys_info();
  return has_service(info.nr5g) || (info.nr5g_pci >= 0 && has_service(info.lte));
}

void sim_nas_send_sys_info() {
  yrp_nas_sys_info_ind_t ind = {};
  sim_nas_fill_sys_info(ind, sim_nas_sys_info());
  send_registered(&sim_registration::sys_info, YRP_NAS_SYS_INFO_IND, ind);
}

void sim_nas_send_panel(const sim_ev_panel &event) {
  const yrp_nas_pps_ind_t ind = {event.index, event.changed, event.mode};
  send_registered(&sim_registration::panel, YRP_NAS_PPS_IND, ind);
}

void sim_nas_send_install_status(uint32_t status) {
  const yrp_nas_install_status_ind_t ind = {1, status};
  send_registered(&sim_registration::install_status, YRP_NAS_INSTALL_STATUS_IND, ind);
}

void sim_nas_send_install_measurement(const std::vector<sim_install_freq> &freqs, bool valid) {
  yrp_nas_install_freq_ind_t ind = {};
  ind.freq_valid = valid;
  ind.freq_len = sim_nas_copy(freqs, ind.freqs, [](const sim_install_freq &from, auto &to) {
    to = {from.arfcn, from.band, from.scs, from.rsrp, from.snr};
  });
  send_registered(&sim_registration::install_meas, YRP_NAS_INSTALL_FREQ_IND, ind);
}
